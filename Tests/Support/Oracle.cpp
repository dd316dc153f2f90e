#include "Tests/Support/Oracle.h"

#include <algorithm>
#include <cmath>

namespace Tessaloom::BilateralBlur::Oracle {
namespace {

// The oracle's own, so that it notices a change of the effect's.
constexpr double kSpatialVariance = 10.0 * 10.0;
constexpr double kRangeVariance = 0.1 * 0.1;
constexpr int kLargestBlurSize = 60;

struct Mean {
    double channels[3] = {}, weights = 0;
};

// Of three channels, from `first` on, over the square of `reach` around a pixel. `weight` gets a neighbour and the
// squares of its distance and of its difference in these channels. The mean is one of differences, so that a pixel that
// alone weighs comes out exactly.
template<class Weight>
Mean meanAround(int pixel, const std::vector<double>& argb, int width, int height, int reach, int first,
                Weight weight) {
    const double* const centre = &argb[4 * pixel + first];
    Mean mean;
    for (int down = -reach; down <= reach; ++down)
        for (int right = -reach; right <= reach; ++right) {
            const int x = std::clamp(pixel % width + right, 0, width - 1);
            const int y = std::clamp(pixel / width + down, 0, height - 1);
            const double* const tap = &argb[4 * (y * width + x)];
            double squared = 0;
            for (int channel = 0; channel < 3; ++channel)
                squared += std::pow(tap[first + channel] - centre[channel], 2);
            const double weighs = weight(tap, right * right + down * down, squared);
            mean.weights += weighs;
            for (int channel = 0; channel < 3 && weighs > 0; ++channel)
                mean.channels[channel] += weighs * (tap[first + channel] - centre[channel]);
        }
    for (int channel = 0; channel < 3; ++channel)
        mean.channels[channel] = centre[channel] + mean.channels[channel] / mean.weights;
    return mean;
}

bool isFinite(const double* pixel) {
    return std::all_of(pixel, pixel + 4, [](double value) { return std::isfinite(value); });
}

} // namespace

std::vector<double> pass(const std::vector<double>& argb, int width, int height, int blurSize,
                         double multiplier) {
    const auto weight = [](const double*, int distance, double difference) {
        return std::exp(-0.5 * (distance / kSpatialVariance + difference / kRangeVariance));
    };
    const int reach = (std::clamp(blurSize, 1, kLargestBlurSize) - 1) / 2;
    std::vector<double> rgba;
    for (int i = 0; i < width * height; ++i) {
        const Mean mean = meanAround(i, argb, width, height, reach, 0, weight);
        const double alpha = multiplier * mean.channels[0];
        for (const double colour : {mean.channels[1], mean.channels[2], argb[4 * i + 3]})
            rgba.push_back(alpha * multiplier * colour);
        rgba.push_back(alpha);
    }
    return rgba;
}

std::vector<double> smooth(const std::vector<double>& argb, int width, int height, int radius,
                           double threshold, double least) {
    const auto weight = [&](const double* tap, int distance, double difference) {
        return isFinite(tap) ? std::max(0.0, tap[0]) * std::exp(-2.0 * distance / (radius * radius) -
                                                                difference / (2 * threshold * threshold))
                             : 0;
    };
    std::vector<double> result = argb;
    for (int i = 0; i < width * height; ++i) {
        if (radius == 0 || !isFinite(&argb[4 * i]))
            continue;
        const Mean mean = meanAround(i, argb, width, height, radius, 1, weight);
        for (int channel = 0; channel < 3 && mean.weights > 0; ++channel)
            result[4 * i + 1 + channel] = mean.weights < least ? std::nan("") : mean.channels[channel];
    }
    return result;
}

} // namespace Tessaloom::BilateralBlur::Oracle
