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

using Bytes = std::vector<std::uint8_t>;

Bytes pixels(int width, int height) {
    Bytes bytes(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4);
    gl::glReadBuffer(gl::GL_COLOR_ATTACHMENT0);
    gl::glReadPixels(0, 0, width, height, gl::GL_RGBA, gl::GL_UNSIGNED_BYTE, bytes.data());
    return bytes;
}

Bytes repeated(std::initializer_list<std::uint8_t> pixel, std::size_t count) {
    Bytes bytes;
    for (std::size_t i = 0; i < count; ++i)
        bytes.insert(bytes.end(), pixel);
    return bytes;
}

// Host pixels, A, R, G, B, opaque where the alpha counts, so that the passes change nothing.
gl::GLuint opaqueNoise(int width, int height, unsigned seed, Bytes& bytes) {
    std::mt19937 random(seed);
    bytes.resize(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4);
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = i % 4 ? static_cast<std::uint8_t>(random() >> 24) : 255;
    gl::GLuint texture = 0;
    gl::glGenTextures(1, &texture);
    gl::glBindTexture(gl::GL_TEXTURE_2D, texture);
    gl::glTexImage2D(gl::GL_TEXTURE_2D, 0, static_cast<gl::GLint>(gl::GL_RGBA32F), width, height, 0,
                     gl::GL_RGBA, gl::GL_UNSIGNED_BYTE, bytes.data());
    gl::glTexParameteri(gl::GL_TEXTURE_2D, gl::GL_TEXTURE_MIN_FILTER, gl::GL_NEAREST);
    gl::glBindTexture(gl::GL_TEXTURE_2D, 0);
    return texture;
}

int renderbuffers() {
    int count = 0;
    for (gl::GLuint name = 1; name < 64; ++name)
        count += gl::glIsRenderbuffer(name) == gl::GL_TRUE;
    return count;
}

