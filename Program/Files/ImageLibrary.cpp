#include "Program/Files/ImageLibrary.h"

#include "Program/Errors.h"

#include <vips/vips8>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <filesystem>
#include <gmodule.h>
#include <mutex>
#include <stdexcept>
#include <string_view>

namespace Tessaloom::BilateralBlur::Program {

/// The library's own words name its functions and lines of samples; only this of them helps a user.
std::string reason(const vips::VError& error, const char* otherwise) {
    vips_error_clear();
    const std::string_view text = error.what();
    if (text.find("out of memory") != std::string_view::npos)
        return "out of memory";
    if (const std::string busy = std::strerror(EAGAIN); text.find(busy) != std::string_view::npos)
        return "can't start a thread: " + busy;
    for (const char* word : {"unsupported", "not supported", "not configured", "unimplemented"})
        if (text.find(word) != std::string_view::npos)
            return "it is stored in a way that isn't supported";
    return otherwise;
}

void startImageFiles(bool verbose) {
    if (!verbose)
        // What matters of the libraries' messages makes an image fail, and is reported in our words.
        g_log_set_default_handler([](auto, auto, auto, auto) {}, nullptr);
    // No modules are found below this directory. Few files need them, and loading them with all their libraries
    // takes four times as long as the rest of this function.
    setenv("VIPSHOME", "/nonexistent", 1);
    if (VIPS_INIT("bilateral-blur") != 0)
        throw Failure("can't initialise libvips: " + std::string(vips_error_buffer()));
    // Beside the table of formats, which every file must match.
    vips_block_untrusted_set(TRUE);
    // The cache would keep whole images of a sequence alive, and each of the program's own threads has its
    // share of the work already.
    vips_cache_set_max(0);
    vips_concurrency_set(1);
}

void loadModule(const char* module, const char* loader, const char* formats) {
    static std::mutex mutex;
    const std::lock_guard lock(mutex);
    if (g_type_from_name(loader) != 0)
        return;
    Dl_info library;
    std::filesystem::path directory;
    if (dladdr(reinterpret_cast<void*>(&vips_init), &library) != 0)
        directory = std::filesystem::path(library.dli_fname).parent_path();
    const std::string version = std::to_string(vips_version(0)) + "." + std::to_string(vips_version(1));
    const auto file = directory / ("vips-modules-" + version) / (module + std::string(".so"));
    if (!g_module_open(file.c_str(), G_MODULE_BIND_LAZY))
        throw std::runtime_error(formats + std::string(" need the module ") + module +
                                 " of libvips, which isn't installed or lacks a library");
    vips_operation_block_set(loader, FALSE);
}

} // namespace Tessaloom::BilateralBlur::Program
