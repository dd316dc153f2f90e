#include "Plugins/Shared/GL/OpenglShader.h"

#include "Plugins/Shared/Math/Affine.h"
#include "Plugins/Shared/Math/Color.h"
#include "Plugins/Shared/Math/Mat4.h"
#include "Plugins/Shared/Math/Vec2.h"
#include "Plugins/Shared/Math/Vec3.h"
#include "Plugins/Shared/Math/Vec4.h"
#include "Tests/GL/GLTest.h"

#include <numeric>

namespace Tessaloom::BilateralBlur {
namespace {

using namespace gl;

constexpr const char* kVertex = R"(#version 330
in vec4 position; in vec2 other; in float single;
void main() { gl_Position = position + vec4(other * single, 0, 0); }
)";

constexpr const char* kPlain = "#version 330\nout vec4 colour; void main() { colour = vec4(1); }\n";

constexpr const char* kGeometry = R"(#version 330
layout(points) in; layout(points, max_vertices = 1) out; uniform vec4 shift;
void main() { gl_Position = gl_in[0].gl_Position + shift; EmitVertex(); }
)";

class OpenglShaderTest : public GLTest {
protected:
    // The programs and shaders that there are.
    static int objects() {
        int count = 0;
        for (GLuint name = 1; name < 64; ++name)
            count += glIsShader(name) || glIsProgram(name);
        return count;
    }

    // The second of two uniforms `u` of a type, after `set` was called on their program; its components with
    // blanks between them. Before the program is built the setter must do nothing.
    template<typename Setter>
    static std::string uniform(const std::string& type, Setter set) {
        OpenglShader shader(kVertex, "#version 330\nuniform " + type +
                                         " u[2]; out vec4 c; void main() { c = vec4(u[0] == u[1]); }\n");
        GLCalls calls;
        set(shader);
        EXPECT_THAT(calls.names, testing::IsEmpty());
        shader.useProgram();
        set(shader);
        std::vector<float> values(16, 99);
        glGetUniformfv(integer<GLuint>(GL_CURRENT_PROGRAM), shader.getUniformLocation("u[1]"), values.data());
        std::ostringstream text;
        for (std::size_t i = 0; i < values.size() && values[i] != 99; ++i)
            text << (i ? " " : "") << values[i];
        return text.str();
    }
};

TEST_F(OpenglShaderTest, PrintsTheLogOfEachFailedBuild) {
    const std::string broken = "#version 330\nvoid main() { nonsense; }\n";
    const std::string chatty = "#version 330\n#error " + std::string(2000, 'x') + "\nvoid main() {}\n";
    const std::string idle = "#version 330\nvoid helper() {}\n";
    struct {
        OpenglShader shader;
        const char* output;
    } cases[] = {
        {{broken, kPlain}, "Shader vert error:\n.*nonsense.*\n"},
        {{kVertex, broken}, "Shader frag error:\n.*nonsense.*\n"},
        {{kVertex, kPlain, broken}, "Shader geo error:\n.*nonsense.*\n"},
        // GL counts the terminator among the 512 characters of a log.
        {{kVertex, chatty}, "Shader frag error:\n.{500}x{11}\n"},
        {{kVertex, idle}, "Program error:\n.+\n"},
    };
    for (auto& [shader, expected] : cases)
        for (int attempt = 0; attempt < 2; ++attempt) {
            testing::internal::CaptureStdout();
            shader.useProgram();
            EXPECT_THAT(testing::internal::GetCapturedStdout(), testing::MatchesRegex(expected));
            EXPECT_EQ(objects(), 0);
        }
}

