#pragma once

#include "Program/Files/Image.h"

#include <exiv2/exiv2.hpp>

#include <map>
#include <span>
#include <string>

namespace Tessaloom::BilateralBlur::Program {

/// What a file holds beside its pixels, colour profiles and page tags.
struct Metadata {
    Exiv2::ExifData exif;
    Exiv2::IptcData iptc;
    std::string xmp; ///< a packet
    Bytes own;       ///< segments or chunks that a file of the same format gets as they are
};

/// Reads EXIF, IPTC and XMP of a file in any format. What describes the stored file rather than the image is
/// left out, and so are thumbnails, since they show the unfiltered image. Damaged metadata throws
/// Exiv2::Error.
void readMetadata(std::span<const std::byte> file, bool isTiff, Metadata& metadata);

/// Takes an EXIF block, without a prefix, in place of what was read.
void readExifBlock(std::span<const std::byte> block, Metadata& metadata);

/// An EXIF block without a prefix; empty where there are no fields.
Bytes exifBlock(const Metadata& metadata);

/// The density that EXIF fields give.
Density densityOf(const Exiv2::ExifData& exif);
void setDensity(Exiv2::ExifData& exif, const Density& density);

/// A JPEG, TIFF or WebP file with EXIF, IPTC, XMP and a profile in place of its own.
Bytes withMetadata(const Bytes& file, const Metadata& metadata, const Bytes& profile);

} // namespace Tessaloom::BilateralBlur::Program
