#include "Plugins/Shared/Math/Color.h"

#include <gtest/gtest.h>

#include <cmath>

namespace Tessaloom::BilateralBlur {
namespace {

TEST(Color, ReadsBytesAndTextsInSinglePrecision) {
    EXPECT_EQ(Color(0x01102000u), Color(16 / 255.0f, 32 / 255.0f, 0, 0.003921568859368563));
    EXPECT_EQ(Color("#F1a"), Color(1, 1 / 15.0f, 10 / 15.0f, 1));
    EXPECT_EQ(Color("#8F01"), Color(1, 0, 1 / 15.0f, 8 / 15.0f));
    EXPECT_EQ(Color("#FF0080"), Color(1, 0, 128 / 255.0f, 1));
    EXPECT_EQ(Color("#80FF0001"), Color(1, 0, 1 / 255.0f, 128 / 255.0f));
    // The conversion stops early, but the characters count.
    EXPECT_EQ(Color("#12G"), Color(0, 1 / 15.0f, 2 / 15.0f, 1));
    for (const char* text : {"FF0000", "", " #FF0000", "#12345", "#123456789", "#FFFFFFFFFFFFFFFF"}) {
        EXPECT_EQ(Color(text), Color(1, 1, 1, 1)) << text;
    }
    EXPECT_THROW(Color("#XYZ"), std::invalid_argument);
    EXPECT_THROW(Color("#10000000000000000"), std::out_of_range);
}

TEST(Color, NilColoursAreEqualAndAlphaIsLikeTheRest) {
    EXPECT_TRUE(Color(0.5, -0.1, 0.5, 1).isNil() && Color(-1, 0, 0, 1) == Color(0, -1, 0, 1));
    EXPECT_TRUE(Color(-1, 0, 0, 1) != Color(1, 0, 0, 1) && !Color(-0.0, 0, 0, 0).isNil());
    EXPECT_TRUE(Color(1e-12, 1, 1, 1) == Color(0, 1, 1, 1) && Color(1, 1, 1, 1 + 2e-12) != Color());
    EXPECT_EQ(Color(9, 8, 7, 6) - Color(4, 3, 2, 1) * Color(1, 0, 1, 2) * 2, Color(1, 8, 3, 2));
    // Only the weight of the first loses digits to single precision.
    EXPECT_EQ(Color::lerp(Color(1, 0, 0, 1), Color(0, 1, 0, 0), 0.1), Color(0.9f, 0.1, 0, 0.9f));
    EXPECT_EQ(Color::lerp(Color(1, 0, 0, 1), Color(0, 1, 0, 0), 2), Color(0, 1, 0, 0));
}

TEST(Color, PrintsWithoutPadding) {
    EXPECT_EQ(Color(0.04, 0, 0.5, 1).toHexString(), "#A07F");
    EXPECT_EQ(Color(1, -1, 0.5, 2).toHexString(), "#1FEFFFFFFFF017F");
    EXPECT_EQ(Color(1e300, -1e300, NAN, 1).toHexString(), "#7FFFFFFF800000000");
}

} // namespace
} // namespace Tessaloom::BilateralBlur
