#pragma once

#include <glbinding/AbstractFunction.h>
#include <glbinding/CallbackMask.h>
#include <glbinding/FunctionCall.h>
#include <glbinding/callbacks.h>

#include <algorithm>
#include <functional>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

namespace Tessaloom::BilateralBlur {

/// Takes what is written to std::cout while it lives.
class CapturedOutput {
public:
    CapturedOutput() : mBefore(std::cout.rdbuf(mText.rdbuf())) {}
    ~CapturedOutput() { std::cout.rdbuf(mBefore); }
    std::string text() const { return mText.str(); }

private:
    std::ostringstream mText;
    std::streambuf* mBefore;
};

/// Records the GL calls of all contexts while it lives.
class GLCalls {
public:
    GLCalls() {
        glbinding::setAfterCallback([this](const glbinding::FunctionCall& call) {
            names.push_back(call.function->name());
            if (afterEach)
                afterEach(names.back());
        });
        glbinding::setCallbackMask(glbinding::CallbackMask::After);
    }
    ~GLCalls() {
        glbinding::setCallbackMask(glbinding::CallbackMask::None);
        glbinding::setAfterCallback(nullptr);
    }

    long count(const std::string& name) const { return std::count(names.begin(), names.end(), name); }

    /// Called with the name of each, in its place.
    std::function<void(const std::string&)> afterEach;
    std::vector<std::string> names;
};

/// The names of the GL calls that `work` makes.
inline std::vector<std::string> callsOf(const std::function<void()>& work) {
    const GLCalls calls;
    work();
    return calls.names;
}

} // namespace Tessaloom::BilateralBlur
