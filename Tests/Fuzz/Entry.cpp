#include "Tests/Effect/HostileWalk.h"
#include "Tests/Fuzz/Fuzz.h"

#include <fuzzer/FuzzedDataProvider.h>

using namespace Tessaloom::BilateralBlur;

namespace {

FuzzedDataProvider* mSource = nullptr;

/// The input's next decision; the last of them for a zero, and beyond the input's end: mutations prefer zeros, and the
/// first decisions are threads and setdowns, whose contexts take longer than all the rest.
int below(int bound) {
    return bound - 1 - mSource->ConsumeIntegralInRange(0, bound - 1);
}

} // namespace

// Whatever a host sends, the effect returns the right codes and renders the next right frame.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr int kSteps = 8;               // short runs, so that there are many
    GTEST_FLAG_SET(throw_on_failure, true); // which ends the run
    FuzzedDataProvider source(data, size);
    mSource = &source;
    // It serves all runs, as a session takes longer to make than a run.
    static HostileWalk& walk = *new HostileWalk(Way::SoftwareGL, below);
    walk.setUpAgain();
    for (int step = 0; step < kSteps && source.remaining_bytes() > 0; ++step)
        walk.step();
    return 0;
}
