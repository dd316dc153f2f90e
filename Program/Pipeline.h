#pragma once

#include "Program/Events.h"
#include "Program/Files/Encode.h"
#include "Program/Files/ImageFile.h"
#include "Program/Plan.h"

#include <cstdint>
#include <filesystem>
#include <vector>

namespace Tessaloom::BilateralBlur::Program {

/// How all frames are made.
struct Settings {
    std::filesystem::path module;
    std::vector<std::int32_t> values; ///< of the effect's sliders, in the order of their declaration
    ReadOptions reading{};
    WriteOptions writing{};
    bool verbose = false; ///< let the module and the libraries print on standard error
};

/// Reads, filters and writes the jobs with the indices `todo`, and reports each of them to `events`; what
/// fails doesn't keep the others from being done.
/// `standardOutput` is a file descriptor for the output "-".
///
/// The effect is set up while the first image is read. Reading and filtering have one thread each, writing
/// one for each core that the process may use, since it is the slowest step of most sequences and libraries
/// encode an image on one core. At most one image waits between two steps, and an image is read only
/// where there is memory for it beside those on their way, or none is, so memory doesn't grow with the number
/// of jobs. Where the system refuses a thread, the calling thread does its work.
void runPipeline(const std::vector<Job>& jobs, const std::vector<int>& todo, const Settings& settings,
                 int standardOutput, EventWriter& events);

} // namespace Tessaloom::BilateralBlur::Program
