#pragma once

#include <cstdint>
#include <limits>

namespace Tessaloom::BilateralBlur {

/// A location with a length on an axis of 32-bit integers. A length of 0 is empty.
class Range {
public:
    /// From 0 over the largest length where `all` is true, empty at 0 where it is false.
    constexpr explicit Range(bool all) : Range(0, all ? std::numeric_limits<std::int32_t>::max() : 0) {}
    /// Refused: a pointer would otherwise turn into the `bool` of the constructor above.
    explicit Range(const void*) = delete;
    /// Empty at `location`.
    constexpr explicit Range(int location) : Range(location, 0) {}
    constexpr Range(int location, int length) : location(location), length(length) {}

    std::int32_t location;
    std::int32_t length;
};

} // namespace Tessaloom::BilateralBlur
