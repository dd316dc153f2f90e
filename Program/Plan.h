#pragma once

#include "Program/Options.h"

#include <filesystem>
#include <string>
#include <vector>

namespace Tessaloom::BilateralBlur::Program {

/// A picture to filter.
struct Job {
    std::filesystem::path input, output;
    int frame; ///< 0 for a single picture
};

/// What the command line asks for.
struct Work {
    std::vector<Job> jobs;
    std::vector<std::string> notes;    ///< worth knowing before the work starts
    std::vector<std::string> failures; ///< frames that were asked for and can't be done
};

/// Finds the frames. A name that holds a number, but is the name of a file, is taken for that file.
///
/// A gap between the frames that exist is a note. A frame of --frames that doesn't exist is a failure.
/// Throws WrongUse where input and output don't go together, Failure where there is nothing to do or the
/// output's folder can't be written to.
Work planWork(const Options& options);

} // namespace Tessaloom::BilateralBlur::Program
