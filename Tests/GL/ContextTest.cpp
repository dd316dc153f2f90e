#include "Plugins/Shared/GL/AEOpenGLContextManager.h"
#include "Plugins/Shared/GL/AEOpenglMainFrameBuffer.h"
#include "Plugins/Shared/GL/BackgroundRender.h"
#include "Plugins/Shared/GL/GLFailure.h"
#include "Plugins/Shared/GL/SaveRestoreGLContextMac.h"
#include "Plugins/Shared/GL/TextureOwner.h"
#include "Tests/GL/GLTest.h"
#include "Tests/Support/AllocationLimit.h"
#include "Tests/Support/EglWatch.h"

#include <barrier>
#include <optional>
#include <unistd.h>

namespace Tessaloom::BilateralBlur {
namespace {

using namespace gl;
using Manager = AEOpenGLContextManager;
using ContextTest = GLTest;

TEST_F(ContextTest, PrintsItsIdentityAndShares) {
    const GLuint texture = makeTexture(1, 1);
    testing::internal::CaptureStdout();
    const AEOpenGLContext made(&context);
    EXPECT_THAT(testing::internal::GetCapturedStdout(),
                testing::MatchesRegex("\nOpenGL Version:  [34]\\.[0-9]\nOpenGL Vendor:   .+\n"
                                      "OpenGL Renderer: .+\nOpenGL Revision: [0-9]+ .+\n\n"));
    EXPECT_EQ(glIsTexture(texture), GL_TRUE);
}

TEST_F(ContextTest, FlushesBeforeASwitchUnlessTheFrameBufferIsIncomplete) {
    for (const bool complete : {true, false}) {
        context.makeContextCurrent();
        drawInto(complete ? makeTexture(2, 2) : 0, 2, 2);
        GLCalls calls;
        AEOpenGLContext::makeNoneCurrent();
        EXPECT_EQ(calls.counts["glFlush"], complete);
    }
    context.makeContextCurrent();
}

TEST_F(ContextTest, IsSoftwareWhereItsDeviceOrItsRendererSaysSo) {
    EXPECT_TRUE(context.isSoftware());
    const std::pair<const char*, bool> cases[] = {{"virgl (LLVMPIPE (LLVM 15.0.6, 256 bits))", true},
                                                  {"softpipe", true},
                                                  {"ANGLE (Google, Vulkan 1.3.0 (SwiftShader Device))", true},
                                                  {"D3D12 (Microsoft Basic Render Driver)", true},
                                                  {"NVIDIA H100 PCIe/PCIe/SSE2", false}};
    for (const auto& [renderer, isSoftware] : cases) {
        EglWatch::renderer = renderer;
        EXPECT_EQ(AEOpenGLContext(nullptr).isSoftware(), isSoftware) << renderer;
    }
    EglWatch::renderer = nullptr;
    context.makeContextCurrent();
}

TEST_F(ContextTest, FailsWithAReason) {
    const CGLContextObj own = CGLGetCurrentContext();
    for (const auto failing : {EglWatch::Failing::Creation, EglWatch::Failing::Binding}) {
        EglWatch::failing = failing;
        EXPECT_THAT([&] { AEOpenGLContext made(&context); },
                    testing::ThrowsMessage<GLFailure>(testing::HasSubstr("system")));
    }
    EglWatch::failing = EglWatch::Failing::Nothing;
    EXPECT_TRUE(CGLGetCurrentContext() == own);
    EXPECT_TRUE(GLFailure(GL_CONTEXT_LOST).isContextLost());
    context.makeContextCurrent();
}

class ManagerTest : public testing::Test {
protected:
    ManagerTest() { Manager::setupContextManager(); }
    ~ManagerTest() override {
        AEOpenglMainFrameBuffer::mainFrameBuffer()->destory();
        Manager::releaseContextManager();
        EXPECT_EQ(EglWatch::liveContexts, 0);
    }

