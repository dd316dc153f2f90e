#include "Program/Errors.h"
#include "Program/Sequence.h"
#include "Tests/Fuzz/Fuzz.h"

using namespace Tessaloom::BilateralBlur;

// A name with a number finds its own files again; all else is no pattern, or wrong use.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    try {
        const auto pattern = Program::FramePattern::parse(Tests::textOf(data, size));
        for (const int frame : {0, 7, 12345, 999999999})
            FUZZ_CHECK(!pattern || pattern->frameOf(pattern->file(frame).filename()) == frame);
    } catch (const Program::WrongUse&) {
    }
    return 0;
}
