#include "Plugins/Shared/Helper/HostPixels.h"

namespace Tessaloom::BilateralBlur {

LockedHandle::LockedHandle(const SuiteScoper<PF_HandleSuite1>& suite, std::uint64_t bytes)
    : mSuite(suite), mHandle(suite->host_new_handle(bytes)) {
    if (!mHandle)
        throw int{PF_Err_OUT_OF_MEMORY};
    mData = mSuite->host_lock_handle(mHandle);
    if (!mData) {
        mSuite->host_dispose_handle(mHandle);
        throw int{PF_Err_OUT_OF_MEMORY};
    }
}

LockedHandle::~LockedHandle() {
    mSuite->host_unlock_handle(mHandle);
    mSuite->host_dispose_handle(mHandle);
}

} // namespace Tessaloom::BilateralBlur
