#include "Plugins/Shared/GL/AEOpenglMainFrameBuffer.h"

#include "Plugins/Shared/GL/AEOpenGLUtilities.h"
#include "Plugins/Shared/GL/BackgroundRender.h"
#include "Plugins/Shared/GL/ScreenRender.h"
#include "Plugins/Shared/Math/Vec2.h"
#include "Tests/GL/GLTest.h"

#include <cmath>
#include <random>
#include <thread>

namespace Tessaloom::BilateralBlur {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::uint8_t> framePixels(int width, int height) {
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(4 * width * height));
    gl::glReadPixels(0, 0, width, height, gl::GL_RGBA, gl::GL_UNSIGNED_BYTE, bytes.data());
    return bytes;
}

int renderbuffers() {
    int count = 0;
    for (gl::GLuint name = 1; name < 64; ++name)
        count += gl::glIsRenderbuffer(name) == gl::GL_TRUE;
    return count;
}

gl::GLint attachment(gl::GLenum point) {
    gl::GLint name = 0;
    gl::glGetFramebufferAttachmentParameteriv(gl::GL_FRAMEBUFFER, point,
                                              gl::GL_FRAMEBUFFER_ATTACHMENT_OBJECT_NAME, &name);
    return name;
}

class MainFrameBufferTest : public GLTest {
protected:
    void SetUp() override {
        GLTest::SetUp();
        // The first `beginDrawing` of a context speaks to a default frame buffer that isn't there.
        mErrorsExpected = true;
    }
    void TearDown() override {
        context->makeContextCurrent();
        target.destory();
        EXPECT_EQ(renderbuffers(), 0);
        GLTest::TearDown();
    }

    // A frame of opaque noise, A, R, G, B, through the first and the last pass; true where it comes back.
    bool frameIsRight(int width, int height, unsigned seed) {
        std::mt19937 random(seed);
        std::vector<std::uint8_t> noise(static_cast<std::size_t>(4 * width * height));
        std::generate(noise.begin(), noise.end(), [&] { return static_cast<std::uint8_t>(random() >> 24); });
        for (std::size_t i = 0; i < noise.size(); i += 4)
            noise[i] = 255;
        std::vector<float> values(noise.size());
        std::transform(noise.begin(), noise.end(), values.begin(), [](int byte) { return byte / 255.0f; });
        target.beginDrawing();
        const gl::GLint below = integer(gl::GL_DRAW_FRAMEBUFFER_BINDING);
        const TextureTarget picture(width, height, gl::GL_RGBA32F, values.data());
        gl::glBindFramebuffer(gl::GL_FRAMEBUFFER, static_cast<gl::GLuint>(below));
        BackgroundRender().draw(picture.texture, 1);
        target.endDrawing(1);
        return framePixels(width, height) == noise;
    }

    AEOpenglMainFrameBuffer& target = *AEOpenglMainFrameBuffer::mainFrameBuffer();
};

TEST_F(MainFrameBufferTest, MakesItsObjectsOncePerSize) {
    EXPECT_THAT(callsOf([&] { target.prepare(0, 0, true); }), IsEmpty());
    EXPECT_THAT(callsOf([&] { target.endDrawing(1); }), IsEmpty());
    EXPECT_THAT(callsOf([&] { EXPECT_EQ(target.popRenderContext(), 0u); }), IsEmpty());
    EXPECT_THAT(callsOf([&] { target.prepare(7, 5, true); }),
                ElementsAre("glGenFramebuffers", "glGenFramebuffers", "glGenFramebuffers",
                            "glGenRenderbuffers", "glBindRenderbuffer", "glRenderbufferStorage"));
    EXPECT_THAT(callsOf([&] { target.prepare(7, 5, false); }), IsEmpty()) << "the size alone counts";
    EXPECT_THAT(callsOf([&] { target.beginDrawing(); }),
                ElementsAre("glDrawBuffer", "glDisable", "glEnable", "glGenRenderbuffers",
                            "glBindRenderbuffer", "glGetIntegerv", "glRenderbufferStorageMultisample",
                            "glBindFramebuffer", "glFramebufferRenderbuffer", "glClearColor", "glClear",
                            "glViewport"));
    target.endDrawing(1);
    for (unsigned frame = 0; frame < 2; ++frame) {
        const GLCalls calls;
        EXPECT_TRUE(frameIsRight(7, 5, frame));
        EXPECT_EQ(calls.count("glGenFramebuffers"), 1) << "the test's own";
        EXPECT_EQ(calls.count("glGenRenderbuffers"), calls.count("glDeleteRenderbuffers"));
        EXPECT_EQ(calls.count("glRenderbufferStorageMultisample"), 1) << "the mode stays";
    }
    EXPECT_THAT(callsOf([&] { target.prepare(9, 5, false); }),
                ElementsAre("glDeleteFramebuffers", "glDeleteFramebuffers", "glDeleteFramebuffers",
                            "glDeleteRenderbuffers", "glGenFramebuffers", "glGenRenderbuffers",
                            "glBindRenderbuffer", "glRenderbufferStorage"));
    target.unprepare();
    EXPECT_EQ(target.width(), 9);
    EXPECT_THAT(callsOf([&] { target.prepare(9, 5, true); }), IsEmpty()) << "the size is still noted";
    target.prepare(65536 + 3, 65536, false);
    EXPECT_EQ(target.width(), 3);
    EXPECT_EQ(target.height(), 0);
}

