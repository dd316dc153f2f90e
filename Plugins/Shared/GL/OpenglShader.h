#pragma once

#include <glbinding/gl/types.h>

#include <map>
#include <string>
#include <type_traits>

namespace Tessaloom::BilateralBlur {

class Affine;
class Color;
class Mat4;
class Vec2;
class Vec3;
class Vec4;

/// A GL program: the texts of its stages, built by the first `useProgram` in the context that is current
/// then, and typed setters for its uniforms and vertex attributes.
///
/// Failures aren't reported to the caller. A stage that doesn't compile or a program that doesn't link prints
/// its log to standard output and leaves the object without a program: each later `useProgram` tries again,
/// all setters do nothing, and draws run without a program. Setters ignore names that the program doesn't
/// have.
class OpenglShader {
public:
    /// Makes no GL call, so an object may be built before any context exists.
    OpenglShader(const std::string& vertex, const std::string& fragment);
    /// An empty `geometry` means no geometry stage.
    OpenglShader(const std::string& vertex, const std::string& fragment, const std::string& geometry);
    /// Deletes the program, if one was built: then a context of its share group must be current.
    virtual ~OpenglShader();
    OpenglShader(const OpenglShader&) = delete;
    OpenglShader& operator=(const OpenglShader&) = delete;

    /// Binds an attribute to a location. Has no effect after the program was built; a second call with the
    /// same name changes nothing.
    void addAttributeBinding(const std::string& name, int location);

    /// Builds the program if there is none, and makes it the current one.
    void useProgram();

    /// Deletes the program now. The next `useProgram` builds another one.
    void deleteProgram();

    /// -1 if the program has no such uniform, or if there is no program.
    int getUniformLocation(const std::string& name) const;
    int getAttributeLocation(const std::string& name) const;

    void setUniform1i(const std::string& name, int x) const;
    void setUniform2i(const std::string& name, int x, int y) const;
    void setUniform3i(const std::string& name, int x, int y, int z) const;
    void setUniform4i(const std::string& name, int x, int y, int z, int w) const;
    void setUniform1f(const std::string& name, float x) const;
    void setUniform2f(const std::string& name, float x, float y) const;
    void setUniform3f(const std::string& name, float x, float y, float z) const;
    void setUniform4f(const std::string& name, float x, float y, float z, float w) const;

    /// `count` is the number of vectors in `values`.
    void setUniform1iv(const std::string& name, const int* values, int count) const;
    void setUniform2iv(const std::string& name, const int* values, int count) const;
    void setUniform3iv(const std::string& name, const int* values, int count) const;
    void setUniform4iv(const std::string& name, const int* values, int count) const;
    void setUniform1fv(const std::string& name, const float* values, int count) const;
    void setUniform2fv(const std::string& name, const float* values, int count) const;
    void setUniform3fv(const std::string& name, const float* values, int count) const;
    void setUniform4fv(const std::string& name, const float* values, int count) const;

    /// Values of the math toolkit, narrowed from double to float, components in field order.
    void setUniform2f(const std::string& name, const Vec2& value) const;
    void setUniform3f(const std::string& name, const Vec3& value) const;
    void setUniform4f(const std::string& name, const Vec4& value) const;
    void setUniform4f(const std::string& name, const Color& value) const;
    /// `count` transforms, each as a 3 by 3 matrix with the translation in its third column.
    void setUniformMatrix3f(const std::string& name, Affine* values, int count) const;
    /// One matrix in its storage order; `count` must be 1.
    void setUniformMatrix4f(const std::string& name, const Mat4& value, int count) const;

    /// Binds `texture` to `target` on texture unit `unit` and points the sampler `name` at the unit. The
    /// texture is bound also when the program has no such sampler.
    void setUniformTexture(const std::string& name, int target, int texture, int unit) const;

    /// Attribute arrays of 1 to 4 components. `data` is an address, or a byte offset into the buffer that is
    /// bound to `GL_ARRAY_BUFFER`; `stride` is in bytes.
    void setAttribute1iv(int location, const int* data, int stride) const;
    void setAttribute1fv(const std::string& name, const float* data, int stride) const;
    void setAttribute1fv(int location, const float* data, int stride) const;
    void setAttribute2fv(const std::string& name, const float* data, int stride) const;
    void setAttribute2fv(int location, const float* data, int stride) const;
    void setAttribute3fv(const std::string& name, const float* data, int stride) const;
    void setAttribute3fv(int location, const float* data, int stride) const;
    void setAttribute4fv(const std::string& name, const float* data, int stride) const;
    void setAttribute4fv(int location, const float* data, int stride) const;
    void disableVertexAttributeArray(const std::string& name) const;
    void disableVertexAttributeArray(int location) const;

private:
    void buildShader();
    bool compileStage(gl::GLuint stage, const std::string& source, const char* label) const;
    gl::GLuint linkProgram(gl::GLuint vertex, gl::GLuint fragment, gl::GLuint geometry) const;
    template<typename... Arguments>
    void setUniform(const std::string& name, std::type_identity_t<void (*)(gl::GLint, Arguments...)> function,
                    Arguments... arguments) const;
    void setAttribute(int location, int components, gl::GLenum type, const void* data, int stride) const;

    std::string mVertexSource;
    std::string mFragmentSource;
    std::string mGeometrySource;
    gl::GLuint mProgram = 0;
    std::map<std::string, int> mAttributeBindings;
};

} // namespace Tessaloom::BilateralBlur
