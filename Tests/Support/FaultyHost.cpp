#include "Tests/Support/FaultyHost.h"

#include <cstring>
#include <new>
#include <sstream>
#include <stdexcept>

namespace Tessaloom::BilateralBlur {

namespace {

FaultyHost* mCurrent = nullptr;
PF_EntryPointFunc mEntry = nullptr;
const PF_LayerDef *mInput = nullptr, *mOutput = nullptr;

/// The host's own table of a type.
template<class Table>
Table mHost{};

/// Writes an argument where it matters; most addresses don't.
template<class Argument>
void describe(std::ostream& text, const Argument& argument) {
    if constexpr (std::is_integral_v<Argument> || std::is_same_v<Argument, const char*>)
        text << ' ' << +argument;
    else if constexpr (std::is_same_v<Argument, PF_LayerDef*>)
        text << (argument == mInput ? " input" : argument == mOutput ? " output" : "");
    else if constexpr (std::is_same_v<Argument, PF_ParamDef*>)
        text << ' ' << argument->name << ' ' << argument->uu.id << ' ' << argument->flags << ' '
             << argument->u.sd.slider_min << ' ' << argument->u.sd.slider_max;
}

/// Records the call of a function. Returns the code to return without doing anything, 0 where it is to work.
template<class... Arguments>
PF_Err record(const std::string& name, const Arguments&... arguments) {
    if (mCurrent->before)
        mCurrent->before();
    std::ostringstream text;
    text << name;
    (describe(text, arguments), ...);
    mCurrent->calls.push_back(text.str());
    for (const auto& [call, code] : mCurrent->faults.failing) {
        if (call != name && call != text.str())
            continue;
        if (code == kThrowBadAlloc)
            throw std::bad_alloc();
        if (code == kThrowOther)
            throw std::runtime_error("the host's own");
        return code;
    }
    return PF_Err_NONE;
}

template<auto kFunction>
struct Recorded;

/// A function of a table that records its call, and then fails or calls the host's.
template<class Table, class Result, class... Arguments, Result (*Table::*kFunction)(Arguments...)>
struct Recorded<kFunction> {
    static Result call(Arguments... arguments) {
        const std::string text = __PRETTY_FUNCTION__; // "... kFunction = &Table::name]"
        const std::size_t begin = text.rfind(':') + 1;
        const PF_Err code = record(text.substr(begin, text.find(']', begin) - begin), arguments...);
        if (code == PF_Err_NONE)
            return (mHost<Table>.*kFunction)(arguments...);
        if constexpr (std::is_same_v<Result, PF_Err>)
            return code;
        else
            return Result();
    }
};

// The functions that do more. A failed checkout or checkin of a parameter is done all the same for the host.

PF_Err checkoutParam(void* ref, std::int32_t index, std::int32_t time, std::int32_t step, std::uint32_t scale,
                     PF_ParamDef* param) {
    const PF_ParamDef zeros{};
    const bool isZeroed = std::memcmp(param, &zeros, sizeof zeros) == 0;
    const PF_Err fault =
        record(isZeroed ? "checkout_param" : "checkout_param of a record in use", index, time, step, scale);
    const PF_ParamDef before = *param;
    const PF_Err code = mHost<PF_InteractCallbacks>.checkout_param(ref, index, time, step, scale, param);
    if (fault)
        *param = before;
    return fault ? fault : code;
}

PF_Err checkinParam(void* ref, PF_ParamDef* param) {
    const PF_Err code = mHost<PF_InteractCallbacks>.checkin_param(ref, param);
    std::memset(param, 0x5A, sizeof *param); // the effect has given it back
    const PF_Err fault = record("checkin_param");
    return fault ? fault : code;
}

PF_Err checkoutLayerPixels(void* ref, std::int32_t id, PF_LayerDef** world) {
    const PF_Err code = Recorded<&PF_SmartRenderCallbacks::checkout_layer_pixels>::call(ref, id, world);
    if (code == PF_Err_NONE)
        mInput = *world = mCurrent->faults.input.value_or(*world);
    return code;
}

PF_Err checkoutOutput(void* ref, PF_LayerDef** world) {
    const PF_Err code = Recorded<&PF_SmartRenderCallbacks::checkout_output>::call(ref, world);
    if (code == PF_Err_NONE)
        mOutput = *world = mCurrent->faults.output.value_or(*world);
    return code;
}

PF_Err pixelData8(PF_LayerDef* world, void* pixels, PF_Pixel8** base) {
    const PF_Err code = Recorded<&PF_UtilCallbacks::get_pixel_data8>::call(world, pixels, base);
    if (*base && world->rowbytes < 0)
        *base -= (world->height - 1) * (world->rowbytes / std::ptrdiff_t{sizeof(PF_Pixel8)});
    return code;
}

/// Our table in the place of the host's.
template<class Table>
Table* replace(const void* hosts, const Table& ours) {
    static Table kOurs;
    kOurs = ours;
    mHost<Table> = *static_cast<const Table*>(hosts);
    return &kOurs;
}

PF_Err acquireSuite(const char* name, std::int32_t version, const void** suite) {
    if (const PF_Err code = record("AcquireSuite", name, version))
        return code;
    if (mCurrent->faults.suites.count(name)) {
        *suite = mCurrent->faults.suites.at(name);
        return PF_Err_NONE;
    }
    const PF_Err code = mHost<SPBasicSuite>.AcquireSuite(name, version, suite);
    const std::string known = code ? "" : name;
    if (known == "PF Handle Suite")
        *suite = replace(*suite, PF_HandleSuite1{Recorded<&PF_HandleSuite1::host_new_handle>::call,
                                                 Recorded<&PF_HandleSuite1::host_lock_handle>::call,
                                                 Recorded<&PF_HandleSuite1::host_unlock_handle>::call,
                                                 Recorded<&PF_HandleSuite1::host_dispose_handle>::call});
    else if (known == "PF iterateFloat Suite")
        *suite = replace(*suite, PF_iterateFloatSuite1{Recorded<&PF_iterateFloatSuite1::iterate>::call});
    else if (known == "AEGP Utility Suite")
        *suite = replace(*suite, AEGP_UtilitySuite5{Recorded<&AEGP_UtilitySuite5::AEGP_ExecuteScript>::call});
    else if (known == "AEGP Memory Suite")
        *suite = replace(*suite, AEGP_MemorySuite1{Recorded<&AEGP_MemorySuite1::AEGP_LockMemHandle>::call,
                                                   Recorded<&AEGP_MemorySuite1::AEGP_FreeMemHandle>::call});
    return code;
}

PF_Err releaseSuite(const char* name, std::int32_t version) {
    const PF_Err code = record("ReleaseSuite", name, version);
    const bool isReplaced = mCurrent->faults.suites.count(name) != 0;
    return code || isReplaced ? code : mHost<SPBasicSuite>.ReleaseSuite(name, version);
}

PF_Err entry(PF_Cmd cmd, PF_InData* inData, PF_OutData* outData, PF_ParamDef* params[], PF_LayerDef* output,
             void* extra) {
    if (cmd == PF_Cmd_SMART_PRE_RENDER) {
        auto& table = static_cast<PF_PreRenderExtra*>(extra)->cb;
        table = replace(table, PF_PreRenderCallbacks{Recorded<&PF_PreRenderCallbacks::checkout_layer>::call});
    } else if (cmd == PF_Cmd_SMART_RENDER) {
        constexpr std::int32_t kOtherFlag = 0x40; // which stays
        outData->out_flags = kOtherFlag;
        PF_SmartRenderExtra& frame = *static_cast<PF_SmartRenderExtra*>(extra);
        if (mCurrent->faults.bitDepth)
            frame.input->bitdepth = mCurrent->faults.bitDepth;
        frame.cb = replace(frame.cb, PF_SmartRenderCallbacks{checkoutLayerPixels, nullptr, checkoutOutput});
    }
    mCurrent->calls.clear();
    // Setups declare, and a message may come in any command; nothing else of the record is an effect's to write.
    PF_OutData before = *outData;
    const PF_Err code = mEntry(cmd, FaultyHost::wrap(*inData), outData, params, output, extra);
    std::memcpy(before.return_msg, outData->return_msg, sizeof before.return_msg);
    before.out_flags |= outData->out_flags & PF_OutFlag_DISPLAY_ERROR_MESSAGE;
    if (cmd == PF_Cmd_GLOBAL_SETUP) {
        before.my_version = outData->my_version;
        before.out_flags = outData->out_flags;
        before.out_flags2 = outData->out_flags2;
    } else if (cmd == PF_Cmd_PARAMS_SETUP) {
        before.num_params = outData->num_params;
    }
    if (std::memcmp(&before, outData, sizeof before) != 0)
        throw std::logic_error("the effect wrote to a field that isn't its own");
    return code;
}

} // namespace

FaultyHost::FaultyHost(PF_EntryPointFunc real, Host::Resource resource)
    : mModule(entry, std::move(resource)) {
    mCurrent = this;
    mEntry = real;
}

PF_InData* FaultyHost::wrap(const PF_InData& host) {
    static PF_InData kInData;
    kInData = host;
    mHost<PF_InteractCallbacks> = host.inter;
    kInData.inter = {checkoutParam, checkinParam, Recorded<&PF_InteractCallbacks::add_param>::call};
    kInData.utils =
        replace(host.utils, PF_UtilCallbacks{host.utils->ansi, pixelData8,
                                             Recorded<&PF_UtilCallbacks::get_pixel_data16>::call,
                                             Recorded<&PF_UtilCallbacks::get_pixel_data_float>::call});
    kInData.pica_basicP = replace(host.pica_basicP, SPBasicSuite{acquireSuite, releaseSuite});
    return &kInData;
}

} // namespace Tessaloom::BilateralBlur
