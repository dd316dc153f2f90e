#pragma once

#include "Plugins/Shared/Effect/LinkedEffect.h"

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

namespace Tessaloom::BilateralBlur::Bridges {

/// What a sample is: a byte, 16 bits of full scale 65535, or a float of full scale 1.
enum class Samples : char { Bytes, Words, Floats };

/// What is asked of an effect: to filter an image of `width` by `height` pixels of samples, 1 grey, 2 grey and alpha, 3
/// red, green and blue, or 4 with alpha, which is straight. An effect has to take floats for samples that aren't bytes.
/// Input and output may be the same memory.
struct Request {
    /// A value for each slider, in the order of the declaration; the rest is ignored.
    using Values = std::array<std::int32_t, kMostSliders>;

    const LinkedEffect& effect;
    unsigned width = 0, height = 0;
    const void* input = nullptr; ///< of the top row
    void* output = nullptr;      ///< of the top row
    Values values{};             ///< each within its slider's range
    Samples samples = Samples::Bytes;
    int channels = 4;
    /// From row to row, in bytes; 0 means that rows have no gaps.
    std::ptrdiff_t inputStride = 0, outputStride = 0;
};

/// What has come of a request.
struct Outcome {
    enum class Kind : char { Filtered, OutOfMemory, Fork, Exit, Failed };

    Kind kind = Kind::Filtered;
    std::string reason{}; ///< of a failure, one line without a newline
};

/// The one place where effects run: a thread of its own that renders the images of all instances, one at
/// a time. So the GL contexts that the host has current on its threads are never touched, and the effects have
/// no more contexts than one thread needs, however many threads the host has. The thread receives no signals.
///
/// The thread starts with the first image, and an effect is set up with its first; all end with the last instance, and
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

    /// Filters an image. Where that fails the output stays as it is. Any thread may call.
    Outcome render(const Request& request) noexcept;

    /// Filters an image without gaps between rows, or copies it unchanged if that fails. Of all failures in the
    /// process, only the first is reported: `report` gets the reason, one line without a newline. Any thread may call.
    void filter(const Request& request, void (*report)(const char* reason)) noexcept;

private:
    struct AtExit;
    struct AtThreadEnd;

    RenderThread() = default;
    bool isFork() const;
    Outcome take(const Request& request);
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
    const Request* mRequest = nullptr; // the image to render
    Outcome mOutcome;                  // what has come of the last one
    bool mHasRendered = false;
    bool mStopping = false;
    bool mClosed = false;
};

} // namespace Tessaloom::BilateralBlur::Bridges