TEST_F(MainFrameBufferTest, GivesOnePictureWithAnyNumberOfSamples) {
    for (const bool multisample : {true, false})
        for (const auto& [width, height] : {std::pair{1, 1}, {31, 17}, {64, 3}}) {
            target.prepare(width, height, multisample);
            EXPECT_TRUE(frameIsRight(width, height, 7)) << width << " by " << height;
            target.destory();
        }
}

TEST_F(MainFrameBufferTest, StacksLevelsWithTheirStencilBuffers) {
    const TextureTarget white(1, 1, gl::GL_RGBA8, std::vector<float>(4, 1).data());
    for (const bool multisample : {true, false}) {
        target.prepare(4, 4, multisample);
        target.beginDrawing();
        const gl::GLint lower = attachment(gl::GL_COLOR_ATTACHMENT0);
        BackgroundRender().draw(white.texture, 1);
        target.pushRenderContext(false, true);
        EXPECT_EQ(AEOpenGLUtilities::CheckFramebufferStatus(), "OK");
        EXPECT_EQ(integer(gl::GL_SAMPLES), multisample ? std::min(8, integer(gl::GL_MAX_SAMPLES)) : 0);
        EXPECT_EQ(renderbuffers(), 4);
        // The upper level stays transparent where the stencil lets nothing through.
        gl::glClearStencil(1);
        gl::glClear(gl::GL_STENCIL_BUFFER_BIT);
        gl::glEnable(gl::GL_STENCIL_TEST);
        gl::glStencilFunc(gl::GL_EQUAL, 0, 1);
        BackgroundRender().draw(white.texture, 1);
        gl::glDisable(gl::GL_STENCIL_TEST);
        const gl::GLuint upper = target.popRenderContext();
        EXPECT_THAT(texels(upper), Each(0.0f));
        EXPECT_EQ(renderbuffers(), 2);
        EXPECT_EQ(attachment(gl::GL_COLOR_ATTACHMENT0), lower);

        // A level that was left behind stays below the next frame's.
        EXPECT_TRUE(frameIsRight(4, 4, 1));
        const gl::GLuint left = target.popRenderContext();
        EXPECT_EQ(renderbuffers(), 1);
        target.pushRenderContext(false, true);
        target.clearStack();
        EXPECT_EQ(renderbuffers(), 1) << "a level takes its stencil buffer along";
        for (const gl::GLuint texture : {upper, left})
            gl::glDeleteTextures(1, &texture);
        target.destory();
    }
}

