#pragma once

namespace Tessaloom::BilateralBlur::Host::Test {

/// What the inverting test module does wrong in a frame; its slider's value chooses.
enum Misdeed {
    kNone,
    kKeepsHandle,
    kKeepsSuite,
    kKeepsParameter,
    kDisposesTwice,
    kDisposesLocked,
    kUnlocksTwice,
    kReleasesTwice,
    kWritesBehindRows,
    kFailsWithMessage,
    kThrows,
    kMisdeeds
};

} // namespace Tessaloom::BilateralBlur::Host::Test
