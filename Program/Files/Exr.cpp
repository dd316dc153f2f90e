#include "Program/Files/Encode.h"
#include "Program/Files/Format.h"
#include "Program/Files/Metadata.h"

#include <Iex.h>
#include <ImfChannelList.h>
#include <ImfFrameBuffer.h>
#include <ImfHeader.h>
#include <ImfIO.h>
#include <ImfInputFile.h>
#include <ImfOutputFile.h>
#include <ImfPartType.h>
#include <ImfStandardAttributes.h>
#include <ImfVersion.h>
#include <half.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <memory>
#include <new>
#include <stdexcept>

namespace Tessaloom::BilateralBlur::Program {

namespace {

using vips::VImage;

constexpr std::string_view kMagic("\x76\x2f\x31\x01", 4);
constexpr std::size_t kVersionEnd = 8;
constexpr std::int64_t kLargestSide = 1'000'000;

/// A file in memory, as the library reads it.
class Input : public Imf::IStream {
public:
    explicit Input(std::span<const std::byte> bytes) : IStream("file"), mBytes(bytes) {}

    bool isMemoryMapped() const override { return true; }
    char* readMemoryMapped(int size) override {
        if (size < 0 || mAt > mBytes.size() || static_cast<std::size_t>(size) > mBytes.size() - mAt)
            throw Iex::InputExc("the file is cut short");
        const std::byte* bytes = mBytes.data() + mAt;
        mAt += static_cast<std::size_t>(size);
        return reinterpret_cast<char*>(const_cast<std::byte*>(bytes));
    }
    bool read(char* target, int size) override {
        const char* bytes = readMemoryMapped(size);
        std::copy_n(bytes, size, target);
        return mAt < mBytes.size();
    }
    std::uint64_t tellg() override { return mAt; }
    void seekg(std::uint64_t at) override { mAt = at; }

private:
    std::span<const std::byte> mBytes;
    std::uint64_t mAt = 0;
};

/// A file in memory, as the library writes it.
class Output : public Imf::OStream {
public:
    explicit Output(Bytes& bytes) : OStream("file"), mBytes(bytes) {}

    void write(const char* source, int size) override {
        const auto count = static_cast<std::size_t>(size);
        if (mAt + count > mBytes.size())
            mBytes.resize(mAt + count);
        std::memcpy(mBytes.data() + mAt, source, count);
        mAt += count;
    }
    std::uint64_t tellp() override { return mAt; }
    void seekp(std::uint64_t at) override { mAt = at; }

private:
    Bytes& mBytes;
    std::uint64_t mAt = 0;
};

/// The library's exceptions have a base of their own, and words for programmers.
template<class Work>
void guarded(const char* failure, const Work& work) {
    try {
        work();
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception&) {
        throw std::runtime_error(failure);
    }
}

/// A row of a channel.
struct Channel {
    Imf::PixelType type;
    int xSampling, ySampling;
    std::vector<char> row;

    float at(int x) const {
        if (type == Imf::FLOAT)
            return reinterpret_cast<const float*>(row.data())[x];
        return reinterpret_cast<const half*>(row.data())[x];
    }

