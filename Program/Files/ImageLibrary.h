#pragma once

#include <string>

namespace vips {
class VError;
}

namespace Tessaloom::BilateralBlur::Program {

/// Prepares the libraries that decode and encode, once, before any thread uses them; nothing that a process
/// would lose by a fork happens before. What the libraries report is shown only if `verbose`. Throws Failure.
void startImageFiles(bool verbose);

/// Loads a module of the image library, once, with the loader that it holds. Throws std::runtime_error where it isn't
/// there, with a reason that says which `formats` need it.
void loadModule(const char* module, const char* loader, const char* formats);

/// Why the image library failed, in words for users; `otherwise` where its own words wouldn't help them.
std::string reason(const vips::VError& error, const char* otherwise);

} // namespace Tessaloom::BilateralBlur::Program
