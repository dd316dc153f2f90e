#include "Plugins/Shared/GL/SaveRestoreGLContextMac.h"

#include "Plugins/Shared/GL/AEOpenGLContext.h"

namespace Tessaloom::BilateralBlur {

SaveRestoreGLContextMac* SaveRestoreGLContextMac::init() {
    setMContext(NSOpenGLContext::currentContext());
    mSavedRC = CGLGetCurrentContext();
    mHasRestored = false;
    return this;
}

void SaveRestoreGLContextMac::restore() {
    if (mHasRestored)
        return;
    if (mSavedContext && NSOpenGLContext::currentContext() != mSavedContext)
        mSavedContext->makeCurrentContext();
    if (mSavedRC)
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
