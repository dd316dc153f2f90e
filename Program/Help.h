#pragma once

#include "Program/CommandLine.h"

#include <string>

namespace Tessaloom::BilateralBlur::Program {

/// The text of --help, in lines of at most 79 characters.
std::string helpText(const CommandLine& line);

} // namespace Tessaloom::BilateralBlur::Program
