#include "Tests/Bridges/Reference.h"

#include <gegl.h>

// The operations in graphs of GEGL, which loads them from the build's directory. Every result is compared with
// the whole image's, byte for byte.

namespace Tessaloom::BilateralBlur::Bridges::Test {

namespace {

constexpr Size kSize{301, 203};
constexpr GeglRectangle kExtent{-37, 11, kSize.width, kSize.height};

using Buffer = std::unique_ptr<GeglBuffer, decltype(&g_object_unref)>;

/// Of bytes or floats.
template<class Sample>
const Babl* format() {
    return babl_format(sizeof(Sample) == 1 ? "R'G'B'A u8" : "R'G'B'A float");
}

std::string blur(int scale) {
    return "bilateral-blur:bilateral-blur blur-scale=" + std::to_string(scale);
}

/// Of a threshold between two steps, the nearer one counts: 0.2.
std::string smooth(int radius) {
    return "bilateral-blur:bilateral-smooth threshold=0.1996 radius=" + std::to_string(radius);
}

template<class Sample>
Buffer makeBuffer(const std::vector<Sample>& pixels, const Babl* kind = format<Sample>()) {
    Buffer buffer(gegl_buffer_new(&kExtent, kind), g_object_unref);
    gegl_buffer_set(buffer.get(), &kExtent, 0, kind, pixels.data(), GEGL_AUTO_ROWSTRIDE);
    return buffer;
}

/// What a chain of operations, as people write it on the command line, makes of an image.
template<class Sample = std::uint8_t>
std::vector<Sample> render(GeglBuffer* image, const std::string& chain, const GeglRectangle& region,
                           double scale = 1) {
    GeglNode* const graph = gegl_node_new();
    GeglNode* const first = gegl_node_new_child(graph, "operation", image ? "gegl:buffer-source" : "gegl:nop",
                                                image ? "buffer" : nullptr, image, nullptr);
    GeglNode* const last = gegl_node_new_child(graph, "operation", "gegl:nop", nullptr);
    gegl_create_chain(chain.c_str(), first, last, 0, 0, "/", nullptr);
    std::vector<Sample> pixels(Size{region.width, region.height}.bytes());
    gegl_node_blit(last, scale, &region, format<Sample>(), pixels.data(), GEGL_AUTO_ROWSTRIDE,
                   GEGL_BLIT_DEFAULT);
    g_object_unref(graph);
    return pixels;
}

class Gegl : public testing::Test {
protected:
    static void SetUpTestSuite() {
        setenv("GEGL_PATH", GEGL_OPERATION_PATH, 1);
        gegl_init(nullptr, nullptr);
    }

    const Bytes mImage = makeFrames(kSize, 1);
    const Buffer mBuffer = makeBuffer(mImage);
};

TEST_F(Gegl, AnyRegionHasTheBytesOfTheWholeImage) {
    std::mt19937 random(7);
    const std::pair<std::string, Bytes> kChains[] = {
        {blur(0), blurred()(mImage, kSize, {{0}})},
        {blur(60), blurred()(mImage, kSize, {{60}})},
        {blur(20) + " " + blur(9), blurred()(blurred()(mImage, kSize, {{20}}), kSize, {{9}})},
        {smooth(60), smoothed()(mImage, kSize, {{60, 200}})},
        {"bilateral-blur:bilateral-smooth", smoothed()(mImage, kSize, {{5, 100}})},
    };
    for (const auto& [chain, expected] : kChains) {
        const Buffer whole = makeBuffer(expected);
        for (int i = 0; i < 6; ++i) {
            const GeglRectangle region{
                -60 + static_cast<int>(random() % 300), -9 + static_cast<int>(random() % 200),
                1 + static_cast<int>(random() % 120), 1 + static_cast<int>(random() % 90)};
            EXPECT_EQ(render(mBuffer.get(), chain, region), render(whole.get(), "gegl:nop", region))
                << chain << " at " << region.x << "," << region.y;
        }
    }
}

TEST_F(Gegl, FloatsKeepTheirPrecisionAndTheirRange) {
    std::mt19937 random(3);
    std::uniform_real_distribution<float> any(-0.5f, 1.5f);
    std::vector<float> image(kSize.bytes());
    std::ranges::generate(image, [&] { return any(random); });
    const Buffer buffer = makeBuffer(image);
    EXPECT_EQ(render<float>(buffer.get(), smooth(7), kExtent), smoothed()(image, kSize, {{7, 200}}));
    EXPECT_EQ(render<float>(buffer.get(), smooth(0), kExtent), image);
}

TEST_F(Gegl, AGreyLayerIsTheGreenOfTheSameInColours) {
    Bytes colours(mImage), values;
    for (std::size_t i = 0; i < mImage.size(); i += 4) {
        std::fill_n(&colours[i], 3, mImage[i]);
        colours[i + 3] = 255;
        values.push_back(mImage[i]);
    }
    const Buffer buffer = makeBuffer(values, babl_format("Y' u8"));
    Bytes expected = blurred()(colours, kSize, {{20}});
    for (std::size_t i = 0; i < expected.size(); i += 4)
        expected[i] = expected[i + 2] = expected[i + 1];
    EXPECT_EQ(render(buffer.get(), blur(20), kExtent), expected);
}

TEST_F(Gegl, APreviewAtHalfTheSizeIsFilteredHalfAsFar) {
    const GeglRectangle half{kExtent.x / 2, kExtent.y / 2 + 1, 90, 70},
        inner{half.x + 30, half.y + 30, 20, 1};
    Bytes reduced(Size{half.width, half.height}.bytes());
    gegl_buffer_get(mBuffer.get(), &half, 0.5, format<std::uint8_t>(), reduced.data(), GEGL_AUTO_ROWSTRIDE,
                    GEGL_ABYSS_CLAMP);
    const Size size{half.width, half.height};
    const std::pair<std::string, Bytes> kPreviews[] = {
        {blur(20), blurred()(reduced, size, {{10}})},
        {smooth(20), smoothed()(reduced, size, {{10, 200}})},
    };
    g_object_set(gegl_config(), "mipmap-rendering", TRUE, nullptr);
    for (const auto& [chain, expected] : kPreviews) {
        const auto at = expected.begin() + 4 * (half.width * 30 + 30);
        EXPECT_EQ(render(mBuffer.get(), chain, inner, 0.5), Bytes(at, at + 80)) << chain;
    }
    g_object_set(gegl_config(), "mipmap-rendering", FALSE, nullptr);
}

TEST_F(Gegl, StrangeInputIsRendered) {
    const GeglRectangle far{1 << 29, -(1 << 29), 8, 8};
    EXPECT_EQ(render(nullptr, blur(20), {-20, -30, 40, 25}), Bytes(4000)) << "no pixels";
    EXPECT_EQ(render(mBuffer.get(), blur(20), far), Bytes(256)) << "far outside";
    // A plane without bounds, of white and black squares, whose edges stay.
    const std::string plane = "gegl:checkerboard x=9 ";
    for (const GeglRectangle& region : {GeglRectangle{-20, -30, 2100, 3}, {-20, -30, 3, 2100}})
        EXPECT_EQ(render(nullptr, plane + blur(9), region), render(nullptr, plane, region));
}

} // namespace

} // namespace Tessaloom::BilateralBlur::Bridges::Test
