#include "Tests/Support/Oracle.h"

#include <algorithm>
#include <cmath>

namespace Tessaloom::BilateralBlur::Oracle {
namespace {

// The oracle's own, so that it notices a change of the effect's.
constexpr double kSpatialVariance = 10.0 * 10.0;
constexpr double kRangeVariance = 0.1 * 0.1;
constexpr int kLargestBlurSize = 60;

} // namespace

std::vector<double> pass(const std::vector<double>& argb, int width, int height, int blurSize,
                         double multiplier) {
    const int reach = (std::clamp(blurSize, 1, kLargestBlurSize) - 1) / 2;
    const auto pixel = [&](int x, int y) {
        return &argb[std::size_t{4} * (std::clamp(y, 0, height - 1) * width + std::clamp(x, 0, width - 1))];
    };
    std::vector<double> rgba;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const double* const centre = pixel(x, y);
            double sum[3] = {}, weights = 0;
            for (int j = -reach; j <= reach; ++j)
                for (int i = -reach; i <= reach; ++i) {
                    const double* const tap = pixel(x + i, y + j);
                    double squared = 0;
                    for (int channel = 0; channel < 3; ++channel)
                        squared += (tap[channel] - centre[channel]) * (tap[channel] - centre[channel]);
                    const double weight =
                        std::exp(-0.5 * ((i * i + j * j) / kSpatialVariance + squared / kRangeVariance));
                    weights += weight;
                    for (int channel = 0; channel < 3; ++channel)
                        sum[channel] += weight * tap[channel];
                }
            const double alpha = multiplier * sum[0] / weights;
            for (const double colour : {sum[1] / weights, sum[2] / weights, centre[3]})
                rgba.push_back(alpha * multiplier * colour);
            rgba.push_back(alpha);
        }
    return rgba;
}

std::vector<double> smooth(const std::vector<double>& argb, int width, int height, int radius,
                           double threshold, double least) {
    const auto pixel = [&](int x, int y) {
        return &argb[std::size_t{4} * (std::clamp(y, 0, height - 1) * width + std::clamp(x, 0, width - 1))];
    };
    const auto isFinite = [](const double* values) {
        return std::all_of(values, values + 4, [](double value) { return std::isfinite(value); });
    };
    std::vector<double> result = argb;
    for (int i = 0; i < width * height; ++i) {
        const int x = i % width, y = i / width;
        const double* const centre = pixel(x, y);
        if (radius == 0 || !isFinite(centre))
            continue;
        double sum[3] = {}, weights = 0;
        for (int tap = 0; tap < (2 * radius + 1) * (2 * radius + 1); ++tap) {
            const int right = tap % (2 * radius + 1) - radius, down = tap / (2 * radius + 1) - radius;
            const double* const other = pixel(x + right, y + down);
            if (!isFinite(other))
                continue;
            double squared = 0;
            for (int channel = 1; channel < 4; ++channel)
                squared += (other[channel] - centre[channel]) * (other[channel] - centre[channel]);
            const double weight =
                std::max(0.0, other[0]) * std::exp(-2.0 * (right * right + down * down) / (radius * radius) -
                                                   squared / (2 * threshold * threshold));
            weights += weight;
            for (int channel = 0; channel < 3; ++channel)
                sum[channel] += weight * (other[1 + channel] - centre[1 + channel]);
        }
        for (int channel = 0; channel < 3 && weights > 0; ++channel)
            result[4 * i + 1 + channel] =
                weights < least ? std::nan("") : centre[1 + channel] + sum[channel] / weights;
    }
    return result;
}

} // namespace Tessaloom::BilateralBlur::Oracle
