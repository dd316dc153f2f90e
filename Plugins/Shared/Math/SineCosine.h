#pragma once

#include <cmath>

namespace Tessaloom::BilateralBlur {

/// Sine and cosine of one angle.
struct SineCosine {
    double sine;
    double cosine;
};

/// Both functions of an angle in radians, from one call where the platform offers one. Asking for that call
/// by name keeps an optimisation level from deciding whether it is made.
inline SineCosine sineCosine(double radians) {
#ifdef __GLIBC__
    SineCosine result;
    ::sincos(radians, &result.sine, &result.cosine);
    return result;
#else
    return {std::sin(radians), std::cos(radians)};
#endif
}

} // namespace Tessaloom::BilateralBlur
