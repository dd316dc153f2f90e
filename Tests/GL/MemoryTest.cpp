#include "Plugins/Shared/GL/AEOpenGLContextManager.h"
#include "Plugins/Shared/GL/AEOpenglMainFrameBuffer.h"
#include "Plugins/Shared/GL/BackgroundRender.h"
#include "Plugins/Shared/GL/GLFailure.h"
#include "Plugins/Shared/GL/SaveRestoreGLContextMac.h"
#include "Plugins/Shared/GL/TextureOwner.h"
#include "Tests/GL/GLTest.h"
#include "Tests/Support/EglWatch.h"

#include <cstdlib>
#include <dlfcn.h>
#include <limits>
#include <link.h>
#include <new>
#include <string_view>

namespace Tessaloom::BilateralBlur {
namespace {

constexpr int kUnlimited = std::numeric_limits<int>::max();

// How many more allocations of this program and of glbinding succeed on the thread. Drivers abort without memory.
thread_local int mAllocationsLeft = kUnlimited;

bool mayFail(void* caller) {
    dl_find_object found{};
    if (_dl_find_object(caller, &found) != 0)
        return false;
    const std::string_view file = found.dlfo_link_map->l_name; // empty for the program
    return file.empty() || file.find("libglbinding.so") != file.npos;
}

} // namespace
} // namespace Tessaloom::BilateralBlur

[[gnu::noinline]] void* operator new(std::size_t size) {
    using namespace Tessaloom::BilateralBlur;
    const bool isScarce = mAllocationsLeft != kUnlimited && mayFail(__builtin_return_address(0));
    void* memory = isScarce && mAllocationsLeft-- <= 0 ? nullptr : std::malloc(size ? size : 1);
    if (!memory)
        throw std::bad_alloc();
    return memory;
}

// Not inlined, or the compiler would see memory of one kind given back as another.
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}

[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

namespace Tessaloom::BilateralBlur {
namespace {

using namespace gl;

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
        mAllocationsLeft = allocations;
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
        mAllocationsLeft = 0;
        target.discard();
    }
    glUseProgram(0); // which keeps a deleted program until then
    const int left = objects();
    target.destory();
    AEOpenGLContextManager::releaseContextManager();
    saved->restore();
    saved->release();
    mAllocationsLeft = kUnlimited;
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
