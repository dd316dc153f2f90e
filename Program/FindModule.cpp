#include "Program/FindModule.h"

#include "Program/Errors.h"

#include <algorithm>
#include <cctype>
#include <iterator>
#include <system_error>

namespace Tessaloom::BilateralBlur::Program {

namespace {

using std::filesystem::path;

/// "BilateralBlur" for "bilateral-blur".
std::string moduleName(const std::string& key) {
    std::string name;
    for (std::size_t i = 0; i < key.size(); ++i)
        if (key[i] != '-')
            name += i == 0 || key[i - 1] == '-'
                        ? static_cast<char>(std::toupper(static_cast<unsigned char>(key[i])))
                        : key[i];
    return name;
}

/// Empty where the effect's module is in none of the places.
path moduleOf(const std::string& key) {
    std::error_code error;
    const path program = std::filesystem::read_symlink("/proc/self/exe", error).parent_path();
    if (error)
        throw Failure("can't find out where the program is without /proc (" + error.message() +
                      "); name the module with --module PATH");
    const std::string name = moduleName(key);
    for (const path& place : {path("."), path(BILATERAL_BLUR_INSTALLED_MODULE), path("../Plugins") / name}) {
        path module = (program / place / (name + ".so")).lexically_normal();
        std::error_code ignored;
        if (std::filesystem::exists(module, ignored))
            return module;
    }
    return {};
}

} // namespace

const std::vector<std::string>& effectKeys() {
    static const std::vector<std::string> kKeys{BILATERAL_BLUR_EFFECTS};
    return kKeys;
}

std::vector<std::string> presentEffects() {
    std::vector<std::string> present;
    std::copy_if(effectKeys().begin(), effectKeys().end(), std::back_inserter(present),
                 [&](const std::string& key) { return !moduleOf(key).empty(); });
    return present;
}

path findModule(const std::string& key) {
    const std::vector<std::string> present = presentEffects();
    const std::string& wanted = key.empty() ? effectKeys().front() : key;
    if (std::count(present.begin(), present.end(), wanted) != 0)
        return moduleOf(wanted);
    if (present.empty())
        throw Failure(moduleName(effectKeys().front()) +
                      ".so: the effect's module isn't beside the program or in its library directory; "
                      "name it with --module PATH");
    throw WrongUse("--effect: there is no module for " + shortened(wanted) + ", only for " +
                   firstOf(present, present.size()) + " (see --help)");
}

} // namespace Tessaloom::BilateralBlur::Program
