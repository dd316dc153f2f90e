#pragma once

#include "HostInterface/EffectHost.h"

namespace Tessaloom::BilateralBlur {

/// Sets `PF_OutFlag_DISPLAY_ERROR_MESSAGE` in `out_data`, leaving its other bits, and writes `message` into
/// `return_msg` with the host's `sprintf`. The text is taken as it stands, `%` included, and cut to what
/// `return_msg` holds.
void reportSuiteError(const PF_InData* in_data, PF_OutData* out_data, const char* message);

/// Holds a host suite for the length of a scope. `T` is the suite's function table.
///
/// The name isn't copied and must outlive the scoper. If the host doesn't have the suite, or gives out a null
/// table for it, the integer 13 is thrown.
template<typename T>
class SuiteScoper {
public:
    /// Acquires through `in_data->pica_basicP`. On failure, if `out_data` isn't null, the user is shown
    /// `error_string`, or "Not able to acquire AEFX Suite." if that is null.
    SuiteScoper(const PF_InData* in_data, const char* suite_name, int version, PF_OutData* out_data,
                const char* error_string)
        : mBasicSuite(in_data->pica_basicP), mSuiteName(suite_name), mVersion(version) {
        if (acquire())
            return;
        if (out_data)
            reportSuiteError(in_data, out_data,
                             error_string ? error_string : "Not able to acquire AEFX Suite.");
        throw int{kSPSuiteNotFound};
    }

    SuiteScoper(SPBasicSuite* basic, const char* suite_name, int version)
        : mBasicSuite(basic), mSuiteName(suite_name), mVersion(version) {
        if (!acquire())
            throw int{kSPSuiteNotFound};
    }

    ~SuiteScoper() {
        if (mSuite)
            mBasicSuite->ReleaseSuite(mSuiteName, mVersion);
    }

    SuiteScoper(const SuiteScoper&) = delete;
    SuiteScoper& operator=(const SuiteScoper&) = delete;

    /// The suite's functions, valid while the scoper exists.
    const T* operator->() const { return mSuite; }

private:
    bool acquire() {
        const void* suite = nullptr;
        if (mBasicSuite->AcquireSuite(mSuiteName, mVersion, &suite) != PF_Err_NONE)
            return false;
        // To the host, a suite without a table is acquired all the same.
        if (!suite)
            mBasicSuite->ReleaseSuite(mSuiteName, mVersion);
        mSuite = static_cast<const T*>(suite);
        return mSuite;
    }

    const T* mSuite = nullptr;
    SPBasicSuite* mBasicSuite;
    const char* mSuiteName;
    std::int32_t mVersion;
};

/// Acquires a suite into `*suite`. Returns 0 if that isn't null afterwards, whatever code the host returned;
/// otherwise 516, and the user is shown `error_string`, or a text that names suite and version if that is
/// null.
PF_Err AcquireSuite(PF_InData* in_data, PF_OutData* out_data, const char* name, int version,
                    const char* error_string, void** suite);

/// Releases a suite. Returns 0, or 516 if there is no basic suite; then the user is shown `error_string`, or
/// "Not able to release AEFX Suite." if that is null.
PF_Err ReleaseSuite(PF_InData* in_data, PF_OutData* out_data, const char* name, int version,
                    const char* error_string);

/// Acquires the four drawing suites, in the order of the record. Stops at the first that fails and returns
/// its 516; those acquired before stay acquired. Returns 514 if `suites` is null.
PF_Err AcquireDrawbotSuites(PF_InData* in_data, PF_OutData* out_data, DRAWBOT_Suites* suites);

/// Releases the four drawing suites, in the order of their acquisition. Always returns 0.
PF_Err ReleaseDrawbotSuites(PF_InData* in_data, PF_OutData* out_data);

} // namespace Tessaloom::BilateralBlur
