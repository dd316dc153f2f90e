#pragma once

#include "Host/Script.h"
#include "HostInterface/EffectHost.h"

#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

namespace Tessaloom::BilateralBlur::Host {

/// A module that can't be loaded or isn't what it should be; what() is one line that names the file.
class ModuleError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A slider that an effect declares.
struct Slider {
    std::string name;
    std::string key;         ///< the name in options and properties: "blur-scale"
    std::string description; ///< one line, for users
    std::int32_t minimum = 0, maximum = 0, defaultValue = 0;
    std::int32_t steps = 1;  ///< how many of the values make 1 of what users see: 1, or 1000 for thousandths
    bool isDistance = false; ///< counts pixels: half as many in an image of half the size
    bool isRequired = false; ///< the default leaves an image as it is, so a program asks for a value
};

/// The property list of a module.
struct Resource {
    std::string name{};
    std::string category{};
    std::string description{}; ///< one line, for users
    std::string entry{};
    std::uint32_t version = 0; ///< see `PF_VERSION`
    std::int32_t outFlags = 0, outFlags2 = 0;
    std::vector<Slider> sliders{}; ///< in the order of their declaration

    /// Whether the effect takes worlds of this format, one of the three tags `PF_PixelFormat_...`.
    bool takes(std::int32_t format) const;
};

/// Reads an XML property list; throws ModuleError if it can't be read or lacks an entry.
Resource readResource(const std::filesystem::path& path);

/// A loaded module, which stays loaded as long as this object lives.
class Module {
public:
    /// Loads the shared object at `path` and the property list beside it, which has the same name with the
    /// extension ".plist". Throws ModuleError where one of them is missing or isn't what it should be, or the
    /// module has no function "EntryPointFunc".
    explicit Module(const std::filesystem::path& path);

    /// An effect that is linked into the program. `resource` is in place of a property list, its name in
    /// place of the path. Throws ModuleError where `entry` is null.
    Module(PF_EntryPointFunc entry, Resource resource);
    ~Module();
    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;

    const std::filesystem::path& path() const { return mPath; }
    const Resource& resource() const { return mResource; }
    PF_EntryPointFunc entry() const { return mEntry; }

    /// What runs the scripts of a loaded module; null for an effect that is linked in, so that a program with one
    /// needn't have the engine.
    ScriptEngine scriptEngine() const { return mScriptEngine; }

private:
    std::filesystem::path mPath;
    ScriptEngine mScriptEngine = nullptr;
    void* mLibrary = nullptr;
    PF_EntryPointFunc mEntry = nullptr;
    Resource mResource;
};

} // namespace Tessaloom::BilateralBlur::Host
