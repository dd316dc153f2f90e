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
// and stays so. True if it sufficed.
bool framePasses(int allocations, bool alsoForContexts) {
    AEOpenglMainFrameBuffer& target = *AEOpenglMainFrameBuffer::mainFrameBuffer();
    auto* saved = (new SaveRestoreGLContextMac)->init();
    const auto makeContexts = [] {
        AEOpenGLContextManager::setupContextManager();
        AEOpenGLContextManager::getCurrentRenderContext()->makeContextCurrent();
    };
    if (!alsoForContexts)
        makeContexts();
    bool passes = false;
    {
        BackgroundRender pass;
        AllocationLimit::left = allocations;
        try {
            if (alsoForContexts)
                makeContexts();
            target.prepare(4, 4, true);
            target.beginDrawing();
            target.pushRenderContext(false, true);
            const TextureOwner level(target.popRenderContext());
            pass.draw(level.name(), 1);
            target.endDrawing(1);
            passes = true;
        } catch (const std::bad_alloc&) {
        } catch (const GLFailure&) {
        }
        AllocationLimit::left = 0;
        target.discard();
    }
    glUseProgram(0); // which keeps a deleted program until then
    const int left = objects();
    target.destory();
    AEOpenGLContextManager::releaseContextManager();
    saved->restore();
    saved->release();
    AllocationLimit::left = kUnlimited;
    EXPECT_EQ(left, 0) << allocations;
    return passes;
}

// At every allocation of a frame, and at more and more distant ones of the contexts, which are many.
TEST(Memory, ExhaustedMemoryStopsNoDestructorAndLeavesNothing) {
    framePasses(kUnlimited, true); // what is made once
    int allocations = 0;
    for (; !framePasses(allocations, false); ++allocations)
        ASSERT_EQ(EglWatch::liveContexts, 0) << allocations;
    EXPECT_GT(allocations, 10);
    for (allocations = 0; !framePasses(allocations, true); allocations += 1 + allocations / 8)
        ASSERT_EQ(EglWatch::liveContexts, 0) << allocations;
    EXPECT_EQ(EglWatch::liveContexts, 0);
}

} // namespace
} // namespace Tessaloom::BilateralBlur
