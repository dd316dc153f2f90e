#include "Plugins/Shared/Math/Color.h"
#include "Tests/Fuzz/Fuzz.h"

#include <stdexcept>

using Tessaloom::BilateralBlur::Color;

// A text is a colour with channels of 0 to 1, or one of the two documented exceptions.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    try {
        Color color(Tessaloom::BilateralBlur::Tests::textOf(data, size));
        for (const double channel : {color.red, color.green, color.blue, color.alpha})
            FUZZ_CHECK(channel >= 0 && channel <= 1);
        FUZZ_CHECK(color.toHexString().front() == '#');
    } catch (const std::invalid_argument&) {
    } catch (const std::out_of_range&) {
    }
    return 0;
}
