#include "Plugins/Shared/Math/Color.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>

namespace Tessaloom::BilateralBlur {
namespace {

using Channels = std::array<double, 4>;

Channels channels(const Color& color) {
    return {color.r(), color.g(), color.b(), color.a()};
}

TEST(Color, ReadsBytesAndTextsInSinglePrecision) {
    EXPECT_EQ(channels(Color(0x01102000u)), (Channels{16 / 255.0f, 32 / 255.0f, 0, 0.003921568859368563}));
    EXPECT_EQ(channels(Color("#F1a")), (Channels{1, 1 / 15.0f, 10 / 15.0f, 1}));
    EXPECT_EQ(channels(Color("#8F01")), (Channels{1, 0, 1 / 15.0f, 8 / 15.0f}));
    EXPECT_EQ(channels(Color("#FF0080")), (Channels{1, 0, 128 / 255.0f, 1}));
    EXPECT_EQ(channels(Color("#80FF0001")), (Channels{1, 0, 1 / 255.0f, 128 / 255.0f}));
    // The conversion stops early, but the characters count.
    EXPECT_EQ(channels(Color("#12G")), (Channels{0, 1 / 15.0f, 2 / 15.0f, 1}));
    for (const char* text : {"FF0000", "", " #FF0000", "#12345", "#123456789", "#FFFFFFFFFFFFFFFF"}) {
        EXPECT_EQ(Color(text), Color()) << text;
    }
    EXPECT_THROW(Color("#XYZ"), std::invalid_argument);
    EXPECT_THROW(Color("#10000000000000000"), std::out_of_range);
}

TEST(Color, NilColoursAreEqualAndAlphaIsLikeTheRest) {
    EXPECT_TRUE(Color(0.5, -0.1, 0.5, 1).isNil() && Color(-1, 0, 0, 1) == Color(0, -1, 0, 1));
    EXPECT_TRUE(Color(-1, 0, 0, 1) != Color(1, 0, 0, 1) && !Color(-0.0, 0, 0, 0).isNil());
    EXPECT_EQ(channels(Color(1, 2, 3, 4) - Color(4, 3, 2, 1) * Color() * 2), (Channels{-7, -4, -1, 2}));
    // Only the weight of the first loses digits to single precision.
    EXPECT_EQ(channels(Color::lerp(Color(1, 0, 0, 1), Color(0, 1, 0, 0), 0.1)),
              (Channels{0.9f, 0.1, 0, 0.9f}));
    EXPECT_EQ(Color::lerp(Color(1, 0, 0, 1), Color(0, 1, 0, 0), 2), Color(0, 1, 0, 0));
}

TEST(Color, PrintsWithoutPadding) {
    EXPECT_EQ(Color(0.04, 0, 0.5, 1).toHexString(), "#A07F");
    EXPECT_EQ(Color(1, -1, 0.5, 2).toHexString(), "#1FEFFFFFFFF017F");
    EXPECT_EQ(Color(1e300, -1e300, NAN, 1).toHexString(), "#7FFFFFFF800000000");
}

} // namespace
} // namespace Tessaloom::BilateralBlur
