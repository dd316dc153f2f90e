#include "Program/Files/FoundMetadata.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <set>
#include <vector>

namespace Tessaloom::BilateralBlur::Program {

namespace {

constexpr int kExif = 0x8769, kGps = 0x8825, kInteroperability = 0xA005, kOthers = 0x014A,
              kMakerNote = 0x927C;
constexpr int kPacket = 0x02BC;

/// A TIFF structure in either order of bytes, with offsets of 4 bytes or, as a BigTIFF, of 8. What is outside
/// of it reads as 0.
class Tiff {
public:
    explicit Tiff(std::span<const std::byte> bytes)
        : mBytes(bytes),
          mIsBigEndian(bytes.size() > 3 && bytes[0] == std::byte{'M'}),
          mIsBig(number(2, 2) == 43) {}

    std::uint64_t number(std::uint64_t at, std::size_t size) const {
        if (at > mBytes.size() || mBytes.size() - at < size)
            return 0;
        const auto part = mBytes.subspan(at, size);
        const std::size_t half = size / 2;
        if (size == 8)
            return mIsBigEndian
                       ? std::uint64_t{bigEndian(part.first(half))} << 32 | bigEndian(part.last(half))
                       : std::uint64_t{littleEndian(part.last(half))} << 32 | littleEndian(part.first(half));
        return mIsBigEndian ? bigEndian(part) : littleEndian(part);
    }

    std::span<const std::byte> bytes() const { return mBytes; }
    bool isBigEndian() const { return mIsBigEndian; }
    std::size_t offsetSize() const { return mIsBig ? 8 : 4; }
    std::size_t countSize() const { return mIsBig ? 8 : 2; }
    std::size_t entrySize() const { return mIsBig ? 20 : 12; }
    std::uint64_t headerOffset() const { return mIsBig ? 8 : 4; }
    std::uint64_t firstDirectory() const { return number(headerOffset(), offsetSize()); }

