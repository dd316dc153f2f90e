#pragma once

#include "Program/Options.h"
#include "Program/Run.h"

namespace Tessaloom::BilateralBlur::Program {

/// Finds the frames that a command line asks for. A pattern that is also an existing file means that file. No
/// input is opened.
///
/// OUTPUT of a single image is taken as it is. A gap between the frames that exist is a note.
/// Throws WrongUse where input and output don't go together, Failure where there is nothing to do or the
/// output's directory can't be written to.
Run makePlan(const Options& options);

} // namespace Tessaloom::BilateralBlur::Program
