#include "Plugins/Shared/GL/AEOpenGLContextManager.h"
#include "Plugins/Shared/GL/AEOpenglMainFrameBuffer.h"
#include "Plugins/Shared/GL/BackgroundRender.h"
#include "Plugins/Shared/GL/GLFailure.h"
#include "Plugins/Shared/GL/SaveRestoreGLContextMac.h"
#include "Plugins/Shared/GL/TextureOwner.h"
#include "Tests/GL/GLTest.h"
#include "Tests/Support/AllocationLimit.h"
#include "Tests/Support/EglWatch.h"

#include <new>

namespace Tessaloom::BilateralBlur {
namespace {

using namespace gl;
using AllocationLimit::kUnlimited;

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
int framePasses(int allocations) {
    AEOpenglMainFrameBuffer& target = *AEOpenglMainFrameBuffer::mainFrameBuffer();
    auto* saved = (new SaveRestoreGLContextMac)->init();
    int unused = 0;
    {
        BackgroundRender pass;
        AllocationLimit::left = allocations;
        try {
            AEOpenGLContextManager::setupContextManager();
            AEOpenGLContextManager::getCurrentRenderContext()->makeContextCurrent();
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
    AEOpenGLContextManager::releaseContextManager();
    saved->restore();
    saved->release();
    AllocationLimit::left = kUnlimited;
    EXPECT_EQ(EglWatch::liveContexts, 0) << allocations;
    return unused;
}

// At every allocation of a frame, the last ones, and at more and more distant ones of the contexts, which are many.
TEST(Memory, ExhaustedMemoryStopsNoDestructorAndLeavesNothing) {
    constexpr int kMany = 1'000'000;
    framePasses(kMany); // what is made once
    const int needed = kMany - framePasses(kMany);
    for (int missing = 1; missing <= needed; missing += std::max(1, missing / 8 - 4))
        ASSERT_EQ(framePasses(needed - missing), 0) << missing;
}

} // namespace
} // namespace Tessaloom::BilateralBlur
