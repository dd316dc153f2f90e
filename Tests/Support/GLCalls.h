#pragma once

#include <glbinding/AbstractFunction.h>
#include <glbinding/Binding.h>
#include <glbinding/CallbackMask.h>
#include <glbinding/FunctionCall.h>
#include <glbinding/callbacks.h>

#include <functional>
#include <map>
#include <string>

namespace Tessaloom::BilateralBlur {

/// Records the GL calls of all contexts while it exists.
class GLCalls {
public:
    GLCalls() {
        glbinding::Binding::initialize(false); // which a process without contexts hasn't done yet
        glbinding::setAfterCallback([this](const auto& call) {
            const std::string name = call.function->name();
            names += name.substr(2) + " ";
            ++counts[name];
            if (!after || mIsInside)
                return;
            mIsInside = true;
            after(name);
            mIsInside = false;
        });
        glbinding::setCallbackMask(glbinding::CallbackMask::After);
    }
    ~GLCalls() {
        glbinding::setCallbackMask(glbinding::CallbackMask::None);
        glbinding::setAfterCallback(nullptr);
    }

    /// Objects of a kind, "Textures" say, that were made and not deleted, where each call does one.
    int kept(const std::string& kind) { return counts["glGen" + kind] - counts["glDelete" + kind]; }

    std::string names; ///< of the functions without their "gl", in the order of the calls, a blank after each
    std::map<std::string, int> counts;

    /// Where it is set, runs after each call of a function, but not for calls from within it.
    std::function<void(const std::string& name)> after{};

private:
    bool mIsInside = false;
};

} // namespace Tessaloom::BilateralBlur