TEST_F(MainFrameBufferTest, RendersIntoMipLevelsOfACallersTexture) {
    const std::vector<float> white(4 * 64, 1);
    const TextureTarget picture(8, 8, gl::GL_RGBA8, white.data());
    gl::glBindTexture(gl::GL_TEXTURE_2D, picture.texture);
    for (int level = 1; level < 4; ++level)
        gl::glTexImage2D(gl::GL_TEXTURE_2D, level, static_cast<gl::GLint>(gl::GL_RGBA8), 8 >> level,
                         8 >> level, 0, gl::GL_RGBA, gl::GL_FLOAT, white.data());
    const auto viewport = [] {
        std::vector<gl::GLint> rectangle(4);
        gl::glGetIntegerv(gl::GL_VIEWPORT, rectangle.data());
        return rectangle;
    };
    target.prepare(6, 5, true);
    for (const bool inFrame : {false, true}) {
        if (inFrame)
            target.beginDrawing();
        const gl::GLint below = inFrame ? integer(gl::GL_DRAW_FRAMEBUFFER_BINDING) : 0;
        target.pushNormalRenderContext(picture.texture, Vec2(4.9, 4.2), 1);
        const auto temporary = integer<gl::GLuint>(gl::GL_DRAW_FRAMEBUFFER_BINDING);
        EXPECT_THAT(viewport(), ElementsAre(0, 0, 4, 4));
        EXPECT_THAT(texels(picture.texture, 1), Each(0.0f));
        gl::glClearColor(0.5f, 0.5f, 0.5f, 0.5f);
        gl::glClear(gl::GL_COLOR_BUFFER_BIT);
        target.popNormalRenderContext();
        EXPECT_THAT(texels(picture.texture, 1), Each(testing::FloatNear(0.5f, 0.01f)));
        EXPECT_EQ(texels(picture.texture), white);
        EXPECT_FALSE(gl::glIsFramebuffer(temporary));
        EXPECT_EQ(integer(gl::GL_DRAW_FRAMEBUFFER_BINDING), below);
        EXPECT_EQ(viewport(), inFrame ? (std::vector{0, 0, 6, 5}) : (std::vector{0, 0, 4, 4}));
    }
    target.endDrawing(1);
    target.pushNormalRenderContext(picture.texture);
    target.popNormalRenderContext();
    EXPECT_THAT(texels(picture.texture), Each(0.0f));
}

TEST_F(MainFrameBufferTest, CreatesTransparentTexturesOfAllKinds) {
    target.prepare(5, 3, false);
    const Vec2 small(3.9, 2.9);
    struct {
        gl::GLuint texture;
        std::size_t pixels;
        gl::GLenum format, magnification, minification;
    } const cases[] = {
        {target.createRenderTexture(false), 15, gl::GL_RGBA, gl::GL_LINEAR, gl::GL_LINEAR},
        {target.createRenderTexture(small, true), 6, gl::GL_RGBA, gl::GL_LINEAR, gl::GL_LINEAR_MIPMAP_LINEAR},
        {target.createFloatRenderTexture(true, false), 15, gl::GL_RGBA32F, gl::GL_LINEAR, gl::GL_LINEAR},
        {target.createFloatRenderTexture(false, false), 15, gl::GL_RGBA32F, gl::GL_NEAREST, gl::GL_NEAREST},
        {target.createFloatRenderTexture(small, true, true), 6, gl::GL_RGBA32F, gl::GL_LINEAR,
         gl::GL_LINEAR_MIPMAP_LINEAR},
        {target.createFloatRenderTexture(small, false, true), 6, gl::GL_RGBA32F, gl::GL_NEAREST,
         gl::GL_LINEAR_MIPMAP_NEAREST},
    };
    for (const auto& [texture, pixels, format, magnification, minification] : cases) {
        EXPECT_EQ(integer(gl::GL_TEXTURE_BINDING_2D), 0);
        EXPECT_EQ(texels(texture), std::vector<float>(4 * pixels, 0));
        gl::glBindTexture(gl::GL_TEXTURE_2D, texture);
        gl::GLint internalFormat = 0;
        gl::glGetTexLevelParameteriv(gl::GL_TEXTURE_2D, 0, gl::GL_TEXTURE_INTERNAL_FORMAT, &internalFormat);
        EXPECT_EQ(internalFormat, static_cast<gl::GLint>(format));
        EXPECT_EQ(textureParameter(gl::GL_TEXTURE_MAG_FILTER), magnification);
        EXPECT_EQ(textureParameter(gl::GL_TEXTURE_MIN_FILTER), minification);
        EXPECT_EQ(textureParameter(gl::GL_TEXTURE_WRAP_S), gl::GL_CLAMP_TO_EDGE);
        EXPECT_EQ(textureParameter(gl::GL_TEXTURE_WRAP_T), gl::GL_CLAMP_TO_EDGE);
        gl::glBindTexture(gl::GL_TEXTURE_2D, 0);
        gl::glDeleteTextures(1, &texture);
    }
}

