#pragma once

#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

namespace Tessaloom::BilateralBlur::Host::Test {

/// A folder with a copy of a module and a property list beside it, gone with this object.
class ModuleFolder {
public:
    explicit ModuleFolder(const char* module = INVERTER, const std::string& propertyList = kPropertyList) {
        std::string name = (std::filesystem::temp_directory_path() / "host_test.XXXXXX").string();
        mFolder = mkdtemp(name.data());
        std::filesystem::copy_file(module, modulePath());
        if (!propertyList.empty())
            std::ofstream(mFolder / "Effect.plist") << propertyList;
    }
    ~ModuleFolder() { std::filesystem::remove_all(mFolder); }
    ModuleFolder(const ModuleFolder&) = delete;
    ModuleFolder& operator=(const ModuleFolder&) = delete;

    std::filesystem::path modulePath() const { return mFolder / "Effect.so"; }

    /// What belongs beside the inverting module.
    static inline const std::string kPropertyList = R"(<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0">
<dict>
    <key>Name</key>
    <string>Inverter</string>
    <key>MatchName</key>
    <string>Test Inverter</string>
    <key>Category</key>
    <string>Test &amp; Trial</string>
    <key>EntryPoint</key>
    <string>EntryPointFunc</string>
    <key>Version</key>
    <integer>1048583</integer>
    <key>OutFlags</key>
    <integer>0</integer>
    <key>OutFlags2</key>
    <integer>1024</integer>
</dict>
</plist>
)";

private:
    std::filesystem::path mFolder;
};

} // namespace Tessaloom::BilateralBlur::Host::Test
