#include "Platform/ControlGroups.h"

#include <fstream>

namespace Tessaloom::BilateralBlur {

namespace fs = std::filesystem;

void eachControlGroup(const fs::path& root, const std::string& controller,
                      const std::function<void(const fs::path& group, int version)>& take) {
    const fs::path mount = root / "sys/fs/cgroup";
    const auto takeUpwards = [&](const fs::path& top, const std::string& name, int version) {
        take(top, version);
        for (fs::path group = fs::path(name).relative_path(); !group.empty(); group = group.parent_path())
            take(top / group, version);
    };
    // Lines are "number:controllers:name", with no controllers for version 2.
    std::ifstream groups(root / "proc/self/cgroup");
    for (std::string number, controllers, name; std::getline(groups, number, ':') &&
                                                std::getline(groups, controllers, ':') &&
                                                std::getline(groups, name);)
        if (controllers.empty())
            takeUpwards(mount, name, 2);
        else if (("," + controllers + ",").find("," + controller + ",") != std::string::npos)
            takeUpwards(mount / controller, name, 1);
}

} // namespace Tessaloom::BilateralBlur
