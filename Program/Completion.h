#pragma once

#include "Program/CommandLine.h"

#include <string>

namespace Tessaloom::BilateralBlur::Program {

/// The text of --completion, a script that completes the options for "bash" or "fish".
std::string completionText(const std::string& shell, const CommandLine& line);

} // namespace Tessaloom::BilateralBlur::Program
