#pragma once

#include "Platform/GLContext.h"

namespace Tessaloom::BilateralBlur {

/// Notes the GL context that the host has current on the calling thread and puts it back on request. `init`,
/// the switching and `restore` all belong on one thread. The end of the object restores nothing.
///
/// A context is kept on both of the platform's levels, as one made by the rest of the process is known on
/// the lower one alone.
class SaveRestoreGLContextMac : public NSObject {
public:
    /// Notes the current context. Returns the object itself.
    SaveRestoreGLContextMac* init();

    /// Makes the noted context current again, flushing the one that is. Does its work once. Where no context
    /// had been current, the present one stays.
    void restore();

    NSOpenGLContext* mContext() const { return mSavedContext; } ///< retained; may be null
    void setMContext(NSOpenGLContext* context);
    const CGLContextObj& mRC() const { return mSavedRC; } ///< may be null
    void setMRC(const CGLContextObj& context) { mSavedRC = context; }
    bool mRestored() const { return mHasRestored; }
    void setMRestored(bool restored) { mHasRestored = restored; }

private:
    ~SaveRestoreGLContextMac() override { setMContext(nullptr); }

    bool mHasRestored = false;
    NSOpenGLContext* mSavedContext = nullptr;
    CGLContextObj mSavedRC;
};

} // namespace Tessaloom::BilateralBlur
