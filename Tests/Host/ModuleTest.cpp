#include "Host/Effect.h"

#include <gmock/gmock.h>

#include <fstream>
#include <sstream>
#include <unistd.h>

namespace Tessaloom::BilateralBlur::Host::Test {

namespace {

namespace fs = std::filesystem;

/// What the host says of a copy of a module with this property list beside it, which is left out if empty.
std::string complaint(const fs::path& module, const std::string& propertyList) {
    const fs::path folder = fs::temp_directory_path() / ("host_test." + std::to_string(getpid()));
    fs::create_directory(folder);
    fs::copy_file(module, folder / "Effect.so");
    if (!propertyList.empty())
        std::ofstream(folder / "Effect.plist") << propertyList;
    std::string words;
    try {
        const Module loaded(folder / "Effect.so");
        const Effect effect(loaded);
    } catch (const ModuleError& error) {
        words = error.what();
    }
    fs::remove_all(folder);
    return words;
}

TEST(Module, IsRefusedInWordsThatNameTheFile) {
    std::ostringstream good;
    good << std::ifstream(fs::path(MODULE).replace_extension(".plist")).rdbuf();
    const auto changed = [&](const std::string& from, const std::string& to) {
        std::string text = good.str();
        return text.replace(text.find(from), from.size(), to);
    };
    const std::string version = std::to_string(Module(MODULE).resource().version);
    const struct {
        const char* module;
        std::string propertyList, words;
    } kCases[] = {
        {ENTRY_LESS, good.str(), "Effect.so: this module lacks the entry \"EntryPointFunc\""},
        {"/proc/self/cmdline", good.str(), "Effect.so: this isn't a module that can be loaded ("},
        {MODULE, "", "Effect.plist: the module's property list is missing"},
        {MODULE, "Version = 1", "Effect.plist: this isn't an XML property list"},
        {MODULE, changed("<key>OutFlags2</key>", ""), "no integer \"OutFlags2\""},
        {MODULE, changed("<key>OutFlags2</key>", "<key>OutFlags2</key><true/>"), "no integer \"OutFlags2\""},
        {MODULE, changed("EntryPointFunc", "main"), "names another entry, \"main\""},
        {MODULE, changed(version, "7"), "has Version 7, but global setup declares " + version},
        {MODULE, changed(">0<", ">256<"), "has OutFlags 256, but global setup declares 0"},
        {MODULE, changed(">1024<", ">1025<"), "has OutFlags2 1025, but global setup declares 1024"},
    };
    for (const auto& [module, propertyList, words] : kCases)
        EXPECT_THAT(complaint(module, propertyList), testing::HasSubstr(words));
    EXPECT_EQ(complaint(MODULE, good.str()), "");
    EXPECT_THROW(Module("/nowhere/Effect.so"), ModuleError);
}

} // namespace

} // namespace Tessaloom::BilateralBlur::Host::Test
