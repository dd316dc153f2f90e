#pragma once

#include <vips/vips8>

#include <cstddef>
#include <span>
#include <vector>

namespace Tessaloom::BilateralBlur::Program {

/// EXIF blocks for the types of files in which the picture library knows none. It reads and writes them in
/// JPEG, so these go by way of a JPEG file in memory.

/// The fields of an EXIF block (without a prefix), orientation among them, as metadata of an image. An image
/// without metadata where the block is damaged.
vips::VImage metadataOfExif(std::span<const std::byte> exif);

/// The block that holds an image's EXIF fields and orientation, for a picture of the given size; empty where
/// it has neither.
std::vector<std::byte> exifOfMetadata(const vips::VImage& metadata, int width, int height);

/// Copies what lies beside the pixels from an image to another, but for what tells of the file as it was
/// stored or of pixels that change. Fields that the other has already stay.
void copyMetadata(const vips::VImage& from, const vips::VImage& to);

} // namespace Tessaloom::BilateralBlur::Program
