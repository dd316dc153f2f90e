#include "Plugins/Shared/GL/AEOpenglMainFrameBuffer.h"

#include "Plugins/Shared/GL/AEOpenGLUtilities.h"
#include "Plugins/Shared/GL/BackgroundRender.h"
#include "Plugins/Shared/GL/ScreenRender.h"
#include "Plugins/Shared/Math/Vec2.h"
#include "Tests/GL/GLTest.h"

#include <array>
#include <random>
#include <thread>

namespace Tessaloom::BilateralBlur {
namespace {

using namespace gl;
using testing::Each;

int renderbuffers() {
    int count = 0;
    for (GLuint name = 1; name < 64; ++name)
        count += glIsRenderbuffer(name) == GL_TRUE;
    return count;
}

class MainFrameBufferTest : public GLTest {
protected:
    void TearDown() override {
        context->makeContextCurrent();
        target.destory();
        EXPECT_EQ(renderbuffers(), 0);
        GLTest::TearDown();
    }

    // A frame of opaque noise, A, R, G, B, through the first and the last pass; true where it comes back.
    bool frameIsRight(int width, int height, unsigned seed) {
        std::mt19937 random(seed);
        std::vector<std::uint8_t> noise(static_cast<std::size_t>(4 * width * height)), drawn(noise.size());
        std::vector<float> values;
        for (std::size_t i = 0; i < noise.size(); ++i) {
            noise[i] = i % 4 ? static_cast<std::uint8_t>(random() >> 24) : 255;
            values.push_back(noise[i] / 255.0f);
        }
        const TextureTarget picture(width, height, GL_RGBA32F, values.data());
        target.beginDrawing();
        BackgroundRender().draw(picture.texture, 1);
        target.endDrawing(1);
        glReadPixels(0, 0, width, height, GL_RGBA, GL_UNSIGNED_BYTE, drawn.data());
        return drawn == noise;
    }

