#include "Tests/Effect/HostileWalk.h"
#include "Tests/Fuzz/Fuzz.h"

#include <fuzzer/FuzzedDataProvider.h>

using namespace Tessaloom::BilateralBlur;

// Whatever a host sends, the effect returns the right codes and renders the next right frame.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    GTEST_FLAG_SET(throw_on_failure, true); // which ends the run
    FuzzedDataProvider source(data, size);
    HostileWalk walk(source.ConsumeBool() ? Way::Gpu : Way::SoftwareGL,
                     [&](int bound) { return source.ConsumeIntegralInRange(0, bound - 1); });
    while (source.remaining_bytes() > 0)
        walk.step();
    return 0;
}