    static void beginFrame() {
        Manager::getCurrentRenderContext()->makeContextCurrent();
        AEOpenglMainFrameBuffer::mainFrameBuffer()->prepare(4, 4, true);
        AEOpenglMainFrameBuffer::mainFrameBuffer()->beginDrawing();
    }
};

TEST_F(ManagerTest, TakesBackTheContextsOfThreadsThatEnd) {
    for (int i = 0; i < 20; ++i) {
        std::thread([] {
            Manager::getCurrentRenderContext()->makeContextCurrent();
            EXPECT_EQ(Manager::getCurrentRenderContext(), Manager::getCurrentRenderContext());
            EXPECT_EQ(EglWatch::liveContexts, 2);
        }).join();
        EXPECT_EQ(EglWatch::liveContexts, 1);
    }
}

TEST_F(ManagerTest, ThreadsMayEndDuringARelease) {
    for (int round = 0; round < 10; ++round) {
        constexpr int kThreads = 4;
        std::barrier together(kThreads + 1);
        std::vector<std::jthread> threads;
        for (int i = 0; i < kThreads; ++i)
            threads.emplace_back([&] {
                Manager::getCurrentRenderContext();
                together.arrive_and_wait();
            });
        together.arrive_and_wait();
        Manager::releaseContextManager();
        threads.clear();
        EXPECT_EQ(EglWatch::liveContexts, 0);
        Manager::setupContextManager();
    }
}

// Of a process that has drawn a frame, and has a context current and objects made.
TEST_F(ManagerTest, AForkedChildLeavesGLAlone) {
    beginFrame();
    std::optional<BackgroundRender> pass(std::in_place);
    pass->draw(makeTexture(1, 1), 1);
    const auto child = [&] {
        alarm(60); // a child that waits for the driver's threads waits for ever
        GLCalls calls;
        const int live = EglWatch::liveContexts;
        EXPECT_THROW(beginFrame(), GLFailure);
        EXPECT_THROW(AEOpenGLContext(nullptr), GLFailure);
        EXPECT_THROW(Manager::getSharedDataContext()->makeContextCurrent(), GLFailure);
        AEOpenGLContext::makeNoneCurrent();
        pass.reset();
        AEOpenglMainFrameBuffer::mainFrameBuffer()->destory();
        Manager::releaseContextManager();
        EXPECT_EQ(calls.names, "");
        EXPECT_EQ(EglWatch::liveContexts, live);
        _exit(HasFailure());
    };
    EXPECT_EXIT(child(), testing::ExitedWithCode(0), "");
}

int objects() {
    int found = 0;
    for (GLuint name = 1; name < 64; ++name)
        for (auto* exists :
             {glIsTexture, glIsRenderbuffer, glIsFramebuffer, glIsBuffer, glIsVertexArray, glIsProgram})
            found += exists(name) == GL_TRUE;
    return found;
}

// A frame, and its end without its destructors needing memory, where that is exhausted after so many allocations
// and stays so. Returns how many of them the frame didn't need, 0 where it failed.
int leftByFrame(int allocations) {
    AEOpenglMainFrameBuffer& target = *AEOpenglMainFrameBuffer::mainFrameBuffer();
    auto* saved = (new SaveRestoreGLContextMac)->init();
    int unused = 0;
    {
        BackgroundRender pass;
        AllocationLimit::left = allocations;
        try {
            Manager::setupContextManager();
            Manager::getCurrentRenderContext()->makeContextCurrent();
            target.prepare(4, 4, true);
            target.beginDrawing();
            target.pushRenderContext(false, true);
            const TextureOwner level(target.popRenderContext());
            pass.draw(level.name(), 1);
            target.endDrawing(1);
            unused = AllocationLimit::left;
        } catch (const std::bad_alloc&) {
        } catch (const GLFailure&) {
        }
        AllocationLimit::left = 0;
        target.discard();
    }
    glUseProgram(0); // which keeps a deleted program until then
    EXPECT_EQ(objects(), 0) << allocations;
    target.destory();
    Manager::releaseContextManager();
    saved->restore();
    saved->release();
    AllocationLimit::left = AllocationLimit::kUnlimited;
    EXPECT_EQ(EglWatch::liveContexts, 0) << allocations;
    return unused;
}

// At every allocation of a frame, the last ones, and at more and more distant ones of the contexts, which are many.
TEST(Memory, ExhaustedMemoryStopsNoDestructorAndLeavesNothing) {
    constexpr int kMany = 1'000'000;
    leftByFrame(kMany); // what is made once
    const int needed = kMany - leftByFrame(kMany);
    for (int missing = 1; missing <= needed; missing += std::max(1, missing / 8 - 4))
        ASSERT_EQ(leftByFrame(needed - missing), 0) << missing;
}

} // namespace
} // namespace Tessaloom::BilateralBlur
