#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <span>

namespace Tessaloom::BilateralBlur::Program {

/// Writes a file as a whole or not at all: the bytes go into a temporary file beside it, which takes its
/// name when they are complete and on the disk. A file that had the name before stays until then, hands its
/// permissions on, and where it is a symbolic link, the file behind it is replaced.
///
/// The temporary has a name of its own, ".NAME.part": what a killed run left behind goes with the next run
/// that writes the same file. Two programs that write the same file at once don't mix: the second fails.
///
/// Throws Failure where the file can't be written or isn't a regular one; nothing is left then.
void replaceFile(const std::filesystem::path& path, std::span<const std::byte> bytes);

/// Throws Failure where `path` can't become a file: its folder is missing or can't be written to, or it is
/// a folder or another special file itself.
void checkReplaceable(const std::filesystem::path& path);

/// From here to the end of the process SIGINT, SIGTERM and SIGHUP remove the temporaries of `replaceFile`,
/// then call `lastWords`, then end the process in the way that they do by themselves. Signals that the
/// process was started to ignore stay ignored. A file over the size limit (SIGXFSZ) or a closed pipe
/// (SIGPIPE) ends no process any more; the write fails. To be called once, before any other thread starts.
void endCleanlyOnSignals(std::function<void()> lastWords);

} // namespace Tessaloom::BilateralBlur::Program
