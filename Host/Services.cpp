#include "Host/Services.h"

#include "Host/World.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace Tessaloom::BilateralBlur::Host {

namespace {

thread_local Services* mCurrent = nullptr;

std::string suiteText(const char* name, std::int32_t version) {
    return std::string("suite \"") + name + "\" version " + std::to_string(version);
}

PF_Err acquireSuite(const char* name, std::int32_t version, const void** suite) {
    Services* services = Services::current();
    if (!services || !name || !suite)
        return kSPSuiteNotFound;
    const void* table = findSuite(name, version);
    if (!table)
        return kSPSuiteNotFound;
    services->ledger().take(suiteText(name, version));
    *suite = table;
    return PF_Err_NONE;
}

PF_Err releaseSuite(const char* name, std::int32_t version) {
    Services* services = Services::current();
    if (!services || !name || !services->ledger().giveBack(suiteText(name, version)))
        return PF_Err_BAD_CALLBACK_PARAM;
    return PF_Err_NONE;
}

int formatText(char* destination, const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    const int length = std::vsprintf(destination, format, arguments);
    va_end(arguments);
    return length;
}

char* copyText(char* destination, const char* source) {
    return std::strcpy(destination, source);
}

template<class Pixel>
PF_Err pixelData(std::int32_t format, PF_LayerDef* record, Pixel** base) {
    if (!base)
        return PF_Err_BAD_CALLBACK_PARAM;
    World* world = World::of(record);
    *base = world && world->format() == format ? world->row<Pixel>(0) : nullptr;
    return *base ? PF_Err_NONE : PF_Err_BAD_CALLBACK_PARAM;
}

PF_Err pixelData8(PF_LayerDef* world, void*, PF_Pixel8** base) {
    return pixelData(PF_PixelFormat_ARGB32, world, base);
}

PF_Err pixelData16(PF_LayerDef* world, void*, PF_Pixel16** base) {
    return pixelData(PF_PixelFormat_ARGB64, world, base);
}

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

SPBasicSuite* Services::basicSuite() {
    static SPBasicSuite kBasicSuite{acquireSuite, releaseSuite};
    return &kBasicSuite;
}

PF_UtilCallbacks* Services::utils() {
    static PF_UtilCallbacks kUtils{{formatText, copyText}, pixelData8, pixelData16};
    return &kUtils;
}

std::vector<std::string> Services::settle() {
    mHandles.clear();
    mMemHandles.clear();
    return mLedger.settle();
}

} // namespace Tessaloom::BilateralBlur::Host
