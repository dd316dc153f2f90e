#include "Plugins/Shared/GL/SaveRestoreGLContextMac.h"

#include "Plugins/Shared/GL/AEOpenGLContext.h"

namespace Tessaloom::BilateralBlur {

SaveRestoreGLContextMac* SaveRestoreGLContextMac::init() {
    setMContext(NSOpenGLContext::currentContext());
    mSavedRC = CGLGetCurrentContext();
    mHasRestored = false;
    return this;
}

// A context of ours that stayed current would be in the way of a host that uses another API of the window
// system: that can make nothing current on a thread where EGL has something.
void SaveRestoreGLContextMac::restore() noexcept {
    if (mHasRestored)
        return;
    if (mSavedContext && NSOpenGLContext::currentContext() != mSavedContext)
        mSavedContext->makeCurrentContext();
    AEOpenGLContext::makeCurrentFlush(mSavedRC);
    mHasRestored = true;
}

void SaveRestoreGLContextMac::setMContext(NSOpenGLContext* context) {
    if (context)
        context->retain();
    if (mSavedContext)
        mSavedContext->release();
    mSavedContext = context;
}

} // namespace Tessaloom::BilateralBlur
