#include "Plugins/BilateralBlur/Sources/BilateralBlurRender.h"

#include "Plugins/Shared/GL/AEOpenglMainFrameBuffer.h"
#include "Tests/GL/GLTest.h"
#include "Tests/Support/Images.h"
#include "Tests/Support/Oracle.h"

#include <optional>
#include <utility>

namespace Tessaloom::BilateralBlur {
namespace {

using BilateralBlurRenderTest = GLTest;

// 16-bit pixels fill half of the texture's range.
TEST_F(BilateralBlurRenderTest, DrawsWhatTheFormulasSayForAnyScaleAndFor16Bits) {
    constexpr int kWidth = 21, kHeight = 13;
    constexpr float kMultiplier = 65535.0f / 32768.0f;
    std::vector<double> values = Images::noise(kWidth, kHeight, 5, false, 60).normalised();
    for (double& value : values)
        value /= kMultiplier;
    const std::vector<float> texture(values.begin(), values.end());
    const gl::GLuint input = makeTexture(kWidth, kHeight, texture.data());
    drawInto(input, kWidth, kHeight);
    AEOpenglMainFrameBuffer& target = *AEOpenglMainFrameBuffer::mainFrameBuffer();
    target.prepare(kWidth, kHeight, false);
    std::optional<BilateralBlurRender> pass(std::in_place);
    BilateralBlurRender& render = *pass;
    for (const int scale : {-1, 7, 29, 61}) {
        render.setBlurScale(scale);
        target.beginDrawing();
        render.draw(input, kMultiplier);
        EXPECT_EQ(integer(gl::GL_VERTEX_ARRAY_BINDING), 0);
        EXPECT_EQ(integer(gl::GL_ARRAY_BUFFER_BINDING), 0);
        const std::vector<float> drawn = texels(target.popRenderContext());
        const auto expected = Oracle::pass(values, kWidth, kHeight, scale, kMultiplier);
        for (std::size_t i = 0; i < expected.size(); ++i)
            EXPECT_NEAR(255 * drawn.at(i), 255 * expected[i], 0.502) << scale << ", " << i;
    }
    const GLCalls calls;
    pass.reset();
    EXPECT_EQ(calls.names, "DeleteProgram DeleteVertexArrays DeleteBuffers ");
}

} // namespace
} // namespace Tessaloom::BilateralBlur
