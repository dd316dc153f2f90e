#include "Tests/BilateralBlur/Oracle.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace Tessaloom::BilateralBlur::Oracle {
namespace {

constexpr double kSpatialSigma = 10.0;
constexpr double kRangeSigma = 0.1;

double gaussian(double squaredDistance, double sigma) {
    return std::exp(-0.5 * squaredDistance / (sigma * sigma));
}

/// The weighted means of the first three channels around one pixel.
std::array<double, 3> filterPixel(const double* argb, int width, int height, int x, int y, int reach,
                                  const std::vector<double>& spatial) {
    const double* const centre = argb + 4 * (static_cast<std::size_t>(y) * width + x);
    std::array<double, 3> sum{};
    double weights = 0.0;
    for (int j = -reach; j <= reach; ++j) {
        const double* const row =
            argb + 4 * static_cast<std::size_t>(std::clamp(y + j, 0, height - 1)) * width;
        for (int i = -reach; i <= reach; ++i) {
            const double* const tap = row + 4 * std::clamp(x + i, 0, width - 1);
            double squared = 0.0;
            for (int channel = 0; channel < 3; ++channel)
                squared += (tap[channel] - centre[channel]) * (tap[channel] - centre[channel]);
            const double weight =
                spatial[std::abs(i)] * spatial[std::abs(j)] * gaussian(squared, kRangeSigma);
            weights += weight;
            for (int channel = 0; channel < 3; ++channel)
                sum[channel] += weight * tap[channel];
        }
    }
    for (double& value : sum)
        value /= weights;
    return sum;
}

} // namespace

int kernelReach(int blurSize) {
    return (blurSize - 1) / 2;
}

std::vector<double> pass(const std::vector<double>& argb, int width, int height, int blurSize,
                         double multiplier) {
    const int reach = kernelReach(blurSize);
    std::vector<double> spatial;
    for (int i = 0; i <= reach; ++i)
        spatial.push_back(gaussian(i * i, kSpatialSigma));
    std::vector<double> rgba(argb.size());
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const std::size_t index = 4 * (static_cast<std::size_t>(y) * width + x);
            const auto filtered = filterPixel(argb.data(), width, height, x, y, reach, spatial);
            const double alpha = filtered[0] * multiplier;
            rgba[index + 0] = alpha * filtered[1] * multiplier;
            rgba[index + 1] = alpha * filtered[2] * multiplier;
            rgba[index + 2] = alpha * argb[index + 3] * multiplier;
            rgba[index + 3] = alpha;
        }
    }
    return rgba;
}

std::vector<double> effect(const std::uint8_t* argb, int width, int height, std::ptrdiff_t rowbytes,
                           int blurSize) {
    std::vector<double> values;
    values.reserve(static_cast<std::size_t>(width) * height * 4);
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
