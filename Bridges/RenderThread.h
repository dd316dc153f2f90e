#pragma once

#include "Bridges/Sliders.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <mutex>
#include <thread>

namespace Tessaloom::BilateralBlur::Bridges {

/// A frame to filter: `width` by `height` pixels of four bytes, red, green, blue and straight alpha, the top
/// row first, with no gap between rows. Input and output may be the same memory.
struct Frame {
    unsigned width = 0, height = 0;
    const std::uint8_t* input = nullptr;
    std::uint8_t* output = nullptr;
    SliderValues values{}; ///< each within its slider's range
};

/// The one place where the effect runs: a thread of its own that renders the frames of all instances, one at
/// a time. So the GL contexts that the host has current on its threads are never touched, and the effect has
/// no more contexts than one thread needs, however many threads the host has. The thread receives no signals.
///
/// The thread starts, and the effect is set up, with the first frame; both end with the last instance, and
/// may start again. When the process exits while instances exist, the frame that is being rendered is
/// finished and later ones pass through unfiltered.
class RenderThread {
public:
    /// The process's one. It is never destroyed, as threads may be in it when the process exits.
    static RenderThread& shared();

    /// Registers an instance. Costs nothing else.
    void enter();

    /// Unregisters an instance. The last one waits for the end of the effect and its thread.
    void leave();

    /// Filters a frame, or copies it unchanged if that fails. Of all failures in the process, only the first
    /// is reported: `report` gets the reason, one line without a newline. Any thread may call.
    void filter(const Frame& frame, void (*report)(const char* reason)) noexcept;

private:
    struct AtExit;

    RenderThread() = default;
    void render(const Frame& frame);
    void start();
    void stop();
    void serve();
    void close();

    std::atomic<int> mInstances{0};

    std::mutex mTurn; // held for the length of a frame, and for a stop
    std::thread mThread;
    bool mHasReported = false;

    std::mutex mMutex; // guards the rest, and is never held for long
    std::condition_variable mChanged;
    const Frame* mFrame = nullptr; // the frame to render
    std::exception_ptr mFailure;   // why that failed, if it did
    bool mStopping = false;
    bool mClosed = false;
};

} // namespace Tessaloom::BilateralBlur::Bridges
