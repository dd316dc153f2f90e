#include "Platform/GpuDevices.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <iterator>

bool mayHaveGpu() {
    constexpr const char* kDevices[] = {"/dev/dri",      "/dev/nvidiactl", "/dev/nvmap",   "/dev/dxg",
                                        "/dev/kgsl-3d0", "/dev/mali0",     "/dev/galcore", "/dev/pvrsrvkm"};
    std::error_code ignored;
    return std::getenv("__EGL_VENDOR_LIBRARY_FILENAMES") || std::getenv("__EGL_VENDOR_LIBRARY_DIRS") ||
           std::any_of(std::begin(kDevices), std::end(kDevices),
                       [&](const char* device) { return std::filesystem::exists(device, ignored); });
}
