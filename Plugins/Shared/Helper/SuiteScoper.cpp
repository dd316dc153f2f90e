#include "Plugins/Shared/Helper/SuiteScoper.h"

#include <cstdio>

namespace Tessaloom::BilateralBlur {

namespace {

constexpr const char* kNotReleased = "Not able to release AEFX Suite.";

struct DrawbotSuite {
    const char* name;
    int version;
    const void* DRAWBOT_Suites::*place;
};

constexpr DrawbotSuite kDrawbotSuites[] = {
    {"DRAWBOT Draw Suite", 1, &DRAWBOT_Suites::drawbot_suiteP},
    {"DRAWBOT Supplier Suite", 1, &DRAWBOT_Suites::supplier_suiteP},
    {"DRAWBOT Surface Suite", 2, &DRAWBOT_Suites::surface_suiteP},
    {"DRAWBOT Path Suite", 1, &DRAWBOT_Suites::path_suiteP},
};

} // namespace

// The format limits the text: a caller's message is neither read as a format nor written past the end of
// `return_msg`.
void reportSuiteError(const PF_InData* in_data, PF_OutData* out_data, const char* message) {
    static_assert(sizeof(PF_OutData::return_msg) == 256);
    out_data->out_flags |= PF_OutFlag_DISPLAY_ERROR_MESSAGE;
    in_data->utils->ansi.sprintf(out_data->return_msg, "%.255s", message);
}

PF_Err AcquireSuite(PF_InData* in_data, PF_OutData* out_data, const char* name, int version,
                    const char* error_string, void** suite) {
    if (in_data->pica_basicP) {
        const void* acquired = *suite;
        in_data->pica_basicP->AcquireSuite(name, version, &acquired);
        *suite = const_cast<void*>(acquired);
        if (*suite)
            return PF_Err_NONE;
    }
    char text[1024];
    std::snprintf(text, sizeof text, "Not able to acquire AEFX Suite-%s-%d", name, version);
    reportSuiteError(in_data, out_data, error_string ? error_string : text);
    return PF_Err_BAD_CALLBACK_PARAM;
}

PF_Err ReleaseSuite(PF_InData* in_data, PF_OutData* out_data, const char* name, int version,
                    const char* error_string) {
    if (in_data->pica_basicP) {
        in_data->pica_basicP->ReleaseSuite(name, version);
        return PF_Err_NONE;
    }
    reportSuiteError(in_data, out_data, error_string ? error_string : kNotReleased);
    return PF_Err_BAD_CALLBACK_PARAM;
}

PF_Err AcquireDrawbotSuites(PF_InData* in_data, PF_OutData* out_data, DRAWBOT_Suites* suites) {
    if (!suites) {
        reportSuiteError(in_data, out_data, "NULL suite pointer passed to AEFX_AcquireDrawbotSuites");
        return PF_Err_UNRECOGNIZED_PARAM_TYPE;
    }
    for (const DrawbotSuite& drawbot : kDrawbotSuites) {
        void* suite = nullptr;
        const PF_Err result = AcquireSuite(in_data, out_data, drawbot.name, drawbot.version, nullptr, &suite);
        if (result != PF_Err_NONE)
            return result;
        suites->*drawbot.place = suite;
    }
    return PF_Err_NONE;
}

PF_Err ReleaseDrawbotSuites(PF_InData* in_data, PF_OutData* out_data) {
    for (const DrawbotSuite& drawbot : kDrawbotSuites)
        ReleaseSuite(in_data, out_data, drawbot.name, drawbot.version, nullptr);
    return PF_Err_NONE;
}

} // namespace Tessaloom::BilateralBlur