TEST_F(MainFrameBufferTest, DrawsOnAnyThreadAndKeepsOneSetForEachContext) {
    std::unique_ptr<AEOpenGLContext> second;
    const auto onSecondThread = [&](const std::function<void()>& work) {
        std::thread([&] {
            const CapturedOutput quiet;
            if (!second)
                second = std::make_unique<AEOpenGLContext>(context.get());
            second->makeContextCurrent();
            work();
        }).join();
    };
    const auto frame = [&](int size, unsigned seed) {
        target.prepare(size, size, true);
        EXPECT_TRUE(frameIsRight(size, size, seed)) << "frame " << seed;
    };
    for (const bool sizesChange : {false, true}) {
        const GLCalls calls;
        for (unsigned round = 0; round < 6; ++round) {
            frame(sizesChange && round % 2 ? 9 : 8, 2 * round);
            onSecondThread([&] { frame(sizesChange && round % 3 ? 9 : 8, 2 * round + 1); });
        }
        EXPECT_EQ(calls.count("glGenFramebuffers") - calls.count("glDeleteFramebuffers"),
                  sizesChange ? 0 : 6);
    }
    onSecondThread([&] { target.destory(); });
    second.reset();
}

TEST_F(MainFrameBufferTest, TurnsHostPixelsIntoPremultipliedOnesAndBack) {
    const int width = 13, height = 4;
    std::mt19937 random(11);
    std::uniform_real_distribution<float> unit(0, 1);
    std::vector<float> source(4 * width * height);
    for (std::size_t i = 0; i < source.size(); ++i)
        source[i] = i % 20 ? unit(random) : 0; // an alpha of 0 now and then
    const TextureTarget picture(width, height, gl::GL_RGBA32F, source.data()),
        middle(width, height, gl::GL_RGBA32F), result(width, height, gl::GL_RGBA32F);
    for (const float multiplier : {1.0f, 65535.0f / 32768.0f}) {
        BackgroundRender background;
        ScreenRender screen;
        const auto draw = [&] {
            gl::glBindFramebuffer(gl::GL_FRAMEBUFFER, middle.frameBuffer);
            background.draw(picture.texture, multiplier);
            gl::glBindFramebuffer(gl::GL_FRAMEBUFFER, result.frameBuffer);
            screen.draw(middle.texture, multiplier);
        };
        draw();
        const auto premultiplied = texels(middle.texture), straight = texels(result.texture);
        for (std::size_t i = 0; i < source.size(); i += 4) {
            const float alpha = source[i] * multiplier;
            for (std::size_t channel = 0; channel < 3; ++channel) {
                const float colour = source[i + 1 + channel];
                EXPECT_NEAR(premultiplied[i + channel], alpha * colour * multiplier, 1e-5);
                EXPECT_NEAR(straight[i + 1 + channel], alpha > 0 ? colour : 0, 1e-5);
            }
            EXPECT_NEAR(premultiplied[i + 3], alpha, 1e-6);
            EXPECT_NEAR(straight[i], source[i], 1e-6);
        }
        EXPECT_THAT(callsOf(draw), Each(testing::Not(testing::MatchesRegex("gl(Gen|Create|BufferData).*"))));
    }
}

TEST_F(MainFrameBufferTest, TellsTheStatusOfAFrameBuffer) {
    const TextureTarget target(1, 1, gl::GL_RGBA8);
    TextureTarget::attach(0);
    EXPECT_EQ(AEOpenGLUtilities::CheckFramebufferStatus(), "Framebuffer incomplete, missing attachment!");
    gl::glBindFramebuffer(gl::GL_FRAMEBUFFER, 0);
    EXPECT_EQ(AEOpenGLUtilities::CheckFramebufferStatus(), "Unknown error!") << "no default frame buffer";
}

} // namespace
} // namespace Tessaloom::BilateralBlur
