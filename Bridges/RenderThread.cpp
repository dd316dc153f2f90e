#include "Bridges/RenderThread.h"

#include "Host/Effect.h"
#include "Host/Module.h"
#include "Host/Pixels.h"
#include "Host/World.h"
#include "Platform/SignalsBlocked.h"
#include "Plugins/BilateralBlur/Sources/BilateralBlur.h"
#include "Plugins/BilateralBlur/Sources/BilateralBlurDeclaration.h"

#include <cstring>
#include <optional>
#include <stdexcept>
#include <utility>

namespace Tessaloom::BilateralBlur::Bridges {

namespace {

Host::Resource declaredResource() {
    Host::Resource resource;
    resource.name = kDeclaration.name;
    resource.version = kDeclaration.packedVersion;
    resource.outFlags = kDeclaration.outFlags;
    resource.outFlags2 = kDeclaration.outFlags2;
    for (const Slider& slider : kSliders)
        resource.sliders.push_back({.name = slider.name,
                                    .key = slider.key,
                                    .description = slider.description,
                                    .minimum = slider.minimum,
                                    .maximum = slider.maximum,
                                    .defaultValue = slider.defaultValue,
                                    .steps = slider.steps,
                                    .isDistance = slider.isDistance,
                                    .isRequired = slider.isRequired});
    return resource;
}

std::size_t rowBytes(const Frame& frame) {
    return std::size_t{4} * frame.width;
}

template<class Byte>
Byte* rowOf(Byte* pixels, const Frame& frame, int y) {
    return pixels + rowBytes(frame) * static_cast<std::size_t>(y);
}

/// The effect and its worlds, which are kept from frame to frame. All of it belongs to one thread.
class Studio {
public:
    /// Sets the effect up with the first frame. Throws std::exception with what went wrong.
    void render(const Frame& frame) {
        if (!mEffect)
            mEffect.emplace(mModule);
        read(frame);
        const Host::Result result = mEffect->render(mInput, mOutput, frame.values);
        if (!result.ok())
            throw std::runtime_error(result.text());
        for (int y = 0; y < mOutput.height; ++y)
            Host::packRow(mOutput.row(y), mOutput.width, 4, rowOf(frame.output, frame, y));
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
            Host::unpackRow(rowOf(frame.input, frame, y), 4, width, mInput.row(y));
    }

    const Host::Module mModule{EntryPointFunc, declaredResource()};
    std::optional<Host::Effect> mEffect;
    Host::World mInput{0, 0};
    Host::World mOutput{0, 0};
};

} // namespace

struct RenderThread::AtExit {
    ~AtExit() { shared().close(); }
};

RenderThread& RenderThread::shared() {
    static RenderThread& kShared = *new RenderThread;
    return kShared;
}

void RenderThread::enter() {
    ++mInstances;
}

void RenderThread::leave() {
    if (--mInstances > 0)
        return;
    {
        // When the process exits, the GL driver may be gone already.
        const std::lock_guard lock(mMutex);
        if (mClosed)
            return;
    }
    const std::lock_guard turn(mTurn);
    // Another instance may have come meanwhile.
    if (mInstances == 0 && mThread.joinable())
        stop();
}

void RenderThread::filter(const Frame& frame, void (*report)(const char* reason)) noexcept {
    if (frame.width == 0 || frame.height == 0)
        return;
    const std::lock_guard turn(mTurn);
    try {
        render(frame);
    } catch (const std::exception& failure) {
        std::memmove(frame.output, frame.input, rowBytes(frame) * frame.height);
        if (!std::exchange(mHasReported, true))
            report(failure.what());
    }
}

void RenderThread::render(const Frame& frame) {
    if (!mThread.joinable())
        start();
    std::unique_lock lock(mMutex);
    if (mClosed) {
        mHasReported = true; // not worth a message
        throw std::runtime_error("the process exits");
    }
    mFrame = &frame;
    mChanged.notify_all();
    mChanged.wait(lock, [this] { return !mFrame; });
    if (const std::exception_ptr failure = std::exchange(mFailure, nullptr))
        std::rethrow_exception(failure);
}

void RenderThread::start() {
    const SignalsBlocked blocked;
    mStopping = false;
    mThread = std::thread([this] { serve(); });
}

void RenderThread::stop() {
    {
        const std::lock_guard lock(mMutex);
        mStopping = true;
    }
    mChanged.notify_all();
    mThread.join();
}

void RenderThread::serve() {
    Studio studio;
    std::unique_lock lock(mMutex);
    while (true) {
        mChanged.wait(lock, [this] { return mFrame || mStopping; });
        if (!mFrame)
            return;
        lock.unlock();
        std::exception_ptr failure;
        try {
            studio.render(*mFrame);
        } catch (...) {
            failure = std::current_exception();
        }
        // Constructed only after the driver was loaded, and so destroyed before the driver's own statics are.
        static const AtExit kAtExit;
        lock.lock();
        mFailure = std::move(failure);
        mFrame = nullptr;
        mChanged.notify_all();
    }
}

// A host may exit from a signal handler on a thread that waits for a frame. So this doesn't wait for its
// turn, but only for the frame that is being rendered.
void RenderThread::close() {
    std::unique_lock lock(mMutex);
    mClosed = true;
    mChanged.wait(lock, [this] { return !mFrame; });
}

} // namespace Tessaloom::BilateralBlur::Bridges
