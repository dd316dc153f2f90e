#pragma once

namespace Tessaloom::BilateralBlur {

/// The largest reach of any filter: the planes of a block have room for it.
constexpr int kReachLimit = 60;

/// A bilateral filter over a square neighbourhood: a neighbour q of the pixel p weighs exp(-|q - p|^2 / (2 *
/// spatialSigma^2)) * exp(-|c(q) - c(p)|^2 / (2 * rangeSigma^2)), c being the filtered channels. The weights are
/// normalised by their sum (C. Tomasi and R. Manduchi, "Bilateral filtering for gray and color images", 1998).
struct BilateralFilter {
    int reach;           // of the neighbourhood to each side, in pixels, 0 to kReachLimit
    double spatialSigma; // standard deviation by distance, in pixels, above 0
    double rangeSigma;   // standard deviation by difference of the channels, in units of full scale, above 0
};

} // namespace Tessaloom::BilateralBlur