    void set(int x, float value) {
        if (type == Imf::FLOAT)
            reinterpret_cast<float*>(row.data())[x] = value;
        else // the largest number, and no infinity, for one that is larger
            reinterpret_cast<half*>(row.data())[x] =
                std::isfinite(value) ? std::clamp<float>(value, -HALF_MAX, HALF_MAX) : value;
    }
};

/// A row of each channel of a file.
class Rows {
public:
    explicit Rows(const Imf::Header& header) {
        const Imath::Box2i& window = header.dataWindow();
        const int width = window.max.x - window.min.x + 1;
        for (auto at = header.channels().begin(); at != header.channels().end(); ++at) {
            const Imf::Channel& found = at.channel();
            const int size = found.type == Imf::HALF ? 2 : 4;
            Channel& channel =
                mChannels
                    .emplace(at.name(), Channel{found.type, found.xSampling, found.ySampling,
                                                std::vector<char>(std::size_t(width) * std::size_t(size))})
                    .first->second;
            // All rows are at one place.
            char* const first = channel.row.data() - std::ptrdiff_t{window.min.x / found.xSampling} * size;
            mFrameBuffer.insert(at.name(), Imf::Slice(found.type, first, static_cast<std::size_t>(size), 0,
                                                      found.xSampling, found.ySampling));
        }
        const bool isGrey = header.channels().findChannel("R") == nullptr;
        for (const char* name : {"R", "G", "B", "Y"})
            if (isGrey == (*name == 'Y'))
                mColours.push_back(&mChannels.at(name));
        if (const auto alpha = mChannels.find("A"); alpha != mChannels.end())
            mAlpha = &alpha->second;
    }
    Rows(const Rows&) = delete;
    Rows& operator=(const Rows&) = delete;

    const Imf::FrameBuffer& frameBuffer() const { return mFrameBuffer; }
    int count() const { return static_cast<int>(mColours.size()) + (mAlpha ? 1 : 0); }

    /// The pixels with straight alpha, the samples of each side by side.
    void unpack(float* samples, int width) const {
        for (int x = 0; x < width; ++x) {
            for (const Channel* colour : mColours)
                *samples++ = straight(colour->at(x), mAlpha ? mAlpha->at(x) : 1);
            if (mAlpha)
                *samples++ = mAlpha->at(x);
        }
    }

    /// Takes samples as `unpack` gives them for a pixel of each, of an image that has none yet.
    void packNew(const float* samples, int width) {
        for (int x = 0; x < width; ++x, samples += count()) {
            const float alpha = mAlpha ? samples[count() - 1] : 1;
            for (std::size_t i = 0; i < mColours.size(); ++i)
                mColours[i]->set(x, samples[i] * alpha);
            if (mAlpha)
                mAlpha->set(x, alpha);
        }
    }

    /// The same, of an image whose row is there. What `unpack` would give stays as it is, to the bit, and so does
    /// the colour where alpha is 0, as it is of light that covers nothing.
    void pack(const float* samples, int width) {
        for (int x = 0; x < width; ++x, samples += count()) {
            const float before = mAlpha ? mAlpha->at(x) : 1, alpha = mAlpha ? samples[count() - 1] : 1;
            for (std::size_t i = 0; i < mColours.size(); ++i)
                if (isDivisor(alpha) &&
                    !(isSame(alpha, before) && isSame(samples[i], straight(mColours[i]->at(x), before))))
                    mColours[i]->set(x, samples[i] * alpha);
            if (!isSame(alpha, before))
                mAlpha->set(x, alpha);
        }
    }

private:
    static bool isDivisor(float alpha) { return alpha > 0 && std::isfinite(alpha); }
    static bool isSame(float a, float b) { return a == b || (std::isnan(a) && std::isnan(b)); }

    static float straight(float colour, float alpha) { return isDivisor(alpha) ? colour / alpha : colour; }

