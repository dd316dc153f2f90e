#include "Bridges/RenderThread.h"

#include "Host/Effect.h"
#include "Host/Module.h"
#include "Host/Pixels.h"
#include "Host/World.h"
#include "Platform/MakerProcess.h"
#include "Platform/SignalsBlocked.h"

#include <cstring>
#include <exception>
#include <new>
#include <optional>
#include <utility>

namespace Tessaloom::BilateralBlur::Bridges {

namespace {

Host::Resource linkedResource() {
    const EffectDeclaration& declaration = linkedEffect().declaration;
    Host::Resource resource;
    resource.name = declaration.name;
    resource.version = declaration.packedVersion;
    resource.outFlags = declaration.outFlags;
    resource.outFlags2 = declaration.outFlags2;
    for (const SliderDeclaration& slider : declaration.sliders)
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

std::size_t samplesOfRow(const Image& image) {
    return std::size_t{4} * image.width;
}

void copy(const Image& image) {
    std::memmove(image.output, image.input,
                 (image.hasFloats ? sizeof(float) : 1) * samplesOfRow(image) * image.height);
}

template<class Pixel, class Sample>
void read(const Image& image, Host::World& world) {
    const Sample* samples = static_cast<const Sample*>(image.input);
    for (int y = 0; y < world.height; ++y, samples += samplesOfRow(image))
        Host::unpackRow(samples, 4, world.width, world.row<Pixel>(y));
}

template<class Pixel, class Sample>
void write(const Host::World& world, const Image& image) {
    Sample* samples = static_cast<Sample*>(image.output);
    for (int y = 0; y < world.height; ++y, samples += samplesOfRow(image))
        Host::packRow(world.row<Pixel>(y), world.width, 4, samples);
}

/// The effect, from setup to setdown, and its worlds, which are kept from image to image. All of it belongs
/// to one thread.
class Studio {
public:
    /// Returns what went wrong, in one line; empty if nothing did.
    std::string render(const Image& image) {
        take(image);
        const Host::Result result =
            mEffect.render(mInput, mOutput, {image.values.data(), linkedEffect().declaration.sliders.size()});
        if (!result.ok())
            return result.text();
        if (image.hasFloats)
            write<PF_PixelFloat, float>(mOutput, image);
        else
            write<PF_Pixel8, std::uint8_t>(mOutput, image);
        return "";
    }

private:
    void take(const Image& image) {
        // A size that an int doesn't hold turns negative and is refused.
        const int width = static_cast<int>(image.width), height = static_cast<int>(image.height);
        const std::int32_t format = image.hasFloats ? PF_PixelFormat_ARGB128 : PF_PixelFormat_ARGB32;
        if (mInput.width != width || mInput.height != height || mInput.format() != format) {
            mInput = Host::World(width, height, format);
            mOutput = Host::World(width, height, format);
        }
        if (image.hasFloats)
            read<PF_PixelFloat, float>(image, mInput);
        else
            read<PF_Pixel8, std::uint8_t>(image, mInput);
    }

    const Host::Module mModule{linkedEffect().entry, linkedResource()};
    Host::Effect mEffect{mModule};
    Host::World mInput{0, 0};
    Host::World mOutput{0, 0};
};

/// The process of the first call.
const MakerProcess& filteringProcess() {
    static const MakerProcess kProcess;
    return kProcess;
}

/// What `work` returns: why it failed, in one line, empty if it didn't. Exceptions count as failures; short
/// texts need no memory.
template<class Work>
std::string failureOf(Work work) {
    try {
        try {
            return work();
        } catch (const std::bad_alloc&) {
            return "out of memory";
        } catch (const std::exception& exception) {
            return exception.what();
        }
    } catch (const std::bad_alloc&) {
        return "out of memory";
    }
}

} // namespace

// At its exit a process first ends what belongs to the exiting thread, then what is left, the last made first; what
// the driver makes in the setup and with the first image is among that. So the first image is waited for by a
// thread's end, and later ones by an object that is made after the first. A thread that exits without ever having
// called the bridge doesn't wait for the first; threads that load a bridge call it.

struct RenderThread::AtThreadEnd {
    ~AtThreadEnd() { shared().waitForFirst(); }
};

struct RenderThread::AtExit {
    ~AtExit() { shared().close(); }
};

RenderThread& RenderThread::shared() {
    static RenderThread& kShared = *new RenderThread;
    static const AtExit kAtExit;
    static thread_local const AtThreadEnd kAtThreadEnd;
    return kShared;
}

bool RenderThread::isFork() const {
    return mHasFiltered && !filteringProcess().isThisOne();
}

void RenderThread::enter() {
    ++mInstances;
}

void RenderThread::leave() {
    if (--mInstances > 0 || isFork())
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

void RenderThread::filter(const Image& image, void (*report)(const char* reason)) noexcept {
    if (image.width == 0 || image.height == 0)
        return;
    filteringProcess();
    mHasFiltered = true;
    const std::string failure = failureOf([&]() -> std::string {
        if (isFork())
            return "this process is a fork of the one that filters";
        return render(image);
    });
    if (failure.empty())
        return;
    copy(image);
    if (!mHasReported.exchange(true))
        report(failure.c_str());
}

std::string RenderThread::render(const Image& image) {
    const std::lock_guard turn(mTurn);
    std::unique_lock lock(mMutex);
    if (mClosed) {
        mHasReported = true; // not worth a message
        return "the process exits";
    }
    if (!mThread.joinable())
        start();
    mImage = &image;
    mChanged.notify_all();
    mChanged.wait(lock, [this] { return !mImage; });
    return std::exchange(mFailure, {});
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
    std::optional<Studio> studio;
    std::unique_lock lock(mMutex);
    while (true) {
        mChanged.wait(lock, [this] { return mImage || mStopping; });
        if (!mImage)
            break;
        lock.unlock();
        std::string failure = failureOf([&] {
            if (!studio)
                studio.emplace();
            return studio->render(*mImage);
        });
        static const AtExit kAfterTheDriver;
        lock.lock();
        mHasRendered = true;
        mFailure = std::move(failure);
        mImage = nullptr;
        mChanged.notify_all();
    }
    mHasRendered = false;
}

void RenderThread::waitForFirst() {
    if (isFork())
        return;
    std::unique_lock lock(mMutex);
    mChanged.wait(lock, [this] { return mHasRendered || !mImage; });
}

// A host may exit from a signal handler on a thread that waits for an image. So this doesn't wait for its
// turn, but only for the image that is being rendered.
void RenderThread::close() {
    if (isFork())
        return;
    std::unique_lock lock(mMutex);
    mClosed = true;
    mChanged.wait(lock, [this] { return !mImage; });
}

} // namespace Tessaloom::BilateralBlur::Bridges
