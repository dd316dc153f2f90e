#include "Host/World.h"
#include "Host/Pixels.h"

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cmath>
#include <memory>
#include <stdexcept>
#include <type_traits>
#include <vector>

namespace Tessaloom::BilateralBlur::Host::Test {

namespace {

TEST(World, HasAlignedRowsThatEndInPadding) {
    for (const int format : {PF_PixelFormat_ARGB32, PF_PixelFormat_ARGB64, PF_PixelFormat_ARGB128})
        for (int width = 0; width < 70; ++width) {
            World world(width, 3, format);
            const int used = width * bytesPerPixel(format);
            ASSERT_GT(world.rowbytes, used) << width;
            ASSERT_EQ(reinterpret_cast<std::uintptr_t>(world.row(1)) % World::kAlignment, 0u);
            world.row<std::uint8_t>(2)[used] ^= 1;
            ASSERT_FALSE(world.paddingIntact());
        }
    EXPECT_THROW(World(1 << 29, 1), std::length_error);
}

TEST(World, IsFoundByItsRecordWhileItLives) {
    const World world(2, 2);
    EXPECT_EQ(World::of(&world), &world);
    const PF_LayerDef* gone = World::of(std::make_unique<World>(1, 1).get());
    EXPECT_EQ(World::of(gone), nullptr);
}

// Grey has to come from green or red, as the effect treats blue in another way.
TEST(Pixels, HaveTheChannelsOfTheirNumber) {
    const std::vector<std::uint8_t> kPacked[] = {{2}, {2, 1}, {2, 3, 4}, {2, 3, 4, 1}};
    for (const std::vector<std::uint8_t>& samples : kPacked) {
        const int channels = static_cast<int>(samples.size());
        PF_Pixel8 pixel{};
        std::vector<std::uint8_t> packed(samples.size());
        unpackRow(samples.data(), channels, 1, &pixel);
        EXPECT_EQ(pixel.alpha, channels % 2 ? 255 : 1);
        EXPECT_EQ(pixel.green, channels < 3 ? 2 : 3);
        if (channels < 3)
            pixel.blue = 9;
        packRow(&pixel, 1, channels, packed.data());
        EXPECT_EQ(packed, samples);
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