    std::map<std::string, Channel> mChannels;
    std::vector<Channel*> mColours; ///< red, green, blue, or one
    Channel* mAlpha = nullptr;      ///< null where there is none
    Imf::FrameBuffer mFrameBuffer;
};

/// Refuses attributes that say to be larger than the file, before the library makes room for them.
void checkAttributes(std::span<const std::byte> file) {
    constexpr const char* kCut = "the file is cut short, or its header is damaged";
    std::size_t at = kVersionEnd;
    const auto takeName = [&] {
        const std::size_t end = text(file).find('\0', std::min(at, file.size()));
        if (end == std::string_view::npos)
            throw std::runtime_error(kCut);
        const std::string_view name = text(file).substr(at, end - at);
        at = end + 1;
        return name;
    };
    while (!takeName().empty()) {
        const std::string_view type = takeName();
        if (file.size() - at < 4 || littleEndian(file.subspan(at, 4)) > file.size() - at - 4)
            throw std::runtime_error(kCut);
        const auto content = file.subspan(at + 4, littleEndian(file.subspan(at, 4)));
        if (type == "preview" && (content.size() < 8 || 8 + std::uint64_t{littleEndian(content.first(4))} *
                                                                    littleEndian(content.subspan(4, 4)) * 4 !=
                                                            content.size()))
            throw std::runtime_error("its preview is damaged");
        at += 4 + content.size();
    }
}

/// Why the channels aren't those of an image that can be filtered; empty where they are.
std::string refusalOf(const Imf::ChannelList& channels) {
    const bool isGrey = channels.findChannel("Y") != nullptr && channels.findChannel("R") == nullptr;
    if (isGrey && channels.findChannel("RY"))
        return "OpenEXR with luminance and chroma isn't supported; RGB and grey are";
    for (const char* name : {"R", "G", "B", "Y", "A"}) {
        const Imf::Channel* channel = channels.findChannel(name);
        const bool isNeeded = *name != 'A' && isGrey == (*name == 'Y');
        if (isNeeded && !channel)
            return "it has no channels R, G and B, nor Y, in its first layer";
        if (channel && (isNeeded || *name == 'A') &&
            (channel->type == Imf::UINT || channel->xSampling != 1 || channel->ySampling != 1))
            return std::string("its channel ") + name + " isn't of halves or floats, one for each pixel";
    }
    return {};
}

/// The channels that aren't colour or alpha.
std::string othersOf(const Imf::ChannelList& channels) {
    std::string names;
    const bool isGrey = channels.findChannel("R") == nullptr;
    for (auto at = channels.begin(); at != channels.end(); ++at)
        if (std::string_view(isGrey ? "Y A" : "R G B A").find(at.name()) == std::string_view::npos)
            names.append(names.empty() ? "" : ", ").append(at.name());
    return names;
}

/// What the library takes beside the pixels: some rows, or a row of tiles, of all channels.
std::uint64_t buffersOf(const Imf::Header& header, const Page& page) {
    constexpr std::uint64_t kCopies = 4, kMostRows = 256;
    std::uint64_t size = 0, rows = kMostRows, width = static_cast<std::uint64_t>(page.width);
    for (auto at = header.channels().begin(); at != header.channels().end(); ++at)
        size += at.channel().type == Imf::HALF ? 2 : 4;
    if (header.hasTileDescription()) {
        rows = header.tileDescription().ySize;
        width += header.tileDescription().xSize;
    }
    return kCopies * size * width * rows;
}

/// The table of chunks is in the file, so a file has as many bytes at least.
void checkChunks(const Imf::Header& header, const Page& page, std::size_t bytes) {
    constexpr std::uint64_t kEntry = 8, kMostRows = 256;
    const auto width = static_cast<std::uint64_t>(page.width),
               height = static_cast<std::uint64_t>(page.height);
    std::uint64_t chunks = height / kMostRows;
    if (header.hasTileDescription()) {
        const auto& tiles = header.tileDescription();
        if (tiles.xSize == 0 || tiles.ySize == 0)
            throw std::runtime_error("its header is damaged");
        chunks = (width / tiles.xSize) * (height / tiles.ySize);
    }
    if (chunks * kEntry > bytes)
        throw std::runtime_error("the file is cut short");
}

void readRow(Imf::InputFile& file, std::int64_t row) {
    file.readPixels(static_cast<int>(file.header().dataWindow().min.y + row));
}

/// A file that gives its rows to the image library.
struct Decoder {
    explicit Decoder(std::span<const std::byte> bytes) : input(bytes), file(input, 0), rows(file.header()) {
        file.setFrameBuffer(rows.frameBuffer());
    }

