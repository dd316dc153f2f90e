#include "Program/Files/Picture.h"

#include "Host/Pixels.h"
#include "Program/Errors.h"
#include "Program/Files/Metadata.h"
#include "Program/Files/PngChunks.h"
#include "Program/Memory.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <span>
#include <string_view>
#include <unistd.h>
#include <utility>

namespace Tessaloom::BilateralBlur::Program {

namespace {

using std::filesystem::path;
using vips::VImage;

constexpr const char* kReadableTypes = "JPEG, PNG, TIFF or WebP";

struct FileType {
    const char* name;
    std::array<const char*, 2> endings;
    bool hasAlpha, has16Bit;
};

constexpr FileType kFileTypes[] = {
    {"JPEG", {".jpg", ".jpeg"}, false, false},
    {"PNG", {".png", ".png"}, true, true},
    {"TIFF", {".tif", ".tiff"}, true, true},
    {"WebP", {".webp", ".webp"}, true, false},
};

/// What the library says of the last failure, in one line.
std::string firstLine(const vips::VError& error) {
    const std::string text = error.what();
    return text.substr(0, text.find('\n'));
}

[[noreturn]] void fail(const path& file, const std::string& why) {
    throw Failure(file.string() + ": " + why);
}

const FileType* typeOf(const path& file) {
    std::string ending = file.extension().string();
    std::transform(ending.begin(), ending.end(), ending.begin(),
                   [](unsigned char c) { return std::tolower(c); });
    for (const FileType& type : kFileTypes)
        if (std::count(type.endings.begin(), type.endings.end(), ending))
            return &type;
    return nullptr;
}

// Reading

bool isAcceptedLoader(const char* loader) {
    constexpr std::string_view kLoaders[] = {"VipsForeignLoadJpeg", "VipsForeignLoadPng",
                                             "VipsForeignLoadTiff", "VipsForeignLoadWebp"};
    return loader && std::any_of(std::begin(kLoaders), std::end(kLoaders), [&](std::string_view accepted) {
               return std::string_view(loader).substr(0, accepted.size()) == accepted;
           });
}

VImage open(const path& file) {
    // A source, since a file name in the library's other way to load may end in load options.
    const vips::VSource source = vips::VSource::new_from_file(file.c_str());
    if (!isAcceptedLoader(vips_foreign_find_load_source(source.get_source())))
        fail(file, std::string("this isn't a picture in ") + kReadableTypes);
    return VImage::new_from_source(
        source, "",
        VImage::option()->set("access", VIPS_ACCESS_SEQUENTIAL)->set("fail_on", VIPS_FAIL_ON_TRUNCATED));
}

void checkAccepted(const VImage& image, const path& file) {
    const char* kAccepted = "; grey and RGB pictures with 8 or 16 bits a channel are accepted";
    const auto nick = [](GType type, int value) { return std::string(vips_enum_nick(type, value)); };
    if (image.format() != VIPS_FORMAT_UCHAR && image.format() != VIPS_FORMAT_USHORT)
        fail(file, "its samples are of type " + nick(VIPS_TYPE_BAND_FORMAT, image.format()) + kAccepted);
    const VipsInterpretation colours = image.interpretation();
    const bool grey = colours == VIPS_INTERPRETATION_B_W || colours == VIPS_INTERPRETATION_GREY16;
    const bool rgb = colours == VIPS_INTERPRETATION_sRGB || colours == VIPS_INTERPRETATION_RGB16 ||
                     colours == VIPS_INTERPRETATION_RGB;
    if (!grey && !rgb)
        fail(file, "its colours are " + nick(VIPS_TYPE_INTERPRETATION, colours) + kAccepted);
    const int colourChannels = grey ? 1 : 3;
    if (image.bands() != colourChannels && image.bands() != colourChannels + 1)
        fail(file, "it has " + std::to_string(image.bands()) + " channels" + kAccepted);
}

/// Refuses an image by its header, before anything of its size is allocated.
void checkFits(const VImage& image, const path& file) {
    // The peak of a run, measured on images of 2000 x 2000 to 6000 x 6000 pixels.
    constexpr std::uint64_t kBytesPerPixel = 60;
    requireMemory(file.string() + ": " + std::to_string(image.width()) + " x " +
                      std::to_string(image.height()) + " pixels",
                  kBytesPerPixel * image.width() * image.height());
}

VImage metadataOf(const VImage& image, const PngChunks& chunks) {
    VImage metadata =
        VImage::black(1, 1).copy(VImage::option()->set("xres", image.xres())->set("yres", image.yres()));
    copyMetadata(image, metadata);
    if (!chunks.exif.empty())
        copyMetadata(metadataOfExif(chunks.exif), metadata);
    return metadata;
}

template<class Sample>
void readPixels(const VImage& image, Host::World& world) {
    constexpr int kStripHeight = 64;
    const vips::VRegion region = image.region();
    for (int top = 0; top < world.height; top += kStripHeight) {
        const int height = std::min(kStripHeight, world.height - top);
        region.prepare(0, top, world.width, height);
        for (int y = top; y < top + height; ++y)
            Host::unpackRow(reinterpret_cast<const Sample*>(region.addr(0, y)), image.bands(), world.width,
                            world.row(y));
    }
}

// Writing

/// Packs the rows of a world when the library asks for them, so that no second copy of the picture exists.
template<class Sample>
int packRegion(VipsRegion* region, void*, void* world, void* channels, gboolean*) {
    const VipsRect& area = region->valid;
    for (int y = area.top; y < area.top + area.height; ++y)
        Host::packRow(static_cast<const Host::World*>(world)->row(y) + area.left, area.width,
                      *static_cast<const int*>(channels),
                      reinterpret_cast<Sample*>(VIPS_REGION_ADDR(region, area.left, y)));
    return 0;
}

/// The picture with its metadata as an image of the library, which borrows the pixels.
template<class Sample>
VImage imageOf(const Picture& picture) {
    constexpr bool kIs16Bit = sizeof(Sample) == 2;
    const bool grey = picture.channels < 3;
    VipsImage* image = vips_image_new();
    vips_image_init_fields(image, picture.world.width, picture.world.height, picture.channels,
                           kIs16Bit ? VIPS_FORMAT_USHORT : VIPS_FORMAT_UCHAR, VIPS_CODING_NONE,
                           grey ? (kIs16Bit ? VIPS_INTERPRETATION_GREY16 : VIPS_INTERPRETATION_B_W)
                                : (kIs16Bit ? VIPS_INTERPRETATION_RGB16 : VIPS_INTERPRETATION_sRGB),
                           picture.metadata.xres(), picture.metadata.yres());
    VImage owner(image);
    if (vips_image_pipelinev(image, VIPS_DEMAND_STYLE_THINSTRIP, nullptr) != 0 ||
        vips_image_generate(image, nullptr, packRegion<Sample>, nullptr,
                            const_cast<Host::World*>(&picture.world),
                            const_cast<int*>(&picture.channels)) != 0)
        throw vips::VError();
    copyMetadata(picture.metadata, owner);
    return owner;
}

vips::VOption* optionsFor(const FileType& type) {
    vips::VOption* options = VImage::option();
    const std::string_view name = type.name;
    if (name == "JPEG")
        options->set("Q", 95)->set("subsample_mode", VIPS_FOREIGN_SUBSAMPLE_OFF);
    else if (name == "PNG") // on filtered pictures smaller than the library's own choice, and twice as fast
        options->set("compression", 4)->set("filter", VIPS_FOREIGN_PNG_FILTER_PAETH);
    else if (name == "TIFF")
        options->set("compression", VIPS_FOREIGN_TIFF_COMPRESSION_LZW)
            ->set("predictor", VIPS_FOREIGN_TIFF_PREDICTOR_HORIZONTAL);
    else if (name == "WebP")
        options->set("lossless", true);
    return options;
}

std::vector<std::byte> encode(const VImage& image, const Picture& picture, const FileType& type) {
    void* buffer = nullptr;
    std::size_t size = 0;
    image.write_to_buffer(type.endings[0], &buffer, &size, optionsFor(type));
    const std::unique_ptr<void, decltype(&g_free)> owner(buffer, g_free);
    const std::span bytes(static_cast<const std::byte*>(buffer), size);
    if (std::string_view(type.name) != "PNG")
        return {bytes.begin(), bytes.end()};
    return withPngChunks(
        bytes, {picture.pngColour, exifOfMetadata(picture.metadata, image.width(), image.height())});
}

} // namespace

const char* const kWritableTypes = ".jpg, .jpeg, .png, .tif, .tiff or .webp";

void checkReadable(const path& file) {
    std::error_code error;
    const auto status = std::filesystem::status(file, error);
    if (!std::filesystem::exists(status))
        fail(file, error && error != std::errc::no_such_file_or_directory ? error.message() : "no such file");
    if (std::filesystem::is_directory(status))
        fail(file, std::string("this is a folder; a picture is needed (") + kReadableTypes + ")");
    if (access(file.c_str(), R_OK) != 0)
        fail(file, std::strerror(errno));
}

Picture readPicture(const path& file, Host::World spare) {
    checkReadable(file);
    try {
        const VImage image = open(file);
        checkAccepted(image, file);
        checkFits(image, file);
        Picture picture;
        if (spare.width == image.width() && spare.height == image.height())
            picture.world.swap(spare);
        else
            picture.world = Host::World(image.width(), image.height());
        picture.channels = image.bands();
        picture.is16Bit = image.format() == VIPS_FORMAT_USHORT;
        picture.pages = vips_image_get_n_pages(image.get_image());
        const PngChunks chunks = readPngChunks(file);
        picture.metadata = metadataOf(image, chunks);
        picture.pngColour = chunks.colour;
        if (picture.is16Bit)
            readPixels<std::uint16_t>(image, picture.world);
        else
            readPixels<std::uint8_t>(image, picture.world);
        return picture;
    } catch (const vips::VError& error) {
        fail(file, "the picture can't be read: " + firstLine(error));
    }
}

void checkWritableType(const path& file) {
    if (!typeOf(file))
        throw WrongUse(file.string() + ": the ending names no type of picture that can be written; use " +
                       kWritableTypes);
}

std::vector<std::byte> encodePicture(const Picture& picture, const path& file) {
    checkWritableType(file);
    const FileType& type = *typeOf(file);
    if (picture.channels % 2 == 0 && !type.hasAlpha)
        fail(file,
             std::string(type.name) + " can't hold the picture's alpha channel; use .png, .tif or .webp");
    try {
        return encode(picture.is16Bit && type.has16Bit ? imageOf<std::uint16_t>(picture)
                                                       : imageOf<std::uint8_t>(picture),
                      picture, type);
    } catch (const vips::VError& error) {
        fail(file, "the picture can't be written: " + firstLine(error));
    }
}

} // namespace Tessaloom::BilateralBlur::Program
