#pragma once

#include "Bridges/LinkedEffect.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

namespace Tessaloom::BilateralBlur::Bridges {

/// An image to filter: `width` by `height` pixels of four samples, red, green, blue and straight alpha, the top
/// row first, with no gap between rows. Samples are bytes, or floats of full scale 1 for an effect that takes
/// them. Input and output may be the same memory.
struct Image {
    unsigned width = 0, height = 0;
    const void* input = nullptr;
    void* output = nullptr;
    SliderValues values{}; ///< each within its slider's range
    bool hasFloats = false;
};

/// The one place where the effect runs: a thread of its own that renders the images of all instances, one at
/// a time. So the GL contexts that the host has current on its threads are never touched, and the effect has
/// no more contexts than one thread needs, however many threads the host has. The thread receives no signals.
///
/// The thread starts, and the effect is set up, with the first image; both end with the last instance, and
/// may start again. When the process exits while instances exist, the image that is being rendered is
/// finished and later ones pass through unfiltered.
///
/// In a fork of a process that has filtered, images pass through unfiltered: it has no such thread, and no
/// use of the GL driver.
class RenderThread {
public:
    /// The process's one. It is never destroyed, as threads may be in it when the process exits. Called once on
    /// the thread that loads a bridge, it lets that thread's exit wait for the first image too.
    static RenderThread& shared();

    /// Registers an instance. Costs nothing else.
    void enter();

    /// Unregisters an instance. The last one waits for the end of the effect and its thread.
    void leave();

    /// Filters an image, or copies it unchanged if that fails. Of all failures in the process, only the first
    /// is reported: `report` gets the reason, one line without a newline. Any thread may call.
    void filter(const Image& image, void (*report)(const char* reason)) noexcept;

private:
    struct AtExit;
    struct AtThreadEnd;

    RenderThread() = default;
    bool isFork() const;
    std::string render(const Image& image);
    void start();
    void stop();
    void serve();
    void waitForFirst();
    void close();

    std::atomic<int> mInstances{0};
    std::atomic<bool> mHasReported{false};
    std::atomic<bool> mHasFiltered{false};

    std::mutex mTurn; // held for the length of an image, and for a stop
    std::thread mThread;

    std::mutex mMutex; // guards the rest, and is never held for long
    std::condition_variable mChanged;
    const Image* mImage = nullptr; // the image to render
    std::string mFailure;          // why that failed, if it did
    bool mHasRendered = false;
    bool mStopping = false;
    bool mClosed = false;
};

} // namespace Tessaloom::BilateralBlur::Bridges