    AEOpenglMainFrameBuffer& target = *AEOpenglMainFrameBuffer::mainFrameBuffer();
};

TEST_F(MainFrameBufferTest, StacksLevelsWithAnyNumberOfSamplesAndStencilBuffers) {
    const TextureTarget white(1, 1, GL_RGBA8, std::vector<float>(4, 1).data());
    for (const bool multisample : {true, false}) {
        glBindFramebuffer(GL_FRAMEBUFFER, white.frameBuffer);
        target.prepare(31, 17, multisample);
        target.beginDrawing();
        BackgroundRender().draw(white.texture, 1);
        target.pushRenderContext(false, true);
        EXPECT_EQ(AEOpenGLUtilities::CheckFramebufferStatus(), "OK");
        EXPECT_EQ(integer(GL_SAMPLES), multisample ? std::min(8, integer(GL_MAX_SAMPLES)) : 0);
        // The upper level stays transparent where the stencil lets nothing through.
        glClearStencil(1);
        glClear(GL_STENCIL_BUFFER_BIT);
        glEnable(GL_STENCIL_TEST);
        glStencilFunc(GL_EQUAL, 0, 1);
        BackgroundRender().draw(white.texture, 1);
        glDisable(GL_STENCIL_TEST);
        const GLuint levels[] = {target.popRenderContext(), target.popRenderContext()};
        EXPECT_THAT(texels(levels[0]), Each(0.0f));
        EXPECT_THAT(texels(levels[1]), Each(1.0f));
        glDeleteTextures(2, levels);
        EXPECT_EQ(renderbuffers(), 1);
        EXPECT_THAT(callsOf([&] { target.endDrawing(1); }), testing::IsEmpty()) << "an empty stack";
        target.pushRenderContext(false, true);
        target.clearStack();
        EXPECT_EQ(renderbuffers(), 1) << "a level takes its stencil buffer along";
        target.prepare(31, 17, !multisample); // the mode stays with the size
        EXPECT_TRUE(frameIsRight(31, 17, 7));
        target.destory();
    }
}

TEST_F(MainFrameBufferTest, RendersIntoMipLevelsOfACallersTexture) {
    const std::vector<float> white(4 * 64, 1);
    const TextureTarget picture(8, 8, GL_RGBA8, white.data());
    glBindTexture(GL_TEXTURE_2D, picture.texture);
    for (int level = 1; level < 4; ++level)
        glTexImage2D(GL_TEXTURE_2D, level, static_cast<GLint>(GL_RGBA8), 8 >> level, 8 >> level, 0, GL_RGBA,
                     GL_FLOAT, white.data());
    const auto viewport = [] {
        std::array<GLint, 4> rectangle;
        glGetIntegerv(GL_VIEWPORT, rectangle.data());
        return rectangle;
    };
    target.prepare(6, 5, true);
    target.beginDrawing();
    const GLint below = integer(GL_DRAW_FRAMEBUFFER_BINDING);
    target.pushNormalRenderContext(picture.texture, Vec2(4.9, 4.2), 1);
    const auto temporary = integer<GLuint>(GL_DRAW_FRAMEBUFFER_BINDING);
    EXPECT_THAT(viewport(), testing::ElementsAre(0, 0, 4, 4));
    EXPECT_THAT(texels(picture.texture, 1), Each(0.0f));
    EXPECT_EQ(texels(picture.texture), white);
    target.popNormalRenderContext();
    EXPECT_FALSE(glIsFramebuffer(temporary));
    EXPECT_EQ(integer(GL_DRAW_FRAMEBUFFER_BINDING), below);
    EXPECT_THAT(viewport(), testing::ElementsAre(0, 0, 6, 5));
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
        GLint internalFormat = 0;
        glGetTexLevelParameteriv(GL_TEXTURE_2D, 0, GL_TEXTURE_INTERNAL_FORMAT, &internalFormat);
        EXPECT_EQ(internalFormat, static_cast<GLint>(format));
        const auto parameter = [](GLenum what) {
            GLint value = 0;
            glGetTexParameteriv(GL_TEXTURE_2D, what, &value);
            return static_cast<GLenum>(value);
        };
        EXPECT_EQ(parameter(GL_TEXTURE_MAG_FILTER), magnification);
        EXPECT_EQ(parameter(GL_TEXTURE_MIN_FILTER), minification);
        EXPECT_EQ(parameter(GL_TEXTURE_WRAP_S), GL_CLAMP_TO_EDGE);
        EXPECT_EQ(parameter(GL_TEXTURE_WRAP_T), GL_CLAMP_TO_EDGE);
        glDeleteTextures(1, &texture);
    }
}

TEST_F(MainFrameBufferTest, DrawsOnAnyThreadAndKeepsOneSetForEachContext) {
    AEOpenGLContext second(context.get());
    CGLSetCurrentContext({});
    const GLCalls calls;
    for (int round = 0; round < 12; ++round)
        std::thread([&] {
            (round % 2 ? second : *context).makeContextCurrent();
            const int size = 8 + round / 4 % 2;
            target.prepare(size, size, true);
            EXPECT_TRUE(frameIsRight(size, size, round)) << "frame " << round;
        }).join();
    EXPECT_EQ(calls.count("glGenFramebuffers") - calls.count("glDeleteFramebuffers"), 6);
}

TEST_F(MainFrameBufferTest, TurnsHostPixelsIntoPremultipliedOnesAndBack) {
    std::mt19937 random(11);
    std::vector<float> source(4 * 13 * 5);
    for (std::size_t i = 0; i < source.size(); ++i)
        source[i] = i % 20 ? std::uniform_real_distribution<float>(0, 1)(random) : 0; // some with alpha 0
    const TextureTarget picture(13, 5, GL_RGBA32F, source.data()), result(13, 5, GL_RGBA32F),
        middle(13, 5, GL_RGBA32F);
    for (const float multiplier : {1.0f, 65535.0f / 32768.0f}) {
        BackgroundRender().draw(picture.texture, multiplier);
        glBindFramebuffer(GL_FRAMEBUFFER, result.frameBuffer);
        ScreenRender().draw(middle.texture, multiplier);
        glBindFramebuffer(GL_FRAMEBUFFER, middle.frameBuffer);
        const auto premultiplied = texels(middle.texture), straight = texels(result.texture);
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
