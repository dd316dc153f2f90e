#pragma once

#include "Plugins/Shared/GL/AEOpenGLContext.h"

#include <glbinding/AbstractFunction.h>
#include <glbinding/AbstractValue.h>
#include <glbinding/CallbackMask.h>
#include <glbinding/FunctionCall.h>
#include <glbinding/callbacks.h>
#include <glbinding/gl/bitfield.h>
#include <glbinding/gl/boolean.h>
#include <glbinding/gl/enum.h>
#include <glbinding/gl/functions.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <iostream>
#include <memory>
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

/// A test with a GL context current, which it may not leave in an error state.
class GLTest : public testing::Test {
protected:
    void SetUp() override {
        const CapturedOutput quiet;
        context = std::make_unique<AEOpenGLContext>(nullptr);
    }
    void TearDown() override {
        if (mErrorsExpected)
            while (gl::glGetError() != gl::GL_NO_ERROR) {
            }
        EXPECT_EQ(gl::glGetError(), gl::GL_NO_ERROR);
        context.reset();
    }

    std::unique_ptr<AEOpenGLContext> context;
    bool mErrorsExpected = false;
};

/// A texture as the only attachment of a frame buffer, bound.
class TextureTarget {
public:
    TextureTarget(int width, int height, gl::GLenum internalFormat) {
        gl::glGenTextures(1, &texture);
        gl::glBindTexture(gl::GL_TEXTURE_2D, texture);
        gl::glTexImage2D(gl::GL_TEXTURE_2D, 0, static_cast<gl::GLint>(internalFormat), width, height, 0,
                         gl::GL_RGBA, gl::GL_FLOAT, nullptr);
        gl::glTexParameteri(gl::GL_TEXTURE_2D, gl::GL_TEXTURE_MIN_FILTER, gl::GL_NEAREST);
        gl::glTexParameteri(gl::GL_TEXTURE_2D, gl::GL_TEXTURE_MAG_FILTER, gl::GL_NEAREST);
        gl::glBindTexture(gl::GL_TEXTURE_2D, 0);
        gl::glGenFramebuffers(1, &frameBuffer);
        gl::glBindFramebuffer(gl::GL_FRAMEBUFFER, frameBuffer);
        gl::glFramebufferTexture2D(gl::GL_FRAMEBUFFER, gl::GL_COLOR_ATTACHMENT0, gl::GL_TEXTURE_2D, texture,
                                   0);
        gl::glViewport(0, 0, width, height);
    }
    ~TextureTarget() {
        gl::glDeleteFramebuffers(1, &frameBuffer);
        gl::glDeleteTextures(1, &texture);
    }
    TextureTarget(const TextureTarget&) = delete;
    TextureTarget& operator=(const TextureTarget&) = delete;

    gl::GLuint texture = 0;
    gl::GLuint frameBuffer = 0;
};

/// Channels of mip level `level`, row after row.
inline std::vector<float> texels(gl::GLuint texture, int level = 0) {
    gl::GLint width = 0, height = 0;
    gl::glBindTexture(gl::GL_TEXTURE_2D, texture);
    gl::glGetTexLevelParameteriv(gl::GL_TEXTURE_2D, level, gl::GL_TEXTURE_WIDTH, &width);
    gl::glGetTexLevelParameteriv(gl::GL_TEXTURE_2D, level, gl::GL_TEXTURE_HEIGHT, &height);
    std::vector<float> values(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4);
    gl::glGetTexImage(gl::GL_TEXTURE_2D, level, gl::GL_RGBA, gl::GL_FLOAT, values.data());
    gl::glBindTexture(gl::GL_TEXTURE_2D, 0);
    return values;
}

} // namespace Tessaloom::BilateralBlur
