#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

namespace Tessaloom::BilateralBlur::Program {

/// What the process that does the work reports to the one that watches it.
struct Event {
    enum class Kind : std::int32_t {
        Ready,   ///< the effect is set up; `job` is meaningless
        Started, ///< a job's image is being read
        Step,    ///< `text` says what is being done for it, as "filtering 5472 x 4104 pixels"
        Done,    ///< its output is complete
        Failed,  ///< it has no output; `text` says why
        Note,    ///< `text` is worth knowing about it
        Stopped, ///< no job can be done any more; `text` says why, `job` is meaningless
    };
    Kind kind;
    std::int32_t job; ///< its index
    std::string text{};
};

/// The sending end. Any thread may send.
class EventWriter {
public:
    /// @param pipe the writing end of a pipe; stays the caller's.
    explicit EventWriter(int pipe) : mPipe(pipe) {}

    /// Returns when the event is in the pipe. Without a reader the event is lost.
    void send(const Event& event);

private:
    const int mPipe;
    std::mutex mMutex;
};

/// The receiving end.
class EventReader {
public:
    /// @param pipe the reading end of a pipe; stays the caller's.
    explicit EventReader(int pipe) : mPipe(pipe) {}

    /// Waits for bytes and keeps them for `next`. False where the writer has closed the pipe.
    bool receive();

    /// The next event of those received, if it is complete.
    std::optional<Event> next();

private:
    const int mPipe;
    std::string mBytes;
};

} // namespace Tessaloom::BilateralBlur::Program
