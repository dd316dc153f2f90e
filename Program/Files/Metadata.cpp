#include "Program/Files/Metadata.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <mutex>
#include <new>
#include <numeric>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace Tessaloom::BilateralBlur::Program {

namespace {

constexpr const char* kXResolution = "Exif.Image.XResolution";
constexpr const char* kYResolution = "Exif.Image.YResolution";
constexpr const char* kResolutionUnit = "Exif.Image.ResolutionUnit";
constexpr const char* kOrientation = "Exif.Image.Orientation";

const Exiv2::byte* raw(std::span<const std::byte> bytes) {
    return reinterpret_cast<const Exiv2::byte*>(bytes.data());
}

Bytes copied(const Exiv2::byte* data, std::size_t size) {
    const auto* bytes = reinterpret_cast<const std::byte*>(data);
    return {bytes, bytes + size};
}

/// Tags of a TIFF's directory that say how the pixels are stored, or hold other blocks. Density and
/// orientation are among them where they say nothing that an image without the tag doesn't.
bool describesStorage(const Exiv2::Exifdatum& field) {
    const int tag = field.tag();
    constexpr struct {
        int first, last;
    } kRanges[] = {{0x00FE, 0x010A}, {0x0111, 0x0111}, {0x0115, 0x011C}, {0x0120, 0x0129},
                   {0x012D, 0x012D}, {0x013D, 0x0155}, {0x015B, 0x0214}, {0x02BC, 0x02BC},
                   {0x83BB, 0x83BB}, {0x8649, 0x8649}, {0x8773, 0x8773}};
    return std::any_of(std::begin(kRanges), std::end(kRanges),
                       [&](const auto& range) { return range.first <= tag && tag <= range.last; }) ||
           (field.key() == kOrientation && field.toLong() == 1);
}

bool showsTheUnfiltered(const Exiv2::Exifdatum& field) {
    const std::string name = field.tagName(), group = field.groupName();
    return group == "Thumbnail" || group.starts_with("Image2") || group.starts_with("Image3") ||
           group.starts_with("Sub") || name.find("Thumbnail") != std::string::npos ||
           name.find("Preview") != std::string::npos;
}

void removeStale(Exiv2::ExifData& exif, bool isTiff) {
    for (auto field = exif.begin(); field != exif.end();)
        if (showsTheUnfiltered(*field) ||
            (isTiff && std::string_view(field->groupName()) == "Image" && describesStorage(*field)))
            field = exif.erase(field);
        else
            ++field;
}

std::string withoutThumbnails(const std::string& packet, Exiv2::XmpData fields) {
    const std::string_view kPrefix = "Xmp.xmp.Thumbnails";
    const long before = fields.count();
    for (auto field = fields.begin(); field != fields.end();)
        field = field->key().starts_with(kPrefix) ? fields.erase(field) : field + 1;
    std::string smaller;
    if (fields.count() == before || Exiv2::XmpParser::encode(smaller, fields) != 0)
        return packet;
    return smaller;
}

/// A packet that the library can't read can't be written by it either.
bool isReadable(const std::string& packet) {
    Exiv2::XmpData fields;
    return packet.empty() || Exiv2::XmpParser::decode(fields, packet) == 0;
}

/// Takes a packet that was found. False where it is damaged.
bool takePacket(const std::string& packet, Metadata& metadata) {
    Exiv2::XmpData fields;
    if (Exiv2::XmpParser::decode(fields, packet) != 0)
        return false;
    metadata.xmp = withoutThumbnails(packet, fields);
    return true;
}

/// The packet in a field of a TIFF.
std::string packetOf(const Exiv2::ExifData& exif) {
    const auto field = exif.findKey(Exiv2::ExifKey("Exif.Image.XMLPacket"));
    std::string packet(field != exif.end() ? static_cast<std::size_t>(field->size()) : 0, '\0');
    if (!packet.empty())
        field->copy(reinterpret_cast<Exiv2::byte*>(packet.data()), Exiv2::littleEndian);
    return packet;
}

/// False where the XMP is damaged.
bool readWithLibrary(std::span<const std::byte> file, bool isTiff, Metadata& metadata) {
    const auto image = Exiv2::ImageFactory::open(raw(file), static_cast<long>(file.size()));
    image->readMetadata();
    metadata.exif = image->exifData();
    metadata.iptc = image->iptcData();
    // The packet as it is in the file, where the library keeps it; of a TIFF it has the fields alone.
    image->writeXmpFromPacket(!isTiff);
    const bool isDamaged = !isReadable(isTiff ? packetOf(metadata.exif) : image->xmpPacket());
    if (!isDamaged)
        metadata.xmp = withoutThumbnails(image->xmpPacket(), image->xmpData());
    removeStale(metadata.exif, isTiff);
    return !isDamaged;
}

/// Runs `read`. False where the library throws, as it does for damaged metadata, with types of several kinds.
bool succeeds(const std::function<void()>& read) {
    try {
        read();
        return true;
    } catch (const std::bad_alloc&) {
        throw;
    } catch (...) {
        return false;
    }
}

void readExifBlock(std::span<const std::byte> block, Exiv2::ExifData& exif) {
    constexpr std::string_view kPrefix("Exif\0\0", 6); // of JPEG; some programs write it elsewhere too
    if (text(block).starts_with(kPrefix))
        block = block.subspan(kPrefix.size());
    exif.clear();
    Exiv2::ExifParser::decode(exif, raw(block), static_cast<std::uint32_t>(block.size()));
    removeStale(exif, false);
}

/// All fields in a block, whatever its size.
Bytes wholeBlock(const Exiv2::ExifData& exif) {
    Exiv2::MemIo block;
    Exiv2::TiffParser::encode(block, nullptr, 0, Exiv2::littleEndian, exif, Exiv2::IptcData(),
                              Exiv2::XmpData());
    return copied(block.mmap(), static_cast<std::size_t>(block.size()));
}

/// Erases the largest fields until about so many bytes are gone. Gives their names.
std::vector<std::string> eraseLargest(Exiv2::ExifData& exif, std::size_t bytes) {
    std::vector<std::string> names;
    for (std::size_t gone = 0; gone < bytes && !exif.empty();) {
        const auto largest = std::max_element(
            exif.begin(), exif.end(), [](const auto& a, const auto& b) { return a.size() < b.size(); });
        gone += static_cast<std::size_t>(largest->size()) + 1;
        names.push_back(largest->groupName() + "." + largest->tagName());
        exif.erase(largest);
    }
    return names;
}

Bytes rewritten(Bytes file, const Metadata& metadata, const Bytes& profile) {
    const auto image = Exiv2::ImageFactory::open(raw(file), static_cast<long>(file.size()));
    image->readMetadata();
    image->clearMetadata();
    image->setExifData(metadata.exif);
    if (image->checkMode(Exiv2::mdIptc) & Exiv2::amWrite)
        image->setIptcData(metadata.iptc);
    if (!metadata.xmp.empty()) {
        image->setXmpPacket(metadata.xmp);
        image->writeXmpFromPacket(true);
    }
    if (!profile.empty()) {
        Exiv2::DataBuf buffer(raw(profile), static_cast<long>(profile.size()));
        image->setIccProfile(buffer, false);
    }
    image->writeMetadata();
    file = {}; // large, as the copy to come
    Exiv2::BasicIo& io = image->io();
    return copied(io.mmap(), static_cast<std::size_t>(io.size()));
}

/// Prepares the library, before the first use.
void start() {
    static std::recursive_mutex mutex;
    Exiv2::LogMsg::setLevel(Exiv2::LogMsg::mute);
    Exiv2::XmpParser::initialize(
        [](void* lock, bool wanted) {
            auto& mutex = *static_cast<std::recursive_mutex*>(lock);
            wanted ? mutex.lock() : mutex.unlock();
        },
        &mutex);
}

} // namespace

