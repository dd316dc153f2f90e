#include "Plugins/BilateralBlur/Sources/BilateralBlurRender.h"

#include "Plugins/Shared/GL/AEOpenglMainFrameBuffer.h"
#include "Tests/GL/GLTest.h"
#include "Tests/Support/Oracle.h"
#include "Tests/Support/Pictures.h"

#include <tuple>

namespace Tessaloom::BilateralBlur {
namespace {

// Width, height, whether multisampled, and the multiplier of 16-bit pixels: their texture tops out at half.
using Frame = std::tuple<int, int, bool, float>;

class BilateralBlurRenderTest : public GLTest, public testing::WithParamInterface<Frame> {};

TEST_P(BilateralBlurRenderTest, DrawsWhatTheFormulasSayAtEveryScale) {
    const auto [width, height, multisample, multiplier] = GetParam();
    std::vector<float> values = Pictures::noise(width, height, 5, false, 60).normalised<float>();
    for (float& value : values)
        value /= multiplier;
    const gl::GLuint input = makeTexture(width, height, values.data());
    drawInto(input, width, height);
    AEOpenglMainFrameBuffer& target = *AEOpenglMainFrameBuffer::mainFrameBuffer();
    BilateralBlurRender render;
    target.prepare(width, height, multisample);
    for (int scale = -1; scale <= 61; ++scale) {
        render.setBlurScale(scale);
        const auto expected =
            Oracle::pass({values.begin(), values.end()}, width, height, std::clamp(scale, 0, 60), multiplier);
        target.beginDrawing();
        render.draw(input, multiplier);
        const gl::GLuint result = target.popRenderContext();
        std::vector<std::uint8_t> drawn(values.size());
        gl::glBindTexture(gl::GL_TEXTURE_2D, result);
        gl::glGetTexImage(gl::GL_TEXTURE_2D, 0, gl::GL_RGBA, gl::GL_UNSIGNED_BYTE, drawn.data());
        gl::glDeleteTextures(1, &result);
        SCOPED_TRACE(scale);
        Oracle::expectClose(drawn, expected, 0.002, 0.0003);
    }
    target.destory();
}

constexpr float kDeep = 65535.0f / 32768.0f;
INSTANTIATE_TEST_SUITE_P(Frames, BilateralBlurRenderTest,
                         testing::Values(Frame{1, 1, true, 1}, Frame{2, 7, true, kDeep},
                                         Frame{1, 9, false, kDeep}, Frame{21, 13, true, 1},
                                         Frame{21, 13, false, 1}, Frame{21, 13, true, kDeep}));

using ShaderTest = GLTest;

TEST_F(ShaderTest, IsDeletedBeforeTheVertices) {
    const gl::GLuint input = makeTexture(1, 1);
    drawInto(input, 1, 1);
    const GLCalls calls;
    BilateralBlurRender().draw(input, 1);
    EXPECT_THAT(calls.names, testing::StartsWith("GenVertexArrays GenBuffers BindBuffer BufferData "));
    EXPECT_THAT(
        calls.names,
        testing::EndsWith(" DrawArrays DisableVertexAttribArray DisableVertexAttribArray BindVertexArray "
                          "BindBuffer DeleteProgram DeleteVertexArrays DeleteBuffers "));
}

} // namespace
} // namespace Tessaloom::BilateralBlur
