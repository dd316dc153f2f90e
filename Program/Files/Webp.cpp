#include "Program/Files/Encode.h"
#include "Program/Files/Format.h"
#include "Program/Files/Metadata.h"

#include <webp/encode.h>
#include <webp/mux.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

namespace Tessaloom::BilateralBlur::Program {

namespace {

using vips::VImage;

constexpr std::size_t kHeader = 12; ///< bytes: "RIFF", a size, "WEBP"
constexpr int kQuality = 85;        ///< of files with loss: a file doesn't say which one it was made with

void walk(std::span<const std::byte> chunks,
          const std::function<void(std::string_view, std::span<const std::byte>)>& take) {
    while (chunks.size() >= 8) {
        const std::size_t size = std::min<std::size_t>(littleEndian(chunks.subspan(4, 4)), chunks.size() - 8);
        take(text(chunks.first(4)), chunks.subspan(8, size));
        chunks = chunks.subspan(std::min(chunks.size(), 8 + size + size % 2));
    }
}

/// Takes the size of the image out of one of the three chunks that can have it.
void takeSize(std::string_view name, std::span<const std::byte> content, Page& page) {
    if (content.size() < 10)
        return;
    if (name == "VP8X") {
        page.width = static_cast<int>(littleEndian(content.subspan(4, 3))) + 1;
        page.height = static_cast<int>(littleEndian(content.subspan(7, 3))) + 1;
    } else if (name == "VP8 " && page.width == 0) {
        page.width = static_cast<int>(littleEndian(content.subspan(6, 2)) & 0x3FFF);
        page.height = static_cast<int>(littleEndian(content.subspan(8, 2)) & 0x3FFF);
    } else if (name == "VP8L" && page.width == 0) {
        const std::uint32_t sides = littleEndian(content.subspan(1, 4));
        page.width = static_cast<int>(sides & 0x3FFF) + 1;
        page.height = static_cast<int>(sides >> 14 & 0x3FFF) + 1;
    }
}

void appendLittleEndian(Bytes& to, std::size_t value) {
    for (int shift = 0; shift < 32; shift += 8)
        to.push_back(static_cast<std::byte>(value >> shift));
}

/// Throws where the library fails. It runs out of memory, or refuses images that no check of ours has.
void require(bool isDone) {
    if (!isDone)
        throw std::runtime_error("out of memory, or refused by the WebP library");
}

/// The bytes, which the library then frees.
Bytes taken(WebPData& data) {
    const auto* bytes = reinterpret_cast<const std::byte*>(data.bytes);
    const std::unique_ptr<WebPData, decltype(&WebPDataClear)> owner(&data, WebPDataClear);
    return {bytes, bytes + data.size};
}

/// A frame as the library takes it.
class AnimationFrame {
public:
    explicit AnimationFrame(const Page& page) {
        require(WebPPictureInit(&mPicture) != 0);
        mPicture.use_argb = 1;
        mPicture.width = page.world.width;
        mPicture.height = page.world.height;
        require(WebPPictureAlloc(&mPicture) != 0);
        for (int y = 0; y < page.world.height; ++y)
            std::transform(page.world.row(y), page.world.row(y) + page.world.width,
                           mPicture.argb + std::ptrdiff_t{y} * mPicture.argb_stride,
                           [](const PF_Pixel8& pixel) {
                               return std::uint32_t{pixel.alpha} << 24 | std::uint32_t{pixel.red} << 16 |
                                      std::uint32_t{pixel.green} << 8 | pixel.blue;
                           });
    }
    ~AnimationFrame() { WebPPictureFree(&mPicture); }
    AnimationFrame(const AnimationFrame&) = delete;
    AnimationFrame& operator=(const AnimationFrame&) = delete;

