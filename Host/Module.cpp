#include "Host/Module.h"

#include <dlfcn.h>

#include <utility>

namespace Tessaloom::BilateralBlur::Host {

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
