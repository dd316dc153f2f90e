#pragma once

namespace Tessaloom::BilateralBlur {

/// What one core does on the instruction set that the kernel would run on now.
struct FmaRate {
    double perSecond; // fused multiply-adds of one full vector each (multiplications where the set has no
                      // fused ones)
    int lanes;        // floats in a vector
};

/// Measures it, best of some tries of a few milliseconds in all.
FmaRate measureFmaRate();

} // namespace Tessaloom::BilateralBlur
