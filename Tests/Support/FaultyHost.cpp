#include "Tests/Support/FaultyHost.h"

#include <algorithm>
#include <cstddef>
#include <new>
#include <sstream>
#include <type_traits>
#include <utility>

namespace Tessaloom::BilateralBlur {

namespace {

FaultyHost* mCurrent = nullptr;
PF_EntryPointFunc mEntry = nullptr;
std::string mState;
const PF_LayerDef *mInput = nullptr, *mOutput = nullptr;

/// The host's own table of a type.
template<class Table>
Table mHost{};

void recordState() {
    if (!mCurrent->state)
        return;
    const std::string state = mCurrent->state();
    if (std::exchange(mState, state) != state)
        mCurrent->calls.push_back(state);
}

/// Writes an argument where it matters; most addresses don't.
template<class Argument>
void describe(std::ostream& text, const Argument& argument) {
    if constexpr (std::is_integral_v<Argument>)
        text << ' ' << +argument;
    else if constexpr (std::is_same_v<Argument, const char*>)
        text << ' ' << argument;
    else if constexpr (std::is_same_v<Argument, PF_LayerDef*>)
        text << (argument == mInput ? " input" : argument == mOutput ? " output" : "");
    else if constexpr (std::is_same_v<Argument, const PF_RenderRequest*>)
        for (const std::int32_t number : {argument->rect.left, argument->rect.top, argument->rect.right,
                                          argument->rect.bottom, argument->channel_mask})
            text << ' ' << number;
}

/// Records the call of a function. Returns the code to return without doing anything, 0 where it is to work.
template<class... Arguments>
PF_Err record(const char* name, const Arguments&... arguments) {
    recordState();
    std::ostringstream text;
    text << name;
    (describe(text, arguments), ...);
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

/// The name of a function, as an argument of a template.
template<std::size_t kSize>
struct Name {
    constexpr Name(const char (&from)[kSize]) { std::copy_n(from, kSize, text); }
    char text[kSize];
};

template<Name kName, auto kFunction>
struct Recorded;

/// A function that records its call, and then fails or calls the host's.
template<Name kName, class Table, class Result, class... Arguments, Result (*Table::*kFunction)(Arguments...)>
struct Recorded<kName, kFunction> {
    static Result call(Arguments... arguments) {
        [[maybe_unused]] const PF_Err code = record(kName.text, arguments...);
        if constexpr (std::is_same_v<Result, PF_Err>) {
            if (code)
                return code;
        } else if constexpr (std::is_pointer_v<Result>) {
            if (code)
                return nullptr;
        }
        return (mHost<Table>.*kFunction)(arguments...);
    }
};

template<Name kName, auto kFunction>
constexpr auto recorded = Recorded<kName, kFunction>::call;

// The functions that do more. A failed checkout or checkin of a parameter is done all the same for the host.

PF_Err checkoutParam(void* ref, std::int32_t index, std::int32_t time, std::int32_t step, std::uint32_t scale,
                     PF_ParamDef* param) {
    const PF_Err fault = record("checkout_param", index, time, step, scale);
    const PF_ParamDef before = *param;
    const PF_Err code = mHost<PF_InteractCallbacks>.checkout_param(ref, index, time, step, scale, param);
    if (!fault)
        return code;
    *param = before;
    return fault;
}

PF_Err checkinParam(void* ref, PF_ParamDef* param) {
    const PF_Err fault = record("checkin_param");
    const PF_Err code = mHost<PF_InteractCallbacks>.checkin_param(ref, param);
    return fault ? fault : code;
}

PF_Err checkoutLayerPixels(void* ref, std::int32_t id, PF_LayerDef** world) {
    if (const PF_Err code = record("checkout_layer_pixels", id))
        return code;
    const PF_Err code = mHost<PF_SmartRenderCallbacks>.checkout_layer_pixels(ref, id, world);
    mInput = *world = mCurrent->faults.input.value_or(*world);
    return code;
}

PF_Err checkoutOutput(void* ref, PF_LayerDef** world) {
    if (const PF_Err code = record("checkout_output"))
        return code;
    const PF_Err code = mHost<PF_SmartRenderCallbacks>.checkout_output(ref, world);
    mOutput = *world = mCurrent->faults.output.value_or(*world);
    return code;
}

PF_Err pixelData8(PF_LayerDef* world, void* pixels, PF_Pixel8** base) {
    if (const PF_Err code = record("get_pixel_data8", world))
        return code;
    const PF_Err code = mHost<PF_UtilCallbacks>.get_pixel_data8(world, pixels, base);
    if (world == mOutput)
        *base = mCurrent->faults.outputBase.value_or(*base);
    return code;
}

constexpr PF_InteractCallbacks kInteract{checkoutParam, checkinParam,
                                         recorded<"add_param", &PF_InteractCallbacks::add_param>};
PF_PreRenderCallbacks mPreRender{recorded<"checkout_layer", &PF_PreRenderCallbacks::checkout_layer>};
PF_SmartRenderCallbacks mRender{checkoutLayerPixels, nullptr, checkoutOutput};
constexpr PF_HandleSuite1 kHandles{recorded<"host_new_handle", &PF_HandleSuite1::host_new_handle>,
                                   recorded<"host_lock_handle", &PF_HandleSuite1::host_lock_handle>,
                                   recorded<"host_unlock_handle", &PF_HandleSuite1::host_unlock_handle>,
                                   recorded<"host_dispose_handle", &PF_HandleSuite1::host_dispose_handle>};
constexpr PF_iterateFloatSuite1 kIterate{recorded<"iterate", &PF_iterateFloatSuite1::iterate>};
constexpr AEGP_UtilitySuite5 kUtility{
    recorded<"AEGP_ExecuteScript", &AEGP_UtilitySuite5::AEGP_ExecuteScript>};
constexpr AEGP_MemorySuite1 kMemory{recorded<"AEGP_LockMemHandle", &AEGP_MemorySuite1::AEGP_LockMemHandle>,
                                    recorded<"AEGP_FreeMemHandle", &AEGP_MemorySuite1::AEGP_FreeMemHandle>};

/// Our table in the place of the host's, where we have one for this suite.
const void* wrapped(const std::string& name, const void* table) {
    const auto replace = [&]<class Table>(const Table& ours) {
        mHost<Table> = *static_cast<const Table*>(table);
        return &ours;
    };
    if (name == "PF Handle Suite")
        return replace(kHandles);
    if (name == "PF iterateFloat Suite")
        return replace(kIterate);
    if (name == "AEGP Utility Suite")
        return replace(kUtility);
    if (name == "AEGP Memory Suite")
        return replace(kMemory);
    return table;
}

PF_Err acquireSuite(const char* name, std::int32_t version, const void** suite) {
    if (const PF_Err code = record("AcquireSuite", name, version))
        return code;
    const auto replaced = mCurrent->faults.suites.find(name);
    if (replaced != mCurrent->faults.suites.end())
        return *suite = replaced->second, PF_Err_NONE;
    const PF_Err code = mHost<SPBasicSuite>.AcquireSuite(name, version, suite);
    if (!code)
        *suite = wrapped(name, *suite);
    return code;
}

PF_Err releaseSuite(const char* name, std::int32_t version) {
    const PF_Err code = record("ReleaseSuite", name, version);
    const bool isReplaced = mCurrent->faults.suites.count(name) != 0;
    return code || isReplaced ? code : mHost<SPBasicSuite>.ReleaseSuite(name, version);
}

/// A copy of the record of a render command, with our table in the place of the host's.
template<class Extra, class Table>
Extra withTable(const void* extra, Table& ours) {
    Extra copy = *static_cast<const Extra*>(extra);
    mHost<Table> = *std::exchange(copy.cb, &ours);
    return copy;
}

PF_Err entry(PF_Cmd cmd, PF_InData* inData, PF_OutData* outData, PF_ParamDef* params[], PF_LayerDef* output,
             void* extra) {
    PF_PreRenderExtra preRender;
    PF_SmartRenderExtra render;
    if (cmd == PF_Cmd_SMART_PRE_RENDER)
        extra = &(preRender = withTable<PF_PreRenderExtra>(extra, mPreRender));
    if (cmd == PF_Cmd_SMART_RENDER)
        extra = &(render = withTable<PF_SmartRenderExtra>(extra, mRender));
    mCurrent->calls.clear();
    mState = mCurrent->state ? mCurrent->state() : "";
    mCurrent->code = mEntry(cmd, FaultyHost::wrap(*inData), outData, params, output, extra);
    recordState();
    return mCurrent->code;
}

} // namespace

FaultyHost::FaultyHost(PF_EntryPointFunc real, Host::Resource resource)
    : mModule(entry, std::move(resource)) {
    mCurrent = this;
    mEntry = real;
}

FaultyHost::~FaultyHost() {
    mCurrent = nullptr;
}

PF_InData* FaultyHost::wrap(const PF_InData& host) {
    static SPBasicSuite kSuites{acquireSuite, releaseSuite};
    static PF_UtilCallbacks kUtils;
    static PF_InData kInData;
    mHost<PF_InteractCallbacks> = host.inter;
    mHost<PF_UtilCallbacks> = *host.utils;
    mHost<SPBasicSuite> = *host.pica_basicP;
    kUtils = {host.utils->ansi, pixelData8,
              recorded<"get_pixel_data16", &PF_UtilCallbacks::get_pixel_data16>};
    kInData = host;
    kInData.inter = kInteract;
    kInData.utils = &kUtils;
    kInData.pica_basicP = &kSuites;
    return &kInData;
}

} // namespace Tessaloom::BilateralBlur
