#include "Benchmarks/Kernel/FmaRate.h"

#include <algorithm>
#include <chrono>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "Benchmarks/Kernel/FmaRate.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace Tessaloom::BilateralBlur {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

FmaRate fmaRate() {
    constexpr hn::CappedTag<float, 16> df;
    constexpr int kChains = 10,
                  kSteps = 20000; // enough chains to hide the latency, few enough for 16 registers
    const auto factor = hn::Set(df, 0.999f), addend = hn::Set(df, 0.001f);
    hn::Vec<decltype(df)> chain[kChains];
    for (auto& value : chain)
        value = addend;
    double best = 0.0;
    for (int repeat = 0; repeat < 50; ++repeat) {
        const auto start = std::chrono::steady_clock::now();
        for (int step = 0; step < kSteps; ++step)
            for (auto& value : chain)
                value = hn::MulAdd(value, factor, addend);
        const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
        best = std::max(best, kChains * kSteps / time.count());
    }
    auto sum = hn::Zero(df);
    for (const auto& value : chain)
        sum = hn::Add(sum, value);
    volatile float sink = hn::GetLane(sum); // or the chains would be left out
    static_cast<void>(sink);
    return {best, static_cast<int>(hn::Lanes(df))};
}

} // namespace HWY_NAMESPACE
} // namespace Tessaloom::BilateralBlur
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace Tessaloom::BilateralBlur {

HWY_EXPORT(fmaRate);

FmaRate measureFmaRate() {
    return HWY_DYNAMIC_DISPATCH(fmaRate)();
}

} // namespace Tessaloom::BilateralBlur
#endif
