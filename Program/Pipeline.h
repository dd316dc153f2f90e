#pragma once

#include "Program/Events.h"
#include "Program/Files/Encode.h"
#include "Program/Files/ImageFile.h"
#include "Program/Run.h"

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

/// What one process does of a run.
struct Round {
    std::vector<int> jobs; ///< their indices
    bool readsAhead;       ///< the first images are read while the effect is set up
};

/// Reads, filters and writes the jobs of a round, and reports each of them to `events`, and when the effect is
/// set up; what fails doesn't keep the others from being done.
/// `standardOutput` is a file descriptor for the output "-".
///
/// Reading and filtering have one thread each, writing
/// one for each core that the process may use, since it is the slowest step of most sequences and libraries
/// encode an image on one core. At most one image waits between two steps, and an image is read only
/// where there is memory for it beside those on their way, or none is, so memory doesn't grow with the number
/// of jobs. Where the system refuses a thread, the calling thread does its work.
void runPipeline(const std::vector<Job>& jobs, const Round& round, const Settings& settings,
                 int standardOutput, EventWriter& events);

} // namespace Tessaloom::BilateralBlur::Program
