#include "Host/World.h"
#include "Host/Pixels.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <stdexcept>
#include <vector>

namespace Tessaloom::BilateralBlur::Host::Test {

namespace {

TEST(World, RowsAreAlignedApartAndEndInSpareBytes) {
    for (const int format : {PF_PixelFormat_ARGB32, PF_PixelFormat_ARGB64, PF_PixelFormat_ARGB128})
        for (int width = 0; width < 70; ++width) {
            World world(width, 3, format);
            const int used = width * bytesPerPixel(format);
            ASSERT_GT(world.rowbytes, used) << width;
            ASSERT_EQ(reinterpret_cast<std::uintptr_t>(world.row(1)) % World::kAlignment, 0u);
            // Whole pixels fill every row and no spare byte; one byte more is told.
            for (int y = 0; y < 3; ++y)
                std::memset(world.row(y), 1, used);
            ASSERT_TRUE(world.spareBytesIntact());
            world.row<std::uint8_t>(2)[used] ^= 1;
            ASSERT_FALSE(world.spareBytesIntact());
        }
}

TEST(World, IsFoundByItsRecordAloneAndOnlyWhileItLives) {
    World world(2, 2), other(3, 1, PF_PixelFormat_ARGB128);
    PF_Pixel8* pixels = world.row(0);
    const PF_LayerDef copy = world;
    EXPECT_EQ(World::of(&world), &world);
    EXPECT_EQ(World::of(&copy), nullptr);
    EXPECT_THROW(World(1 << 29, 1), std::length_error);
    world.swap(other);
    EXPECT_EQ(World::of(&other)->row(0), pixels);
    EXPECT_EQ(world.format(), PF_PixelFormat_ARGB128);
}

TEST(Pixels, OfEveryKindComeBackAsTheyWere) {
    std::mt19937 random(5);
    for (int channels = 1; channels <= 4; ++channels)
        for (const int width : {0, 1, 7, 64, 257}) {
            std::vector<std::uint8_t> samples(width * channels), back(samples.size());
            for (auto& sample : samples)
                sample = static_cast<std::uint8_t>(random());
            std::vector<PF_Pixel8> row(width);
            unpackRow(samples.data(), channels, width, row.data());
            for (int x = 0; x < width; ++x)
                ASSERT_EQ(row[x].alpha, channels % 2 ? 255 : samples[(x + 1) * channels - 1]);
            packRow(row.data(), width, channels, back.data());
            ASSERT_EQ(samples, back) << channels << " channels";
        }
}

TEST(Pixels, Of16BitsAreRoundedToTheNearest) {
    for (unsigned value = 0; value <= 65535; ++value) {
        const std::uint16_t sample = static_cast<std::uint16_t>(value);
        PF_Pixel8 pixel{};
        unpackRow(&sample, 1, 1, &pixel);
        ASSERT_EQ(pixel.green, std::lround(value / 257.0));
        std::uint16_t back = 0;
        packRow(&pixel, 1, 1, &back);
        ASSERT_EQ(back, 257 * pixel.green);
    }
}

} // namespace

} // namespace Tessaloom::BilateralBlur::Host::Test
