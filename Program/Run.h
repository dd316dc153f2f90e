#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace Tessaloom::BilateralBlur::Program {

struct Format;

/// How command lines call standard input and output.
inline constexpr const char* kStandardStream = "-";

/// An image to filter, and what has come of it.
struct Job {
    enum class State : char { Waiting, Started, Done, Failed };

    std::filesystem::path input, output;
    const Format* format = nullptr; ///< of the output; null for the input's
    int frame = 0;                  ///< its number in a sequence, else 0
    State state = State::Waiting;
    std::string reason{};             ///< why it failed; one line that names the file
    std::vector<std::string> notes{}; ///< worth knowing about it
};

/// The record of what a command line asks for and of what has come of it. Only the process that watches the
/// work writes to it once the work has begun.
struct Run {
    std::vector<Job> jobs{};          ///< those of frames that don't exist have failed from the start
    bool isSequence = false;          ///< the jobs are the frames of one sequence, rising
    std::vector<std::string> notes{}; ///< worth knowing before the work starts; each names its file
    std::string stopped{};            ///< why no further frame can be done; empty where they can
    bool isInterrupted = false;       ///< a signal has ended it

    /// The indices of the jobs with a state.
    std::vector<int> those(Job::State state) const;

    /// True where every job is done.
    bool isComplete() const { return those(Job::State::Done).size() == jobs.size(); }
};

/// How messages call an output.
std::string outputName(const std::filesystem::path& output);

} // namespace Tessaloom::BilateralBlur::Program
