#pragma once

#include "Plugins/Shared/GL/SaveRestoreGLContextMac.h"

#include <utility>

namespace Tessaloom::BilateralBlur {

/// Notes the GL context that the host has current on the calling thread. `restore` makes it current again and
/// lets go of it; a scope that is left without `restore`, by a thrown integer say, does the same at its end.
class HostGLContext {
public:
    HostGLContext() : mSaved((new SaveRestoreGLContextMac)->init()) {}
    ~HostGLContext() { restore(); }
    HostGLContext(const HostGLContext&) = delete;
    HostGLContext& operator=(const HostGLContext&) = delete;

    void restore() {
        if (SaveRestoreGLContextMac* saved = std::exchange(mSaved, nullptr)) {
            saved->restore();
            saved->release();
        }
    }

private:
    SaveRestoreGLContextMac* mSaved;
};

} // namespace Tessaloom::BilateralBlur
