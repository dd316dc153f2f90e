#include "Host/Effect.h"
#include "Tests/Support/ProcessRun.h"

namespace Tessaloom::BilateralBlur::Host::Test {

namespace {

/// What the host says of a copy of a module with this property list beside it, which is left out if empty.
std::string complaint(const std::string& module, const std::string& propertyList) {
    const Directory directory;
    std::filesystem::copy_file(module, directory / "Effect.so");
    if (!propertyList.empty())
        std::ofstream(directory / "Effect.plist") << propertyList;
    try {
        const Module loaded(directory / "Effect.so");
        const Effect effect(loaded);
        return "";
    } catch (const ModuleError& error) {
        return error.what();
    }
}

TEST(Module, ReportsWhyItIsRefused) {
    const std::string good = contents(std::filesystem::path(MODULE).replace_extension(".plist"));
    const auto changed = [&](const std::string& from, const std::string& to) {
        return std::string(good).replace(good.find(from), from.size(), to);
    };
    const std::string version = std::to_string(Module(MODULE).resource().version);
    const std::pair<std::string, std::string> kCases[] = {
        {"", "Effect.plist: the module's property list is missing"},
        {"Version = 1", "Effect.plist: this isn't an XML property list"},
        {changed("<key>OutFlags2</key>", "<key>OutFlags2</key><true/>"), "no integer \"OutFlags2\""},
        {changed("EntryPointFunc", "main"), "names another entry, \"main\""},
        {changed(version, "7"), "Version is 7 in the property list, but the effect declares 5"},
        {changed(">0<", ">256<"), "OutFlags is 256"},
        {changed(">1024<", ">1025<"), "OutFlags2 is 1025"},
        {changed("Blur Scale", "Scale"), "the name of slider 1 is Scale in the property list"},
        {changed("Minimum</key>", "Minimum</key><integer>1</integer>"), "Blur Scale: Minimum is 1 in"},
        {changed("Maximum</key>", "Maximum</key><integer>7</integer>"), "Blur Scale: Maximum is 7 in"},
        {changed("Default</key>", "Default</key><integer>5</integer>"), "Blur Scale: Default is 5 in"},
        {changed("<key>Sliders</key>", "<key>Sliders</key><array/>"), "the number of sliders is 0 in"},
    };
    for (const auto& [propertyList, words] : kCases)
        EXPECT_THAT(complaint(MODULE, propertyList), testing::HasSubstr(words));
    EXPECT_THAT(complaint(ENTRY_LESS, good), testing::HasSubstr("Effect.so: this module lacks the entry \""));
    EXPECT_THAT(complaint("/proc/self/cmdline", good), testing::HasSubstr("module that can be loaded ("));
    EXPECT_EQ(complaint(MODULE, good), "");
}

} // namespace

} // namespace Tessaloom::BilateralBlur::Host::Test
