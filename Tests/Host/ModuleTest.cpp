#include "Host/Effect.h"
#include "Tests/Support/ProcessRun.h"

#include <gmock/gmock.h>

namespace Tessaloom::BilateralBlur::Host::Test {

namespace {

/// What the host says of a copy of a module with this property list beside it, which is left out if empty.
std::string complaint(const std::string& module, const std::string& propertyList) {
    const Folder folder;
    std::filesystem::copy_file(module, folder / "Effect.so");
    if (!propertyList.empty())
        std::ofstream(folder / "Effect.plist") << propertyList;
    try {
        const Module loaded(folder / "Effect.so");
        const Effect effect(loaded);
        return "";
    } catch (const ModuleError& error) {
        return error.what();
    }
}

TEST(Module, IsRefusedInWordsThatNameTheFile) {
    const std::string good = contents(std::filesystem::path(MODULE).replace_extension(".plist"));
    const auto changed = [&](const std::string& from, const std::string& to) {
        return std::string(good).replace(good.find(from), from.size(), to);
    };
    const std::string version = std::to_string(Module(MODULE).resource().version);
    const struct {
        const char* module;
        std::string propertyList, words;
    } kCases[] = {
        {ENTRY_LESS, good, "Effect.so: this module lacks the entry \"EntryPointFunc\""},
        {"/proc/self/cmdline", good, "Effect.so: this isn't a module that can be loaded ("},
        {MODULE, "", "Effect.plist: the module's property list is missing"},
        {MODULE, "Version = 1", "Effect.plist: this isn't an XML property list"},
        {MODULE, changed("<key>OutFlags2</key>", "<key>OutFlags2</key><true/>"), "no integer \"OutFlags2\""},
        {MODULE, changed("EntryPointFunc", "main"), "names another entry, \"main\""},
        {MODULE, changed(version, "7"), "has Version 7, but global setup declares " + version},
        {MODULE, changed(">0<", ">256<"), "has OutFlags 256, but global setup declares 0"},
        {MODULE, changed(">1024<", ">1025<"), "has OutFlags2 1025, but global setup declares 1024"},
    };
    for (const auto& [module, propertyList, words] : kCases)
        EXPECT_THAT(complaint(module, propertyList), testing::HasSubstr(words));
    EXPECT_EQ(complaint(MODULE, good), "");
    EXPECT_THROW(Module("/nowhere/Effect.so"), ModuleError);
}

} // namespace

} // namespace Tessaloom::BilateralBlur::Host::Test
