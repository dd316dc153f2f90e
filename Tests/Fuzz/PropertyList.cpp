#include "Host/Module.h"
#include "Tests/Fuzz/Fuzz.h"

using namespace Tessaloom::BilateralBlur;

// A file is a property list with all entries, or refused in one line.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    try {
        Host::readResource(fileOf(data, size));
    } catch (const Host::ModuleError& error) {
        assert(std::string(error.what()).find('\n') == std::string::npos);
    }
    return 0;
}
