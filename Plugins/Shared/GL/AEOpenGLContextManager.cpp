#include "Plugins/Shared/GL/AEOpenGLContextManager.h"

namespace Tessaloom::BilateralBlur {

namespace {

thread_local std::int32_t mThread = -1;

} // namespace

std::atomic<std::int32_t> AEOpenGLContextManager::mContextCount{0};
std::map<int, AEOpenGLContext*> AEOpenGLContextManager::mRenderContexts;
std::recursive_mutex AEOpenGLContextManager::mMutex;
AEOpenGLContext* AEOpenGLContextManager::mSharedDataContext = nullptr;

void AEOpenGLContextManager::setupContextManager() {
    mSharedDataContext = new AEOpenGLContext(nullptr);
}

AEOpenGLContext* AEOpenGLContextManager::getSharedDataContext() {
    return mSharedDataContext;
}

// A thread can have a number and no context: a setdown deleted it and a setup followed, or its creation
// failed. Either way the thread gets a new context under its old number.
AEOpenGLContext* AEOpenGLContextManager::getCurrentRenderContext() {
    const std::lock_guard lock(mMutex);
    if (mThread == -1)
        mThread = mContextCount.fetch_add(1);
    if (const auto known = mRenderContexts.find(mThread); known != mRenderContexts.end())
        return known->second;

    // If setup couldn't create the data context, the first frame does.
    if (!mSharedDataContext)
        setupContextManager();
    auto* context = new AEOpenGLContext(mSharedDataContext);
    mRenderContexts.emplace(mThread, context);
    return context;
}

void AEOpenGLContextManager::releaseContextManager() {
    for (const auto& [thread, context] : mRenderContexts)
        delete context;
    mRenderContexts.clear();
    delete mSharedDataContext;
    mSharedDataContext = nullptr;
}

} // namespace Tessaloom::BilateralBlur
