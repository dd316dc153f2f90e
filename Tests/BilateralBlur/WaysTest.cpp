// The effect on a GPU, which software GL passes itself off as, and on the CPU.
#include "Host/Effect.h"
#include "Tests/Support/EglWatch.h"
#include "Tests/Support/GLCalls.h"
#include "Tests/Support/Oracle.h"
#include "Tests/Support/Pictures.h"

#include <gmock/gmock.h>

#include <cstring>
#include <random>

namespace Tessaloom::BilateralBlur {
namespace {

using Host::World;
using Pictures::Picture;

struct Frame {
    Picture picture;
    int scale;
};

using Bytes = std::vector<std::uint8_t>;

Bytes render(Host::Effect& effect, const Frame& frame) {
    const Picture& picture = frame.picture;
    World input(picture.width, picture.height), output(0, 0);
    for (int y = 0; y < picture.height; ++y)
        std::memcpy(input.row(y), picture.pixel(0, y), std::size_t{4} * picture.width);
    const Host::Result result = effect.render(input, output, frame.scale);
    EXPECT_TRUE(result.ok()) << result.text();
    Bytes bytes;
    for (int y = 0; y < output.height; ++y) {
        const auto* row = output.row<std::uint8_t>(y);
        bytes.insert(bytes.end(), row, row + std::size_t{4} * output.width);
    }
    return bytes;
}

// Sizes, scales, alphas and contents at random.
std::vector<Frame> randomFrames(unsigned seed, int count) {
    std::mt19937 random(seed);
    const auto below = [&](int bound) { return static_cast<int>(random() % bound); };
    std::vector<Frame> frames;
    for (int i = 0; i < count; ++i) {
        const int width = 1 + below(24), height = 1 + below(18);
        const unsigned noise = random();
        Picture picture = i % 3 == 0   ? Pictures::blocks(width, height, false)
                          : i % 3 == 1 ? Pictures::photograph(width, height, noise)
                                       : Pictures::noise(width, height, noise, false, 1 + below(128));
        const int alpha = below(5); // as it is, opaque, constant, near a constant, near transparency
        const int level = below(256);
        for (int pixel = 0; alpha && pixel < width * height; ++pixel)
            picture.bytes[4 * pixel] = alpha == 1   ? 255
                                       : alpha == 2 ? level
                                       : alpha == 3 ? std::max(0, level - below(20))
                                                    : below(3);
        frames.push_back({picture, below(61)});
    }
    return frames;
}

class WaysTest : public testing::Test {
protected:
    ~WaysTest() override {
        EglWatch::hardware = EglWatch::failing = false;
        EXPECT_EQ(EglWatch::liveContexts, 0);
    }

    std::vector<Bytes> renderAll(bool onGpu, const std::vector<Frame>& frames) {
        EglWatch::hardware = onGpu;
        Host::Effect effect(mModule);
        std::vector<Bytes> all;
        for (const Frame& frame : frames)
            all.push_back(render(effect, frame));
        return all;
    }

    const Host::Module mModule{MODULE};
};

class PicturesTest : public WaysTest, public testing::WithParamInterface<unsigned> {};

// What the 8-bit framebuffer between the passes held. Straight bytes give it back exactly.
int premultiplied(const std::uint8_t* pixel, int channel) {
    return channel == 0 ? pixel[0] : (2 * pixel[channel] * pixel[0] + 255) / 510;
}

// The straight bytes of one pixel against the formulas: premultiplied values are rounded to 8 bits once
// before the division by alpha and once after it.
void expectOracle(const std::uint8_t* pixel, const double* expected) {
    EXPECT_NEAR(pixel[0], expected[0], 0.51);
    const double alpha = expected[0];
    const double bound = alpha > 254.999 ? 1 : 255 / alpha + 0.51;
    for (int channel = 1; channel < 4; ++channel)
        EXPECT_NEAR(pixel[channel], pixel[0] == 0 ? 0 : expected[channel], bound);
}

TEST_P(PicturesTest, AreTheSameEitherWay) {
    const std::vector<Frame> frames = randomFrames(GetParam(), 60);
    const std::vector<Bytes> gpu = renderAll(true, frames), cpu = renderAll(false, frames);
    int differing = 0, total = 0;
    for (std::size_t i = 0; i < frames.size(); ++i) {
        const auto& [picture, scale] = frames[i];
        SCOPED_TRACE(testing::Message()
                     << i << ": " << picture.width << " x " << picture.height << " at " << scale);
        const auto expected =
            Oracle::effect(picture.bytes.data(), picture.width, picture.height, 4 * picture.width, scale);
        ASSERT_EQ(gpu[i].size(), expected.size());
        ASSERT_EQ(cpu[i].size(), expected.size());
        for (std::size_t at = 0; at < expected.size(); at += 4) {
            const std::uint8_t *onGpu = &gpu[i][at], *onCpu = &cpu[i][at];
            expectOracle(onGpu, &expected[at]);
            expectOracle(onCpu, &expected[at]);
            for (int channel = 0; channel < 4; ++channel) {
                const int difference = premultiplied(onGpu, channel) - premultiplied(onCpu, channel);
                EXPECT_LE(std::abs(difference), 1);
                differing += difference != 0;
                ++total;
            }
        }
    }
    EXPECT_LT(differing, total / 3000) << "of " << total;
}

INSTANTIATE_TEST_SUITE_P(Seeds, PicturesTest, testing::Range(0u, 6u));

TEST_F(WaysTest, NeedNoGL) {
    const std::vector<Frame> frames = randomFrames(1, 5);
    const std::vector<Bytes> cpu = renderAll(false, frames);
    EglWatch::failing = true;
    EXPECT_EQ(renderAll(false, frames), cpu);
}

// The data context is the only one, and no call reaches it.
TEST_F(WaysTest, FilterOnTheCpuWithoutGLCalls) {
    Host::Effect effect(mModule);
    render(effect, {Pictures::noise(9, 7, 1), 5});
    GLCalls calls;
    render(effect, {Pictures::noise(9, 7, 1), 5});
    EXPECT_THAT(calls.counts, testing::IsEmpty());
    EXPECT_EQ(EglWatch::liveContexts, 1);
}

} // namespace
} // namespace Tessaloom::BilateralBlur
