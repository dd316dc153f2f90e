#pragma once

#include "Program/Files/Bytes.h"

#include <filesystem>
#include <functional>
#include <span>
#include <string>

namespace Tessaloom::BilateralBlur::Program {

/// How messages call a file; "-" is "standard input".
std::string inputName(const std::filesystem::path& path);

/// All bytes of a file or pipe, or of standard input for "-". `isAccepted` sees the first bytes and answers
/// before the rest is read, so a file without end costs nothing. Throws Failure where the file can't be
/// opened or read, isn't accepted, or is larger than the memory that is available.
Bytes readInput(const std::filesystem::path& path,
                const std::function<bool(std::span<const std::byte>)>& isAccepted);

} // namespace Tessaloom::BilateralBlur::Program
