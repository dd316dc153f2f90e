#pragma once

#include <glbinding/AbstractFunction.h>
#include <glbinding/AbstractValue.h>
#include <glbinding/CallbackMask.h>
#include <glbinding/FunctionCall.h>
#include <glbinding/callbacks.h>

#include <algorithm>
#include <functional>
#include <iostream>
#include <sstream>
#include <string>
#include <utility>
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
            std::ostringstream text;
            text << call.function->name() << '(';
            const char* separator = "";
            for (const glbinding::AbstractValue* parameter : call.parameters) {
                text << std::exchange(separator, ", ");
                parameter->printOn(text);
            }
            text << ')';
            names.push_back(call.function->name());
            texts.push_back(text.str());
            if (afterEach)
                afterEach(names.back());
        });
        glbinding::setCallbackMask(glbinding::CallbackMask::After | glbinding::CallbackMask::Parameters);
    }
    ~GLCalls() {
        glbinding::setCallbackMask(glbinding::CallbackMask::None);
        glbinding::setAfterCallback(nullptr);
    }
    GLCalls(const GLCalls&) = delete;
    GLCalls& operator=(const GLCalls&) = delete;

    long count(const std::string& name) const { return std::count(names.begin(), names.end(), name); }

    /// Called with the name of each, in its place.
    std::function<void(const std::string&)> afterEach;
    std::vector<std::string> names;
    /// With arguments: "glEnable(GL_BLEND)".
    std::vector<std::string> texts;
};

/// The names of the GL calls that `work` makes.
inline std::vector<std::string> callsOf(const std::function<void()>& work) {
    const GLCalls calls;
    work();
    return calls.names;
}

} // namespace Tessaloom::BilateralBlur
