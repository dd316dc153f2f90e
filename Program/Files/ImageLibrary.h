#pragma once

#include <string>

namespace vips {
class VError;
}

namespace Tessaloom::BilateralBlur::Program {

/// Prepares the libraries that decode and encode, once, before any thread uses them; nothing that a process
/// would lose by a fork happens before. What the libraries report is shown only if `verbose`. Throws Failure.
void startImageFiles(bool verbose);

/// Why the image library failed, in words for users; `otherwise` where its own words wouldn't help them.
std::string reason(const vips::VError& error, const char* otherwise);

} // namespace Tessaloom::BilateralBlur::Program
