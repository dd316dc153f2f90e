#include "Bridges/RenderThread.h"

#include "Host/Effect.h"
#include "Host/Module.h"
#include "Host/Pixels.h"
#include "Host/World.h"
#include "Plugins/BilateralBlur/Sources/BilateralBlur.h"
#include "Plugins/BilateralBlur/Sources/BilateralBlurDeclaration.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <malloc.h>
#include <optional>
#include <utility>

namespace Tessaloom::BilateralBlur::Frei0r {

namespace {

Host::Resource declaredResource() {
    Host::Resource resource;
    resource.name = Declaration::kName;
    resource.version = Declaration::kPackedVersion;
    resource.outFlags = Declaration::kOutFlags;
    resource.outFlags2 = Declaration::kOutFlags2;
    return resource;
}

/// The effect and its worlds, which stay from frame to frame. All of it belongs to one thread.
class Studio {
public:
    /// Sets the effect up with the first frame. Returns what went wrong, empty for nothing.
    std::string render(const Frame& frame) try {
        if (!mEffect)
            mEffect.emplace(mModule);
        read(frame);
        const Host::Result result = mEffect->render(mInput, mOutput, frame.blurScale);
        if (!result.ok())
            return result.text();
        write(frame);
        return {};
    } catch (const std::exception& failure) {
        return failure.what();
    }

private:
    void read(const Frame& frame) {
        // A size that an int doesn't hold turns negative and is refused.
        const int width = static_cast<int>(frame.width), height = static_cast<int>(frame.height);
        if (mInput.width != width || mInput.height != height) {
            mInput = Host::World(width, height);
            mOutput = Host::World(width, height);
        }
        for (int y = 0; y < height; ++y)
            Host::unpackRow(bytes(frame.input) + rowStart(frame, y), 4, width, mInput.row(y));
    }

    void write(const Frame& frame) const {
        for (int y = 0; y < mOutput.height; ++y)
            Host::packRow(mOutput.row(y), mOutput.width, 4, bytes(frame.output) + rowStart(frame, y));
    }

    static std::size_t rowStart(const Frame& frame, int y) {
        return std::size_t{4} * frame.width * static_cast<std::size_t>(y);
    }
    static const std::uint8_t* bytes(const std::uint32_t* pixels) {
        return reinterpret_cast<const std::uint8_t*>(pixels);
    }
    static std::uint8_t* bytes(std::uint32_t* pixels) { return reinterpret_cast<std::uint8_t*>(pixels); }

    const Host::Module mModule{EntryPointFunc, declaredResource()};
    std::optional<Host::Effect> mEffect;
    Host::World mInput{0, 0};
    Host::World mOutput{0, 0};
};

/// Threads that begin within this scope get none of the program's signals.
class SignalsBlocked {
public:
    SignalsBlocked() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &mFormer);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &mFormer, nullptr); }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

private:
    sigset_t mFormer;
};

} // namespace

struct Renderer::AtExit {
    ~AtExit() { shared().close(); }
};

Renderer& Renderer::shared() {
    static Renderer& kRenderer = *new Renderer;
    return kRenderer;
}

void Renderer::enter() {
    ++mInstances;
}

void Renderer::leave() {
    if (--mInstances > 0)
        return;
    {
        // At the exit of the process the GL driver may be gone already.
        const std::lock_guard lock(mMutex);
        if (mClosed)
            return;
    }
    const std::lock_guard turn(mTurn);
    // Another instance may have come meanwhile.
    if (mInstances == 0 && mThread.joinable())
        stop();
}

void Renderer::filter(const Frame& frame) noexcept {
    if (frame.width == 0 || frame.height == 0)
        return;
    const std::lock_guard turn(mTurn);
    std::string failure;
    try {
        failure = failureOf(frame);
    } catch (const std::exception& exception) {
        failure = exception.what();
    }
    if (failure.empty())
        return;
    std::memmove(frame.output, frame.input, std::size_t{4} * frame.width * frame.height);
    if (!std::exchange(mHasComplained, true))
        std::fprintf(stderr, "%s: frames that can't be filtered stay as they are: %s\n", Declaration::kName,
                     failure.c_str());
}

std::string Renderer::failureOf(const Frame& frame) {
    if (!mThread.joinable())
        start();
    std::unique_lock lock(mMutex);
    if (mClosed) {
        mHasComplained = true; // no news for anybody
        return "the process exits";
    }
    mFrame = &frame;
    mChanged.notify_all();
    mChanged.wait(lock, [this] { return !mFrame; });
    return std::exchange(mFailure, {});
}

void Renderer::start() {
    const SignalsBlocked blocked;
    mStopping = false;
    mThread = std::thread([this] { serve(); });
}

void Renderer::stop() {
    {
        const std::lock_guard lock(mMutex);
        mStopping = true;
    }
    mChanged.notify_all();
    mThread.join();
    // The thread's arena keeps what the driver freed, and the program's next thread would start with it.
    malloc_trim(0);
}

void Renderer::serve() {
    Studio studio;
    std::unique_lock lock(mMutex);
    while (true) {
        mChanged.wait(lock, [this] { return mFrame || mStopping; });
        if (!mFrame)
            return;
        lock.unlock();
        std::string failure = studio.render(*mFrame);
        // Made only after the driver was loaded, and so destroyed before the driver's own things are.
        static const AtExit kAtExit;
        lock.lock();
        mFailure = std::move(failure);
        mFrame = nullptr;
        mChanged.notify_all();
    }
}

// A program may exit from a signal's handler on a thread that waits for a frame. So this doesn't wait for its
// turn, but only for the frame that is under way.
void Renderer::close() {
    std::unique_lock lock(mMutex);
    mClosed = true;
    mChanged.wait(lock, [this] { return !mFrame; });
}

} // namespace Tessaloom::BilateralBlur::Frei0r