gl::GLint integer(gl::GLenum what) {
    gl::GLint value = 0;
    gl::glGetIntegerv(what, &value);
    return value;
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

    // A frame of noise through the first and the last pass; true where it comes back as it was.
    bool frameIsRight(int width, int height, unsigned seed) {
        Bytes bytes;
        const gl::GLuint texture = opaqueNoise(width, height, seed, bytes);
        target.beginDrawing();
        BackgroundRender().draw(texture, 1);
        target.endDrawing(1);
        gl::glDeleteTextures(1, &texture);
        return pixels(width, height) == bytes;
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
    EXPECT_TRUE(frameIsRight(7, 5, 1));
    {
        const GLCalls calls;
        target.prepare(7, 5, true);
        EXPECT_TRUE(frameIsRight(7, 5, 2));
        EXPECT_EQ(calls.count("glGenFramebuffers"), 0);
        EXPECT_EQ(calls.count("glGenRenderbuffers"), 1);
        EXPECT_EQ(calls.count("glDeleteRenderbuffers"), 1);
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

TEST_F(MainFrameBufferTest, BeginsAndEndsAFrameInOrder) {
    target.prepare(3, 2, true);
    const std::string samples = std::to_string(std::min(8, integer(gl::GL_MAX_SAMPLES)));
    std::vector<std::string> texts;
    {
        const GLCalls calls;
        target.beginDrawing();
        texts = calls.texts;
    }
    std::erase_if(texts, [](const std::string& text) { return text.rfind("glGet", 0) == 0; });
    const std::string colour = std::to_string(attachment(gl::GL_COLOR_ATTACHMENT0));
    const std::string bound = std::to_string(integer(gl::GL_DRAW_FRAMEBUFFER_BINDING));
    EXPECT_EQ(texts[3].rfind("glGenRenderbuffers(1, ", 0), 0u);
    texts.erase(texts.begin() + 3);
    EXPECT_THAT(
        texts,
        ElementsAre("glDrawBuffer(GL_COLOR_ATTACHMENT0)", "glDisable(GL_BLEND)", "glEnable(GL_MULTISAMPLE)",
                    "glBindRenderbuffer(GL_RENDERBUFFER, " + colour + ")",
                    "glRenderbufferStorageMultisample(GL_RENDERBUFFER, " + samples + ", GL_RGBA, 3, 2)",
                    "glBindFramebuffer(GL_FRAMEBUFFER, " + bound + ")",
                    "glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_RENDERBUFFER, " +
                        colour + ")",
                    "glClearColor(0, 0, 0, 0)", "glClear(GL_COLOR_BUFFER_BIT)", "glViewport(0, 0, 3, 2)"));
    EXPECT_EQ(AEOpenGLUtilities::CheckFramebufferStatus(), "OK");
    target.endDrawing(1);
    EXPECT_EQ(renderbuffers(), 1);
    EXPECT_NE(integer(gl::GL_DRAW_FRAMEBUFFER_BINDING), std::stoi(bound));
    EXPECT_FALSE(gl::glIsEnabled(gl::GL_MULTISAMPLE));
    EXPECT_EQ(pixels(3, 2), Bytes(24, 0)) << "nothing was drawn";
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
    for (const bool multisample : {true, false}) {
        target.prepare(4, 4, multisample);
        target.beginDrawing();
        gl::glClearColor(1, 0, 0, 1);
        gl::glClear(gl::GL_COLOR_BUFFER_BIT);
        const gl::GLint lower = attachment(gl::GL_COLOR_ATTACHMENT0);
        target.pushRenderContext(false, true);
        EXPECT_EQ(AEOpenGLUtilities::CheckFramebufferStatus(), "OK");
        EXPECT_NE(attachment(gl::GL_STENCIL_ATTACHMENT), 0);
        EXPECT_EQ(renderbuffers(), 4);
        // The upper level is transparent; only what the stencil lets through gets colour.
        gl::glClearStencil(1);
        gl::glClear(gl::GL_STENCIL_BUFFER_BIT);
        gl::glEnable(gl::GL_STENCIL_TEST);
        gl::glStencilFunc(gl::GL_EQUAL, 0, 1);
        Bytes noise;
        const gl::GLuint texture = opaqueNoise(4, 4, 3, noise);
        BackgroundRender().draw(texture, 1);
        gl::glDisable(gl::GL_STENCIL_TEST);
        const gl::GLuint upper = target.popRenderContext();
        EXPECT_THAT(texels(upper), Each(0.0f));
        EXPECT_EQ(renderbuffers(), 2);
        EXPECT_EQ(attachment(gl::GL_COLOR_ATTACHMENT0), lower);

        // A level that a failed frame left behind stays below the next frame's.
        target.beginDrawing();
        target.endDrawing(1);
        EXPECT_EQ(pixels(4, 4), Bytes(64, 0));
        const gl::GLuint left = target.popRenderContext();
        EXPECT_THAT(texels(left), testing::SizeIs(64));
        target.pushRenderContext(false, true);
        target.clearStack();
        EXPECT_EQ(renderbuffers(), 1) << "a level takes its stencil buffer along";
        gl::glDeleteTextures(1, &upper);
        gl::glDeleteTextures(1, &left);
        gl::glDeleteTextures(1, &texture);
        target.destory();
    }
}

TEST_F(MainFrameBufferTest, RendersIntoMipLevelsOfACallersTexture) {
    gl::GLuint texture = 0;
    gl::glGenTextures(1, &texture);
    gl::glBindTexture(gl::GL_TEXTURE_2D, texture);
    for (int level = 0; level < 4; ++level)
        gl::glTexImage2D(gl::GL_TEXTURE_2D, level, static_cast<gl::GLint>(gl::GL_RGBA8), 8 >> level,
                         8 >> level, 0, gl::GL_RGBA, gl::GL_UNSIGNED_BYTE,
                         repeated({255, 255, 255, 255}, 64).data());
    std::array<gl::GLint, 4> viewport{};
    const auto viewportNow = [&] {
        gl::glGetIntegerv(gl::GL_VIEWPORT, viewport.data());
        return viewport;
    };
    target.prepare(6, 5, true);
    for (const bool inFrame : {false, true}) {
        gl::glViewport(0, 0, 2, 3);
        if (inFrame)
            target.beginDrawing();
        const gl::GLint below = integer(gl::GL_DRAW_FRAMEBUFFER_BINDING);
        target.pushNormalRenderContext(texture, Vec2(4.9, 4.2), 1);
        const auto temporary = static_cast<gl::GLuint>(integer(gl::GL_DRAW_FRAMEBUFFER_BINDING));
        EXPECT_THAT(viewportNow(), ElementsAre(0, 0, 4, 4));
        EXPECT_THAT(texels(texture, 1), Each(0.0f));
        gl::glClearColor(0, 1, 0, 1);
        gl::glClear(gl::GL_COLOR_BUFFER_BIT);
        target.popNormalRenderContext();
        EXPECT_FALSE(gl::glIsFramebuffer(temporary));
        EXPECT_EQ(integer(gl::GL_DRAW_FRAMEBUFFER_BINDING), inFrame ? below : 0);
        if (inFrame)
            EXPECT_THAT(viewportNow(), ElementsAre(0, 0, 6, 5));
        else
            EXPECT_THAT(viewportNow(), ElementsAre(0, 0, 4, 4)) << "left alone";
        EXPECT_THAT(texels(texture, 0), Each(1.0f));
        EXPECT_EQ(texels(texture, 1)[1], 1.0f);
        EXPECT_EQ(texels(texture, 1)[0], 0.0f);
    }
    target.endDrawing(1);
    target.pushNormalRenderContext(texture);
    target.popNormalRenderContext();
    EXPECT_THAT(texels(texture, 0), Each(0.0f));
    gl::glDeleteTextures(1, &texture);
}

TEST_F(MainFrameBufferTest, CreatesTransparentTexturesOfAllKinds) {
    target.prepare(5, 3, false);
    const Vec2 size(3.9, 2.9);
    const auto filter = [](gl::GLenum value) { return static_cast<gl::GLint>(value); };
    struct {
        gl::GLuint texture;
        int width, height, redBits;
        gl::GLenum magnification, minification;
    } const cases[] = {
        {target.createRenderTexture(false), 5, 3, 8, gl::GL_LINEAR, gl::GL_LINEAR},
        {target.createRenderTexture(size, true), 3, 2, 8, gl::GL_LINEAR, gl::GL_LINEAR_MIPMAP_LINEAR},
        {target.createFloatRenderTexture(true, false), 5, 3, 32, gl::GL_LINEAR, gl::GL_LINEAR},
        {target.createFloatRenderTexture(false, false), 5, 3, 32, gl::GL_NEAREST, gl::GL_NEAREST},
        {target.createFloatRenderTexture(size, true, true), 3, 2, 32, gl::GL_LINEAR,
         gl::GL_LINEAR_MIPMAP_LINEAR},
        {target.createFloatRenderTexture(size, false, true), 3, 2, 32, gl::GL_NEAREST,
         gl::GL_LINEAR_MIPMAP_NEAREST},
    };
    for (const auto& made : cases) {
        EXPECT_EQ(integer(gl::GL_TEXTURE_BINDING_2D), 0);
        EXPECT_THAT(texels(made.texture),
                    testing::AllOf(Each(0.0f), testing::SizeIs(made.width * made.height * 4)));
        gl::glBindTexture(gl::GL_TEXTURE_2D, made.texture);
        gl::GLint width = 0, bits = 0;
        gl::glGetTexLevelParameteriv(gl::GL_TEXTURE_2D, 0, gl::GL_TEXTURE_WIDTH, &width);
        gl::glGetTexLevelParameteriv(gl::GL_TEXTURE_2D, 0, gl::GL_TEXTURE_RED_SIZE, &bits);
        EXPECT_EQ(width, made.width);
        EXPECT_EQ(bits, made.redBits);
        const std::pair<gl::GLenum, gl::GLenum> parameters[] = {
            {gl::GL_TEXTURE_MAG_FILTER, made.magnification},
            {gl::GL_TEXTURE_MIN_FILTER, made.minification},
            {gl::GL_TEXTURE_WRAP_S, gl::GL_CLAMP_TO_EDGE},
            {gl::GL_TEXTURE_WRAP_T, gl::GL_CLAMP_TO_EDGE}};
        for (const auto& [name, expected] : parameters) {
            gl::GLint value = 0;
            gl::glGetTexParameteriv(gl::GL_TEXTURE_2D, name, &value);
            EXPECT_EQ(value, filter(expected));
        }
        gl::glBindTexture(gl::GL_TEXTURE_2D, 0);
        gl::glDeleteTextures(1, &made.texture);
    }
}

TEST_F(MainFrameBufferTest, DrawsOnAnyThreadAndMakesOneSetForEachContext) {
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
    const GLCalls calls;
    const auto frame = [&](int size, unsigned seed) {
        target.prepare(size, size, true);
        EXPECT_TRUE(frameIsRight(size, size, seed)) << "frame " << seed;
    };
    for (unsigned round = 0; round < 6; ++round) {
        frame(8, 2 * round);
        onSecondThread([&] { frame(8, 2 * round + 1); });
    }
    EXPECT_EQ(calls.count("glGenFramebuffers"), 3 * 2);
    for (unsigned round = 0; round < 6; ++round) {
        frame(round % 2 ? 9 : 11, 100 + round);
        onSecondThread([&] { frame(round % 3 ? 9 : 11, 200 + round); });
    }
    EXPECT_LE(calls.count("glGenFramebuffers") - calls.count("glDeleteFramebuffers"), 3 * 2);
    onSecondThread([&] { target.destory(); });
    second.reset();
}

TEST_F(MainFrameBufferTest, TurnsHostPixelsIntoPremultipliedOnesAndBack) {
    const int width = 13, height = 4;
    std::mt19937 random(11);
    std::uniform_real_distribution<float> unit(0, 1);
    std::vector<float> source(static_cast<std::size_t>(width) * height * 4);
    for (std::size_t i = 0; i < source.size(); ++i)
        source[i] = i % 20 ? unit(random) : 0; // an alpha of 0 now and then
    TextureTarget picture(width, height, gl::GL_RGBA32F), middle(width, height, gl::GL_RGBA32F),
        result(width, height, gl::GL_RGBA32F);
    gl::glBindTexture(gl::GL_TEXTURE_2D, picture.texture);
    gl::glTexSubImage2D(gl::GL_TEXTURE_2D, 0, 0, 0, width, height, gl::GL_RGBA, gl::GL_FLOAT, source.data());
    for (const float multiplier : {1.0f, 65535.0f / 32768.0f}) {
        BackgroundRender background;
        ScreenRender screen;
        gl::glBindFramebuffer(gl::GL_FRAMEBUFFER, middle.frameBuffer);
        background.draw(picture.texture, multiplier);
        gl::glBindFramebuffer(gl::GL_FRAMEBUFFER, result.frameBuffer);
        screen.draw(middle.texture, multiplier);
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
        for (const std::string& call : callsOf([&] {
                 background.draw(picture.texture, 1);
                 screen.draw(middle.texture, 1);
             }))
            EXPECT_TRUE(call.rfind("glGen", 0) != 0 && call.rfind("glCreate", 0) != 0 &&
                        call != "glBufferData")
                << call << " in a second draw";
    }
}

TEST_F(MainFrameBufferTest, TellsTheStatusOfAFrameBuffer) {
    gl::GLuint frameBuffer = 0;
    gl::glGenFramebuffers(1, &frameBuffer);
    gl::glBindFramebuffer(gl::GL_FRAMEBUFFER, frameBuffer);
    EXPECT_EQ(AEOpenGLUtilities::CheckFramebufferStatus(), "Framebuffer incomplete, missing attachment!");
    gl::GLuint empty = 0;
    gl::glGenTextures(1, &empty);
    gl::glBindTexture(gl::GL_TEXTURE_2D, empty);
    gl::glFramebufferTexture2D(gl::GL_FRAMEBUFFER, gl::GL_COLOR_ATTACHMENT0, gl::GL_TEXTURE_2D, empty, 0);
    EXPECT_EQ(AEOpenGLUtilities::CheckFramebufferStatus(), "Framebuffer incomplete, incomplete attachment!");
    gl::glDeleteTextures(1, &empty);
    gl::glDeleteFramebuffers(1, &frameBuffer);
    gl::glBindFramebuffer(gl::GL_FRAMEBUFFER, 0);
    EXPECT_EQ(AEOpenGLUtilities::CheckFramebufferStatus(), "Unknown error!") << "no default frame buffer";
}

} // namespace
} // namespace Tessaloom::BilateralBlur
