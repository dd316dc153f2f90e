#pragma once

#include <string>

namespace Tessaloom::BilateralBlur {

/// An RGBA colour of doubles with 1.0 as full intensity and straight alpha. Channels outside 0 to 1 are
/// allowed, no operation clamps its result, and none treats alpha apart.
///
/// A colour with any channel below 0 is nil, an out-of-band value that means no colour.
class Color {
public:
    /// Opaque white.
    Color() = default;
    Color(double r, double g, double b, double a) : red(r), green(g), blue(b), alpha(a) {}
    /// From the bytes 0xAARRGGBB, each divided by 255 in single precision.
    explicit Color(unsigned int packed);
    /// From "#RGB", "#ARGB", "#RRGGBB" or "#AARRGGBB" in hexadecimal digits, a channel being its digits'
    /// value divided by 15 or 255 in single precision. Alpha is 1 where the text has none. The layout depends
    /// on the number of characters after the "#"; the conversion stops at the first that is no digit. A text
    /// that doesn't begin with "#", or of another length, gives opaque white. Throws std::invalid_argument
    /// where no digit follows the "#", std::out_of_range beyond 64 bits.
    explicit Color(const std::string& text);

    void set(double r, double g, double b, double a) { *this = Color(r, g, b, a); }
    /// Sets all four channels to -1.
    void setNil() { *this = Color(-1.0, -1.0, -1.0, -1.0); }
    /// Whether any channel is below 0.
    bool isNil() const { return red < 0.0 || green < 0.0 || blue < 0.0 || alpha < 0.0; }
    double r() const { return red; }
    double g() const { return green; }
    double b() const { return blue; }
    double a() const { return alpha; }

    /// Whether both are nil, or each channel differs by at most kEpsilon.
    bool equal(const Color& other) const;
    bool operator==(const Color& other) const { return equal(other); }
    bool operator!=(const Color& other) const { return !equal(other); }

    /// Arithmetic per channel, alpha included.
    Color operator+(const Color& other) const;
    Color operator-(const Color& other) const;
    Color operator*(const Color& other) const;
    Color operator*(const double& factor) const;
    /// The colour at `t`, clamped to 0 to 1, of the way from `a` to `b`. The weight of `a` has single
    /// precision.
    [[nodiscard]] static Color lerp(const Color& a, const Color& b, double t);

    /// "#" and the channels red, green, blue, times 255 and cut off to integers, in upper-case hexadecimal
    /// without leading zeros; alpha comes first unless it is exactly 1. So the text need not read back as the
    /// same colour. A negative channel shows as the two's complement of 32 bits; one beyond 32 bits as the
    /// nearest such integer, and NaN as 0.
    std::string toHexString();

    double red = 1.0;
    double green = 1.0;
    double blue = 1.0;
    double alpha = 1.0;
};

} // namespace Tessaloom::BilateralBlur
