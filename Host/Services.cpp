#include "Host/Services.h"

namespace Tessaloom::BilateralBlur::Host {

namespace {

thread_local Services* mCurrent = nullptr;

} // namespace

Services::Services(ScriptEngine engine)
    : mEngine(engine), mHandles(mLedger, "handle"), mMemHandles(mLedger, "memory handle") {}

Services::Visit::Visit(Services& services) : mBefore(mCurrent) {
    mCurrent = &services;
}

Services::Visit::~Visit() {
    mCurrent = mBefore;
}

Services* Services::current() {
    return mCurrent;
}

ScriptOutcome Services::runScript(const char* script) const {
    return mEngine ? mEngine(script) : ScriptOutcome{.result = "", .error = "This host runs no scripts."};
}

std::vector<std::string> Services::settle() {
    mHandles.clear();
    mMemHandles.clear();
    return mLedger.settle();
}

} // namespace Tessaloom::BilateralBlur::Host
