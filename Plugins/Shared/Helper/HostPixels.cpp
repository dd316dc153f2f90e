#include "Plugins/Shared/Helper/HostPixels.h"

namespace Tessaloom::BilateralBlur {

LockedHandle::NewHandle::NewHandle(const SuiteScoper<PF_HandleSuite1>& suite, std::uint64_t bytes)
    : mSuite(suite), mHandle(suite->host_new_handle(bytes)) {
    if (!mHandle)
        throw int{PF_Err_OUT_OF_MEMORY};
}

LockedHandle::NewHandle::~NewHandle() {
    mSuite->host_dispose_handle(mHandle);
}

LockedHandle::LockedHandle(const SuiteScoper<PF_HandleSuite1>& suite, std::uint64_t bytes)
    : mHandle(suite, bytes), mData(suite->host_lock_handle(mHandle.mHandle)) {
    if (!mData)
        throw int{PF_Err_OUT_OF_MEMORY};
}

LockedHandle::~LockedHandle() {
    mHandle.mSuite->host_unlock_handle(mHandle.mHandle);
}

} // namespace Tessaloom::BilateralBlur
