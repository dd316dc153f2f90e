#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace Tessaloom::BilateralBlur {

/// A slider that an effect declares: a parameter of whole numbers, `minimum` to `maximum`.
struct SliderDeclaration {
    const char* name;        ///< at most 31 characters
    const char* key;         ///< the name in options and properties: "blur-scale"
    const char* description; ///< one line, for users
    std::int32_t minimum, maximum, defaultValue;
    std::int32_t steps; ///< how many of the values make 1 of what users see: 1, or 1000 for thousandths
    bool isDistance;    ///< counts pixels: half as many in an image of half the size
    bool isRequired;    ///< the default leaves an image as it is, so a program asks for a value
};

/// How many sliders an effect has at most.
inline constexpr std::size_t kMostSliders = 8;

/// What an effect declares to its hosts. The build fills it in from the Declaration.cmake of the effect's directory,
/// and the property list beside the module as well.
struct EffectDeclaration {
    const char* name;
    const char* key;         ///< the name in options and of files: "bilateral-blur"
    const char* description; ///< one line, for users
    int version, subversion;
    std::uint32_t packedVersion; ///< see `PF_VERSION`
    std::int32_t outFlags, outFlags2;
    std::int32_t margin; ///< how far from a pixel, each way, others are that its result depends on at most
    std::span<const SliderDeclaration> sliders; ///< parameters 1, 2 and so on; the input layer is 0
};

} // namespace Tessaloom::BilateralBlur
