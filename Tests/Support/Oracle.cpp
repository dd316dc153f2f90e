#include "Tests/Support/Oracle.h"

#include <algorithm>
#include <cmath>

namespace Tessaloom::BilateralBlur::Oracle {
namespace {

// The oracle's own, so that it notices a change of the effect's.
constexpr double kSpatialVariance = 10.0 * 10.0;
constexpr double kRangeVariance = 0.1 * 0.1;

} // namespace

std::vector<double> pass(const std::vector<double>& argb, int width, int height, int blurSize,
                         double multiplier) {
    const int reach = (blurSize - 1) / 2;
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

} // namespace Tessaloom::BilateralBlur::Oracle
