#include "Host/Effect.h"
#include "Tests/Host/TestModules.h"

#include <gmock/gmock.h>

namespace Tessaloom::BilateralBlur::Host::Test {

namespace {

using testing::HasSubstr;

std::string replaced(std::string text, const std::string& from, const std::string& to) {
    return text.replace(text.find(from), from.size(), to);
}

std::string complaint(const std::filesystem::path& module) {
    try {
        const Module loaded(module);
        const Effect effect(loaded);
        return "";
    } catch (const ModuleError& error) {
        return error.what();
    }
}

TEST(Module, TellsWhatItsPropertyListHolds) {
    const ModuleFolder folder;
    const Module module(folder.modulePath());
    EXPECT_EQ(module.resource().name, "Inverter");
    EXPECT_EQ(module.resource().matchName, "Test Inverter");
    EXPECT_EQ(module.resource().category, "Test & Trial");
    EXPECT_EQ(module.resource().version, PF_VERSION(2, 0, 0, PF_Stage_DEVELOP, 7));
    EXPECT_EQ(complaint(folder.modulePath()), "");
}

TEST(Module, IsRefusedInWordsThatNameTheFile) {
    const std::string good = ModuleFolder::kPropertyList;
    const struct {
        const char* module;
        std::string propertyList;
        const char* words;
    } kCases[] = {
        {ENTRY_LESS, good, "Effect.so: this module lacks the entry \"EntryPointFunc\""},
        {"/proc/self/cmdline", good, "Effect.so: this isn't a module that can be loaded ("},
        {INVERTER, "", "Effect.plist: the module's property list is missing"},
        {INVERTER, "Version = 1", "Effect.plist: this isn't an XML property list"},
        {INVERTER, replaced(good, "<key>OutFlags2</key>", ""), "no integer \"OutFlags2\""},
        {INVERTER, replaced(good, "<key>OutFlags2</key>", "<key>OutFlags2</key><true/>"), "\"OutFlags2\""},
        {INVERTER, replaced(good, "EntryPointFunc", "main"), "names another entry, \"main\""},
        {INVERTER, replaced(good, "1048583", "1048584"),
         "has Version 1048584, but global setup declares 1048583"},
        {INVERTER, replaced(good, ">0<", ">256<"), "has OutFlags 256, but global setup declares 0"},
        {INVERTER, replaced(good, "1024", "1025"), "has OutFlags2 1025, but global setup declares 1024"},
    };
    for (const auto& [module, propertyList, words] : kCases)
        EXPECT_THAT(complaint(ModuleFolder(module, propertyList).modulePath()), HasSubstr(words));
    EXPECT_EQ(complaint("/nowhere/Effect.so"), "/nowhere/Effect.so: there is no such module");
}

} // namespace

} // namespace Tessaloom::BilateralBlur::Host::Test
