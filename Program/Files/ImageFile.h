#pragma once

#include "Program/Files/FoundMetadata.h"
#include "Program/Files/Image.h"

#include <cstdint>
#include <filesystem>
#include <string>

namespace Tessaloom::BilateralBlur::Program {

struct ReadOptions {
    int page = 0;            ///< the one to read, from 1; 0 for all
    bool keepsDepth = false; ///< samples of more than 8 bits, floats among them, become float worlds
};

/// A file that was opened and read, once, and whose header was judged. Pipes will do.
class ImageFile {
public:
    /// Reads a file of one of the formats of `kFormats`, identified by its content; "-" is standard input. Throws
    /// Failure where it can't be read, is cut short, lacks the page, or needs more memory than there is available.
    explicit ImageFile(const std::filesystem::path& path, ReadOptions options = {});

    /// Gives the bytes that it takes at most to decode the images, filter them and encode them in a format, the
    /// file's own where that is null. Throws Failure where the format can't hold them, or they need more memory
    /// than there is available; `name` is the output's.
    std::uint64_t checkFor(const Format* output, const std::string& name) const;

    /// The images. `spare` becomes the first page's world where its size fits: fresh memory costs as much as
    /// some decoding. To be called once. Throws Failure where the file is damaged or has another kind of
    /// samples or colours.
    Image decode(Host::World spare = {0, 0});

private:
    void takeMetadata(FoundMetadata found);

    std::string mName;
    ReadOptions mOptions;
    Bytes mBytes;              ///< of the file, later only what the library that decodes needs
    Image mHead;               ///< all but the pixels
    std::uint64_t mMemory = 0; ///< that the file and its metadata need
};

} // namespace Tessaloom::BilateralBlur::Program
