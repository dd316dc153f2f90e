#include "Host/Services.h"

namespace Tessaloom::BilateralBlur::Host {

namespace {

thread_local Services* mCurrent = nullptr;

} // namespace

Services::Services() : mHandles(mLedger, "handle"), mMemHandles(mLedger, "memory handle") {}

Services::Visit::Visit(Services& services) : mBefore(mCurrent) {
    mCurrent = &services;
}

Services::Visit::~Visit() {
    mCurrent = mBefore;
}

Services* Services::current() {
    return mCurrent;
}

std::vector<std::string> Services::settle() {
    mHandles.clear();
    mMemHandles.clear();
    return mLedger.settle();
}

} // namespace Tessaloom::BilateralBlur::Host
