#pragma once

#include "Program/Files/FoundMetadata.h"
#include "Program/Files/Image.h"

#include <exiv2/exiv2.hpp>

#include <map>
#include <span>
#include <string>
#include <vector>

namespace Tessaloom::BilateralBlur::Program {

/// What a file holds beside its pixels, colour profiles and page tags.
struct Metadata {
    Exiv2::ExifData exif;
    Exiv2::IptcData iptc;
    std::string xmp; ///< a packet
    Bytes own;       ///< segments or chunks that a file of the same format gets as they are
};

/// Reads EXIF, IPTC and XMP of a file, or takes what was found where `file` is empty. What describes the stored
/// file rather than the image is left out, and so are thumbnails, since they show the unfiltered image. Gives
/// notes on what can't be kept because it is damaged or too large. Throws std::bad_alloc alone.
std::vector<std::string> readMetadata(std::span<const std::byte> file, bool isTiff, FoundMetadata found,
                                      Metadata& metadata);

/// An EXIF block without a prefix; empty where there are no fields.
Bytes exifBlock(const Exiv2::ExifData& exif);

/// Leaves out what the segments of a JPEG have no room for: the largest fields of EXIF, and XMP. Gives a note on
/// each of the two that loses something.
std::vector<std::string> fitJpeg(Metadata& metadata);

/// The density that EXIF fields give.
Density densityOf(const Exiv2::ExifData& exif);
void setDensity(Exiv2::ExifData& exif, const Density& density);

/// A JPEG or TIFF file with EXIF, IPTC, XMP and a profile in place of its own. Throws std::runtime_error where
/// the library refuses.
Bytes withMetadata(Bytes file, const Metadata& metadata, const Bytes& profile);

} // namespace Tessaloom::BilateralBlur::Program
