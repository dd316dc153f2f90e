#include "Tests/Bridges/Reference.h"
#include "Tests/Support/ProcessRun.h"

#include <gegl.h>
#include <gmock/gmock.h>

#include <filesystem>
#include <optional>

// The operation in graphs of GEGL, which loads it from the build's directory. Every result is compared with
// the whole image's, byte for byte.

namespace Tessaloom::BilateralBlur::Bridges::Test {

namespace {

constexpr int kScale = 20;
constexpr Size kSize{301, 203};
constexpr GeglRectangle kExtent{-37, 11, kSize.width, kSize.height};

const Babl* format() {
    return babl_format("R'G'B'A u8");
}

/// An image at an offset, in tiles of odd sizes.
GeglBuffer* makeBuffer(const Bytes& pixels) {
    auto* const buffer = static_cast<GeglBuffer*>(
        g_object_new(GEGL_TYPE_BUFFER, "x", kExtent.x, "y", kExtent.y, "width", kExtent.width, "height",
                     kExtent.height, "tile-width", 37, "tile-height", 23, "format", format(), nullptr));
    gegl_buffer_set(buffer, &kExtent, 0, format(), pixels.data(), GEGL_AUTO_ROWSTRIDE);
    return buffer;
}

/// A source and a chain of the operation, one for each scale.
class Graph {
public:
    template<class Value>
    Graph(const char* source, const char* property, Value value, const std::vector<int>& scales)
        : mGraph(gegl_node_new()),
          mLast(gegl_node_new_child(mGraph, "operation", source, property, value, nullptr)) {
        for (const int scale : scales) {
            GeglNode* const blur = gegl_node_new_child(mGraph, "operation", "bilateral-blur:bilateral-blur",
                                                       "blur-scale", scale, nullptr);
            gegl_node_link(mLast, blur);
            mLast = blur;
        }
    }
    ~Graph() { g_object_unref(mGraph); }
    Graph(GeglBuffer* buffer, const std::vector<int>& scales)
        : Graph("gegl:buffer-source", "buffer", buffer, scales) {}
    Graph(const Graph&) = delete;
    Graph& operator=(const Graph&) = delete;

    GeglNode* last() const { return mLast; }

    Bytes render(const GeglRectangle& region, double scale = 1) const {
        Bytes pixels(Size{region.width, region.height}.bytes());
        gegl_node_blit(mLast, scale, &region, format(), pixels.data(), GEGL_AUTO_ROWSTRIDE,
                       GEGL_BLIT_DEFAULT);
        return pixels;
    }

private:
    GeglNode* mGraph;
    GeglNode* mLast;
};

class Gegl : public testing::Test {
protected:
    static void SetUpTestSuite() {
        setenv("GEGL_PATH", GEGL_OPERATION_PATH, 1);
        gegl_init(nullptr, nullptr);
    }
    ~Gegl() override { g_object_unref(mBuffer); }

