#include "Host/Module.h"

#include <dlfcn.h>

#include <utility>

namespace Tessaloom::BilateralBlur::Host {

bool Resource::takes(std::int32_t format) const {
    switch (format) {
    case PF_PixelFormat_ARGB32:
        return true;
    case PF_PixelFormat_ARGB64:
        return outFlags & PF_OutFlag_DEEP_COLOR_AWARE;
    case PF_PixelFormat_ARGB128:
        return outFlags2 & PF_OutFlag2_FLOAT_COLOR_AWARE;
    default:
        return false;
    }
}

Module::Module(PF_EntryPointFunc entry, Resource resource)
    : mPath(resource.name), mEntry(entry), mResource(std::move(resource)) {
    if (!mEntry)
        throw ModuleError(mPath.string() + ": this effect has no entry");
}

Module::~Module() {
    if (mLibrary)
        dlclose(mLibrary);
}

} // namespace Tessaloom::BilateralBlur::Host
