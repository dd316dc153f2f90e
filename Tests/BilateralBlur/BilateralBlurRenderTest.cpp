#include "Plugins/BilateralBlur/Sources/BilateralBlurRender.h"

#include "Plugins/Shared/GL/AEOpenglMainFrameBuffer.h"
#include "Tests/GL/GLTest.h"
#include "Tests/Support/Oracle.h"
#include "Tests/Support/Pictures.h"

#include <cmath>

namespace Tessaloom::BilateralBlur {
namespace {

using BilateralBlurRenderTest = GLTest;

TEST_F(BilateralBlurRenderTest, DrawsWhatTheFormulasSayForBothDepthsAndAnyScale) {
    constexpr int kWidth = 21, kHeight = 13;
    AEOpenglMainFrameBuffer& target = *AEOpenglMainFrameBuffer::mainFrameBuffer();
    drawInto(makeTexture(kWidth, kHeight), kWidth, kHeight);
    target.prepare(kWidth, kHeight, false);
    BilateralBlurRender render;
    for (const float multiplier : {1.0f, 65535.0f / 32768.0f}) { // 16-bit pixels fill half of the range
        std::vector<double> values = Pictures::noise(kWidth, kHeight, 5, false, 60).normalised();
        for (double& value : values)
            value /= multiplier;
        const std::vector<float> texture(values.begin(), values.end());
        const gl::GLuint input = makeTexture(kWidth, kHeight, texture.data());
        for (const int scale : {-1, 0, 7, 29, 60, 61}) {
            SCOPED_TRACE(scale);
            render.setBlurScale(scale);
            target.beginDrawing();
            render.draw(input, multiplier);
            const std::vector<float> drawn = texels(target.popRenderContext());
            const std::vector<double> expected =
                Oracle::pass(values, kWidth, kHeight, std::clamp(scale, 0, 60), multiplier);
            double sum = 0;
            for (std::size_t i = 0; i < expected.size(); ++i) {
                const double exact = 255 * expected[i], error = std::abs(255 * drawn.at(i) - exact);
                EXPECT_LE(error, 0.502) << i;
                sum += error - std::abs(exact - std::round(exact));
            }
            EXPECT_LE(sum / expected.size(), 0.0003) << "beyond the rounding to bytes";
        }
    }
    target.destory();
}

TEST_F(BilateralBlurRenderTest, DeletesItsShaderBeforeTheVertices) {
    const gl::GLuint input = makeTexture(1, 1);
    drawInto(input, 1, 1);
    const GLCalls calls;
    BilateralBlurRender().draw(input, 1);
    EXPECT_THAT(calls.names, testing::EndsWith(" DeleteProgram DeleteVertexArrays DeleteBuffers "));
}

} // namespace
} // namespace Tessaloom::BilateralBlur
