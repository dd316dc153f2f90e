#include "Plugins/Shared/GL/OpenglShader.h"

#include "Platform/GLContext.h"
#include "Plugins/Shared/Math/Affine.h"
#include "Plugins/Shared/Math/Color.h"
#include "Plugins/Shared/Math/Mat4.h"
#include "Plugins/Shared/Math/Vec2.h"
#include "Plugins/Shared/Math/Vec3.h"
#include "Plugins/Shared/Math/Vec4.h"

#include <glbinding/gl/boolean.h>
#include <glbinding/gl/enum.h>
#include <glbinding/gl/functions.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <iostream>
#include <iterator>
#include <vector>

namespace Tessaloom::BilateralBlur {

namespace {

constexpr gl::GLsizei kMaxLog = 512;

using ReadLog = void (*)(gl::GLuint, gl::GLsizei, gl::GLsizei*, gl::GLchar*);

std::string readLog(ReadLog read, gl::GLuint object) {
    std::array<char, kMaxLog + 1> log{};
    gl::GLsizei length = 0;
    read(object, kMaxLog, &length, log.data());
    return {log.data(), static_cast<std::size_t>(length > kMaxLog ? kMaxLog : length)};
}

template<typename... Arguments>
void print(const char* format, Arguments... arguments) {
    std::array<char, kMaxLog + 64> text{};
    std::snprintf(text.data(), text.size(), format, arguments...);
    std::cout << text.data() << std::flush;
}

void dumpShaderErrorS(unsigned shader, const char* stage) {
    print("Shader %s error:\n%s\n", stage, readLog(gl::glGetShaderInfoLog, shader).c_str());
}

} // namespace

OpenglShader::OpenglShader(const std::string& vertex, const std::string& fragment)
    : OpenglShader(vertex, fragment, std::string()) {}

OpenglShader::OpenglShader(const std::string& vertex, const std::string& fragment,
                           const std::string& geometry)
    : mVertexSource(vertex), mFragmentSource(fragment), mGeometrySource(geometry) {}

OpenglShader::~OpenglShader() {
    deleteProgram();
}

void OpenglShader::deleteProgram() {
    if (mProgram && !CGLIsForked())
        gl::glDeleteProgram(mProgram);
    mProgram = 0;
}

void OpenglShader::addAttributeBinding(const std::string& name, int location) {
    mAttributeBindings.emplace(name, location);
}

void OpenglShader::useProgram() {
    if (!mProgram)
        buildShader();
    gl::glUseProgram(mProgram);
}

// Deleting a stage that is attached only marks it, and deleting name 0 does nothing, so one ending serves a
// build that failed at any point as well as one that succeeded.
void OpenglShader::buildShader() {
    const gl::GLuint vertex = gl::glCreateShader(gl::GL_VERTEX_SHADER);
    const gl::GLuint fragment = gl::glCreateShader(gl::GL_FRAGMENT_SHADER);
    const gl::GLuint geometry = mGeometrySource.empty() ? 0 : gl::glCreateShader(gl::GL_GEOMETRY_SHADER);

    if (compileStage(vertex, mVertexSource, "vert") && compileStage(fragment, mFragmentSource, "frag") &&
        (!geometry || compileStage(geometry, mGeometrySource, "geo")))
        mProgram = linkProgram(vertex, fragment, geometry);

    if (mProgram) {
        gl::glDetachShader(mProgram, vertex);
        gl::glDetachShader(mProgram, fragment);
    }
    gl::glDeleteShader(vertex);
    gl::glDeleteShader(fragment);
    if (geometry) {
        if (mProgram)
            gl::glDetachShader(mProgram, geometry);
        gl::glDeleteShader(geometry);
    }
}

bool OpenglShader::compileStage(gl::GLuint stage, const std::string& source, const char* label) const {
    const char* text = source.c_str();
    gl::glShaderSource(stage, 1, &text, nullptr);
    gl::glCompileShader(stage);
    gl::GLint status = 0;
    gl::glGetShaderiv(stage, gl::GL_COMPILE_STATUS, &status);
    if (status == 1)
        return true;
    dumpShaderErrorS(stage, label);
    return false;
}

gl::GLuint OpenglShader::linkProgram(gl::GLuint vertex, gl::GLuint fragment, gl::GLuint geometry) const {
    const gl::GLuint program = gl::glCreateProgram();
    gl::glAttachShader(program, vertex);
    gl::glAttachShader(program, fragment);
    if (geometry)
        gl::glAttachShader(program, geometry);
    for (const auto& [name, location] : mAttributeBindings)
        gl::glBindAttribLocation(program, static_cast<gl::GLuint>(location), name.c_str());
    gl::glLinkProgram(program);
    gl::GLint status = 0;
    gl::glGetProgramiv(program, gl::GL_LINK_STATUS, &status);
    if (status == 1)
        return program;
    print("Program error:\n%s\n", readLog(gl::glGetProgramInfoLog, program).c_str());
    gl::glDeleteProgram(program);
    return 0;
}

int OpenglShader::getUniformLocation(const std::string& name) const {
    return mProgram ? gl::glGetUniformLocation(mProgram, name.c_str()) : -1;
}

int OpenglShader::getAttributeLocation(const std::string& name) const {
    return gl::glGetAttribLocation(mProgram, name.c_str());
}

template<typename... Arguments>
void OpenglShader::setUniform(const std::string& name,
                              std::type_identity_t<void (*)(gl::GLint, Arguments...)> function,
                              Arguments... arguments) const {
    const int location = getUniformLocation(name);
    if (location != -1)
        function(location, arguments...);
}

void OpenglShader::setUniform1i(const std::string& name, int x) const {
    setUniform(name, gl::glUniform1i, x);
}

void OpenglShader::setUniform2i(const std::string& name, int x, int y) const {
    setUniform(name, gl::glUniform2i, x, y);
}

void OpenglShader::setUniform3i(const std::string& name, int x, int y, int z) const {
    setUniform(name, gl::glUniform3i, x, y, z);
}

void OpenglShader::setUniform4i(const std::string& name, int x, int y, int z, int w) const {
    setUniform(name, gl::glUniform4i, x, y, z, w);
}

void OpenglShader::setUniform1f(const std::string& name, float x) const {
    setUniform(name, gl::glUniform1f, x);
}

void OpenglShader::setUniform2f(const std::string& name, float x, float y) const {
    setUniform(name, gl::glUniform2f, x, y);
}

void OpenglShader::setUniform3f(const std::string& name, float x, float y, float z) const {
    setUniform(name, gl::glUniform3f, x, y, z);
}

void OpenglShader::setUniform4f(const std::string& name, float x, float y, float z, float w) const {
    setUniform(name, gl::glUniform4f, x, y, z, w);
}

void OpenglShader::setUniform1iv(const std::string& name, const int* values, int count) const {
    setUniform(name, gl::glUniform1iv, count, values);
}

void OpenglShader::setUniform2iv(const std::string& name, const int* values, int count) const {
    setUniform(name, gl::glUniform2iv, count, values);
}

void OpenglShader::setUniform3iv(const std::string& name, const int* values, int count) const {
    setUniform(name, gl::glUniform3iv, count, values);
}

void OpenglShader::setUniform4iv(const std::string& name, const int* values, int count) const {
    setUniform(name, gl::glUniform4iv, count, values);
}

void OpenglShader::setUniform1fv(const std::string& name, const float* values, int count) const {
    setUniform(name, gl::glUniform1fv, count, values);
}

void OpenglShader::setUniform2fv(const std::string& name, const float* values, int count) const {
    setUniform(name, gl::glUniform2fv, count, values);
}

void OpenglShader::setUniform3fv(const std::string& name, const float* values, int count) const {
    setUniform(name, gl::glUniform3fv, count, values);
}

void OpenglShader::setUniform4fv(const std::string& name, const float* values, int count) const {
    setUniform(name, gl::glUniform4fv, count, values);
}

void OpenglShader::setUniform2f(const std::string& name, const Vec2& value) const {
    setUniform2f(name, static_cast<float>(value.x), static_cast<float>(value.y));
}

void OpenglShader::setUniform3f(const std::string& name, const Vec3& value) const {
    setUniform3f(name, static_cast<float>(value.x), static_cast<float>(value.y), static_cast<float>(value.z));
}

void OpenglShader::setUniform4f(const std::string& name, const Vec4& value) const {
    setUniform4f(name, static_cast<float>(value.x), static_cast<float>(value.y), static_cast<float>(value.z),
                 static_cast<float>(value.w));
}

void OpenglShader::setUniform4f(const std::string& name, const Color& value) const {
    setUniform4f(name, static_cast<float>(value.red), static_cast<float>(value.green),
                 static_cast<float>(value.blue), static_cast<float>(value.alpha));
}

void OpenglShader::setUniformMatrix3f(const std::string& name, Affine* values, int count) const {
    const int location = getUniformLocation(name);
    if (location == -1)
        return;
    std::vector<float> columns;
    columns.reserve(static_cast<std::size_t>(count) * 9);
    for (int matrix = 0; matrix < count; ++matrix) {
        const double* rows = values[matrix].m;
        for (int column = 0; column < 3; ++column) {
            columns.push_back(static_cast<float>(rows[column]));
            columns.push_back(static_cast<float>(rows[column + 3]));
            columns.push_back(column == 2 ? 1.0f : 0.0f);
        }
    }
    gl::glUniformMatrix3fv(location, count, gl::GL_FALSE, columns.data());
}

void OpenglShader::setUniformMatrix4f(const std::string& name, const Mat4& value, int count) const {
    const int location = getUniformLocation(name);
    if (location == -1)
        return;
    std::array<float, 16> elements;
    std::transform(std::begin(value.m), std::end(value.m), elements.begin(),
                   [](double element) { return static_cast<float>(element); });
    gl::glUniformMatrix4fv(location, count, gl::GL_FALSE, elements.data());
}

void OpenglShader::setUniformTexture(const std::string& name, int target, int texture, int unit) const {
    if (!mProgram)
        return;
    gl::glActiveTexture(gl::GL_TEXTURE0 + static_cast<std::uint32_t>(unit));
    gl::glBindTexture(static_cast<gl::GLenum>(target), static_cast<gl::GLuint>(texture));
    setUniform1i(name, unit);
}

void OpenglShader::setAttribute(int location, int components, gl::GLenum type, const void* data,
                                int stride) const {
    const auto index = static_cast<gl::GLuint>(location);
    gl::glEnableVertexAttribArray(index);
    gl::glVertexAttribPointer(index, components, type, gl::GL_FALSE, stride, data);
}

void OpenglShader::setAttribute1iv(int location, const int* data, int stride) const {
    if (mProgram && location != -1)
        setAttribute(location, 1, gl::GL_INT, data, stride);
}

void OpenglShader::setAttribute1fv(const std::string& name, const float* data, int stride) const {
    if (mProgram)
        setAttribute1fv(getAttributeLocation(name), data, stride);
}

void OpenglShader::setAttribute1fv(int location, const float* data, int stride) const {
    if (mProgram && location != -1)
        setAttribute(location, 1, gl::GL_FLOAT, data, stride);
}

void OpenglShader::setAttribute2fv(const std::string& name, const float* data, int stride) const {
    const int location = mProgram ? getAttributeLocation(name) : -1;
    if (location != -1)
        setAttribute2fv(location, data, stride);
}

void OpenglShader::setAttribute2fv(int location, const float* data, int stride) const {
    if (mProgram)
        setAttribute(location, 2, gl::GL_FLOAT, data, stride);
}

void OpenglShader::setAttribute3fv(const std::string& name, const float* data, int stride) const {
    const int location = mProgram ? getAttributeLocation(name) : -1;
    if (location != -1)
        setAttribute3fv(location, data, stride);
}

void OpenglShader::setAttribute3fv(int location, const float* data, int stride) const {
    if (mProgram)
        setAttribute(location, 3, gl::GL_FLOAT, data, stride);
}

void OpenglShader::setAttribute4fv(const std::string& name, const float* data, int stride) const {
    if (mProgram)
        setAttribute4fv(getAttributeLocation(name), data, stride);
}

void OpenglShader::setAttribute4fv(int location, const float* data, int stride) const {
    if (mProgram && location != -1)
        setAttribute(location, 4, gl::GL_FLOAT, data, stride);
}

void OpenglShader::disableVertexAttributeArray(const std::string& name) const {
    const int location = mProgram ? getAttributeLocation(name) : -1;
    if (location != -1)
        disableVertexAttributeArray(location);
}

void OpenglShader::disableVertexAttributeArray(int location) const {
    if (mProgram)
        gl::glDisableVertexAttribArray(static_cast<gl::GLuint>(location));
}

} // namespace Tessaloom::BilateralBlur