TEST_F(OpenglShaderTest, SetsUniformsOfEveryKind) {
    const int i[] = {1, -2, 3, -4};
    const float f[] = {1, -2, 3, -4, 5, -6};
    Affine affines[] = {Affine(true), Affine(1.5, 2, 3, 4.25, 5, 6)};
    Mat4 matrix;
    std::iota(std::begin(matrix.m), std::end(matrix.m), 1);
    EXPECT_EQ(uniform("ivec4", [](auto& s) { s.setUniform4i("u[1]", 2, 3, 4, 5); }), "2 3 4 5");
    EXPECT_EQ(uniform("float", [](auto& s) { s.setUniform1f("u[1]", 0.1f); }), "0.1");
    EXPECT_EQ(uniform("vec2", [](auto& s) { s.setUniform2f("u[1]", Vec2(0.1, 0.2)); }), "0.1 0.2");
    EXPECT_EQ(uniform("vec3", [](auto& s) { s.setUniform3f("u[1]", Vec3(2, 3, 4)); }), "2 3 4");
    EXPECT_EQ(uniform("vec4", [](auto& s) { s.setUniform4f("u[1]", Vec4(2, 3, 4, 5)); }), "2 3 4 5");
    EXPECT_EQ(uniform("vec4", [](auto& s) { s.setUniform4f("u[1]", Color(0.5, 1, 0, 2)); }), "0.5 1 0 2");
    EXPECT_EQ(uniform("ivec2", [&](auto& s) { s.setUniform2iv("u", i, 2); }), "3 -4");
    EXPECT_EQ(uniform("vec3", [&](auto& s) { s.setUniform3fv("u", f, 2); }), "-4 5 -6");
    EXPECT_EQ(uniform("mat3", [&](auto& s) { s.setUniformMatrix3f("u", affines, 2); }),
              "1.5 2 0 3 4.25 0 5 6 1");
    EXPECT_EQ(uniform("mat4", [&](auto& s) { s.setUniformMatrix4f("u[1]", matrix, 1); }),
              "1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16");
}

TEST_F(OpenglShaderTest, BuildsThreeStagesAndBindsTexturesWithoutASampler) {
    OpenglShader shader(kVertex, kPlain, kGeometry);
    const GLuint texture = makeTexture(1, 1);
    const auto bind = [&] {
        shader.setUniformTexture("absent", static_cast<int>(GL_TEXTURE_2D), static_cast<int>(texture), 3);
    };
    bind();
    EXPECT_EQ(integer<GLenum>(GL_ACTIVE_TEXTURE), GL_TEXTURE0) << "not yet in use";
    shader.useProgram();
    bind();
    EXPECT_EQ(integer<GLenum>(GL_ACTIVE_TEXTURE), GL_TEXTURE3);
    EXPECT_EQ(integer<GLuint>(GL_TEXTURE_BINDING_2D), texture);
    EXPECT_NE(shader.getUniformLocation("shift"), -1);
    EXPECT_EQ(objects(), 1) << "the stages are deleted";
}

TEST_F(OpenglShaderTest, SetsAttributesByNameAndLocation) {
    OpenglShader shader(kVertex, kPlain);
    shader.addAttributeBinding("other", 5);
    shader.addAttributeBinding("other", 7);
    const auto components = [] {
        GLint enabled = 0, size = 0;
        glGetVertexAttribiv(5, GL_VERTEX_ATTRIB_ARRAY_ENABLED, &enabled);
        glGetVertexAttribiv(5, GL_VERTEX_ATTRIB_ARRAY_SIZE, &size);
        return enabled ? size : 0;
    };
    GLuint vertexArray = 0;
    glGenVertexArrays(1, &vertexArray);
    glBindVertexArray(vertexArray);
    shader.setAttribute4fv(5, nullptr, 20);
    EXPECT_EQ(components(), 0) << "not yet in use";
    shader.useProgram();
    shader.setAttribute3fv("other", nullptr, 20);
    EXPECT_EQ(components(), 3) << "the first binding counts";
    shader.disableVertexAttributeArray("other");
    EXPECT_EQ(components(), 0);
    shader.setAttribute4fv(-1, nullptr, 20);
    shader.setAttribute2fv("absent", nullptr, 20);
    EXPECT_EQ(glGetError(), GL_NO_ERROR);
    shader.setAttribute2fv(-1, nullptr, 20);
    EXPECT_NE(glGetError(), GL_NO_ERROR) << "this one passes -1 on to GL";
}

} // namespace
} // namespace Tessaloom::BilateralBlur
