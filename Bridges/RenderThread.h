#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

namespace Tessaloom::BilateralBlur::Frei0r {

/// A frame to filter: `width` by `height` pixels of four bytes, red, green, blue and straight alpha, the top
/// row first, with no gap between rows. Input and output may be the same memory.
struct Frame {
    unsigned width = 0, height = 0;
    const std::uint32_t* input = nullptr;
    std::uint32_t* output = nullptr;
    std::int32_t blurScale = 0; ///< within the slider's range
};

/// The one place where the effect runs: a thread of its own, through which the frames of all instances go,
/// one at a time. So the GL contexts that the program has current on its threads are never touched, and there
/// are no more of the effect's contexts than one thread needs, however many threads the program has.
///
/// The thread begins, and the effect is set up, with the first frame; both end with the last instance, and
/// may begin anew. When the process exits while instances live on, a frame that is under way is finished and
/// later ones go through unchanged.
class Renderer {
public:
    /// The process's one. It is never destroyed, as threads may be in it when the process exits.
    static Renderer& shared();

    /// Counts an instance. Costs nothing else.
    void enter();

    /// Counts it out. The last one waits for the end of the effect and its thread.
    void leave();

    /// Filters a frame, or copies it unchanged where that fails. Of all failures in the process, the first is
    /// told on standard error. Any thread may call.
    void filter(const Frame& frame) noexcept;

private:
    struct AtExit;

    Renderer() = default;
    std::string failureOf(const Frame& frame);
    void start();
    void stop();
    void serve();
    void close();

    std::atomic<int> mInstances{0};

    std::mutex mTurn; // held for the length of a frame, and for a stop
    std::thread mThread;
    bool mHasComplained = false;

    std::mutex mMutex; // guards the rest, and is never held for long
    std::condition_variable mChanged;
    const Frame* mFrame = nullptr; // what the thread has to do
    std::string mFailure;          // what came of it
    bool mStopping = false;
    bool mClosed = false;
};

} // namespace Tessaloom::BilateralBlur::Frei0r
