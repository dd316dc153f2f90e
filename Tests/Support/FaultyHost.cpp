#include "Tests/Support/FaultyHost.h"

#include <new>
#include <set>
#include <sstream>
#include <utility>

namespace Tessaloom::BilateralBlur {

namespace {

struct Tables {
    PF_InData inData;
    PF_UtilCallbacks utils;
    SPBasicSuite suites;
    PF_PreRenderCallbacks preRender;
    PF_SmartRenderCallbacks render;
    PF_HandleSuite1 handles;
    PF_iterateFloatSuite1 iterate;
    AEGP_UtilitySuite5 utility;
    AEGP_MemorySuite1 memory;
};

FaultyHost* mCurrent = nullptr;
PF_EntryPointFunc mEntry = nullptr;
Tables mHost{}, mOurs{};
std::set<const PF_ParamDef*> mFailedCheckouts;
std::string mState;
const PF_LayerDef *mInput = nullptr, *mOutput = nullptr;

void recordState() {
    if (!mCurrent->state)
        return;
    const std::string state = mCurrent->state();
    if (std::exchange(mState, state) != state)
        mCurrent->calls.push_back(state);
}

/// Records the call of a function. Returns the code to return without doing anything, 0 where it is to work.
template<class... Words>
PF_Err record(const char* name, const Words&... words) {
    recordState();
    std::ostringstream text;
    text << name;
    ((text << ' ' << words), ...);
    mCurrent->calls.push_back(text.str());
    for (const auto& [call, code] : mCurrent->faults.failing) {
        if (call != name && call != text.str())
            continue;
        if (code == kThrowBadAlloc)
            throw std::bad_alloc();
        return code;
    }
    return PF_Err_NONE;
}

const char* nameOf(const PF_LayerDef* world) {
    return world == mInput ? "input" : world == mOutput ? "output" : "";
}

// Callbacks

PF_Err checkoutParam(void* ref, std::int32_t index, std::int32_t time, std::int32_t step, std::uint32_t scale,
                     PF_ParamDef* param) {
    const PF_Err code = record("checkout_param", index, "time", time, "step", step, "scale", scale);
    if (!code)
        return mHost.inData.inter.checkout_param(ref, index, time, step, scale, param);
    mFailedCheckouts.insert(param);
    return code;
}

PF_Err checkinParam(void* ref, PF_ParamDef* param) {
    const PF_Err fault = record("checkin_param");
    const bool wasCheckedOut = mFailedCheckouts.erase(param) == 0;
    const PF_Err code = wasCheckedOut ? mHost.inData.inter.checkin_param(ref, param) : PF_Err_NONE;
    return fault ? fault : code;
}

PF_Err addParam(void* ref, std::int32_t index, PF_ParamDef* param) {
    const PF_Err code = record("add_param", index, param->name);
    return code ? code : mHost.inData.inter.add_param(ref, index, param);
}

PF_Err pixelData8(PF_LayerDef* world, void* pixels, PF_Pixel8** base) {
    const PF_Err code = record("get_pixel_data8", nameOf(world));
    return code ? code : mHost.utils.get_pixel_data8(world, pixels, base);
}

PF_Err pixelData16(PF_LayerDef* world, void* pixels, PF_Pixel16** base) {
    const PF_Err code = record("get_pixel_data16", nameOf(world));
    return code ? code : mHost.utils.get_pixel_data16(world, pixels, base);
}

PF_Err checkoutLayer(void* ref, std::int32_t index, std::int32_t id, const PF_RenderRequest* request,
                     std::int32_t time, std::int32_t step, std::uint32_t scale, PF_CheckoutResult* result) {
    const PF_LRect& rect = request->rect;
    const PF_Err code =
        record("checkout_layer", index, "id", id, "rect", rect.left, rect.top, rect.right, rect.bottom,
               "mask", request->channel_mask, "time", time, "step", step, "scale", scale);
    return code ? code : mHost.preRender.checkout_layer(ref, index, id, request, time, step, scale, result);
}

PF_Err checkoutLayerPixels(void* ref, std::int32_t id, PF_LayerDef** world) {
    if (const PF_Err code = record("checkout_layer_pixels", id))
        return code;
    const PF_Err code = mHost.render.checkout_layer_pixels(ref, id, world);
    mInput = *world = mCurrent->faults.input.value_or(*world);
    return code;
}

PF_Err checkinLayerPixels(void* ref, std::int32_t id) {
    const PF_Err code = record("checkin_layer_pixels", id);
    return code ? code : mHost.render.checkin_layer_pixels(ref, id);
}

PF_Err checkoutOutput(void* ref, PF_LayerDef** world) {
    if (const PF_Err code = record("checkout_output"))
        return code;
    const PF_Err code = mHost.render.checkout_output(ref, world);
    mOutput = *world = mCurrent->faults.output.value_or(*world);
    return code;
}

// Suites

void* newHandle(std::uint64_t size) {
    return record("host_new_handle", size) ? nullptr : mHost.handles.host_new_handle(size);
}

void* lockHandle(void* handle) {
    return record("host_lock_handle") ? nullptr : mHost.handles.host_lock_handle(handle);
}

void unlockHandle(void* handle) {
    record("host_unlock_handle");
    mHost.handles.host_unlock_handle(handle);
}

void disposeHandle(void* handle) {
    record("host_dispose_handle");
    mHost.handles.host_dispose_handle(handle);
}

PF_Err iterate(PF_InData* inData, std::int32_t first, std::int32_t last, PF_LayerDef* source,
               const PF_LRect* area, void* refcon, PF_IteratePixelFloatFunc function,
               PF_LayerDef* destination) {
    const PF_Err code = record("iterate", first, last);
    return code ? code
                : mHost.iterate.iterate(inData, first, last, source, area, refcon, function, destination);
}

PF_Err executeScript(std::int32_t plugin, const char* script, std::uint8_t encoding, AEGP_MemHandle* result,
                     AEGP_MemHandle* error) {
    const PF_Err code = record("AEGP_ExecuteScript", plugin, script, +encoding);
    return code ? code : mHost.utility.AEGP_ExecuteScript(plugin, script, encoding, result, error);
}

PF_Err lockMemHandle(AEGP_MemHandle handle, void** address) {
    const PF_Err code = record("AEGP_LockMemHandle", handle);
    return code ? code : mHost.memory.AEGP_LockMemHandle(handle, address);
}

PF_Err freeMemHandle(AEGP_MemHandle handle) {
    const PF_Err code = record("AEGP_FreeMemHandle", handle);
    return code ? code : mHost.memory.AEGP_FreeMemHandle(handle);
}

/// Our table in the place of the host's, where we have one for this suite.
const void* wrapped(const std::string& name, const void* table) {
    const auto replace = [&]<class Table>(const char* suite, Table& host, const Table& ours) {
        if (name != suite)
            return false;
        host = *static_cast<const Table*>(table);
        table = &ours;
        return true;
    };
    replace("PF Handle Suite", mHost.handles, mOurs.handles) ||
        replace("PF iterateFloat Suite", mHost.iterate, mOurs.iterate) ||
        replace("AEGP Utility Suite", mHost.utility, mOurs.utility) ||
        replace("AEGP Memory Suite", mHost.memory, mOurs.memory);
    return table;
}

PF_Err acquireSuite(const char* name, std::int32_t version, const void** suite) {
    if (const PF_Err code = record("AcquireSuite", name, version))
        return code;
    const auto replaced = mCurrent->faults.suites.find(name);
    if (replaced != mCurrent->faults.suites.end())
        return *suite = replaced->second, PF_Err_NONE;
    const PF_Err code = mHost.suites.AcquireSuite(name, version, suite);
    if (!code)
        *suite = wrapped(name, *suite);
    return code;
}

PF_Err releaseSuite(const char* name, std::int32_t version) {
    const PF_Err code = record("ReleaseSuite", name, version);
    const bool isReplaced = mCurrent->faults.suites.count(name) != 0;
    return code || isReplaced ? code : mHost.suites.ReleaseSuite(name, version);
}

// Commands

/// Puts our table in the place of the host's for the length of a command.
template<class Table>
class Swap {
public:
    Swap(Table*& place, Table& host, Table& ours) : mPlace(place), mFormer(std::exchange(place, &ours)) {
        host = *mFormer;
    }
    ~Swap() { mPlace = mFormer; }
    Swap(const Swap&) = delete;
    Swap& operator=(const Swap&) = delete;

private:
    Table*& mPlace;
    Table* mFormer;
};

PF_Err command(PF_Cmd cmd, PF_InData* inData, PF_OutData* outData, PF_ParamDef* params[], PF_LayerDef* output,
               void* extra) {
    if (cmd == PF_Cmd_SMART_PRE_RENDER) {
        const Swap swap(static_cast<PF_PreRenderExtra*>(extra)->cb, mHost.preRender, mOurs.preRender);
        return mEntry(cmd, inData, outData, params, output, extra);
    }
    if (cmd == PF_Cmd_SMART_RENDER) {
        const Swap swap(static_cast<PF_SmartRenderExtra*>(extra)->cb, mHost.render, mOurs.render);
        return mEntry(cmd, inData, outData, params, output, extra);
    }
    return mEntry(cmd, inData, outData, params, output, extra);
}

PF_Err entry(PF_Cmd cmd, PF_InData* inData, PF_OutData* outData, PF_ParamDef* params[], PF_LayerDef* output,
             void* extra) {
    mCurrent->calls.clear();
    mFailedCheckouts.clear();
    mState = mCurrent->state ? mCurrent->state() : "";
    mCurrent->code = command(cmd, FaultyHost::wrap(*inData), outData, params, output, extra);
    recordState();
    return mCurrent->code;
}

} // namespace

FaultyHost::FaultyHost(PF_EntryPointFunc real, Host::Resource resource)
    : mModule(entry, std::move(resource)) {
    mCurrent = this;
    mEntry = real;
    mOurs = {{},
             {},
             {acquireSuite, releaseSuite},
             {checkoutLayer},
             {checkoutLayerPixels, checkinLayerPixels, checkoutOutput},
             {newHandle, lockHandle, unlockHandle, disposeHandle},
             {iterate},
             {executeScript},
             {lockMemHandle, freeMemHandle}};
}

FaultyHost::~FaultyHost() {
    mCurrent = nullptr;
}

PF_InData* FaultyHost::wrap(const PF_InData& host) {
    mHost.inData = mOurs.inData = host;
    mHost.utils = *host.utils;
    mHost.suites = *host.pica_basicP;
    mOurs.utils = {host.utils->ansi, pixelData8, pixelData16};
    mOurs.inData.inter = {checkoutParam, checkinParam, addParam};
    mOurs.inData.utils = &mOurs.utils;
    mOurs.inData.pica_basicP = &mOurs.suites;
    return &mOurs.inData;
}

} // namespace Tessaloom::BilateralBlur
