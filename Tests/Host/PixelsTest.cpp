#include "Host/Pixels.h"
#include "Host/Effect.h"

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cmath>
#include <random>
#include <type_traits>
#include <vector>

namespace Tessaloom::BilateralBlur::Host::Test {

namespace {

// Rows of 1 to 4 channels and the world that they stand for, filtered: the effect treats blue in another way
// than red and green, so grey has to come from one of these.
TEST(Pixels, OfAnyNumberOfChannelsComeBackFiltered) {
    constexpr int kWidth = 40;
    const Module module(MODULE);
    Effect effect(module);
    std::mt19937 random(3);
    for (std::size_t channels = 1; channels <= 4; ++channels) {
        const bool isGrey = channels < 3, hasAlpha = channels % 2 == 0;
        std::vector<std::uint8_t> samples(channels * kWidth), filtered(samples), expected;
        for (std::uint8_t& sample : samples)
            sample = static_cast<std::uint8_t>(100 + random() % 40);
        World world(kWidth, 1), same(kWidth, 1);
        unpackRow(samples.data(), static_cast<int>(channels), kWidth, world.row(0));
        for (int x = 0; x < kWidth; ++x) {
            const std::uint8_t* const from = &samples[channels * x];
            same.row(0)[x] = {hasAlpha ? from[channels - 1] : std::uint8_t{255}, from[0],
                              from[isGrey ? 0 : 1], from[isGrey ? 0 : 2]};
        }
        ASSERT_TRUE(effect.render(world, world, std::array{20}).ok());
        ASSERT_TRUE(effect.render(same, same, std::array{20}).ok());
        packRow(world.row(0), kWidth, static_cast<int>(channels), filtered.data());
        for (int x = 0; x < kWidth; ++x) {
            const PF_Pixel8 pixel = same.row(0)[x];
            expected.push_back(pixel.red);
            if (!isGrey)
                expected.insert(expected.end(), {pixel.green, pixel.blue});
            if (hasAlpha)
                expected.push_back(pixel.alpha);
        }
        EXPECT_EQ(filtered, expected) << channels;
        EXPECT_NE(filtered, samples) << channels;
    }
}

/// All values of samples through worlds, as every channel of an image of 4. What is nearest is computed in double
/// precision.
template<class Sample, class Pixel>
void expectNearest(double sampleScale, double pixelScale, bool comesBack) {
    std::vector<Sample> samples;
    if constexpr (std::is_same_v<Sample, float>)
        samples = {0, 1, 0.3f, 1e-9f, 0.9999999f, 5e-4f, 0.7f, 1.5e-5f};
    else
        for (unsigned value = 0; value <= sampleScale; value += 1)
            samples.push_back(static_cast<Sample>(value));
    const int width = static_cast<int>(samples.size() / 4);
    std::vector<Pixel> row(static_cast<std::size_t>(width));
    std::vector<Sample> back(samples.size());
    unpackRow(samples.data(), 4, width, row.data());
    packRow(row.data(), width, 4, back.data());
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const Pixel& pixel = row[i / 4];
        const double got = std::array{pixel.red, pixel.green, pixel.blue, pixel.alpha}[i % 4];
        const double tolerance = pixelScale == 1 ? 6e-8 : 0.501;
        ASSERT_NEAR(got, samples[i] / sampleScale * pixelScale, tolerance) << samples[i];
        ASSERT_NEAR(back[i], got / pixelScale * sampleScale, sampleScale == 1 ? 6e-8 : 0.501) << got;
        ASSERT_TRUE(!comesBack || back[i] == samples[i]) << samples[i];
    }
}

TEST(Pixels, HaveTheNearestValuesOfEveryDepth) {
    expectNearest<std::uint8_t, PF_Pixel8>(255, 255, true);
    expectNearest<std::uint8_t, PF_Pixel16>(255, 32768, true);
    expectNearest<std::uint8_t, PF_PixelFloat>(255, 1, true);
    expectNearest<std::uint16_t, PF_Pixel8>(65535, 255, false);
    expectNearest<std::uint16_t, PF_Pixel16>(65535, 32768, false);
    expectNearest<std::uint16_t, PF_PixelFloat>(65535, 1, true);
    expectNearest<float, PF_Pixel8>(1, 255, false);
    expectNearest<float, PF_Pixel16>(1, 32768, false);
    expectNearest<float, PF_PixelFloat>(1, 1, true);
    for (const auto& [value, level] :
         {std::pair{-1e9f, 0}, {NAN, 0}, {-INFINITY, 0}, {INFINITY, 255}, {3, 255}}) {
        PF_Pixel8 limited{};
        PF_PixelFloat kept{};
        unpackRow(&value, 1, 1, &limited);
        unpackRow(&value, 1, 1, &kept);
        EXPECT_EQ(limited.blue, level);
        EXPECT_EQ(limited.alpha, 255);
        EXPECT_EQ(kept.alpha, 1);
        EXPECT_EQ(std::bit_cast<std::uint32_t>(kept.red), std::bit_cast<std::uint32_t>(value));
    }
}

} // namespace

} // namespace Tessaloom::BilateralBlur::Host::Test