    /// As many entries as a directory has within the bytes.
    std::uint64_t entriesOf(std::uint64_t directory) const {
        if (directory >= mBytes.size())
            return 0;
        return std::min<std::uint64_t>(number(directory, countSize()),
                                       (mBytes.size() - directory) / entrySize());
    }
    std::uint64_t entryOf(std::uint64_t directory, std::uint64_t index) const {
        return directory + countSize() + index * entrySize();
    }
    std::uint64_t nextOf(std::uint64_t directory) const {
        return number(entryOf(directory, entriesOf(directory)), offsetSize());
    }

private:
    std::span<const std::byte> mBytes;
    bool mIsBigEndian;
    bool mIsBig;
};

struct Entry {
    int tag;
    std::uint64_t size, offset; ///< of its value
};

Entry entryAt(const Tiff& tiff, std::uint64_t at) {
    constexpr std::size_t kSizes[] = {1, 1, 1, 2, 4, 8, 1, 1, 2, 4, 8, 4, 8, 4, 1, 1, 8, 8, 8};
    const std::uint64_t type = tiff.number(at + 2, 2), count = tiff.number(at + 4, tiff.offsetSize());
    const std::uint64_t all = tiff.bytes().size(), one = type < std::size(kSizes) ? kSizes[type] : 1;
    const std::uint64_t size = count > all / one ? all : count * one;
    const std::uint64_t value = at + 4 + tiff.offsetSize();
    return {static_cast<int>(tiff.number(at, 2)), size,
            size <= tiff.offsetSize() ? value : tiff.number(value, tiff.offsetSize())};
}

/// Makers of cameras have directories in their notes, each behind a start of its own kind. The largest sum of
/// sizes that a directory at one of the usual places would have.
std::uint64_t sizeOfNote(std::span<const std::byte> note) {
    std::uint64_t largest = note.size();
    for (const std::size_t start : {0, 6, 8, 10, 12, 14, 16, 18, 26})
        for (const auto number : {bigEndian, littleEndian}) {
            if (note.size() < start + 2)
                continue;
            const std::size_t entries =
                std::min<std::size_t>(number(note.subspan(start, 2)), (note.size() - start) / 12);
            std::uint64_t sum = 0;
            for (std::size_t i = 0; i < entries; ++i) {
                const auto entry = note.subspan(start + 2, entries * 12 - 2).subspan(i * 12);
                const std::uint32_t type = entry.size() >= 8 ? number(entry.subspan(2, 2)) : 0;
                if (type == 0 || type > 13)
                    break;
                sum += std::min<std::uint64_t>(number(entry.subspan(4, 4)), note.size());
            }
            largest = std::max(largest, sum);
        }
    return largest;
}

/// Writes a number, unless its place is outside of the bytes.
void writeNumber(std::span<std::byte> bytes, std::uint64_t at, std::size_t size, std::uint64_t value,
                 bool isBigEndian) {
    if (at > bytes.size() || bytes.size() - at < size)
        return;
    for (std::size_t i = 0; i < size; ++i)
        bytes[at + i] = static_cast<std::byte>(value >> 8 * (isBigEndian ? size - 1 - i : i));
}

/// Tags that say how the pixels are stored, and where, and what they mean.
bool isOfPixels(int tag) {
    constexpr struct {
        int first, last;
    } kRanges[] = {{254, 259}, {262, 266}, {273, 284}, {290, 297}, {317, 317}, {320, 325},
                   {332, 334}, {338, 339}, {347, 347}, {512, 521}, {529, 532}};
    return std::any_of(std::begin(kRanges), std::end(kRanges),
                       [&](const auto& range) { return range.first <= tag && tag <= range.last; });
}

} // namespace

void MetadataCount::addDirectories(std::span<const std::byte> bytes) {
    const Tiff tiff(bytes);
    std::vector<std::uint64_t> left{tiff.firstDirectory()};
    std::set<std::uint64_t> seen{0};
    constexpr std::uint64_t kMostEntries = 1'000'000;
    std::uint64_t counted = 0;
    while (!left.empty()) {
        const std::uint64_t directory = left.back();
        left.pop_back();
        if (!seen.insert(directory).second)
            continue;
        const std::uint64_t entries = tiff.entriesOf(directory);
        // Directories that overlap could take hours.
        if ((counted += entries) > kMostEntries) {
            mParts += kMostParts + 1;
            return;
        }
        for (std::uint64_t i = 0; i < entries; ++i) {
            const Entry entry = entryAt(tiff, tiff.entryOf(directory, i));
            const bool isInside = entry.offset < bytes.size() && entry.size <= bytes.size() - entry.offset;
            if (!isInside)
                continue;
            const auto value = bytes.subspan(entry.offset, entry.size);
            mBytes += entry.tag == kMakerNote ? sizeOfNote(value) : entry.size;
            if (entry.tag == kPacket)
                addPacket(value);
            if (entry.tag == kExif || entry.tag == kGps || entry.tag == kInteroperability ||
                entry.tag == kOthers)
                for (std::size_t at = 0; at + tiff.offsetSize() <= std::min<std::size_t>(value.size(), 4096);
                     at += tiff.offsetSize())
                    left.push_back(tiff.number(entry.offset + at, tiff.offsetSize()));
        }
        left.push_back(tiff.nextOf(directory));
    }
}

void MetadataCount::addPacket(std::span<const std::byte> packet) {
    mBytes += packet.size();
    // Elements, and attributes, which are properties too.
    const std::string_view xml = text(packet);
    for (std::size_t i = 0; i + 1 < xml.size(); ++i)
        mParts += (xml[i] == '<' && xml[i + 1] != '/') ||
                  (xml[i] == '=' && (xml[i + 1] == '"' || xml[i + 1] == '\''));
}

void MetadataCount::addPart(std::size_t bytes) {
    mBytes += bytes;
    ++mParts;
}

void removeOtherTags(std::span<std::byte> bytes) {
    const Tiff tiff(bytes);
    std::set<std::uint64_t> seen{0};
    for (std::uint64_t directory = tiff.firstDirectory(); seen.insert(directory).second;) {
        const std::uint64_t entries = tiff.entriesOf(directory), next = tiff.nextOf(directory);
        std::set<int> kept;
        for (std::uint64_t i = 0; i < entries; ++i) {
            const std::uint64_t from = tiff.entryOf(directory, i);
            const int tag = entryAt(tiff, from).tag;
            if (isOfPixels(tag) && !kept.contains(tag)) {
                std::memmove(&bytes[tiff.entryOf(directory, kept.size())], &bytes[from], tiff.entrySize());
                kept.insert(tag);
            }
        }
        writeNumber(bytes, directory, tiff.countSize(), kept.size(), tiff.isBigEndian());
        writeNumber(bytes, tiff.entryOf(directory, kept.size()), tiff.offsetSize(), next, tiff.isBigEndian());
        directory = next;
    }
}

void isolateDirectory(std::span<std::byte> bytes, std::uint64_t directory) {
    const Tiff tiff(bytes);
    writeNumber(bytes, tiff.headerOffset(), tiff.offsetSize(), directory, tiff.isBigEndian());
    writeNumber(bytes, tiff.entryOf(directory, tiff.entriesOf(directory)), tiff.offsetSize(), 0,
                tiff.isBigEndian());
}

} // namespace Tessaloom::BilateralBlur::Program
