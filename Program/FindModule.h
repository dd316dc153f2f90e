#pragma once

#include <filesystem>

namespace Tessaloom::BilateralBlur::Program {

/// The module to load where --module isn't given: beside the program, where an installation puts it, or
/// where the build makes it. Throws Failure where it is in none of these places.
std::filesystem::path findModule();

} // namespace Tessaloom::BilateralBlur::Program
