#pragma once

#include "Program/Files/Image.h"

#include <cstdint>
#include <filesystem>
#include <string>

namespace Tessaloom::BilateralBlur::Program {

struct ReadOptions {
    int page = 0; ///< the one to read, from 1; 0 for all
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

} // namespace Tessaloom::BilateralBlur::Program
