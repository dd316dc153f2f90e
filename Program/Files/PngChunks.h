#pragma once

#include <cstddef>
#include <filesystem>
#include <span>
#include <string>
#include <vector>

namespace Tessaloom::BilateralBlur::Program {

/// What the picture library passes over in PNG files.
struct PngChunks {
    std::vector<std::byte> colour; ///< the chunks gAMA, cHRM, sRGB and cICP, whole and in their order
    std::vector<std::byte> exif;   ///< what is in the chunk eXIf: an EXIF block without a prefix
};

/// Nothing for files that aren't PNG. A file that ends early gives what came before.
PngChunks readPngChunks(const std::filesystem::path& path);

/// A PNG file with the chunks in it.
std::vector<std::byte> withPngChunks(std::span<const std::byte> png, const PngChunks& chunks);

} // namespace Tessaloom::BilateralBlur::Program
