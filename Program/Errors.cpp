#include "Program/Errors.h"

#include <algorithm>
#include <cstdio>

namespace Tessaloom::BilateralBlur::Program {

std::string printable(const std::string& text) {
    std::string shown;
    for (const char character : text) {
        const auto code = static_cast<unsigned char>(character);
        if (code >= 0x20 && code != 0x7F) {
            shown += character;
        } else if (character == '\n') {
            shown += "\\n";
        } else {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\x%02x", code);
            shown += escape;
        }
    }
    return shown;
}

std::string shortened(const std::string& text) {
    constexpr std::size_t kLongest = 60;
    return text.size() <= kLongest ? text : text.substr(0, kLongest) + "...";
}

std::string firstOf(const std::vector<std::string>& names, std::size_t count) {
    std::string text;
    for (std::size_t i = 0; i < std::min(count, names.size()); ++i)
        text.append(i > 0 ? ", " : "").append(names[i]);
    return names.size() > count ? text + " and " + std::to_string(names.size() - count) + " more" : text;
}

} // namespace Tessaloom::BilateralBlur::Program
