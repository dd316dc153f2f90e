#include "Plugins/Shared/GL/AEOpenglMainFrameBuffer.h"

#include "Plugins/BilateralBlur/Sources/BilateralBlurRender.h"
#include "Plugins/Shared/GL/AEOpenGLUtilities.h"
#include "Plugins/Shared/GL/BackgroundRender.h"
#include "Plugins/Shared/GL/ScreenRender.h"
#include "Plugins/Shared/Math/Vec2.h"
#include "Tests/GL/GLTest.h"
#include "Tests/Support/Images.h"
#include "Tests/Support/Oracle.h"

#include <optional>

namespace Tessaloom::BilateralBlur {
namespace {

using namespace gl;
using testing::Each;

class MainFrameBufferTest : public GLTest {
protected:
    ~MainFrameBufferTest() override {
        target.destory();
        EXPECT_EQ(calls.kept("Renderbuffers"), 0);
    }

    // Starts a frame of 8 by 2 pixels with a white first level, in the mode of the first call of that size.
    void beginFrame(bool multisample) {
        drawInto(makeTexture(1, 1), 1, 1);
        target.prepare(8, 2, multisample);
        target.prepare(8, 2, !multisample);
        target.beginDrawing();
        BackgroundRender().draw(makeTexture(8, 8, white.data()), 1);
    }

    AEOpenglMainFrameBuffer& target = *AEOpenglMainFrameBuffer::mainFrameBuffer();
    GLCalls calls;
    const std::vector<float> white = std::vector<float>(4 * 8 * 8, 1.0f);
};

TEST_F(MainFrameBufferTest, StacksLevelsWithStencilBuffers) {
    for (const bool multisample : {true, false}) {
        beginFrame(multisample);
        target.pushRenderContext(false, true);
        EXPECT_EQ(AEOpenGLUtilities::CheckFramebufferStatus(), "OK");
        EXPECT_EQ(integer(GL_SAMPLES), multisample ? std::min(8, integer(GL_MAX_SAMPLES)) : 0);
        glEnable(GL_STENCIL_TEST);
        glStencilFunc(GL_NEVER, 0, 0);
        BackgroundRender().draw(makeTexture(8, 8, white.data()), 1);
        glDisable(GL_STENCIL_TEST);
        EXPECT_THAT(texels(target.popRenderContext()), Each(0.0f)) << "the stencil lets nothing through";
        EXPECT_THAT(texels(target.popRenderContext()), Each(1.0f));
        target.pushRenderContext(false, true);
        target.clearStack();
        EXPECT_EQ(calls.kept("Renderbuffers"), 1) << "a level is deleted with its stencil buffer";
        target.destory();
    }
}

TEST_F(MainFrameBufferTest, RendersIntoAMipLevelOfATexture) {
    beginFrame(true);
    const GLuint texture = makeTexture(8, 8, white.data());
    glGenerateMipmap(GL_TEXTURE_2D);
    const auto below = integer(GL_DRAW_FRAMEBUFFER_BINDING);
    const int frameBuffers = calls.kept("Framebuffers");
    GLint viewport[4];
    target.pushNormalRenderContext(texture, Vec2(4.9, 3.2), 1);
    glGetIntegerv(GL_VIEWPORT, viewport);
    EXPECT_THAT(viewport, testing::ElementsAre(0, 0, 4, 3));
    EXPECT_THAT(texels(texture, 1), Each(0.0f));
    target.popNormalRenderContext();
    glGetIntegerv(GL_VIEWPORT, viewport);
    EXPECT_THAT(viewport, testing::ElementsAre(0, 0, 8, 2));
    EXPECT_EQ(integer(GL_DRAW_FRAMEBUFFER_BINDING), below);
    EXPECT_EQ(calls.kept("Framebuffers"), frameBuffers);
}

TEST_F(MainFrameBufferTest, CreatesTransparentTextures) {
    target.prepare(5, 3, false);
    EXPECT_EQ(texels(target.createRenderTexture(Vec2(3.9, 2.9), true)), std::vector<float>(24));
    EXPECT_EQ(texels(target.createFloatRenderTexture(true, false)), std::vector<float>(60));
}

// So many that a texture that is read a little to the side shows.
TEST_F(MainFrameBufferTest, TurnsHostPixelsIntoPremultipliedOnesAndBack) {
    constexpr int kWidth = 8192;
    std::vector<float> source, premultiplied, straight;
    for (int i = 0; i < kWidth; i += 2) {
        source.insert(source.end(), {0.5f, 0.2f, 0.4f, 0.8f, 0, 0.3f, 0.3f, 0.3f});
        premultiplied.insert(premultiplied.end(), {0.225f, 0.45f, 0.9f, 0.75f, 0, 0, 0, 0});
        straight.insert(straight.end(), {0.5f, 0.2f, 0.4f, 0.8f, 0, 0, 0, 0});
    }
    const GLuint middle = target.createFloatRenderTexture(Vec2(kWidth, 1), false, false);
    const GLuint texture = makeTexture(kWidth, 1, source.data()), result = makeTexture(kWidth, 1);
    drawInto(middle, kWidth, 1);
    BackgroundRender().draw(texture, 1.5f);
    drawInto(result, kWidth, 1);
    ScreenRender().draw(middle, 1.5f);
    EXPECT_THAT(texels(middle), testing::Pointwise(testing::FloatNear(1e-6f), premultiplied));
    EXPECT_THAT(texels(result), testing::Pointwise(testing::FloatNear(1e-6f), straight));
}

// The blur's pass for any scale. 16-bit pixels fill half of the texture's range.
TEST_F(MainFrameBufferTest, DrawsWhatTheFormulasSay) {
    constexpr int kWidth = 21, kHeight = 13;
    constexpr float kMultiplier = 65535.0f / 32768.0f;
    std::vector<double> values = Images::noise(kWidth, kHeight, 5, false, 60).normalised();
    for (double& value : values)
        value /= kMultiplier;
    const std::vector<float> texture(values.begin(), values.end());
    const GLuint input = makeTexture(kWidth, kHeight, texture.data());
    drawInto(input, kWidth, kHeight);
    target.prepare(kWidth, kHeight, false);
    std::optional<BilateralBlurRender> pass(std::in_place);
    for (const int scale : {-1, 7, 29, 61}) {
        pass->setBlurScale(scale);
        target.beginDrawing();
        pass->draw(input, kMultiplier);
        EXPECT_EQ(integer(GL_VERTEX_ARRAY_BINDING), 0);
        EXPECT_EQ(integer(GL_ARRAY_BUFFER_BINDING), 0);
        const std::vector<float> drawn = texels(target.popRenderContext());
        const auto expected = Oracle::pass(values, kWidth, kHeight, scale, kMultiplier);
        EXPECT_THAT(std::vector<double>(drawn.begin(), drawn.end()),
                    testing::Pointwise(testing::DoubleNear(0.502 / 255), expected))
            << scale;
    }
    calls.names.clear();
    pass.reset();
    EXPECT_EQ(calls.names, "DeleteProgram DeleteVertexArrays DeleteBuffers ");
}

} // namespace
} // namespace Tessaloom::BilateralBlur
