#include "Plugins/Shared/GL/OpenglShader.h"

#include "Plugins/Shared/Math/Affine.h"
#include "Plugins/Shared/Math/Color.h"
#include "Plugins/Shared/Math/Mat4.h"
#include "Tests/GL/GLTest.h"

namespace Tessaloom::BilateralBlur {
namespace {

using namespace gl;
using OpenglShaderTest = GLTest;

constexpr const char* kVertex = R"(#version 330
in vec4 position; in vec2 other;
void main() { gl_Position = position + vec4(other, 0, 0); }
)";

constexpr const char* kFragment = R"(#version 330
out vec4 result;
void main() { result = vec4(1); }
)";

constexpr const char* kGeometry = R"(#version 330
layout(points) in; layout(points, max_vertices = 1) out; uniform vec4 shift;
void main() { gl_Position = gl_in[0].gl_Position + shift; EmitVertex(); }
)";

TEST_F(OpenglShaderTest, PrintsTheLogOfEachFailedBuildAndKeepsNothing) {
    const std::string chatty = "#version 330\n#error " + std::string(2000, 'x') + "\nvoid main() {}\n";
    struct {
        OpenglShader shader;
        const char* output;
    } cases[] = {
        {{"nonsense", kFragment}, "Shader vert error:\n.+\n"},
        {{kVertex, kFragment, "nonsense"}, "Shader geo error:\n.+\n"},
        // GL counts the terminator among the 512 characters of a log.
        {{kVertex, chatty}, "Shader frag error:\n.{500}x{11}\n"},
        {{kVertex, "#version 330\nvoid helper() {}\n"}, "Program error:\n.+\n"},
    };
    GLCalls calls;
    for (auto& [shader, expected] : cases)
        for (int attempt = 0; attempt < 2; ++attempt) {
            testing::internal::CaptureStdout();
            shader.useProgram();
            EXPECT_THAT(testing::internal::GetCapturedStdout(), testing::MatchesRegex(expected));
        }
    EXPECT_EQ(calls.counts["glDeleteShader"], calls.counts["glCreateShader"]);
    EXPECT_EQ(calls.counts["glDeleteProgram"], calls.counts["glCreateProgram"]);
}

