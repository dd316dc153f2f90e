#pragma once

#include <cstddef>
#include <filesystem>
#include <span>

namespace Tessaloom::BilateralBlur::Program {

/// Writes a file as a whole or not at all: the bytes go into a temporary file beside it, which takes its
/// name when they are complete and on the disk. A file that had the name before stays until then; its
/// permissions are kept, and its owner and group where the system allows it. A symbolic link stays, and its
/// target is written.
///
/// The temporary has a name that every run knows, ".NAME.part": what a killed run left behind goes with the next
/// run that writes the same file. Two programs that write the same file at once don't mix: the second waits a
/// second for the first, then fails. On a file system without locks, and where that name is taken by something
/// that no run of this user made, it is ".NAME.PROCESS.part", and the last of two programs wins. The temporary
/// of a file that is replaced is its owner's alone to read.
///
/// Throws Failure where the file can't be written or isn't a regular one, CommonFailure where no other file
/// of the directory can be written either; nothing is left then.
void replaceFile(const std::filesystem::path& path, std::span<const std::byte> bytes);

/// Writes all bytes to the descriptor of standard output. Throws Failure where that fails.
void writeStandardOutput(int descriptor, std::span<const std::byte> bytes);

/// Throws Failure where `path` can't become a file: its directory is missing or can't be written to, or it is
/// write-protected, a directory or another special file itself.
void checkReplaceable(const std::filesystem::path& path);

/// Throws CommonFailure where the directory of `path` is missing.
void checkDirectoryExists(const std::filesystem::path& path);

/// Removes what a process that died in `replaceFile` may have left, unless another process is writing it.
void removeTemporary(const std::filesystem::path& path);

} // namespace Tessaloom::BilateralBlur::Program
