#pragma once

#include "Program/Events.h"
#include "Program/Plan.h"

#include <cstdint>
#include <filesystem>
#include <vector>

namespace Tessaloom::BilateralBlur::Program {

/// How all frames are made.
struct Settings {
    std::filesystem::path module;
    std::vector<std::int32_t> values; ///< of the effect's sliders, in the order of their declaration
    bool verbose = false;             ///< let the module and the libraries print on standard error
};

/// Reads, filters and writes the jobs with the indices `todo`, and reports each of them to `events`; what
/// fails doesn't keep the others from being done.
///
/// The effect is set up while the first picture is read. Reading and filtering have one thread each, writing
/// one for each core that the process may use, since it is the slowest step of most sequences and libraries
/// encode a picture on one core. At most one picture waits between two steps, so memory grows with the number
/// of cores and not with that of jobs. Where the system refuses a thread, the calling thread does its work.
void runPipeline(const std::vector<Job>& jobs, const std::vector<int>& todo, const Settings& settings,
                 EventWriter& events);

} // namespace Tessaloom::BilateralBlur::Program
