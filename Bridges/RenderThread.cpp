#include "Bridges/RenderThread.h"

#include "Host/Effect.h"
#include "Host/Module.h"
#include "Host/Pixels.h"
#include "Host/World.h"
#include "Platform/MakerProcess.h"
#include "Platform/SignalsBlocked.h"

#include <cstring>
#include <exception>
#include <map>
#include <new>
#include <type_traits>
#include <utility>

namespace Tessaloom::BilateralBlur::Bridges {

namespace {

Host::Resource resourceOf(const EffectDeclaration& declaration) {
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

std::size_t rowBytes(const Request& request) {
    const std::size_t sample = request.samples == Samples::Bytes   ? 1
                               : request.samples == Samples::Words ? 2
                                                                   : 4;
    return sample * request.channels * request.width;
}

void copy(const Request& request) {
    std::memmove(request.output, request.input, rowBytes(request) * request.height);
}

/// The address of a row.
template<class Sample>
Sample* rowAt(Sample* top, std::ptrdiff_t stride, const Request& request, int y) {
    using Byte = std::conditional_t<std::is_const_v<Sample>, const std::byte, std::byte>;
    const std::ptrdiff_t distance = stride ? stride : static_cast<std::ptrdiff_t>(rowBytes(request));
    return reinterpret_cast<Sample*>(reinterpret_cast<Byte*>(top) + distance * y);
}

template<class Pixel, class Sample>
void read(const Request& request, Host::World& world) {
    for (int y = 0; y < world.height; ++y)
        Host::unpackRow(rowAt(static_cast<const Sample*>(request.input), request.inputStride, request, y),
                        request.channels, world.width, world.row<Pixel>(y));
}

template<class Pixel, class Sample>
void write(const Host::World& world, const Request& request) {
    for (int y = 0; y < world.height; ++y)
        Host::packRow(world.row<Pixel>(y), world.width, request.channels,
                      rowAt(static_cast<Sample*>(request.output), request.outputStride, request, y));
}

/// An effect, from setup to setdown, and its worlds, which are kept from image to image. All of it belongs
/// to one thread.
class Studio {
public:
    explicit Studio(const LinkedEffect& linked)
        : mLinked(linked), mModule(linked.entry, resourceOf(linked.declaration)) {}

    Outcome render(const Request& request) {
        take(request);
        const Host::Result result =
            mEffect.render(mInput, mOutput, {request.values.data(), mLinked.declaration.sliders.size()});
        if (!result.ok())
            return {result.code == PF_Err_OUT_OF_MEMORY ? Outcome::Kind::OutOfMemory : Outcome::Kind::Failed,
                    result.text()};
        switch (request.samples) {
        case Samples::Bytes:
            write<PF_Pixel8, std::uint8_t>(mOutput, request);
            break;
        case Samples::Words:
            write<PF_PixelFloat, std::uint16_t>(mOutput, request);
            break;
        case Samples::Floats:
            write<PF_PixelFloat, float>(mOutput, request);
        }
        return {};
    }

private:
    void take(const Request& request) {
        // A size that an int doesn't hold turns negative and is refused.
        const int width = static_cast<int>(request.width), height = static_cast<int>(request.height);
        const std::int32_t format =
            request.samples == Samples::Bytes ? PF_PixelFormat_ARGB32 : PF_PixelFormat_ARGB128;
        if (mInput.width != width || mInput.height != height || mInput.format() != format) {
            mInput = Host::World(width, height, format);
            mOutput = Host::World(width, height, format);
        }
        switch (request.samples) {
        case Samples::Bytes:
            return read<PF_Pixel8, std::uint8_t>(request, mInput);
        case Samples::Words:
            return read<PF_PixelFloat, std::uint16_t>(request, mInput);
        case Samples::Floats:
            return read<PF_PixelFloat, float>(request, mInput);
        }
    }

    const LinkedEffect& mLinked;
    const Host::Module mModule;
    Host::Effect mEffect{mModule};
    Host::World mInput{0, 0};
    Host::World mOutput{0, 0};
};

/// The process of the first call.
const MakerProcess& filteringProcess() {
    static const MakerProcess kProcess;
    return kProcess;
}

/// What `work` returns. Exceptions count as failures; short texts need no memory.
template<class Work>
Outcome outcomeOf(Work work) noexcept {
    const auto outOfMemory = [] { return Outcome{Outcome::Kind::OutOfMemory, "out of memory"}; };
    try {
        try {
            return work();
        } catch (const std::bad_alloc&) {
            return outOfMemory();
        } catch (const std::exception& exception) {
            return {Outcome::Kind::Failed, exception.what()};
        }
    } catch (const std::bad_alloc&) {
        return outOfMemory();
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

Outcome RenderThread::render(const Request& request) noexcept {
    return outcomeOf([&]() -> Outcome {
        filteringProcess();
        mHasFiltered = true;
        if (isFork())
            return {Outcome::Kind::Fork, "this process is a fork of the one that filters"};
        return take(request);
    });
}

void RenderThread::filter(const Request& request, void (*report)(const char* reason)) noexcept {
    if (request.width == 0 || request.height == 0)
        return;
    const Outcome outcome = render(request);
    if (outcome.kind == Outcome::Kind::Filtered)
        return;
    copy(request);
    // The end of the process isn't worth a message.
    if (!mHasReported.exchange(true) && outcome.kind != Outcome::Kind::Exit)
        report(outcome.reason.c_str());
}

Outcome RenderThread::take(const Request& request) {
    const std::lock_guard turn(mTurn);
    std::unique_lock lock(mMutex);
    if (mClosed)
        return {Outcome::Kind::Exit, "the process exits"};
    if (!mThread.joinable())
        start();
    mRequest = &request;
    mChanged.notify_all();
    mChanged.wait(lock, [this] { return !mRequest; });
    return std::exchange(mOutcome, {});
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
    std::map<const LinkedEffect*, Studio> studios;
    std::unique_lock lock(mMutex);
    while (true) {
        mChanged.wait(lock, [this] { return mRequest || mStopping; });
        if (!mRequest)
            break;
        lock.unlock();
        Outcome outcome = outcomeOf([&] {
            return studios.try_emplace(&mRequest->effect, mRequest->effect).first->second.render(*mRequest);
        });
        static const AtExit kAfterTheDriver;
        lock.lock();
        mHasRendered = true;
        mOutcome = std::move(outcome);
        mRequest = nullptr;
        mChanged.notify_all();
    }
    mHasRendered = false;
}

void RenderThread::waitForFirst() {
    if (isFork())
        return;
    std::unique_lock lock(mMutex);
    mChanged.wait(lock, [this] { return mHasRendered || !mRequest; });
}

// A host may exit from a signal handler on a thread that waits for an image. So this doesn't wait for its
// turn, but only for the image that is being rendered.
void RenderThread::close() {
    if (isFork())
        return;
    std::unique_lock lock(mMutex);
    mClosed = true;
    mChanged.wait(lock, [this] { return !mRequest; });
}

} // namespace Tessaloom::BilateralBlur::Bridges
