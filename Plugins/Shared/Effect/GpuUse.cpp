#include "Plugins/Shared/Effect/GpuUse.h"

#include "Plugins/Shared/GL/GLFailure.h"

#include <iostream>

namespace Tessaloom::BilateralBlur {

// Never destroyed: a frame may be under way on another thread when the process ends.
GpuUse& GpuUse::shared() {
    static GpuUse& kShared = *new GpuUse;
    return kShared;
}

void GpuUse::note(const char* effect, const char* reason) noexcept {
    try {
        if (mReason == reason)
            return;
        std::cout << effect << ": " << reason << "; filtering on the CPU" << std::endl;
        mReason = reason;
    } catch (...) { // exhausted memory: the line is left out, or comes again
    }
}

void GpuUse::note(const char* effect, const GLFailure& failure) noexcept {
    mIsLost |= failure.isContextLost();
    note(effect, failure.what());
}

void GpuUse::reset() noexcept {
    mIsLost = false;
    mReason.clear();
}

} // namespace Tessaloom::BilateralBlur
