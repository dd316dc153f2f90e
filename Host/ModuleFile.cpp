// A module in a file. Apart from what linked effects need, so that their programs have no parser of property lists and no
// engine for scripts.

#include "Host/Module.h"

#include <dlfcn.h>
#include <pugixml.hpp>

#include <memory>

namespace Tessaloom::BilateralBlur::Host {

namespace {

constexpr const char* kEntryName = "EntryPointFunc";

[[noreturn]] void refuse(const std::filesystem::path& path, const std::string& why) {
    throw ModuleError(path.string() + ": " + why);
}

pugi::xml_node keyOf(const pugi::xml_node& dict, const char* key) {
    return dict.find_child([&](const pugi::xml_node& node) {
        return std::string(node.name()) == "key" && std::string(node.child_value()) == key;
    });
}

/// The value that follows a key: in a property list the two are neighbours.
pugi::xml_node valueOf(const pugi::xml_node& dict, const char* key, const char* type,
                       const std::filesystem::path& path) {
    const pugi::xml_node value = keyOf(dict, key).next_sibling();
    if (std::string(value.name()) != type)
        refuse(path, std::string("the property list has no ") + type + " \"" + key + "\"");
    return value;
}

std::string textOf(const pugi::xml_node& dict, const char* key, const std::filesystem::path& path) {
    return valueOf(dict, key, "string", path).child_value();
}

/// A number of 32 bits, signed or not.
std::int32_t numberOf(const pugi::xml_node& dict, const char* key, const std::filesystem::path& path) {
    return static_cast<std::int32_t>(valueOf(dict, key, "integer", path).text().as_llong());
}

bool flagOf(const pugi::xml_node& dict, const char* key, const std::filesystem::path& path) {
    const std::string value = keyOf(dict, key).next_sibling().name();
    if (value != "true" && value != "false")
        refuse(path, std::string("the property list has no boolean \"") + key + "\"");
    return value == "true";
}

Slider sliderOf(const pugi::xml_node& dict, const std::filesystem::path& path) {
    return {.name = textOf(dict, "Name", path),
            .key = textOf(dict, "Key", path),
            .description = textOf(dict, "Description", path),
            .minimum = numberOf(dict, "Minimum", path),
            .maximum = numberOf(dict, "Maximum", path),
            .defaultValue = numberOf(dict, "Default", path),
            .steps = numberOf(dict, "Steps", path),
            .isDistance = flagOf(dict, "IsDistance", path),
            .isRequired = flagOf(dict, "IsRequired", path)};
}

} // namespace

Resource readResource(const std::filesystem::path& path) {
    pugi::xml_document document;
    const pugi::xml_parse_result parsed = document.load_file(path.c_str());
    if (parsed.status == pugi::status_file_not_found)
        refuse(path, "the module's property list is missing");
    const pugi::xml_node dict = document.child("plist").child("dict");
    if (!parsed || !dict)
        refuse(path, "this isn't an XML property list");
    const auto text = [&](const char* key) { return textOf(dict, key, path); };
    const auto number = [&](const char* key) { return numberOf(dict, key, path); };
    Resource resource{.name = text("Name"),
                      .category = text("Category"),
                      .description = text("Description"),
                      .entry = text("EntryPoint"),
                      .version = static_cast<std::uint32_t>(number("Version")),
                      .outFlags = number("OutFlags"),
                      .outFlags2 = number("OutFlags2")};
    for (const pugi::xml_node& slider : valueOf(dict, "Sliders", "array", path))
        resource.sliders.push_back(sliderOf(slider, path));
    return resource;
}

Module::Module(const std::filesystem::path& path) : mPath(std::filesystem::absolute(path)) {
    std::error_code ignored;
    if (!std::filesystem::exists(mPath, ignored))
        refuse(path, "there is no such module");
    std::unique_ptr<void, int (*)(void*)> library(dlopen(mPath.c_str(), RTLD_LOCAL | RTLD_NOW), dlclose);
    if (!library)
        refuse(path, std::string("this isn't a module that can be loaded (") + dlerror() + ")");
    mEntry = reinterpret_cast<PF_EntryPointFunc>(dlsym(library.get(), kEntryName));
    if (!mEntry)
        refuse(path, std::string("this module lacks the entry \"") + kEntryName + "\"");
    mResource = readResource(std::filesystem::path(mPath).replace_extension(".plist"));
    if (mResource.entry != kEntryName)
        refuse(path, "the property list names another entry, \"" + mResource.entry + "\"");
    mScriptEngine = runScript;
    mLibrary = library.release();
}

} // namespace Tessaloom::BilateralBlur::Host
