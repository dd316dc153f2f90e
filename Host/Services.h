#pragma once

#include "Host/HandleStore.h"
#include "Host/Ledger.h"
#include "HostInterface/EffectHost.h"

#include <string>
#include <vector>

namespace Tessaloom::BilateralBlur::Host {

/// What a host offers apart from its effects and frames: the suites, host memory, text, the pixels of its
/// worlds. All suites work:
///
/// - "PF ANSI Suite" 1, "PF Handle Suite" 2, "PF iterateFloat Suite" 1 (on several threads, whatever the
///   size of the world; worlds of another depth, or none, give `PF_Err_BAD_CALLBACK_PARAM`);
/// - "AEGP Utility Suite" 11 runs ECMAScript: the result handle holds the value of the last statement as
///   text, the error handle the message; the one that doesn't apply holds an empty text, and the code is 0
///   either way. No state goes from one script to the next;
/// - "AEGP Memory Suite" 1: freeing a memory handle ends its locks, as there is no unlock;
/// - "AEGP PF Interface Suite" 1, "AEGP Layer Suite" 11, "AEGP Item Suite" 10 and "DRAWBOT Draw Suite" 1,
///   "... Supplier Suite" 1, "... Surface Suite" 2, "... Path Suite" 1 can be had and hold no functions.
///
/// Most of these functions aren't told who calls them. They serve the services that the calling thread is
/// on a `Visit` to, and fail on a thread that isn't on any.
class Services {
public:
    Services();
    Services(const Services&) = delete;
    Services& operator=(const Services&) = delete;

    /// Puts the calling thread under these services for a scope. Visits nest.
    class Visit {
    public:
        explicit Visit(Services& services);
        ~Visit();
        Visit(const Visit&) = delete;
        Visit& operator=(const Visit&) = delete;

    private:
        Services* mBefore;
    };

    /// The services that the calling thread visits, or null.
    static Services* current();

    static SPBasicSuite* basicSuite();
    static PF_UtilCallbacks* utils();

    /// What was taken and not given back since the last call, and each misuse, in a few words; empty when
    /// all is well. Takes everything back: handles that are still out become invalid.
    std::vector<std::string> settle();

    Ledger& ledger() { return mLedger; }
    HandleStore& handles() { return mHandles; }
    HandleStore& memHandles() { return mMemHandles; }

private:
    Ledger mLedger;
    HandleStore mHandles;
    HandleStore mMemHandles;
};

/// The table of a suite; null where there is none of this name and version.
const void* findSuite(const std::string& name, std::int32_t version);

} // namespace Tessaloom::BilateralBlur::Host
