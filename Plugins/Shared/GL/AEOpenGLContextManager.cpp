#include "Plugins/Shared/GL/AEOpenGLContextManager.h"

#include "Plugins/Shared/GL/GLFailure.h"

#include <memory>
#include <utility>

namespace Tessaloom::BilateralBlur {

// They stay until the process is gone: a thread may end after the program's own objects have.
std::atomic<std::int32_t> AEOpenGLContextManager::mContextCount{0};
std::map<int, AEOpenGLContext*>& AEOpenGLContextManager::mRenderContexts =
    *new std::map<int, AEOpenGLContext*>;
std::recursive_mutex& AEOpenGLContextManager::mMutex = *new std::recursive_mutex;
AEOpenGLContext* AEOpenGLContextManager::mSharedDataContext = nullptr;

// A thread's number. Its end gives the thread's context back.
class AEOpenGLContextManager::Thread {
public:
    // What the platform keeps for the thread is made first, so that it goes last.
    Thread() { CGLGetCurrentContext(); }
    ~Thread() {
        if (number != -1)
            deleteRenderContext(number);
    }
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

    std::int32_t number = -1;
};

void AEOpenGLContextManager::deleteRenderContext(int thread) {
    if (CGLIsForked())
        return;
    const std::lock_guard lock(mMutex);
    const auto found = mRenderContexts.find(thread);
    if (found == mRenderContexts.end())
        return;
    delete found->second;
    mRenderContexts.erase(found);
}

void AEOpenGLContextManager::setupContextManager() {
    mSharedDataContext = new AEOpenGLContext(nullptr);
}

AEOpenGLContext* AEOpenGLContextManager::getSharedDataContext() {
    return mSharedDataContext;
}

// A thread can have a number and no context: a setdown deleted it and a setup followed, or its creation
// failed. Either way the thread gets a new context under its old number.
AEOpenGLContext* AEOpenGLContextManager::getCurrentRenderContext() {
    // Before the lock, which a thread of the parent may have held at the fork.
    if (CGLIsForked())
        throw GLFailure("This process was forked from one that uses OpenGL");
    static thread_local Thread kThread;
    const std::lock_guard lock(mMutex);
    if (kThread.number == -1)
        kThread.number = mContextCount.fetch_add(1);
    if (const auto known = mRenderContexts.find(kThread.number); known != mRenderContexts.end())
        return known->second;

    auto context = std::make_unique<AEOpenGLContext>(mSharedDataContext);
    mRenderContexts.emplace(kThread.number, context.get());
    return context.release();
}

// In a child of the process that made them, contexts can only be forgotten, and the lock may be held for ever.
void AEOpenGLContextManager::releaseContextManager() {
    std::unique_lock lock(mMutex, std::defer_lock);
    if (!CGLIsForked())
        lock.lock();
    for (const auto& [thread, context] : mRenderContexts)
        delete context;
    mRenderContexts.clear();
    delete std::exchange(mSharedDataContext, nullptr);
}

} // namespace Tessaloom::BilateralBlur
