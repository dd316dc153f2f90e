#include "Plugins/Shared/Math/Color.h"

#include "Plugins/Shared/Math/Float.h"

#include <cstdint>
#include <cstdio>
#include <limits>

namespace Tessaloom::BilateralBlur {

namespace {

// The channel of the given number of bits above `shift`. Dividing in single precision is the exchange
// format's own rounding, so 1 / 255 is a float's value.
double channelAt(std::uint64_t bits, unsigned shift, unsigned width) {
    const std::uint64_t full = (std::uint64_t{1} << width) - 1;
    return static_cast<float>((bits >> shift) & full) / static_cast<float>(full);
}

// A cast of a double beyond the integer's range would be undefined.
std::uint32_t hexDigits(double channel) {
    using Limits = std::numeric_limits<std::int32_t>;
    const double scaled = channel * 255.0;
    if (scaled != scaled)
        return 0;
    return static_cast<std::uint32_t>(
        static_cast<std::int32_t>(clampValue(scaled, Limits::min(), Limits::max())));
}

} // namespace

Color::Color(unsigned int packed)
    : red(channelAt(packed, 16, 8)),
      green(channelAt(packed, 8, 8)),
      blue(channelAt(packed, 0, 8)),
      alpha(channelAt(packed, 24, 8)) {}

Color::Color(const std::string& text) {
    if (text.empty() || text.front() != '#')
        return;
    const std::string digits = text.substr(1);
    // Before the length is looked at, so that a text of any length throws when it holds no number.
    const std::uint64_t bits = std::stoull(digits, nullptr, 16);
    const std::size_t count = digits.size();
    if (count != 3 && count != 4 && count != 6 && count != 8)
        return;
    const unsigned width = count <= 4 ? 4 : 8;
    red = channelAt(bits, 2 * width, width);
    green = channelAt(bits, width, width);
    blue = channelAt(bits, 0, width);
    if (count % 4 == 0)
        alpha = channelAt(bits, 3 * width, width);
}

bool Color::equal(const Color& other) const {
    if (isNil() && other.isNil())
        return true;
    return equalWithin(red, other.red, kEpsilon) && equalWithin(green, other.green, kEpsilon) &&
           equalWithin(blue, other.blue, kEpsilon) && equalWithin(alpha, other.alpha, kEpsilon);
}

Color Color::operator+(const Color& other) const {
    return {red + other.red, green + other.green, blue + other.blue, alpha + other.alpha};
}

Color Color::operator-(const Color& other) const {
    return {red - other.red, green - other.green, blue - other.blue, alpha - other.alpha};
}

Color Color::operator*(const Color& other) const {
    return {red * other.red, green * other.green, blue * other.blue, alpha * other.alpha};
}

Color Color::operator*(const double& factor) const {
    return {red * factor, green * factor, blue * factor, alpha * factor};
}

Color Color::lerp(const Color& a, const Color& b, double t) {
    const double weightB = clampValue(t, 0.0, 1.0);
    const double weightA = static_cast<float>(1.0 - weightB);
    return a * weightA + b * weightB;
}

std::string Color::toHexString() {
    // "#", four numbers of at most eight digits, and the end.
    char text[34];
    if (alpha == 1.0) {
        std::snprintf(text, sizeof text, "#%X%X%X", hexDigits(red), hexDigits(green), hexDigits(blue));
    } else {
        std::snprintf(text, sizeof text, "#%X%X%X%X", hexDigits(alpha), hexDigits(red), hexDigits(green),
                      hexDigits(blue));
    }
    return text;
}

} // namespace Tessaloom::BilateralBlur