    Input input;
    Imf::InputFile file;
    Rows rows;
};

int generate(VipsRegion* region, void*, void* first, void*, gboolean*) {
    auto& decoder = *static_cast<Decoder*>(first);
    const VipsRect& area = region->valid;
    try {
        std::vector<float> samples(std::size_t(region->im->Xsize) * std::size_t(region->im->Bands));
        for (int y = area.top; y < area.top + area.height; ++y) {
            readRow(decoder.file, y);
            decoder.rows.unpack(samples.data(), region->im->Xsize);
            std::memcpy(VIPS_REGION_ADDR(region, area.left, y),
                        samples.data() + std::ptrdiff_t{area.left} * region->im->Bands,
                        VIPS_REGION_SIZEOF_LINE(region));
        }
        return 0;
    } catch (const std::bad_alloc&) {
        vips_error("exr", "out of memory");
    } catch (...) {
        vips_error("exr", "damaged");
    }
    return -1;
}

/// The header of a file like another: the order of rows is the usual one, the preview shows the unfiltered image.
Imf::Header headerLike(const Imf::Header& other) {
    Imf::Header header = other;
    for (const char* name : {"tiles", "preview", "chunkCount"})
        header.erase(name);
    if (header.hasType())
        header.setType(Imf::SCANLINEIMAGE);
    header.lineOrder() = Imf::INCREASING_Y;
    return header;
}

/// Half floats hold 8 bits; floats all that is deeper.
Imf::Header headerFor(const Page& page) {
    Imf::Header header(page.world.width, page.world.height);
    const Imf::Channel channel(page.bits > 8 ? Imf::FLOAT : Imf::HALF);
    for (const char* name : {"R", "G", "B"})
        header.channels().insert(page.channels < 3 ? "Y" : name, channel);
    if (page.channels % 2 == 0)
        header.channels().insert("A", channel);
    if (page.density.unit != Density::Unit::Unknown && page.density.x > 0) {
        constexpr double kCentimetres = 2.54; // in an inch
        Imf::addXDensity(header, static_cast<float>(page.density.unit == Density::Unit::Inch
                                                        ? page.density.x
                                                        : page.density.x * kCentimetres));
        header.pixelAspectRatio() = static_cast<float>(page.density.y / page.density.x);
    }
    return header;
}

void writeRows(const Page& page, const Imf::Header& header, Imf::InputFile* input, Bytes& file) {
    Output stream(file);
    Imf::OutputFile output(stream, header, 0);
    Rows rows(header);
    output.setFrameBuffer(rows.frameBuffer());
    if (input)
        input->setFrameBuffer(rows.frameBuffer());
    std::vector<float> samples(std::size_t(page.world.width) * std::size_t(page.channels));
    for (int y = 0; y < page.world.height; ++y) {
        if (input)
            readRow(*input, y);
        packRow(page, y, 32, samples.data());
        input ? rows.pack(samples.data(), page.world.width) : rows.packNew(samples.data(), page.world.width);
        output.writePixels(1);
    }
}

} // namespace

bool matchesExr(std::span<const std::byte> file) {
    return text(file).starts_with(kMagic);
}

void inspectExr(std::span<const std::byte> file, Image& head, FoundMetadata& found) {
    if (file.size() < kVersionEnd)
        throw std::runtime_error("the file is cut short");
    int version = static_cast<int>(littleEndian(file.subspan(4, 4)));
    if (Imf::isMultiPart(version))
        throw std::runtime_error("OpenEXR of several parts isn't supported; files of one part are");
    if (Imf::isNonImage(version))
        throw std::runtime_error("OpenEXR with deep pixels isn't supported");
    checkAttributes(file);
    Imf::Header header;
    guarded("its header is damaged", [&] {
        Input stream(file);
        stream.seekg(kVersionEnd);
        header.readFrom(stream, version);
    });
    const Imath::Box2i window = header.dataWindow();
    const std::int64_t width = std::int64_t{window.max.x} - window.min.x + 1;
    const std::int64_t height = std::int64_t{window.max.y} - window.min.y + 1;
    if (width <= 0 || height <= 0 || width > kLargestSide || height > kLargestSide)
        throw std::runtime_error("its header is damaged, or says that a side has more than " +
                                 std::to_string(kLargestSide) + " pixels");
    guarded("its header is damaged", [&] { header.sanityCheck(Imf::isTiled(version)); });
    Page page;
    page.width = static_cast<int>(width);
    page.height = static_cast<int>(height);
    page.bits = 32;
    page.refusal = refusalOf(header.channels());
    if (Imf::hasXDensity(header) && Imf::xDensity(header) > 0)
        page.density = {Imf::xDensity(header), Imf::xDensity(header) * header.pixelAspectRatio(),
                        Density::Unit::Inch};
    checkChunks(header, page, file.size());
    found.buffers = buffersOf(header, page);
    const std::string others = othersOf(header.channels());
    if (!others.empty())
        head.notesElsewhere.push_back("only OpenEXR keeps its other channels: " + others);
    if (window != header.displayWindow())
        head.notesElsewhere.push_back(
            "its data window alone is written, where its display window is another");
    head.notesElsewhere.push_back("the attributes of OpenEXR aren't kept, and its values, which are linear "
                                  "light, are written as they are");
    if (header.hasTileDescription())
        head.notes.push_back("it is written in rows, not in tiles, and with one level");
    head.pages.push_back(std::move(page));
}

VImage loadExr(VipsBlob* blob, vips::VOption* options) {
    delete options; // they are for the library's own formats
    std::size_t size = 0;
    const auto* bytes = static_cast<const std::byte*>(vips_blob_get(blob, &size));
    std::unique_ptr<Decoder> decoder;
    guarded("damaged", [&] { decoder = std::make_unique<Decoder>(std::span(bytes, size)); });
    const Imath::Box2i window = decoder->file.header().dataWindow();
    VipsImage* image = vips_image_new();
    VImage owner(image);
    vips_image_init_fields(image, window.max.x - window.min.x + 1, window.max.y - window.min.y + 1,
                           decoder->rows.count(), VIPS_FORMAT_FLOAT, VIPS_CODING_NONE,
                           decoder->rows.count() < 3 ? VIPS_INTERPRETATION_B_W : VIPS_INTERPRETATION_scRGB, 1,
                           1);
    Decoder* const source = decoder.release();
    g_object_set_data_full(G_OBJECT(image), "decoder", source,
                           [](void* gone) { delete static_cast<Decoder*>(gone); });
    if (vips_image_pipelinev(image, VIPS_DEMAND_STYLE_THINSTRIP, nullptr) != 0 ||
        vips_image_generate(image, nullptr, generate, nullptr, source, nullptr) != 0)
        throw vips::VError();
    return owner;
}

std::vector<std::string> lossesInExr(const Image& image) {
    if (image.source)
        return {};
    std::vector<std::string> notes{"OpenEXR is meant for linear light; samples are written as they are"};
    const Metadata& metadata = *image.metadata;
    if (!metadata.exif.empty() || !metadata.iptc.empty() || !metadata.xmp.empty() ||
        !image.pages.front().profile.empty())
        notes.push_back("OpenEXR has no place for the colour profile, EXIF, IPTC and XMP");
    return notes;
}

Bytes encodeExr(const Image& image, WriteOptions, bool) {
    const Page& page = image.pages.front();
    Bytes file;
    guarded("the OpenEXR library refuses it", [&] {
        if (!image.source)
            return writeRows(page, headerFor(page), nullptr, file);
        // What isn't filtered, and how samples are stored, is in the file that was read.
        Input stream(*image.source);
        Imf::InputFile input(stream, 0);
        writeRows(page, headerLike(input.header()), &input, file);
    });
    return file;
}

} // namespace Tessaloom::BilateralBlur::Program
