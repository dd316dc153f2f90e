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
using testing::EndsWith;
using testing::StartsWith;

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

    // Starts a frame of 8 by 2 pixels with a white first level.
    void beginFrame(bool multisample) {
        const GLuint picture = makeTexture(1, 1, white.data());
        drawInto(picture, 1, 1);
        target.prepare(8, 2, multisample);
        target.beginDrawing();
        BackgroundRender().draw(picture, 1);
    }

    // The channels of the bound framebuffer's 8 by 2 pixels.
    static std::vector<float> drawn() {
        std::vector<float> channels(4 * 8 * 2);
        glReadPixels(0, 0, 8, 2, GL_RGBA, GL_FLOAT, channels.data());
        return channels;
    }

    static std::array<GLint, 4> viewport() {
        std::array<GLint, 4> rectangle;
        glGetIntegerv(GL_VIEWPORT, rectangle.data());
        return rectangle;
    }

    AEOpenglMainFrameBuffer& target = *AEOpenglMainFrameBuffer::mainFrameBuffer();
    const std::vector<float> white = std::vector<float>(4 * 8 * 8, 1.0f);
};

TEST_F(MainFrameBufferTest, StacksLevelsWithStencilBuffers) {
    for (const bool multisample : {true, false}) {
        beginFrame(multisample);
        target.pushRenderContext(false, true);
        EXPECT_EQ(AEOpenGLUtilities::CheckFramebufferStatus(), "OK");
        EXPECT_EQ(integer(GL_SAMPLES), multisample ? std::min(8, integer(GL_MAX_SAMPLES)) : 0);
        // The upper level stays transparent where the stencil lets nothing through.
        glClearStencil(1);
        glClear(GL_STENCIL_BUFFER_BIT);
        glEnable(GL_STENCIL_TEST);
        glStencilFunc(GL_EQUAL, 0, 1);
        BackgroundRender().draw(makeTexture(1, 1, white.data()), 1);
        glDisable(GL_STENCIL_TEST);
        EXPECT_THAT(texels(target.popRenderContext()), Each(0.0f));
        EXPECT_THAT(texels(target.popRenderContext()), Each(1.0f));
        target.pushRenderContext(false, true);
        target.clearStack();
        EXPECT_EQ(renderbuffers(), 1) << "a level is deleted with its stencil buffer";
        target.destory();
    }
}

TEST_F(MainFrameBufferTest, KeepsItsObjectsUntilAFrameFails) {
    const auto frame = [&] {
        beginFrame(true);
        target.endDrawing(1);
        return AEOpenGLUtilities::CheckFramebufferStatus();
    };
    target.prepare(8, 2, true);
    glRenderbufferStorage(GL_RENDERBUFFER, GL_RGBA, 0, 0); // like storage that GL had no memory for
    EXPECT_EQ(frame(), "Framebuffer incomplete, incomplete attachment!");
    EXPECT_EQ(glGetError(), GL_INVALID_FRAMEBUFFER_OPERATION);
    target.discard();
    EXPECT_EQ(frame(), "OK");
    EXPECT_THAT(drawn(), Each(1.0f));
    {
        const GLCalls calls;
        target.endDrawing(1);
        target.prepare(8, 2, false);
        EXPECT_THAT(calls.names, testing::IsEmpty()) << "the mode stays with the size";
    }
    target.unprepare();
    target.prepare(8, 2, true);
    EXPECT_EQ(renderbuffers(), 0);
}

TEST_F(MainFrameBufferTest, RendersIntoMipLevelsOfATexture) {
    const GLuint picture = makeTexture(8, 8, white.data());
    glGenerateMipmap(GL_TEXTURE_2D);
    beginFrame(true);
    const auto below = integer<GLuint>(GL_DRAW_FRAMEBUFFER_BINDING);
    for (int level = 0; level < 2; ++level) {
        target.pushNormalRenderContext(picture, Vec2(4.9, 3.2), level);
        const auto temporary = integer<GLuint>(GL_DRAW_FRAMEBUFFER_BINDING);
        EXPECT_THAT(viewport(), ElementsAre(0, 0, 4, 3));
        EXPECT_THAT(texels(picture, level), Each(0.0f));
        EXPECT_THAT(texels(picture, level + 1), Each(1.0f));
        target.popNormalRenderContext();
        EXPECT_EQ(glIsFramebuffer(temporary), GL_FALSE);
        EXPECT_EQ(integer<GLuint>(GL_DRAW_FRAMEBUFFER_BINDING), below);
        EXPECT_THAT(viewport(), ElementsAre(0, 0, 8, 2));
    }
}

TEST_F(MainFrameBufferTest, CreatesTransparentTexturesOfAllKinds) {
    target.prepare(5, 3, false);
    const Vec2 small(3.9, 2.9);
    const auto expect = [](GLuint texture, std::size_t pixels, GLenum format, GLenum minify) {
        EXPECT_EQ(texels(texture), std::vector<float>(4 * pixels, 0));
        glBindTexture(GL_TEXTURE_2D, texture);
        GLint found = 0;
        glGetTexLevelParameteriv(GL_TEXTURE_2D, 0, GL_TEXTURE_INTERNAL_FORMAT, &found);
        EXPECT_EQ(static_cast<GLenum>(found), format);
        glGetTexParameteriv(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, &found);
        EXPECT_EQ(static_cast<GLenum>(found), minify);
    };
    expect(target.createRenderTexture(false), 15, GL_RGBA, GL_LINEAR);
    expect(target.createRenderTexture(small, true), 6, GL_RGBA, GL_LINEAR_MIPMAP_LINEAR);
    expect(target.createFloatRenderTexture(true, false), 15, GL_RGBA32F, GL_LINEAR);
    expect(target.createFloatRenderTexture(small, false, true), 6, GL_RGBA32F, GL_LINEAR_MIPMAP_NEAREST);
}

TEST_F(MainFrameBufferTest, ItsPassesMakeAndDeleteInOrder) {
    const GLuint picture = makeTexture(1, 1, white.data());
    drawInto(makeTexture(1, 1), 1, 1);
    const GLCalls calls;
    ScreenRender().draw(picture, 1);
    EXPECT_THAT(calls.names, StartsWith("GenVertexArrays BindVertexArray GenBuffers BindBuffer BufferData "));
    EXPECT_THAT(calls.names, EndsWith(" DeleteVertexArrays DeleteBuffers DeleteProgram "));
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
