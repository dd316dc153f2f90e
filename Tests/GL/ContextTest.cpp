#include "Plugins/Shared/GL/AEOpenGLContextManager.h"
#include "Plugins/Shared/GL/SaveRestoreGLContextMac.h"
#include "Tests/GL/GLTest.h"
#include "Tests/Platform/EglWatch.h"

#include <glbinding/ContextInfo.h>
#include <glbinding/Meta.h>
#include <glbinding/Version.h>

#include <barrier>
#include <set>
#include <thread>

namespace Tessaloom::BilateralBlur {
namespace {

using testing::IsEmpty;

using Manager = AEOpenGLContextManager;

class ContextTest : public GLTest {
protected:
    void TearDown() override {
        Manager::releaseContextManager();
        context->makeContextCurrent();
        GLTest::TearDown();
        EXPECT_EQ(EglWatch::liveContexts(), 0);
    }

    CapturedOutput mOutput;
};

TEST_F(ContextTest, PrintsTheIdentityOfEachContext) {
    for (int i = 0; i < 2; ++i) {
        const CapturedOutput output;
        const AEOpenGLContext made(context.get());
        std::ostringstream expected;
        expected << "\nOpenGL Version:  " << glbinding::ContextInfo::version().toString()
                 << "\nOpenGL Vendor:   " << glbinding::ContextInfo::vendor()
                 << "\nOpenGL Renderer: " << glbinding::ContextInfo::renderer()
                 << "\nOpenGL Revision: " << glbinding::Meta::glRevision() << " (gl.xml)\n\n";
        EXPECT_EQ(output.text(), expected.str());
        EXPECT_EQ(made.extensions(), glbinding::ContextInfo::extensions());
        EXPECT_FALSE(made.extensions().empty());
    }
}

TEST_F(ContextTest, FlushesBeforeASwitchUnlessTheFrameBufferIsIncomplete) {
    const CGLContextObj own = CGLGetCurrentContext();
    AEOpenGLContext other(nullptr);
    const CGLContextObj target = CGLGetCurrentContext();
    EXPECT_FALSE(own == target) << "a new context is left current";
    EXPECT_THAT(callsOf([&] { AEOpenGLContext::makeCurrentFlush(target); }), IsEmpty());
    EXPECT_THAT(callsOf([&] { other.makeContextCurrent(); }), IsEmpty());
    CGLSetCurrentContext(own);
    TextureTarget frameBuffer(2, 2, gl::GL_RGBA8);
    const auto flushes = [&] {
        const GLCalls calls;
        AEOpenGLContext::makeCurrentFlush(target);
        EXPECT_TRUE(CGLGetCurrentContext() == target);
        CGLSetCurrentContext(own);
        return calls.count("glFlush");
    };
    EXPECT_EQ(flushes(), 1);
    TextureTarget::attach(0);
    EXPECT_EQ(flushes(), 0) << "incomplete";
    gl::glBindFramebuffer(gl::GL_FRAMEBUFFER, 0);
    EXPECT_EQ(flushes(), 1) << "none bound";
}

TEST_F(ContextTest, RestoresWhatWasCurrent) {
    const CGLContextObj before = CGLGetCurrentContext();
    AEOpenGLContext other(nullptr);
    for (const char* host : {"high", "low", "none", "same"}) {
        CGLSetCurrentContext({});
        if (*host == 'h' || *host == 's')
            context->makeContextCurrent();
        else if (*host == 'l')
            CGLSetCurrentContext(before);
        auto* saved = (new SaveRestoreGLContextMac)->init();
        EXPECT_EQ(saved->mContext() != nullptr, *host == 'h' || *host == 's');
        EXPECT_FALSE(saved->mRestored());
        if (*host != 's')
            other.makeContextCurrent();
        const CGLContextObj switched = CGLGetCurrentContext();
        const auto calls = callsOf([&] { saved->restore(); });
        EXPECT_TRUE(CGLGetCurrentContext() == (*host == 'n' ? switched : before)) << host;
        EXPECT_EQ(NSOpenGLContext::currentContext() != nullptr, *host != 'l');
        EXPECT_EQ(std::count(calls.begin(), calls.end(), "glFlush"), *host == 'l' ? 1 : 0) << host;
        EXPECT_TRUE(saved->mRestored());
        other.makeContextCurrent();
        saved->restore();
        EXPECT_FALSE(CGLGetCurrentContext() == before) << "once only";
        saved->release();
        EXPECT_FALSE(CGLGetCurrentContext() == before) << "the end restores nothing";
    }
}

TEST_F(ContextTest, GivesEachThreadOneContextOfTheGroup) {
    Manager::setupContextManager();
    AEOpenGLContext* own = Manager::getCurrentRenderContext();
    context->makeContextCurrent();
    const CGLContextObj before = CGLGetCurrentContext();
    EXPECT_EQ(Manager::getCurrentRenderContext(), own);
    EXPECT_TRUE(CGLGetCurrentContext() == before) << "a known context isn't made current";

    constexpr int kThreads = 6;
    std::mutex mutex;
    std::set<AEOpenGLContext*> contexts{own};
    std::barrier start(kThreads);
    own->makeContextCurrent();
    const TextureTarget shared(1, 1, gl::GL_RGBA8);
    context->makeContextCurrent();
    EXPECT_FALSE(gl::glIsTexture(shared.texture)) << "another group";
    own->makeContextCurrent();
    std::vector<std::jthread> threads;
    for (int i = 0; i < kThreads; ++i)
        threads.emplace_back([&] {
            start.arrive_and_wait();
            AEOpenGLContext* mine = Manager::getCurrentRenderContext();
            EXPECT_TRUE(CGLGetCurrentContext()) << "a new one is";
            EXPECT_EQ(Manager::getCurrentRenderContext(), mine);
            EXPECT_TRUE(gl::glIsTexture(shared.texture));
            const std::lock_guard lock(mutex);
            contexts.insert(mine);
        });
    threads.clear();
    EXPECT_EQ(contexts.size(), 1u + kThreads);
    EXPECT_EQ(EglWatch::liveContexts(), 1 + 1 + 1 + kThreads);
}

TEST_F(ContextTest, ThrowsWhereNoContextIsToBeHadAndFindsOneLater) {
    const CGLContextObj before = CGLGetCurrentContext();
    const auto codeOf = [](auto operation) {
        try {
            operation();
        } catch (int code) {
            return code;
        }
        return 0;
    };
    EglWatch::failCreations(true);
    EXPECT_EQ(codeOf(Manager::setupContextManager), 516);
    EXPECT_EQ(codeOf(Manager::getCurrentRenderContext), 516);
    EXPECT_EQ(Manager::getSharedDataContext(), nullptr);
    EglWatch::failCreations(false);
    Manager::setupContextManager();
    EglWatch::failCreations(true);
    EXPECT_EQ(codeOf(Manager::getCurrentRenderContext), 516) << "with a data context";
    CGLSetCurrentContext(before);
    EglWatch::failCreations(false);
    for (int round = 0; round < 3; ++round) {
        Manager::getCurrentRenderContext()->makeContextCurrent();
        EXPECT_FALSE(CGLGetCurrentContext() == before);
        EXPECT_EQ(EglWatch::liveContexts(), 3);
        Manager::releaseContextManager();
        EXPECT_FALSE(CGLGetCurrentContext());
        EXPECT_EQ(Manager::getSharedDataContext(), nullptr);
        EXPECT_EQ(EglWatch::liveContexts(), 1);
        Manager::setupContextManager();
    }
    context->makeContextCurrent();
    std::thread([&] {
        EXPECT_EQ(codeOf([&] { context->makeContextCurrent(); }), 516) << "in use elsewhere";
    }).join();
}

} // namespace
} // namespace Tessaloom::BilateralBlur
