#include "Host/Module.h"
#include "Tests/Fuzz/Fuzz.h"

using namespace Tessaloom::BilateralBlur;

// A file is a property list with all entries, or refused in one line.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const Tests::InputFile file("plist");
    file.write(Tests::textOf(data, size));
    try {
        Host::readResource(file.path());
    } catch (const Host::ModuleError& error) {
        FUZZ_CHECK(std::string(error.what()).find('\n') == std::string::npos);
    }
    return 0;
}
