#pragma once

#include "Host/Effect.h"
#include "Tests/Support/EglWatch.h"
#include "Tests/Support/FaultyHost.h"
#include "Tests/Support/Images.h"
#include "Tests/Support/Oracle.h"

#include <gmock/gmock.h>

#include <thread>

namespace Tessaloom::BilateralBlur {

/// How frames are filtered: on a GPU, which software GL passes itself off as, or on the CPU, with software GL
/// or without any; and by which effect.
struct Way {
    enum Kind { Gpu, SoftwareGL, NoGL };

    constexpr Way(Kind kind, bool isSmooth = false) : kind(kind), isSmooth(isSmooth) {}
    constexpr operator Kind() const { return kind; }

    Kind kind;
    bool isSmooth;
};

inline const auto kWays = testing::Values(Way::Gpu, Way::SoftwareGL, Way::NoGL);
inline const auto kSmoothWays =
    testing::Values(Way(Way::Gpu, true), Way(Way::SoftwareGL, true), Way(Way::NoGL, true));

inline void PrintTo(Way way, std::ostream* out) {
    *out << (way.isSmooth ? "Smooth" : "") << std::array{"Gpu", "SoftwareGL", "NoGL"}[way.kind];
}

inline constexpr testing::PrintToStringParamName kNameOfWay;

inline void onThread(const std::function<void()>& work) {
    std::thread(work).join();
}

/// A world of these values, 4 a pixel.
template<class Value>
Host::World worldOf(const std::vector<Value>& values, int width, int height,
                    std::int32_t format = PF_PixelFormat_ARGB32) {
    Host::World world(width, height, format);
    for (int y = 0; y < height; ++y)
        std::copy_n(&values[std::size_t{4} * width * y], 4 * width, world.row<Value>(y));
    return world;
}

/// The values of a world, without the gaps between its rows.
template<class Value = std::uint8_t>
std::vector<Value> valuesOf(const Host::World& world) {
    std::vector<Value> values;
    for (int y = 0; y < world.height; ++y)
        values.insert(values.end(), world.row<Value>(y), world.row<Value>(y) + 4 * world.width);
    return values;
}

/// An image at a blur scale.
struct Sample {
    Host::World world() const { return worldOf(image.bytes, image.width, image.height); }

    /// The first value of `output` that isn't what the formulas of an effect give, rounded to either side where that is
    /// no farther than 0.01 from the middle; 0.1 where a processor may filter with weights of 8 bits. Empty if there is
    /// none. Values of the blur are premultiplied.
    std::string difference(const Host::World& output, bool isSmooth = false) const {
        if (output.width != image.width || output.height != image.height)
            return "another size";
        std::vector<double>& expected = mExpected[isSmooth];
        if (expected.empty())
            expected = isSmooth ? Oracle::smooth(image.normalised(), image.width, image.height, value(true),
                                                 0.1, 1e-25)
                                : Oracle::pass(image.normalised(), image.width, image.height, scale);
        const double rounding = (isSmooth || scale >= 9) && !EglWatch::renderer ? 0.6 : 0.51;
        const std::vector<std::uint8_t> straight = valuesOf(output);
        return isSmooth ? Images::difference(straight, expected, rounding)
                        : Images::difference(Images::premultiplied(straight), expected, rounding);
    }

    /// Of the first slider. A radius reaches twice as far as a scale of the same number.
    int value(bool isSmooth) const { return isSmooth ? scale / 2 : scale; }

    Images::Image image;
    int scale;
    mutable std::vector<double> mExpected[2]{}; ///< by effect, once it was needed
};

/// An effect, and a host that has a GL context of its own, which is current on the calling thread and must be
/// so in the end.
struct Session {
    explicit Session(Way way) : mWay(way) {
        EglWatch::renderer = way == Way::Gpu ? "A GPU" : nullptr;
        mHostContext->makeCurrentContext();
        EglWatch::failing = way == Way::NoGL ? EglWatch::Failing::Binding : EglWatch::Failing::Nothing;
        mEffect.emplace(mHost.module());
    }
    ~Session() {
        mEffect.reset();
        EglWatch::failing = EglWatch::Failing::Nothing;
        EXPECT_EQ(NSOpenGLContext::currentContext(), mHostContext);
        EXPECT_EQ(EglWatch::liveContexts, 1);
        mHostContext->release();
    }

    /// Renders the sample into `mOutput`. Empty if all is well.
    std::string frame(const Sample& sample) {
        Host::World input = sample.world();
        const Host::Result result = mEffect->render(input, mOutput, std::array{sample.value(mWay.isSmooth)});
        return result.ok() ? sample.difference(mOutput, mWay.isSmooth) : result.text();
    }

    const Way mWay;
    const Host::Module mModule{mWay.isSmooth ? SMOOTH_MODULE : MODULE};
    FaultyHost mHost{mModule.entry(), mModule.resource()};
    NSOpenGLContext* const mHostContext = EglWatch::makeContext();
    std::optional<Host::Effect> mEffect;
    const Sample mSample{Images::photograph(12, 8, 5), 7};
    Host::World mOutput{0, 0};
};

struct EffectTest : testing::TestWithParam<Way>, Session {
    EffectTest() : Session(GetParam()) {}
};

} // namespace Tessaloom::BilateralBlur