std::vector<std::string> readMetadata(std::span<const std::byte> file, bool isTiff, FoundMetadata found,
                                      Metadata& metadata) {
    static std::once_flag started;
    std::call_once(started, start);
    metadata.own = std::move(found.own);
    if (!found.count.isAcceptable())
        return {"its metadata is larger than " + std::to_string(MetadataCount::kMostBytes / 1'000'000) +
                " MB, or has more than " + std::to_string(MetadataCount::kMostParts) +
                " parts, and isn't kept"};
    std::vector<std::string> notes;
    bool isPacketRead = true;
    const std::span<const std::byte> whole = found.texts.empty() ? file : found.texts;
    bool isRead = whole.empty() || succeeds([&] { isPacketRead = readWithLibrary(whole, isTiff, metadata); });
    if (!isRead) {
        metadata.exif.clear();
        metadata.iptc.clear();
        metadata.xmp.clear();
    }
    if (!found.exif.empty() && !succeeds([&] { readExifBlock(found.exif, metadata.exif); })) {
        metadata.exif.clear();
        isRead = false;
    }
    if (!found.packet.empty())
        isPacketRead = takePacket(found.packet, metadata);
    if (found.orientation > 1)
        metadata.exif[kOrientation] = static_cast<std::uint16_t>(found.orientation);
    else if (const auto field = metadata.exif.findKey(Exiv2::ExifKey(kOrientation));
             found.orientation == 1 && field != metadata.exif.end())
        metadata.exif.erase(field);
    if (!isRead)
        notes.push_back("its metadata is damaged, or of a kind that can't be read, and isn't kept");
    if (!isPacketRead)
        notes.push_back(std::string("its XMP is damaged and isn't kept") +
                        (found.ownsPacket ? " in another format" : ""));
    return notes;
}

