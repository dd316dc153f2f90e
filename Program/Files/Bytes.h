#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace Tessaloom::BilateralBlur::Program {

using Bytes = std::vector<std::byte>;

/// The number in `bytes`, the highest first; for RIFF the lowest first.
inline std::uint32_t bigEndian(std::span<const std::byte> bytes) {
    std::uint32_t value = 0;
    for (const std::byte byte : bytes)
        value = value << 8 | std::to_integer<std::uint32_t>(byte);
    return value;
}

inline std::uint32_t littleEndian(std::span<const std::byte> bytes) {
    std::uint32_t value = 0;
    for (std::size_t i = bytes.size(); i-- > 0;)
        value = value << 8 | std::to_integer<std::uint32_t>(bytes[i]);
    return value;
}

inline std::string_view text(std::span<const std::byte> bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

inline std::span<const std::byte> bytesOf(std::string_view text) {
    return {reinterpret_cast<const std::byte*>(text.data()), text.size()};
}

inline void append(Bytes& to, std::span<const std::byte> bytes) {
    const auto size = static_cast<std::ptrdiff_t>(to.size());
    to.resize(to.size() + bytes.size());
    std::copy(bytes.begin(), bytes.end(), to.begin() + size);
}

} // namespace Tessaloom::BilateralBlur::Program
