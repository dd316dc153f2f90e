#include "Plugins/Shared/GL/AEOpenglMainFrameBuffer.h"

#include "Plugins/Shared/GL/AEOpenGLUtilities.h"
#include "Plugins/Shared/GL/BackgroundRender.h"
#include "Plugins/Shared/GL/ScreenRender.h"
#include "Plugins/Shared/Math/Vec2.h"
#include "Tests/GL/GLTest.h"

#include <algorithm>
#include <array>
#include <random>

namespace Tessaloom::BilateralBlur {
namespace {

using namespace gl;
using testing::Each;
using testing::ElementsAre;

class MainFrameBufferTest : public GLTest {
protected:
    ~MainFrameBufferTest() override {
        target.destory();
        EXPECT_EQ(renderbuffers(), 0);
    }

    static int renderbuffers() {
        int count = 0;
        for (GLuint name = 1; name < 64; ++name)
            count += glIsRenderbuffer(name) == GL_TRUE;
        return count;
    }

    AEOpenglMainFrameBuffer& target = *AEOpenglMainFrameBuffer::mainFrameBuffer();
    const std::vector<float> white = std::vector<float>(4 * 8 * 8, 1.0f);
};

TEST_F(MainFrameBufferTest, StacksLevelsWithAnyNumberOfSamplesAndStencilBuffers) {
    for (const bool multisample : {true, false}) {
        const GLuint picture = makeTexture(1, 1, white.data());
        drawInto(picture, 1, 1);
        target.prepare(8, 2, multisample);
        target.beginDrawing();
        BackgroundRender().draw(picture, 1);
        target.pushRenderContext(false, true);
        EXPECT_EQ(AEOpenGLUtilities::CheckFramebufferStatus(), "OK");
        EXPECT_EQ(integer(GL_SAMPLES), multisample ? std::min(8, integer(GL_MAX_SAMPLES)) : 0);
        // The upper level stays transparent where the stencil lets nothing through.
        glClearStencil(1);
        glClear(GL_STENCIL_BUFFER_BIT);
        glEnable(GL_STENCIL_TEST);
        glStencilFunc(GL_EQUAL, 0, 1);
        BackgroundRender().draw(picture, 1);
        glDisable(GL_STENCIL_TEST);
        const GLuint levels[] = {target.popRenderContext(), target.popRenderContext()};
        EXPECT_THAT(texels(levels[0]), Each(0.0f));
        EXPECT_THAT(texels(levels[1]), Each(1.0f));
        glDeleteTextures(2, levels);
        target.destory();
    }
}

TEST_F(MainFrameBufferTest, KeepsWhatItHasAndDoesNothingWithoutALevel) {
    const GLuint picture = makeTexture(1, 1, white.data());
    drawInto(picture, 1, 1);
    target.prepare(8, 2, false);
    target.beginDrawing();
    BackgroundRender().draw(picture, 1);
    target.endDrawing(1);
    std::vector<float> drawn(4 * 8 * 2);
    glReadPixels(0, 0, 8, 2, GL_RGBA, GL_FLOAT, drawn.data());
    EXPECT_THAT(drawn, Each(1.0f));
    {
        const GLCalls calls;
        target.endDrawing(1);
        target.prepare(8, 2, true);
        EXPECT_THAT(calls.counts, testing::IsEmpty()) << "the mode stays with the size";
    }
    target.pushRenderContext(false, true);
    target.clearStack();
    EXPECT_EQ(renderbuffers(), 1) << "a level takes its stencil buffer along";
    target.unprepare();
    target.prepare(8, 2, true);
    EXPECT_TRUE(renderbuffers() == 0 && target.width() == 8 && target.height() == 2);
}

// Storage that GL had no memory for looks the same as storage of 0 by 0 pixels.
TEST_F(MainFrameBufferTest, StartsFromNothingAfterAFailedFrame) {
    const GLuint picture = makeTexture(1, 1, white.data());
    const auto frame = [&] {
        drawInto(picture, 1, 1);
        target.prepare(8, 2, true);
        target.beginDrawing();
        BackgroundRender().draw(picture, 1);
        target.endDrawing(1);
        return AEOpenGLUtilities::CheckFramebufferStatus();
    };
    EXPECT_EQ(frame(), "OK");
    GLint final = 0;
    glGetFramebufferAttachmentParameteriv(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0,
                                          GL_FRAMEBUFFER_ATTACHMENT_OBJECT_NAME, &final);
    glBindRenderbuffer(GL_RENDERBUFFER, static_cast<GLuint>(final));
    glRenderbufferStorage(GL_RENDERBUFFER, GL_RGBA, 0, 0);
    EXPECT_EQ(frame(), "Framebuffer incomplete, incomplete attachment!");
    EXPECT_EQ(glGetError(), GL_INVALID_FRAMEBUFFER_OPERATION);
    target.discard();
    EXPECT_EQ(frame(), "OK");
    std::vector<float> drawn(4 * 8 * 2);
    glReadPixels(0, 0, 8, 2, GL_RGBA, GL_FLOAT, drawn.data());
    EXPECT_THAT(drawn, Each(1.0f));
}

TEST_F(MainFrameBufferTest, RendersIntoMipLevelsOfACallersTexture) {
    const GLuint picture = makeTexture(8, 8, white.data());
    for (int level = 1; level < 4; ++level)
        glTexImage2D(GL_TEXTURE_2D, level, static_cast<GLint>(GL_RGBA32F), 8 >> level, 8 >> level, 0, GL_RGBA,
                     GL_FLOAT, white.data());
    const auto viewport = [] {
        std::array<GLint, 4> rectangle;
        glGetIntegerv(GL_VIEWPORT, rectangle.data());
        return rectangle;
    };
    drawInto(picture, 8, 8);
    target.prepare(6, 5, true);
    target.beginDrawing();
    const auto below = integer<GLuint>(GL_DRAW_FRAMEBUFFER_BINDING);
    target.pushNormalRenderContext(picture, Vec2(4.9, 4.2), 1);
    const auto temporary = integer<GLuint>(GL_DRAW_FRAMEBUFFER_BINDING);
    EXPECT_THAT(viewport(), ElementsAre(0, 0, 4, 4));
    EXPECT_THAT(texels(picture, 1), Each(0.0f));
    EXPECT_EQ(texels(picture), white);
    target.popNormalRenderContext();
    EXPECT_TRUE(!glIsFramebuffer(temporary) && integer<GLuint>(GL_DRAW_FRAMEBUFFER_BINDING) == below);
    EXPECT_THAT(viewport(), ElementsAre(0, 0, 6, 5));
    target.pushNormalRenderContext(picture);
    EXPECT_THAT(texels(picture), Each(0.0f)) << "level 0";
    target.popNormalRenderContext();
}

TEST_F(MainFrameBufferTest, CreatesTransparentTexturesOfAllKinds) {
    target.prepare(5, 3, false);
    const Vec2 small(3.9, 2.9);
    struct {
        GLuint texture;
        std::size_t pixels;
        GLenum format, magnification, minification;
    } const cases[] = {
        {target.createRenderTexture(false), 15, GL_RGBA, GL_LINEAR, GL_LINEAR},
        {target.createRenderTexture(small, true), 6, GL_RGBA, GL_LINEAR, GL_LINEAR_MIPMAP_LINEAR},
        {target.createFloatRenderTexture(true, false), 15, GL_RGBA32F, GL_LINEAR, GL_LINEAR},
        {target.createFloatRenderTexture(small, false, true), 6, GL_RGBA32F, GL_NEAREST,
         GL_LINEAR_MIPMAP_NEAREST},
    };
    for (const auto& [texture, pixels, format, magnification, minification] : cases) {
        EXPECT_EQ(texels(texture), std::vector<float>(4 * pixels, 0));
        glBindTexture(GL_TEXTURE_2D, texture);
        std::array<GLint, 5> found{};
        glGetTexLevelParameteriv(GL_TEXTURE_2D, 0, GL_TEXTURE_INTERNAL_FORMAT, &found[0]);
        glGetTexParameteriv(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, &found[1]);
        glGetTexParameteriv(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, &found[2]);
        glGetTexParameteriv(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, &found[3]);
        glGetTexParameteriv(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, &found[4]);
        const GLenum expected[] = {format, magnification, minification, GL_CLAMP_TO_EDGE, GL_CLAMP_TO_EDGE};
        EXPECT_TRUE(std::equal(found.begin(), found.end(), expected,
                               [](GLint a, GLenum b) { return static_cast<GLenum>(a) == b; }));
        glDeleteTextures(1, &texture);
    }
}

TEST_F(MainFrameBufferTest, TurnsHostPixelsIntoPremultipliedOnesAndBack) {
    std::mt19937 random(11);
    std::vector<float> source(4 * 13 * 5);
    for (std::size_t i = 0; i < source.size(); ++i)
        source[i] = i % 20 ? std::uniform_real_distribution<float>(0, 1)(random) : 0; // some with alpha 0
    const GLuint picture = makeTexture(13, 5, source.data());
    for (const float multiplier : {1.0f, 65535.0f / 32768.0f}) {
        const GLuint middle = makeTexture(13, 5), result = makeTexture(13, 5);
        drawInto(middle, 13, 5);
        BackgroundRender().draw(picture, multiplier);
        drawInto(result, 13, 5);
        ScreenRender().draw(middle, multiplier);
        const auto premultiplied = texels(middle), straight = texels(result);
        for (std::size_t i = 0; i < source.size(); ++i) {
            const float alpha = source[i / 4 * 4] * multiplier;
            const bool isAlpha = i % 4 == 0;
            EXPECT_NEAR(premultiplied[isAlpha ? i + 3 : i - 1],
                        alpha * (isAlpha ? 1 : source[i] * multiplier), 1e-5);
            EXPECT_NEAR(straight[i], alpha > 0 ? source[i] : 0, 1e-5);
        }
    }
}

} // namespace
} // namespace Tessaloom::BilateralBlur
