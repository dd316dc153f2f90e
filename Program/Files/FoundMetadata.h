#pragma once

#include "Program/Files/Bytes.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace Tessaloom::BilateralBlur::Program {

/// How much a library would copy to read a file's metadata, counted before it does. Entries of EXIF may share
/// their bytes, so a small file can ask for any amount of memory; and the time of some libraries grows with the
/// square of the parts.
class MetadataCount {
public:
    static constexpr std::uint64_t kMostBytes = 64'000'000;
    static constexpr std::size_t kMostParts = 5'000;

    /// All directories of a TIFF structure, as an EXIF block is one too.
    void addDirectories(std::span<const std::byte> tiff);

    /// A packet of XMP.
    void addPacket(std::span<const std::byte> packet);

    /// A segment or chunk of another kind.
    void addPart(std::size_t bytes);

    std::uint64_t bytes() const { return mBytes; }
    bool isAcceptable() const { return mBytes <= kMostBytes && mParts <= kMostParts; }

private:
    std::uint64_t mBytes = 0;
    std::size_t mParts = 0;
};

/// What a format's walk through a file finds of metadata.
struct FoundMetadata {
    Bytes own;   ///< segments or chunks that a file of the same format gets as they are
    Bytes texts; ///< of a PNG: a file that has what the library is to read, and no EXIF
    std::span<const std::byte>
        exif;                  ///< of a PNG, or where the library for metadata reads nothing: the EXIF block
    Bytes block;               ///< owns the bytes of `exif` where the file doesn't
    std::string packet;        ///< XMP, where the library for metadata reads nothing
    int orientation = 0;       ///< 1 to 8, as EXIF has it, in place of what EXIF says; 0 where EXIF is right
    std::uint64_t buffers = 0; ///< bytes that it takes to decode the pixels, beside those of each pixel
    MetadataCount count;
    bool ownsPacket = false; ///< XMP is in `own`
};

/// Leaves of a TIFF's directories only what says how the pixels are stored.
void removeOtherTags(std::span<std::byte> tiff);

/// Makes the directory at an offset the only one that a reader of the TIFF sees.
void isolateDirectory(std::span<std::byte> tiff, std::uint64_t directory);

} // namespace Tessaloom::BilateralBlur::Program
