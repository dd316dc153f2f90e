#include "Host/World.h"

#include <gtest/gtest.h>

#include <memory>
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

} // namespace

} // namespace Tessaloom::BilateralBlur::Host::Test
