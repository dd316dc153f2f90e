#pragma once

#include <glbinding/AbstractFunction.h>
#include <glbinding/CallbackMask.h>
#include <glbinding/FunctionCall.h>
#include <glbinding/callbacks.h>

#include <map>
#include <string>
#include <vector>

namespace Tessaloom::BilateralBlur {

/// Records the GL calls of all contexts while it exists.
class GLCalls {
public:
    GLCalls() {
        glbinding::setAfterCallback([this](const auto& call) {
            names.emplace_back(call.function->name());
            ++counts[names.back()];
        });
        glbinding::setCallbackMask(glbinding::CallbackMask::After);
    }
    ~GLCalls() {
        glbinding::setCallbackMask(glbinding::CallbackMask::None);
        glbinding::setAfterCallback(nullptr);
    }

    /// Objects of a kind, "Textures" say, that were made and not deleted, where each call does one.
    int kept(const std::string& kind) { return counts["glGen" + kind] - counts["glDelete" + kind]; }

    std::vector<std::string> names; ///< of the functions, in the order of the calls
    std::map<std::string, int> counts;
};

} // namespace Tessaloom::BilateralBlur
