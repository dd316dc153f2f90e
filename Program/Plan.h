#pragma once

#include "Program/Files/ImageFile.h"
#include "Program/Options.h"

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace Tessaloom::BilateralBlur::Program {

/// How command lines call standard input and output.
inline constexpr const char* kStandardStream = "-";

/// How messages call an output.
std::string outputName(const std::filesystem::path& output);

/// An image to filter.
struct Job {
    std::filesystem::path input, output;
    const Format* format;                ///< of the output; null for the input's
    int frame;                           ///< 0 for a single image
    std::shared_ptr<ImageFile> opened{}; ///< a single image, whose pipe can be read only once
};

/// What the command line asks for.
struct Plan {
    std::vector<Job> jobs;
    std::vector<std::string> notes{}; ///< worth knowing before the work starts
    std::vector<int> missing{};       ///< frames of --frames that don't exist, rising
};

/// Finds the frames. A pattern that is also an existing file means that file.
///
/// OUTPUT of a single image is taken as it is. A gap between the frames that exist is a note.
/// Throws WrongUse where input and output don't go together, Failure where there is nothing to do or the
/// output's directory can't be written to.
Plan makePlan(const Options& options);

} // namespace Tessaloom::BilateralBlur::Program
