#pragma once

#include "Plugins/Shared/GL/AEOpenGLContext.h"

#include <atomic>
#include <map>
#include <mutex>

namespace Tessaloom::BilateralBlur {

/// Owns the effect's contexts: a shared data context, made at global setup, and a render context for each
/// host thread that renders, in the share group of the data context. A thread that ends gives its context back;
/// the others are deleted at global setdown, which like setup must not overlap any other command.
///
/// In a process forked from the one that made them, the contexts are only forgotten.
class AEOpenGLContextManager {
public:
    AEOpenGLContextManager() = delete;

    /// Creates the data context and leaves it current. Throws a `GLFailure` if the system can't create it.
    static void setupContextManager();

    /// The data context; null before setup and after release.
    static AEOpenGLContext* getSharedDataContext();

    /// The calling thread's render context. A thread's first call creates it and leaves it current; later
    /// calls return it without making it current. Throws a `GLFailure` if it can't be created; the thread may ask
    /// again. Without a data context it shares with none.
    static AEOpenGLContext* getCurrentRenderContext();

    /// Deletes all render contexts in ascending thread number, then the data context. Threads may end
    /// meanwhile.
    static void releaseContextManager();

private:
    class Thread;

    static void deleteRenderContext(int thread);

    static std::atomic<std::int32_t> mContextCount;
    static std::map<int, AEOpenGLContext*>& mRenderContexts;
    static std::recursive_mutex& mMutex;
    static AEOpenGLContext* mSharedDataContext;
};

} // namespace Tessaloom::BilateralBlur
