#include "Tests/BilateralBlur/EffectTest.h"

#include <array>
#include <random>

namespace Tessaloom::BilateralBlur {
namespace {

using Bytes = std::vector<std::uint8_t>;

// Sizes, scales, alphas and contents at random. Coordinates that miss a texel's centre by little would show
// in wide pictures and at transparent pixels.
std::vector<Sample> randomSamples(unsigned seed, int count) {
    std::mt19937 random(seed);
    const auto below = [&](int bound) { return static_cast<int>(random() % bound); };
    std::vector<Sample> samples;
    for (int i = 0; i < count; ++i) {
        const bool isWide = i % 8 == 0;
        const int width = 1 + below(isWide ? 300 : 24), height = 1 + below(isWide ? 3 : 18);
        const unsigned noise = random();
        Pictures::Picture picture = i % 3 == 0 ? Pictures::blocks(width, height, false)
                                    : i % 3 == 1
                                        ? Pictures::photograph(width, height, noise)
                                        : Pictures::noise(width, height, noise, false, 1 + below(128));
        const int level = below(256), spread = 1 + below(level + 1);
        for (int pixel = 0; i % 2 && pixel < width * height; ++pixel) // else as the picture has it
            picture.bytes[4 * pixel] = static_cast<std::uint8_t>(level - below(spread));
        // Seed 0 alone runs on softpipe, which filters so exactly that transparent pixels get a neighbour's
        // colour.
        for (std::size_t at = 0; seed == 0 && at < picture.bytes.size(); at += 4)
            picture.bytes[at] = std::max<std::uint8_t>(1, picture.bytes[at]);
        samples.emplace_back(std::move(picture), below(isWide ? 5 : 61));
    }
    return samples;
}

class WaysTest : public testing::TestWithParam<unsigned> {
protected:
    ~WaysTest() override {
        EglWatch::hardware = false;
        EglWatch::failing = EglWatch::Failing::Nothing;
        EXPECT_EQ(EglWatch::liveContexts, 0);
    }

    // Each sample as it comes out, compared with the formulas.
    std::vector<Bytes> renderAll(Way way, const std::vector<Sample>& samples) {
        EglWatch::hardware = way == Way::Gpu;
        EglWatch::failing = way == Way::NoGL ? EglWatch::Failing::Creation : EglWatch::Failing::Nothing;
        Host::Effect effect(mModule);
        Host::World output(0, 0);
        std::vector<Bytes> all;
        for (const Sample& sample : samples) {
            Host::World input = sample.world();
            EXPECT_EQ(effect.render(input, output, std::array{sample.scale}).text(), "");
            EXPECT_EQ(sample.difference(output), "");
            Bytes& bytes = all.emplace_back();
            for (int y = 0; y < output.height; ++y)
                bytes.insert(bytes.end(), output.row<std::uint8_t>(y),
                             output.row<std::uint8_t>(y) + 4 * output.width);
        }
        return all;
    }

    const Host::Module mModule{MODULE};
};

// What the 8-bit framebuffer between the passes held. Straight bytes give it back exactly.
int premultiplied(const Bytes& bytes, std::size_t at) {
    const int alpha = bytes[at - at % 4];
    return at % 4 == 0 ? alpha : (2 * bytes[at] * alpha + 255) / 510;
}

// About 50 values in a million differ; a sum lies that close to the middle between two steps.
TEST_P(WaysTest, GiveTheSamePicture) {
    const std::vector<Sample> samples = randomSamples(GetParam(), 60);
    const std::vector<Bytes> gpu = renderAll(Way::Gpu, samples), cpu = renderAll(Way::SoftwareGL, samples);
    std::size_t differing = 0, total = 0;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        ASSERT_EQ(gpu[i].size(), cpu[i].size());
        for (std::size_t at = 0; at < gpu[i].size(); ++at) {
            const int difference = std::abs(premultiplied(gpu[i], at) - premultiplied(cpu[i], at));
            EXPECT_LE(difference, 1) << i << ", " << at;
            differing += difference != 0;
            ++total;
        }
    }
    RecordProperty("DifferingPerMillion", static_cast<int>(1e6 * differing / total));
    EXPECT_LT(differing, total / 3000);
    EXPECT_EQ(renderAll(Way::NoGL, samples), cpu);
}

INSTANTIATE_TEST_SUITE_P(Seeds, WaysTest, testing::Range(0u, 6u));

} // namespace
} // namespace Tessaloom::BilateralBlur
