#include "Host/Pixels.h"
#include "Host/Effect.h"

#include <gtest/gtest.h>

#include <array>
#include <random>

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

} // namespace

} // namespace Tessaloom::BilateralBlur::Host::Test
