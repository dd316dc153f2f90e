#include "Host/World.h"
#include "Host/Pixels.h"

#include <bit>
#include <cmath>
#include <stdexcept>

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

/// Grey values of the whole range, all that integers have, through worlds: opaque, and back from green, as an effect
/// may treat blue in another way. What is nearest is computed in double precision.
template<class Sample, class Pixel>
void expectNearest(double sampleScale, double pixelScale) {
    const auto rounding = [](double scale) { return scale == 1 ? 6e-8 : 0.501; };
    for (int i = 0; i <= 65535; ++i) {
        const auto sample = static_cast<Sample>(sampleScale * i / 65535);
        Pixel pixel;
        Sample back;
        unpackRow(&sample, 1, 1, &pixel);
        pixel.blue = 0;
        packRow(&pixel, 1, 1, &back);
        ASSERT_EQ(pixel.alpha, pixelScale);
        ASSERT_NEAR(pixel.green, sample / sampleScale * pixelScale, rounding(pixelScale)) << +sample;
        ASSERT_NEAR(back, pixel.green / pixelScale * sampleScale, rounding(sampleScale)) << +sample;
        if (sampleScale == 255 || pixelScale == 1) {
            ASSERT_EQ(back, sample);
        }
    }
}

TEST(Pixels, HaveTheNearestValuesOfEveryDepth) {
    expectNearest<std::uint8_t, PF_Pixel8>(255, 255);
    expectNearest<std::uint8_t, PF_Pixel16>(255, 32768);
    expectNearest<std::uint8_t, PF_PixelFloat>(255, 1);
    expectNearest<std::uint16_t, PF_Pixel8>(65535, 255);
    expectNearest<std::uint16_t, PF_Pixel16>(65535, 32768);
    expectNearest<std::uint16_t, PF_PixelFloat>(65535, 1);
    expectNearest<float, PF_Pixel8>(1, 255);
    expectNearest<float, PF_Pixel16>(1, 32768);
    expectNearest<float, PF_PixelFloat>(1, 1);
    for (const auto& [value, level] :
         {std::pair{-0.3f, 0}, {NAN, 0}, {-INFINITY, 0}, {INFINITY, 255}, {3, 255}}) {
        std::uint8_t limited = 1;
        PF_PixelFloat kept{};
        unpackRow(&value, 1, 1, &kept);
        packRow(&kept, 1, 1, &limited);
        EXPECT_EQ(limited, level);
        EXPECT_EQ(kept.alpha, 1);
        EXPECT_EQ(std::bit_cast<std::uint32_t>(kept.red), std::bit_cast<std::uint32_t>(value));
    }
}

} // namespace

} // namespace Tessaloom::BilateralBlur::Host::Test
