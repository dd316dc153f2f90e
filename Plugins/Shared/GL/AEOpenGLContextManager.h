#pragma once

#include "Plugins/Shared/GL/AEOpenGLContext.h"

#include <atomic>
#include <map>
#include <mutex>

namespace Tessaloom::BilateralBlur {

/// Owns the effect's contexts: a shared data context, made at global setup, and a render context for each
/// host thread that renders, in the share group of the data context. The end of a thread doesn't free its
/// context: all are freed at global setdown, which like setup must not overlap any other command.
class AEOpenGLContextManager {
public:
    AEOpenGLContextManager() = delete;

    /// Creates the data context and leaves it current. Throws the integer 516 if the system can't create it.
    static void setupContextManager();

    /// The data context; null before setup and after release.
    static AEOpenGLContext* getSharedDataContext();

    /// The calling thread's render context. A thread's first call creates it and leaves it current; later
    /// calls return it without making it current. Throws the integer 516 if it can't be created; the thread
    /// may ask again.
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
