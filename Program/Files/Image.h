#pragma once

#include "Host/World.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace Tessaloom::BilateralBlur::Program {

struct Format;
struct Metadata;

using Bytes = std::vector<std::byte>;

/// Pixels for each unit of length, or the shape of a pixel where the unit is unknown. None where x is 0.
struct Density {
    enum class Unit { Unknown, Inch, Centimetre };
    double x = 0, y = 0;
    Unit unit = Unit::Unknown;
};

/// A page of a TIFF, a frame of an animated WebP, or the one image of a file.
struct Page {
    Host::World world{0, 0};   ///< 8-bit pixels with straight alpha
    int width = 0, height = 0; ///< in pixels, as the header says
    int channels = 0;          ///< of the file: 1 grey, 2 grey and alpha, 3 RGB, 4 RGBA
    int bits = 8;              ///< of a sample of the file: 16 were rounded to 8; 1, 2 and 4 widened to 8
    int delay = 0;             ///< how long the frame of an animation is shown, in milliseconds
    int orientation = 0;       ///< of a page of a TIFF, as the tag has it; 0 where there is none
    Density density{};
    Bytes profile{};                                            ///< the ICC profile
    std::vector<std::pair<std::uint32_t, std::string>> texts{}; ///< tags of a page of a TIFF
};

/// How the file was compressed, for writing a file of the same format.
struct Compression {
    int quality = 0;         ///< of a JPEG file, 1 to 100; 0 for another one
    bool subsampled = false; ///< a JPEG file with fewer samples of colour than of brightness
    bool lossy = false;      ///< a WebP file
};

/// A file's images as they go through the effect, and all that the file holds beside them.
///
/// The pixels keep the order of the file: an orientation tag is carried, not applied. A palette becomes the
/// colours of its entries.
struct Image {
    std::vector<Page> pages;
    const Format* format = nullptr; ///< of the file that was read
    int loops = 0;                  ///< how often an animation is shown; 0 without end
    Compression compression;
    int unreadableFrames = 0; ///< of an animated PNG, beside its still image
    std::shared_ptr<const Metadata> metadata;
    std::vector<std::string> notes; ///< what the output will lack, and where the file seems odd
};

struct ReadOptions {
    int page = 0; ///< the one to read, from 1; 0 for all
};

struct WriteOptions {
    int quality = 0; ///< of JPEG and WebP, 1 to 100; 0 for the input's own
};

/// A file that was opened and read, once, and whose header was judged. Pipes will do.
class ImageFile {
public:
    /// Reads a JPEG, PNG, TIFF or WebP file, identified by its content; "-" is standard input. Throws Failure
    /// where it can't be read, is cut short, lacks the page, or needs more memory than there is available.
    explicit ImageFile(const std::filesystem::path& path, ReadOptions options = {});

    /// Throws Failure where a format can't hold these images; `name` is the output's.
    void checkHeldBy(const Format& format, const std::string& name) const;

    /// The images. `spare` becomes the first page's world where its size fits: fresh memory costs as much as
    /// some decoding. To be called once. Throws Failure where the file is damaged or has another kind of
    /// samples or colours.
    Image decode(Host::World spare = {0, 0});

    /// The bytes that it takes at most to decode, filter and encode the images.
    std::uint64_t memory() const { return mMemory; }

private:
    std::string mName;
    ReadOptions mOptions;
    Bytes mBytes;
    Image mHead; ///< all but the pixels
    std::uint64_t mMemory;
};

/// Prepares the libraries that decode and encode, once, before any thread uses them; nothing that a process
/// would lose by a fork happens before. What the libraries report is shown only if `verbose`. Throws Failure.
void startImageFiles(bool verbose);

/// The formats, for messages: "JPEG, PNG, TIFF or WebP".
std::string formatNames();

/// The extensions of file names that can be written, for messages.
std::string formatExtensions();

/// The names that `formatNamed` knows, separated by "|".
std::string formatChoices();

/// The format that the extension of a file name means. Throws WrongUse for a name that has no such
/// extension.
const Format& formatOf(const std::filesystem::path& path);

/// The format of one of `formatChoices`; null for any other name.
const Format* formatNamed(const std::string& name);

/// The bytes of a file in a format, with the image's channels, metadata, and 16 bits a channel where the
/// image had them and the format can hold them. PNG and TIFF are written without loss, and so is WebP
/// unless the input is WebP with loss or a quality is given. A JPEG file gets the quality and colour
/// resolution of the input, if that is JPEG, else quality 95 and full colour resolution. `name` is for
/// messages. Throws Failure, for alpha in JPEG and several pages in PNG among others.
Bytes encodeImage(const Image& image, const Format& format, const std::string& name,
                  WriteOptions options = {});

} // namespace Tessaloom::BilateralBlur::Program
