#include "Program/Errors.h"
#include "Program/Sequence.h"
#include "Tests/Fuzz/Fuzz.h"

using namespace Tessaloom::BilateralBlur;

// What --frames accepts survives being written and read again; all else is wrong use.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    try {
        const std::vector<int> frames = Program::parseFrames(Tests::textOf(data, size));
        FUZZ_CHECK(Program::parseFrames(Program::framesText(frames)) == frames);
    } catch (const Program::WrongUse&) {
    }
    return 0;
}
