#pragma once

#include "Host/HandleStore.h"
#include "Host/Ledger.h"
#include "Host/Script.h"

#include <string>
#include <vector>

namespace Tessaloom::BilateralBlur::Host {

/// What the suites of a host act on: its memory, and the ledger of what an effect has acquired.
class Services {
public:
    /// Without an engine each script fails.
    explicit Services(ScriptEngine engine = nullptr);
    Services(const Services&) = delete;
    Services& operator=(const Services&) = delete;

    /// Binds these services to the calling thread for a scope. Visits nest.
    class Visit {
    public:
        explicit Visit(Services& services);
        ~Visit();
        Visit(const Visit&) = delete;
        Visit& operator=(const Visit&) = delete;

    private:
        Services* mBefore;
    };

    /// The services bound to the calling thread, or null.
    static Services* current();

    /// What was misused or not released since the last call, each in a few words. Ends all handles.
    std::vector<std::string> settle();

    Ledger& ledger() { return mLedger; }
    HandleStore& handles() { return mHandles; }
    HandleStore& memHandles() { return mMemHandles; }

    ScriptOutcome runScript(const char* script) const;

private:
    const ScriptEngine mEngine;
    Ledger mLedger;
    HandleStore mHandles;
    HandleStore mMemHandles;
};

} // namespace Tessaloom::BilateralBlur::Host
