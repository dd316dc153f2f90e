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

// A thread can have a number and no context: its context went in a setdown that was followed by a setup, or
// its creation failed. Either way it gets a new one under its old number.
AEOpenGLContext* AEOpenGLContextManager::getCurrentRenderContext() {
    const std::lock_guard lock(mMutex);
    if (mThread == -1)
        mThread = mContextCount.fetch_add(1);
    if (const auto known = mRenderContexts.find(mThread); known != mRenderContexts.end())
        return known->second;

    // A setup that found no context leaves the making of the data context to the first frame.
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
