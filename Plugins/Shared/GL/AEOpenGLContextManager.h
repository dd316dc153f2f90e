#pragma once

#include "Plugins/Shared/GL/AEOpenGLContext.h"

#include <atomic>
#include <map>
#include <mutex>

namespace Tessaloom::BilateralBlur {

/// Owns the effect's contexts: a shared data context, made at global setup, and a render context for each
/// host thread that renders, in the share group of the data context. A thread's end doesn't free its
/// context; all go together at global setdown, which like setup must not overlap any other command.
class AEOpenGLContextManager {
public:
    AEOpenGLContextManager() = delete;

    /// Creates the data context and leaves it current. Throws the integer 516 where there is none to be had.
    static void setupContextManager();

    /// The data context; null before setup and after release.
    static AEOpenGLContext* getSharedDataContext();

    /// The calling thread's render context. On a thread's first call it is created, left current and
    /// numbered; a known one is handed out without being made current. Throws the integer 516 where a
    /// context is needed and can't be had; the thread keeps its number and may ask again.
    static AEOpenGLContext* getCurrentRenderContext();

    /// Deletes all render contexts in ascending thread number, then the data context.
    static void releaseContextManager();

private:
    static std::atomic<std::int32_t> mContextCount;
    static std::map<int, AEOpenGLContext*> mRenderContexts;
    static std::recursive_mutex mMutex;
    static AEOpenGLContext* mSharedDataContext;
};

} // namespace Tessaloom::BilateralBlur