    const Bytes mImage = makeFrames(kSize, 1);
    GeglBuffer* const mBuffer = makeBuffer(mImage);
};

TEST_F(Gegl, AnyRegionHasTheBytesOfTheWholeImage) {
    std::mt19937 random(7);
    for (const int scale : {0, 9, kScale, 60}) {
        GeglBuffer* const whole = makeBuffer(reference(mImage, kSize, {scale}));
        const Graph graph(mBuffer, {scale}), expected(whole, {});
        for (const int threads : {1, 3}) {
            g_object_set(gegl_config(), "threads", threads, nullptr);
            for (int i = 0; i < 10; ++i) {
                const GeglRectangle region{
                    -60 + static_cast<int>(random() % 300), -9 + static_cast<int>(random() % 200),
                    1 + static_cast<int>(random() % 120), 1 + static_cast<int>(random() % 90)};
                EXPECT_EQ(graph.render(region), expected.render(region))
                    << scale << " at " << region.x << "," << region.y;
            }
        }
        g_object_unref(whole);
    }
}

TEST_F(Gegl, SeveralThreadsRenderGraphsOfTwoOperations) {
    const Bytes twice = reference(reference(mImage, kSize, {kScale}), kSize, {6});
    std::vector<Bytes> results(3);
    {
        std::vector<std::jthread> threads;
        for (Bytes& result : results)
            threads.emplace_back([this, &result] { result = Graph(mBuffer, {kScale, 6}).render(kExtent); });
    }
    EXPECT_THAT(results, testing::Each(twice));
}

TEST_F(Gegl, APreviewAtHalfTheSizeIsBlurredHalfAsFar) {
    const GeglRectangle half{kExtent.x / 2, kExtent.y / 2 + 1, 90, 70};
    g_object_set(gegl_config(), "mipmap-rendering", TRUE, nullptr);
    const Bytes preview = Graph(mBuffer, {kScale}).render(half, 0.5);
    g_object_set(gegl_config(), "mipmap-rendering", FALSE, nullptr);
    const GeglRectangle wider{half.x, half.y, 130, 95};
    Bytes reduced(Size{wider.width, wider.height}.bytes());
    gegl_buffer_get(mBuffer, &wider, 0.5, format(), reduced.data(), GEGL_AUTO_ROWSTRIDE, GEGL_ABYSS_CLAMP);
    const Bytes expected = reference(reduced, {wider.width, wider.height}, {kScale / 2});
    const auto at = [](const Bytes& pixels, int width) {
        return &pixels[4 * (std::size_t(width) * 30 + 30)];
    };
    EXPECT_EQ(Bytes(at(preview, half.width), at(preview, half.width) + 80),
              Bytes(at(expected, wider.width), at(expected, wider.width) + 80));
}

TEST_F(Gegl, WorkThatIsGivenUpLeavesNothingBehind) {
    g_object_set(gegl_config(), "chunk-size", 5000, nullptr);
    const Graph graph(mBuffer, {kScale});
    GeglProcessor* const processor = gegl_node_new_processor(graph.last(), &kExtent);
    EXPECT_TRUE(gegl_processor_work(processor, nullptr));
    g_object_unref(processor);
    EXPECT_EQ(graph.render(kExtent), reference(mImage, kSize, {kScale}));
}

TEST_F(Gegl, TheEffectsThreadsEndWithTheLastOperation) {
    const auto threads = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
    };
    std::optional<Graph> graph(std::in_place, mBuffer, std::vector{kScale});
    graph->render(kExtent);
    const auto before = threads();
    graph.reset();
    EXPECT_LT(threads(), before);
}

// A program that isn't built with the sanitizer can't load the operation that is.
#ifndef __SANITIZE_ADDRESS__
TEST_F(Gegl, TheCommandLineGivesTheSameBytes) {
    const Folder folder;
    const std::string in = SAMPLE_PICTURE, out = folder / "out.png";
    ProcessRun run({"/usr/bin/env", "gegl", in, "--", "bilateral-blur:bilateral-blur", "blur-scale=20",
                    "gegl:png-save", "path=" + out, "bitdepth=8"});
    EXPECT_EQ(run.wait().exitCode, 0);
    const GeglRectangle all{0, 0, 960, 600};
    EXPECT_EQ(Graph("gegl:png-load", "path", out.c_str(), {}).render(all),
              Graph("gegl:png-load", "path", in.c_str(), {kScale}).render(all));
}
#endif

TEST_F(Gegl, StrangeInputIsRendered) {
    const GeglRectangle region{-20, -30, 40, 25}, far{1 << 29, -(1 << 29), 8, 8};
    EXPECT_EQ(Graph(nullptr, {kScale}).render(region), Bytes(4000)) << "no pixels";
    EXPECT_EQ(Graph("gegl:nop", nullptr, nullptr, {kScale}).render(region), Bytes(4000)) << "no input";
    EXPECT_EQ(Graph(mBuffer, {kScale}).render(far), Bytes(256)) << "far outside";
    // A plane without bounds, of white and black squares, whose edges stay.
    EXPECT_EQ(Graph("gegl:checkerboard", "x", 9, {60}).render(region),
              Graph("gegl:checkerboard", "x", 9, {}).render(region));

    testing::internal::CaptureStderr();
    const Graph graph(mBuffer, {61});
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                testing::HasSubstr("out of range for property 'blur-scale'"));
    int scale = 0;
    gegl_node_get(graph.last(), "blur-scale", &scale, nullptr);
    EXPECT_EQ(scale, 0) << "refused, as GEGL does";
}

TEST_F(Gegl, TheProcessMayExitWhileAFrameIsRendered) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    for (int i = 0; i < 2; ++i)
        EXPECT_EXIT(exitWhileRendering([&] { Graph(mBuffer, {60}).render(kExtent); }),
                    testing::ExitedWithCode(0), testing::Not(testing::HasSubstr("Bilateral Blur: ")));
}

} // namespace

} // namespace Tessaloom::BilateralBlur::Bridges::Test
