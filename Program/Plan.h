#pragma once

#include "Program/Options.h"
#include "Program/Run.h"

namespace Tessaloom::BilateralBlur::Program {

/// Finds the images that a command line asks for: files, frames of sequences, and in a directory the files whose
/// names have an extension of a format. A pattern that is also an existing file means that file. No input is opened.
///
/// OUTPUT of a single image is taken as it is. Several inputs, a directory among them or as OUTPUT, are written
/// into OUTPUT under their own names. A gap between the frames that exist, and what is left out, is a note.
/// Throws WrongUse where input and output don't go together, two inputs would write one file or an input in a
/// directory would be replaced, Failure where there is nothing to do or the output's directory can't be written to.
Run makePlan(const Options& options);

} // namespace Tessaloom::BilateralBlur::Program
