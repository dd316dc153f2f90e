#include "Plugins/Shared/Math/Color.h"
#include "Program/Errors.h"
#include "Program/Sequence.h"
#include "Tests/Fuzz/Fuzz.h"

#include <stdexcept>

using namespace Tessaloom::BilateralBlur;

namespace {

// A colour with channels of 0 to 1, or one of the two documented exceptions, which are of one base.
void readColor(const std::string& text) {
    try {
        Color color(text);
        for (const double channel : {color.red, color.green, color.blue, color.alpha})
            assert(channel >= 0 && channel <= 1);
        assert(color.toHexString().front() == '#');
    } catch (const std::logic_error&) {
    }
}

// What --frames accepts survives being written and read again.
void readFrames(const std::string& text) {
    const std::vector<int> frames = Program::parseFrames(text);
    assert(Program::parseFrames(Program::framesText(frames)) == frames);
}

// A name with a number finds its own files again; others are no pattern.
void readPattern(const std::string& text) {
    const auto pattern = Program::FramePattern::parse(text);
    for (const int frame : {0, 7, 12345, 999999999})
        assert(!pattern || pattern->frameOf(pattern->file(frame).filename()) == frame);
}

} // namespace

// What people write; all else is wrong use.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    readColor(text);
    for (const auto& read : {readFrames, readPattern})
        try {
            read(text);
        } catch (const Program::WrongUse&) {
        }
    return 0;
}
