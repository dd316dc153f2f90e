#pragma once

#include <glbinding/AbstractFunction.h>
#include <glbinding/CallbackMask.h>
#include <glbinding/FunctionCall.h>
#include <glbinding/callbacks.h>

#include <map>
#include <string>

namespace Tessaloom::BilateralBlur {

/// Counts the GL calls of all contexts while it lives.
class GLCalls {
public:
    GLCalls() {
        glbinding::setAfterCallback([this](const auto& call) { ++counts[call.function->name()]; });
        glbinding::setCallbackMask(glbinding::CallbackMask::After);
    }
    ~GLCalls() {
        glbinding::setCallbackMask(glbinding::CallbackMask::None);
        glbinding::setAfterCallback(nullptr);
    }

    /// Objects of a kind, "Textures" say, that were made and not deleted, where each call does one.
    int kept(const std::string& kind) { return counts["glGen" + kind] - counts["glDelete" + kind]; }

    std::map<std::string, int> counts;
};

} // namespace Tessaloom::BilateralBlur
