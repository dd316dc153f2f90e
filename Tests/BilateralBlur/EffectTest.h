#pragma once

#include "Host/Effect.h"
#include "Tests/Support/EglWatch.h"
#include "Tests/Support/FaultyHost.h"
#include "Tests/Support/Oracle.h"
#include "Tests/Support/Pictures.h"

#include <gmock/gmock.h>

#include <cstring>
#include <functional>
#include <optional>
#include <string>
#include <thread>

namespace Tessaloom::BilateralBlur {

inline void onThread(const std::function<void()>& work) {
    std::thread(work).join();
}

inline Host::World worldOf(const Pictures::Picture& picture) {
    Host::World world(picture.width, picture.height);
    for (int y = 0; y < world.height; ++y)
        std::memcpy(world.row(y), picture.pixel(0, y), std::size_t{4} * world.width);
    return world;
}

/// The first value that is farther from the formulas than the 8-bit storage between the passes allows; empty
/// where there is none.
inline std::string difference(const Host::World& output, const Pictures::Picture& picture, int scale) {
    const int width = picture.width;
    if (output.width != width || output.height != picture.height)
        return "another size";
    const auto expected = Oracle::effect(picture.bytes.data(), width, picture.height, 4 * width, scale);
    for (int i = 0; i < static_cast<int>(expected.size()); ++i) {
        const int x = i / 4 % width, y = i / 4 / width, channel = i % 4;
        const std::uint8_t* pixel = output.row<std::uint8_t>(y) + 4 * x;
        const double alpha = expected[i - channel];
        const bool transparent = channel > 0 && pixel[0] == 0;
        const double wanted = transparent ? 0 : expected[i];
        const double bound = transparent ? 0 : channel == 0 || alpha > 254.999 ? 1 : 255 / alpha + 0.51;
        if (std::abs(pixel[channel] - wanted) > bound)
            return (testing::Message() << x << "," << y << " of " << width << " at " << scale << ", channel "
                                       << channel << ": " << +pixel[channel] << " instead of " << wanted)
                .GetString();
    }
    return {};
}

/// A host with a GL context of its own, which is current on the test's thread and must be so in the end.
class EffectTest : public testing::Test {
protected:
    EffectTest() {
        EglWatch::hardware = true;
        mHostContext->makeCurrentContext();
        mEffect.emplace(mHost.module());
    }
    ~EffectTest() override {
        mEffect.reset();
        EXPECT_EQ(NSOpenGLContext::currentContext(), mHostContext);
        EXPECT_EQ(EglWatch::liveContexts, 1);
        mHostContext->release();
    }

    /// Empty for a right frame.
    std::string frame(const Pictures::Picture& picture, int scale) {
        Host::World input = worldOf(picture), output(0, 0);
        const Host::Result result = mEffect->render(input, output, scale);
        return result.ok() ? difference(output, picture, scale) : result.text();
    }

    const Host::Module mModule{MODULE};
    FaultyHost mHost{mModule.entry(), mModule.resource()};
    NSOpenGLContext* const mHostContext = EglWatch::makeContext();
    std::optional<Host::Effect> mEffect;
    const Pictures::Picture mPicture = Pictures::photograph(12, 8, 5);
};

} // namespace Tessaloom::BilateralBlur
