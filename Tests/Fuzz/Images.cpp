#include "Program/Errors.h"
#include "Program/Files/Encode.h"
#include "Program/Files/Format.h"
#include "Program/Files/ImageFile.h"
#include "Program/Files/ImageLibrary.h"
#include "Tests/Fuzz/Fuzz.h"

#include <span>
#include <zlib.h>

using namespace Tessaloom::BilateralBlur;

// Changes an input, and repairs the checksums of a PNG's chunks, so that what is in them is looked at.
extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t largest);
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t largest,
                                               unsigned) {
    constexpr std::size_t kSignature = 8, kAround = 12;
    const std::size_t changed = LLVMFuzzerMutate(data, size, largest);
    const std::span bytes(reinterpret_cast<std::byte*>(data), changed);
    if (!Program::matchesPng(bytes))
        return changed;
    for (std::size_t at = kSignature; changed - at >= kAround;) {
        const std::size_t length = Program::bigEndian(bytes.subspan(at, 4));
        if (length > changed - at - kAround)
            break;
        const auto sum = crc32_z(0, data + at + 4, length + 4);
        for (int i = 0; i < 4; ++i)
            data[at + 8 + length + i] = static_cast<std::uint8_t>(sum >> (24 - 8 * i));
        at += length + kAround;
    }
    return changed;
}

// Any file is an image that can be written, or refused in one line that says why.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool started = (Program::startImageFiles(false), true);
    assert(started);
    try {
        Program::ImageFile opened(fileOf(data, size), {.keepsDepth = size % 2 == 0});
        opened.checkFor(nullptr, "output");
        const Program::Image image = opened.decode();
        assert(!Program::encodeImage(image, *image.format, "output").empty());
    } catch (const Program::Failure& error) {
        const std::string text = error.what();
        assert(text.find('\n') == std::string::npos);
        assert(text.find(": ") + 2 < text.size());
    }
    return 0;
}