// What each setter leaves in a uniform of its type: the last of an array.
TEST_F(OpenglShaderTest, SetsUniformsOfEachType) {
    static constexpr int kInts[] = {1, -2, 3, -4, 5, -6, 7, -8};
    static constexpr float kFloats[] = {1.5f, -2.5f, 3.5f, -4.5f, 5.5f, -6.5f, 7.5f, -8.5f};
    static Affine mPlanes[] = {Affine(true), Affine(1.5, 2, 3, 4.25, 5, 6)};
    static const Mat4 kSpace({1, 2, 3, 4}, {5, 6, 7, 8}, {9, 0, 1, 2}, {3, 4, 5, 6}, false);
    const std::tuple<const char*, void (*)(const OpenglShader&), std::vector<float>> rows[] = {
        {"int", [](auto& s) { s.setUniform1i("u[1]", 3); }, {3}},
        {"ivec2", [](auto& s) { s.setUniform2i("u[1]", 3, 4); }, {3, 4}},
        {"ivec3", [](auto& s) { s.setUniform3i("u[1]", 3, 4, 5); }, {3, 4, 5}},
        {"ivec4", [](auto& s) { s.setUniform4i("u[1]", 3, 4, 5, 6); }, {3, 4, 5, 6}},
        {"int", [](auto& s) { s.setUniform1iv("u", kInts, 2); }, {-2}},
        {"ivec2", [](auto& s) { s.setUniform2iv("u", kInts, 2); }, {3, -4}},
        {"ivec3", [](auto& s) { s.setUniform3iv("u", kInts, 2); }, {-4, 5, -6}},
        {"ivec4", [](auto& s) { s.setUniform4iv("u", kInts, 2); }, {5, -6, 7, -8}},
        {"float", [](auto& s) { s.setUniform1f("u[1]", 0.5f); }, {0.5f}},
        {"float", [](auto& s) { s.setUniform1fv("u", kFloats, 2); }, {-2.5f}},
        {"vec2", [](auto& s) { s.setUniform2fv("u", kFloats, 2); }, {3.5f, -4.5f}},
        {"vec3", [](auto& s) { s.setUniform3fv("u", kFloats, 2); }, {-4.5f, 5.5f, -6.5f}},
        {"vec4", [](auto& s) { s.setUniform4fv("u", kFloats, 2); }, {5.5f, -6.5f, 7.5f, -8.5f}},
        {"vec2", [](auto& s) { s.setUniform2f("u[1]", Vec2(1, 2)); }, {1, 2}},
        {"vec3", [](auto& s) { s.setUniform3f("u[1]", Vec3(1, 2, 3)); }, {1, 2, 3}},
        {"vec4", [](auto& s) { s.setUniform4f("u[1]", Vec4(1, 2, 3, 4)); }, {1, 2, 3, 4}},
        {"vec4", [](auto& s) { s.setUniform4f("u[1]", Color(0.5, 1, 0, 2)); }, {0.5f, 1, 0, 2}},
        {"mat3", [](auto& s) { s.setUniformMatrix3f("u", mPlanes, 2); }, {1.5, 2, 0, 3, 4.25, 0, 5, 6, 1}},
        {"mat4",
         [](auto& s) { s.setUniformMatrix4f("u[1]", kSpace, 1); },
         {1, 2, 3, 4, 5, 6, 7, 8, 9, 0, 1, 2, 3, 4, 5, 6}},
    };
    for (const auto& [type, set, expected] : rows) {
        OpenglShader shader("#version 330\nvoid main() { gl_Position = vec4(0); }\n",
                            std::string("#version 330\nuniform ") + type +
                                " u[2]; uniform int which; out vec4 result;\n"
                                "void main() { result = vec4(vec4(1) * float(u[which] == u[0])); }\n");
        shader.useProgram();
        set(shader);
        std::vector<float> values(expected.size());
        glGetUniformfv(integer<GLuint>(GL_CURRENT_PROGRAM), shader.getUniformLocation("u[1]"), values.data());
        EXPECT_EQ(values, expected) << type;
        glUseProgram(0);
    }
}

TEST_F(OpenglShaderTest, SetsTexturesAndAttributesOnceItIsBuilt) {
    OpenglShader shader(kVertex, kFragment, kGeometry);
    shader.addAttributeBinding("other", 5);
    shader.addAttributeBinding("other", 7);
    const GLuint texture = makeTexture(1, 1);
    const auto set = [&] {
        shader.setUniformTexture("absent", static_cast<int>(GL_TEXTURE_2D), static_cast<int>(texture), 3);
        shader.setAttribute3fv("other", nullptr, 20);
        shader.setAttribute2fv("absent", nullptr, 20);
    };
    GLuint vertexArray = 0;
    glGenVertexArrays(1, &vertexArray);
    glBindVertexArray(vertexArray);
    set();
    EXPECT_EQ(integer<GLenum>(GL_ACTIVE_TEXTURE), GL_TEXTURE0) << "not yet built";
    shader.useProgram();
    set();
    EXPECT_NE(shader.getUniformLocation("shift"), -1) << "of the geometry stage";
    EXPECT_EQ(integer<GLenum>(GL_ACTIVE_TEXTURE), GL_TEXTURE3);
    EXPECT_EQ(integer<GLuint>(GL_TEXTURE_BINDING_2D), texture);
    GLint components = 0;
    glGetVertexAttribiv(5, GL_VERTEX_ATTRIB_ARRAY_SIZE, &components);
    EXPECT_EQ(components, 3) << "the first binding counts";
}

} // namespace
} // namespace Tessaloom::BilateralBlur