    WebPPicture* get() { return &mPicture; }

private:
    WebPPicture mPicture;
};

/// An animation by the library's own encoder: libvips would change short delays and lose the background.
Bytes encodeAnimation(const Image& image, bool isLossy, int quality) {
    WebPAnimEncoderOptions options;
    WebPConfig config;
    require(WebPAnimEncoderOptionsInit(&options) && WebPConfigInit(&config));
    options.anim_params = {.bgcolor = image.background, .loop_count = image.loops};
    config.lossless = !isLossy;
    config.quality = static_cast<float>(quality);
    const Host::World& world = image.pages.front().world;
    const std::unique_ptr<WebPAnimEncoder, decltype(&WebPAnimEncoderDelete)> encoder(
        WebPAnimEncoderNew(world.width, world.height, &options), WebPAnimEncoderDelete);
    require(encoder != nullptr);
    int time = 0;
    for (const Page& page : image.pages) {
        require(WebPAnimEncoderAdd(encoder.get(), AnimationFrame(page).get(), time, &config) != 0);
        time += page.delay;
    }
    require(WebPAnimEncoderAdd(encoder.get(), nullptr, time, nullptr) != 0);
    WebPData data;
    WebPDataInit(&data);
    require(WebPAnimEncoderAssemble(encoder.get(), &data) != 0);
    return taken(data);
}

/// A file with these chunks beside its pixels, and without those that are empty here.
Bytes withChunks(const Bytes& pixels, const std::vector<std::pair<const char*, Bytes>>& chunks) {
    const auto dataOf = [](const Bytes& bytes) {
        return WebPData{reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()};
    };
    const WebPData file = dataOf(pixels);
    const std::unique_ptr<WebPMux, decltype(&WebPMuxDelete)> mux(WebPMuxCreate(&file, 0), WebPMuxDelete);
    require(mux != nullptr);
    for (const auto& [name, content] : chunks) {
        WebPMuxDeleteChunk(mux.get(), name); // libvips writes some of its own
        const WebPData data = dataOf(content);
        if (!content.empty())
            require(WebPMuxSetChunk(mux.get(), name, &data, 0) == WEBP_MUX_OK);
    }
    WebPData whole;
    WebPDataInit(&whole);
    require(WebPMuxAssemble(mux.get(), &whole) == WEBP_MUX_OK);
    return taken(whole);
}

} // namespace

bool matchesWebp(std::span<const std::byte> file) {
    return file.size() >= kHeader && text(file).starts_with("RIFF") &&
           text(file).substr(8).starts_with("WEBP");
}

void inspectWebp(std::span<const std::byte> file, Image& head, FoundMetadata& found) {
    if (littleEndian(file.subspan(4, 4)) > file.size() - 8)
        throw std::runtime_error("the file is cut short");
    constexpr std::size_t kFrameHeader = 16;
    const auto isLossy = [&](std::string_view name, auto) { head.compression.lossy |= name == "VP8 "; };
    Page canvas;
    walk(file.subspan(kHeader), [&](std::string_view name, std::span<const std::byte> content) {
        isLossy(name, content);
        takeSize(name, content, canvas);
        if (name == "EXIF")
            found.count.addDirectories(content);
        else if (name == "XMP ")
            found.count.addPacket(content);
        else if (name == "ANIM" && content.size() >= 6) {
            head.background = littleEndian(content.first(4));
            head.loops = static_cast<int>(littleEndian(content.subspan(4, 2)));
        }
        if (name != "ANMF" || content.size() < kFrameHeader)
            return;
        Page& page = head.pages.emplace_back();
        page.delay = static_cast<int>(littleEndian(content.subspan(12, 3)));
        walk(content.subspan(kFrameHeader), isLossy);
    });
    if (head.pages.empty())
        head.pages.emplace_back();
    for (Page& page : head.pages) {
        page.width = canvas.width;
        page.height = canvas.height;
    }
}

void reduceWebp(Bytes& file) {
    Bytes reduced(file.begin(), file.begin() + kHeader);
    walk(std::span(file).subspan(kHeader), [&](std::string_view name, std::span<const std::byte> content) {
        if (name == "EXIF" || name == "XMP ")
            return;
        append(reduced, bytesOf(name));
        appendLittleEndian(reduced, content.size());
        append(reduced, content);
        reduced.resize(reduced.size() + content.size() % 2);
    });
    Bytes size;
    appendLittleEndian(size, reduced.size() - 8);
    std::copy(size.begin(), size.end(), reduced.begin() + 4);
    file = std::move(reduced);
}

Bytes encodeWebp(const Image& image, WriteOptions options, bool) {
    const Page& first = image.pages.front();
    const bool isLossy = options.quality > 0 || image.compression.lossy;
    const int quality = options.quality > 0 ? options.quality : kQuality;
    const Bytes pixels = image.pages.size() > 1
                             ? encodeAnimation(image, isLossy, quality)
                             : encodePlain(imageOf(image.pages.front(), false), ".webp",
                                           VImage::option()->set("lossless", !isLossy)->set("Q", quality));
    Exiv2::ExifData exif = image.metadata->exif;
    if (first.density.unit != Density::Unit::Unknown && densityOf(exif).x == 0)
        setDensity(exif, first.density);
    return withChunks(
        pixels, {{"ICCP", first.profile},
                 {"EXIF", exifBlock(exif)},
                 {"XMP ", Bytes(bytesOf(image.metadata->xmp).begin(), bytesOf(image.metadata->xmp).end())}});
}

} // namespace Tessaloom::BilateralBlur::Program
