#pragma once

#include "Platform/GLContext.h"

namespace Tessaloom::BilateralBlur {

/// Saves the GL context that the host has current on the calling thread and restores it on request. `init`,
/// the switching and `restore` must run on one thread. The destructor restores nothing.
///
/// The context is saved on both of the platform's levels, because one that the host made is known only on the
/// lower one.
class SaveRestoreGLContextMac : public NSObject {
public:
    /// Saves the current context. Returns the object itself.
    SaveRestoreGLContextMac* init();

    /// Makes the saved context current again, flushing the one that is current; if none was current at `init`,
    /// none is afterwards. Only the first call does anything.
    void restore() noexcept;

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
