#include "Program/FindModule.h"

#include "Program/Errors.h"

#include <string>
#include <system_error>

namespace Tessaloom::BilateralBlur::Program {

std::filesystem::path findModule() {
    std::error_code error;
    const auto directory = std::filesystem::read_symlink("/proc/self/exe", error).parent_path();
    if (error)
        throw Failure("can't find out where the program is without /proc (" + error.message() +
                      "); name the module with --module PATH");
    const std::string name = "BilateralBlur.so";
    for (const char* place : {".", BILATERAL_BLUR_INSTALLED_MODULE, "../Plugins/BilateralBlur"}) {
        std::filesystem::path module = (directory / place / name).lexically_normal();
        std::error_code ignored;
        if (std::filesystem::exists(module, ignored))
            return module;
    }
    throw Failure(name + ": the effect's module isn't beside the program or in its library directory; "
                         "name it with --module PATH");
}

} // namespace Tessaloom::BilateralBlur::Program
