#include "Program/Memory.h"

#include "Platform/Memory.h"
#include "Program/Errors.h"

#include <algorithm>
#include <atomic>
#include <cctype>
#include <charconv>
#include <cstdio>
#include <limits>
#include <optional>
#include <string_view>

namespace Tessaloom::BilateralBlur::Program {

namespace {

constexpr std::uint64_t kUnlimited = std::numeric_limits<std::uint64_t>::max();
std::atomic<std::uint64_t> mBound = kUnlimited;

std::string sizeText(std::uint64_t bytes) {
    constexpr double kMega = 1e6, kGiga = 1e9;
    char text[32];
    std::snprintf(text, sizeof text, bytes < kGiga ? "%.0f MB" : "%.1f GB",
                  static_cast<double>(bytes) / (bytes < kGiga ? kMega : kGiga));
    return text;
}

} // namespace

std::uint64_t availableMemory() {
    // What the effect, the drivers of OpenGL and the libraries take as soon as they work.
    constexpr std::uint64_t kSetup = 80'000'000;
    const std::uint64_t used = residentMemory();
    static const std::uint64_t kUsedAtStart = used;
    if (mBound != kUnlimited)
        return mBound - std::min<std::uint64_t>(mBound, kUsedAtStart + kSetup);
    const std::uint64_t left = memoryLeft();
    return left == kUnlimited ? left : left + used - std::min(used, kUsedAtStart);
}

void boundMemory(std::uint64_t bytes) {
    mBound = bytes;
}

void requireMemory(const std::string& what, std::uint64_t bytes) {
    const std::uint64_t available = availableMemory();
    if (bytes > available)
        throw Failure(what + " need " + sizeText(bytes) + " of memory, and " + sizeText(available) +
                      " are available; --memory SIZE sets another bound");
}

std::optional<std::uint64_t> parseSize(const std::string& text) {
    std::uint64_t size = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, size);
    const std::string unit(stop, end);
    constexpr std::string_view kUnits = "KMGT";
    const std::size_t power =
        unit.size() == 1 ? kUnits.find(static_cast<char>(std::toupper(static_cast<unsigned char>(unit[0]))))
                         : std::string_view::npos;
    const unsigned shift = unit.empty() ? 0 : 10 * (static_cast<unsigned>(power) + 1);
    if (error != std::errc{} || (!unit.empty() && power == std::string_view::npos) || size == 0 ||
        size > kUnlimited >> shift)
        return std::nullopt;
    return size << shift;
}

} // namespace Tessaloom::BilateralBlur::Program
