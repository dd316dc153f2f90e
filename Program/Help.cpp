#include "Program/Help.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <memory>
#include <sstream>

namespace Tessaloom::BilateralBlur::Program {

namespace {

/// The formatter of the library breaks no lines.
class Formatter : public CLI::Formatter {
public:
    std::string make_usage(const CLI::App*, std::string name) const override {
        return "Usage: " + name + " [OPTION]... INPUT... OUTPUT\n";
    }

    /// Names and description side by side.
    std::string make_option(const CLI::Option* option, bool isPositional) const override {
        constexpr std::size_t kColumn = 22, kWidth = 79;
        std::string text, line = "  " + (isPositional ? option->get_name(true) : namesOf(*option)) + " ";
        if (line.size() > kColumn) {
            line.back() = '\n';
            text = line;
            line.clear();
        }
        std::istringstream words(option->get_description());
        for (std::string word; words >> word;) {
            if (line.size() + word.size() > kWidth) {
                text += line.substr(0, line.size() - 1) + "\n";
                line.clear();
            }
            line.resize(std::max(line.size(), kColumn), ' ');
            line += word + " ";
        }
        return text + line.substr(0, line.size() - 1) + "\n";
    }

private:
    /// "-h, --help", "--threads=N".
    static std::string namesOf(const CLI::Option& option) {
        std::string names;
        for (const std::string& name : option.get_snames())
            names.append("-").append(name).append(", ");
        names += "--" + option.get_lnames().front();
        return option.get_items_expected() > 0 ? names + "=" + option.get_type_name() : names;
    }
};

} // namespace

std::string helpText(const CommandLine& line) {
    Formatter formatter;
    formatter.label("Positionals", "Files");
    return formatter.make_help(&line.app, line.app.get_name(), CLI::AppFormatMode::Normal);
}

} // namespace Tessaloom::BilateralBlur::Program
