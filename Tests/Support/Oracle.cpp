#include "Tests/Support/Oracle.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace Tessaloom::BilateralBlur::Oracle {
namespace {

// The oracle's own, so that it notices a change of the effect's.
constexpr double kSpatialVariance = 10.0 * 10.0;
constexpr double kRangeVariance = 0.1 * 0.1;

using Means = std::array<double, 3>;

/// The weighted means of the first three channels around one pixel.
Means filterPixel(const double* argb, int width, int height, int x, int y, int reach) {
    const auto pixel = [&](int column, int row) {
        const int index = std::clamp(row, 0, height - 1) * width + std::clamp(column, 0, width - 1);
        return argb + std::size_t{4} * index;
    };
    const double* const centre = pixel(x, y);
    Means sum{};
    double weights = 0.0;
    for (int j = -reach; j <= reach; ++j)
        for (int i = -reach; i <= reach; ++i) {
            const double* const tap = pixel(x + i, y + j);
            double squared = 0.0;
            for (int channel = 0; channel < 3; ++channel)
                squared += (tap[channel] - centre[channel]) * (tap[channel] - centre[channel]);
            const double exponent = (i * i + j * j) / kSpatialVariance + squared / kRangeVariance;
            const double weight = std::exp(-0.5 * exponent);
            weights += weight;
            for (int channel = 0; channel < 3; ++channel)
                sum[channel] += weight * tap[channel];
        }
    return {sum[0] / weights, sum[1] / weights, sum[2] / weights};
}

} // namespace

std::vector<double> pass(const std::vector<double>& argb, int width, int height, int blurSize,
                         double multiplier) {
    std::vector<double> rgba;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const Means mean = filterPixel(argb.data(), width, height, x, y, (blurSize - 1) / 2);
            const double alpha = mean[0] * multiplier, blue = argb[rgba.size() + 3];
            for (const double colour : {mean[1], mean[2], blue})
                rgba.push_back(alpha * colour * multiplier);
            rgba.push_back(alpha);
        }
    return rgba;
}

std::vector<double> effect(const std::uint8_t* argb, int width, int height, std::ptrdiff_t rowbytes,
                           int blurSize) {
    std::vector<double> values;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < 4 * width; ++x)
            values.push_back(argb[y * rowbytes + x] / 255.0);
    const std::vector<double> premultiplied = pass(values, width, height, blurSize);
    for (std::size_t index = 0; index < values.size(); index += 4) {
        const double alpha = premultiplied[index + 3];
        const bool visible = std::lround(255.0 * alpha) > 0;
        values[index] = visible ? 255.0 * alpha : 0.0;
        for (int channel = 0; channel < 3; ++channel)
            values[index + 1 + channel] = visible ? 255.0 * premultiplied[index + channel] / alpha : 0.0;
    }
    return values;
}

} // namespace Tessaloom::BilateralBlur::Oracle
