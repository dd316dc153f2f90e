#include "Program/Errors.h"
#include "Program/Files/Encode.h"
#include "Program/Files/Format.h"
#include "Program/Files/ImageFile.h"
#include "Program/Files/ImageLibrary.h"
#include "Tests/Fuzz/Fuzz.h"

using namespace Tessaloom::BilateralBlur;

// Any file is an image that can be written, or refused in one line.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool started = (Program::startImageFiles("fuzz"), true);
    static const Tests::InputFile file("image");
    FUZZ_CHECK(started);
    file.write(Tests::textOf(data, size));
    try {
        const Program::Image image = Program::ImageFile(file.path()).decode();
        FUZZ_CHECK(!Program::encodeImage(image, *image.format, "output").empty());
    } catch (const Program::Failure& error) {
        FUZZ_CHECK(std::string(error.what()).find('\n') == std::string::npos);
    }
    return 0;
}
