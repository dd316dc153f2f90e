#pragma once

#include "Host/Effect.h"
#include "Tests/Support/EglWatch.h"
#include "Tests/Support/FaultyHost.h"
#include "Tests/Support/Oracle.h"
#include "Tests/Support/Pictures.h"

#include <gmock/gmock.h>

#include <array>
#include <cstring>
#include <functional>
#include <optional>
#include <string>
#include <thread>

namespace Tessaloom::BilateralBlur {

/// How frames are filtered: on a GPU, which software GL passes itself off as, or on the CPU, with software GL
/// or without any.
enum class Way { Gpu, SoftwareGL, NoGL };

inline const auto kWays = testing::Values(Way::Gpu, Way::SoftwareGL, Way::NoGL);

inline void PrintTo(Way way, std::ostream* out) {
    *out << (way == Way::Gpu ? "Gpu" : way == Way::NoGL ? "NoGL" : "SoftwareGL");
}

inline std::string nameOf(const testing::TestParamInfo<Way>& info) {
    return testing::PrintToString(info.param);
}

inline void onThread(const std::function<void()>& work) {
    std::thread(work).join();
}

/// A picture at a blur scale, and what the formulas make of it.
struct Sample {
    Sample(Pictures::Picture from, int at)
        : picture(std::move(from)),
          scale(at),
          expected(
              Oracle::effect(picture.bytes.data(), picture.width, picture.height, 4 * picture.width, at)) {}

    Host::World world() const {
        Host::World world(picture.width, picture.height);
        for (int y = 0; y < world.height; ++y)
            std::memcpy(world.row(y), picture.pixel(0, y), std::size_t{4} * world.width);
        return world;
    }

    /// The first value of `output` that is farther from the formulas than the 8-bit storage between the
    /// passes allows; empty if there is none.
    std::string difference(const Host::World& output) const {
        const int width = picture.width;
        if (output.width != width || output.height != picture.height)
            return "another size";
        for (int i = 0; i < static_cast<int>(expected.size()); ++i) {
            const int x = i / 4 % width, y = i / 4 / width, channel = i % 4;
            const std::uint8_t* pixel = output.row<std::uint8_t>(y) + 4 * x;
            const double alpha = expected[i - channel];
            const bool transparent = channel > 0 && pixel[0] == 0;
            const double wanted = transparent ? 0 : expected[i];
            const double bound = transparent ? 0 : channel == 0 || alpha > 254.999 ? 1 : 255 / alpha + 0.51;
            if (std::abs(pixel[channel] - wanted) > bound)
                return (testing::Message()
                        << x << "," << y << " of " << width << " at " << scale << ", channel " << channel
                        << ": " << +pixel[channel] << " instead of " << wanted)
                    .GetString();
        }
        return {};
    }

    Pictures::Picture picture;
    int scale;
    std::vector<double> expected;
};

/// An effect, and a host that has a GL context of its own, which is current on the calling thread and must be
/// so in the end.
class Session {
protected:
    explicit Session(Way way) {
        EglWatch::hardware = way == Way::Gpu;
        mHostContext->makeCurrentContext();
        EglWatch::failing = way == Way::NoGL ? EglWatch::Failing::Binding : EglWatch::Failing::Nothing;
        mEffect.emplace(mHost.module());
    }
    ~Session() {
        mEffect.reset();
        EglWatch::hardware = false;
        EglWatch::failing = EglWatch::Failing::Nothing;
        EXPECT_EQ(NSOpenGLContext::currentContext(), mHostContext);
        EXPECT_EQ(EglWatch::liveContexts, 1);
        mHostContext->release();
    }

    /// Renders the sample. Empty if all is well.
    std::string frame(const Sample& sample) {
        Host::World input = sample.world(), output(0, 0);
        const Host::Result result = mEffect->render(input, output, std::array{sample.scale});
        return result.ok() ? sample.difference(output) : result.text();
    }

    const Host::Module mModule{MODULE};
    FaultyHost mHost{mModule.entry(), mModule.resource()};
    NSOpenGLContext* const mHostContext = EglWatch::makeContext();
    std::optional<Host::Effect> mEffect;
    const Sample mSample{Pictures::photograph(12, 8, 5), 7};
};

class EffectTest : public testing::TestWithParam<Way>, protected Session {
protected:
    EffectTest() : Session(GetParam()) {}
};

} // namespace Tessaloom::BilateralBlur
