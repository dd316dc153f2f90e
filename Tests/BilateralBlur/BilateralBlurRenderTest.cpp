#include "Plugins/BilateralBlur/Sources/BilateralBlurRender.h"

#include "Plugins/Shared/GL/AEOpenglMainFrameBuffer.h"
#include "Tests/BilateralBlur/Oracle.h"
#include "Tests/BilateralBlur/Pictures.h"
#include "Tests/GL/GLTest.h"

#include <cmath>

namespace Tessaloom::BilateralBlur {
namespace {

class BilateralBlurRenderTest : public GLTest {
protected:
    void SetUp() override {
        GLTest::SetUp();
        mErrorsExpected = true; // of the first `beginDrawing` in a context without a default frame buffer
    }
    void TearDown() override {
        target.destory();
        GLTest::TearDown();
    }

    AEOpenglMainFrameBuffer& target = *AEOpenglMainFrameBuffer::mainFrameBuffer();
};

// The fragment program and the processor, on 8-bit pixels and on 16-bit ones, whose texture tops out at half.
TEST_F(BilateralBlurRenderTest, DrawsWhatTheFormulasSayInBothWays) {
    BilateralBlurRender render;
    for (const auto& [width, height] : {std::pair{1, 1}, {2, 7}, {21, 13}}) {
        const TextureTarget input(width, height, gl::GL_RGBA32F);
        gl::glBindTexture(gl::GL_TEXTURE_2D, input.texture);
        gl::glTexParameteri(gl::GL_TEXTURE_2D, gl::GL_TEXTURE_WRAP_S,
                            static_cast<gl::GLint>(gl::GL_CLAMP_TO_EDGE));
        gl::glTexParameteri(gl::GL_TEXTURE_2D, gl::GL_TEXTURE_WRAP_T,
                            static_cast<gl::GLint>(gl::GL_CLAMP_TO_EDGE));
        for (const float multiplier : {1.0f, 65535.0f / 32768.0f}) {
            std::vector<double> values = Pictures::softNoise(width, height, 5, 60).normalised();
            for (double& value : values)
                value /= multiplier;
            const std::vector<float> floats(values.begin(), values.end());
            gl::glBindTexture(gl::GL_TEXTURE_2D, input.texture);
            gl::glTexSubImage2D(gl::GL_TEXTURE_2D, 0, 0, 0, width, height, gl::GL_RGBA, gl::GL_FLOAT,
                                floats.data());
            for (const int scale : {-5, 0, 1, 2, 3, 4, 20, 21, 30, 31, 59, 60, 1000}) {
                render.setBlurScale(scale);
                const auto expected =
                    Oracle::pass(values, width, height, std::clamp(scale, 0, 60), multiplier);
                for (const bool multisample : {true, false})
                    for (const bool program : {true, false}) {
                        target.prepare(width, height, multisample);
                        target.beginDrawing();
                        if (program)
                            render.drawWithProgram(input.texture, multiplier);
                        else
                            render.drawOnProcessor(input.texture, multiplier);
                        const gl::GLuint result = target.popRenderContext();
                        const auto drawn = texels(result);
                        gl::glDeleteTextures(1, &result);
                        target.destory();
                        double worst = 0;
                        for (std::size_t i = 0; i < drawn.size(); ++i)
                            worst = std::max(worst, std::fabs(drawn[i] - expected[i]));
                        // Half a step of the 8-bit storage, and the rounding of floats.
                        EXPECT_LE(worst * 255, 0.51) << width << " by " << height << " at " << scale
                                                     << (program ? ", program" : ", processor");
                    }
            }
        }
    }
}

} // namespace
} // namespace Tessaloom::BilateralBlur