Bytes exifBlock(const Exiv2::ExifData& exif) {
    // Above this the library leaves out large fields, as the block of a JPEG must, unless a TIFF is asked for.
    constexpr long kMostOfJpeg = 60'000;
    if (exif.empty())
        return {};
    const long size =
        std::accumulate(exif.begin(), exif.end(), 0L,
                        [](long sum, const Exiv2::Exifdatum& field) { return sum + field.size(); });
    if (size > kMostOfJpeg)
        return wholeBlock(exif);
    Exiv2::Blob block;
    Exiv2::ExifParser::encode(block, Exiv2::littleEndian, exif);
    return copied(block.data(), block.size());
}

std::vector<std::string> fitJpeg(Metadata& metadata) {
    constexpr std::size_t kMost = 65'000; // a segment's, less what its start takes
    std::vector<std::string> notes, names;
    for (std::size_t size; (size = wholeBlock(metadata.exif).size()) > kMost;)
        for (std::string& name : eraseLargest(metadata.exif, size - kMost))
            names.push_back(std::move(name));
    if (!names.empty())
        notes.push_back("JPEG has room for 64 KB of EXIF; the largest fields aren't kept: " + names.front() +
                        (names.size() > 1 ? " and " + std::to_string(names.size() - 1) + " more" : ""));
    if (metadata.xmp.size() > kMost) {
        notes.push_back("JPEG has room for 64 KB of XMP; the image's " +
                        std::to_string(metadata.xmp.size() / 1000) + " KB aren't kept");
        metadata.xmp.clear();
    }
    return notes;
}

Density densityOf(const Exiv2::ExifData& exif) {
    const auto value = [&](const char* key) {
        const auto field = exif.findKey(Exiv2::ExifKey(key));
        return field != exif.end() && field->count() > 0 ? field->toFloat() : 0;
    };
    const double x = value(kXResolution), y = value(kYResolution);
    if (!(x > 0) || !(y > 0))
        return {};
    return {x, y, value(kResolutionUnit) == 3 ? Density::Unit::Centimetre : Density::Unit::Inch};
}

void setDensity(Exiv2::ExifData& exif, const Density& density) {
    constexpr double kScale = 10000;
    const auto rational = [](double value) {
        return Exiv2::URational(static_cast<std::uint32_t>(std::lround(value * kScale)),
                                static_cast<std::uint32_t>(kScale));
    };
    exif[kXResolution] = rational(density.x);
    exif[kYResolution] = rational(density.y);
    exif[kResolutionUnit] = std::uint16_t(density.unit == Density::Unit::Centimetre ? 3 : 2);
}

Bytes withMetadata(Bytes file, const Metadata& metadata, const Bytes& profile) {
    try {
        return rewritten(std::move(file), metadata, profile);
    } catch (const Exiv2::AnyError& error) {
        throw std::runtime_error(std::string("its metadata is refused: ") + error.what());
    }
}

} // namespace Tessaloom::BilateralBlur::Program
