#include "Program/Files/PngChunks.h"

#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <string_view>

namespace Tessaloom::BilateralBlur::Program {

namespace {

constexpr std::string_view kSignature("\x89PNG\r\n\x1a\n", 8);
constexpr std::size_t kHeaderEnd = 8 + 25; // the signature and the chunk IHDR, which always comes first
constexpr std::uint32_t kLargestChunk = 1 << 20;

std::uint32_t number(const char* bytes) {
    std::uint32_t value = 0;
    for (int i = 0; i < 4; ++i)
        value = value << 8 | static_cast<unsigned char>(bytes[i]);
    return value;
}

void append(std::vector<std::byte>& to, std::string_view bytes) {
    const auto* first = reinterpret_cast<const std::byte*>(bytes.data());
    to.insert(to.end(), first, first + bytes.size());
}

void appendNumber(std::vector<std::byte>& to, std::uint32_t value) {
    for (int shift = 24; shift >= 0; shift -= 8)
        to.push_back(static_cast<std::byte>(value >> shift));
}

void appendChunk(std::vector<std::byte>& to, std::string_view name, std::span<const std::byte> data) {
    appendNumber(to, static_cast<std::uint32_t>(data.size()));
    const std::size_t start = to.size();
    append(to, name);
    to.insert(to.end(), data.begin(), data.end());
    const auto* summed = reinterpret_cast<const Bytef*>(to.data() + start);
    appendNumber(to, static_cast<std::uint32_t>(crc32(0, summed, static_cast<uInt>(to.size() - start))));
}

} // namespace

PngChunks readPngChunks(const std::filesystem::path& file) {
    constexpr std::string_view kColour[] = {"gAMA", "cHRM", "sRGB", "cICP"};
    PngChunks chunks;
    std::ifstream stream(file, std::ios::binary);
    std::string signature(kSignature.size(), 0);
    if (!stream.read(signature.data(), signature.size()) || signature != kSignature)
        return chunks;
    char head[8];
    while (stream.read(head, sizeof head)) {
        const std::uint32_t size = number(head);
        const std::string_view name(head + 4, 4);
        const bool isColour = std::count(std::begin(kColour), std::end(kColour), name) != 0;
        if ((!isColour && name != "eXIf") || size > kLargestChunk) {
            stream.seekg(static_cast<std::streamoff>(size) + 4, std::ios::cur);
            continue;
        }
        std::string data(size, 0);
        if (!stream.read(data.data(), size) || !stream.ignore(4))
            break;
        if (isColour)
            appendChunk(chunks.colour, name, std::as_bytes(std::span(data)));
        else
            append(chunks.exif, data);
    }
    return chunks;
}

std::vector<std::byte> withPngChunks(std::span<const std::byte> png, const PngChunks& chunks) {
    std::vector<std::byte> whole(png.begin(), png.begin() + kHeaderEnd);
    whole.reserve(png.size() + chunks.colour.size() + chunks.exif.size() + 12);
    whole.insert(whole.end(), chunks.colour.begin(), chunks.colour.end());
    if (!chunks.exif.empty())
        appendChunk(whole, "eXIf", chunks.exif);
    whole.insert(whole.end(), png.begin() + kHeaderEnd, png.end());
    return whole;
}

} // namespace Tessaloom::BilateralBlur::Program
