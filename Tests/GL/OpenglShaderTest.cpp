#include "Plugins/Shared/GL/OpenglShader.h"

#include "Plugins/Shared/Math/Affine.h"
#include "Plugins/Shared/Math/Color.h"
#include "Plugins/Shared/Math/Mat4.h"
#include "Tests/GL/GLTest.h"

#include <numeric>

namespace Tessaloom::BilateralBlur {
namespace {

using namespace gl;
using testing::ElementsAre;
using OpenglShaderTest = GLTest;

constexpr const char* kVertex = R"(#version 330
in vec4 position; in vec2 other;
void main() { gl_Position = position + vec4(other, 0, 0); }
)";

constexpr const char* kFragment = R"(#version 330
uniform vec3 list[2]; uniform vec4 colour; uniform mat3 plane[2]; uniform mat4 space; out vec4 result;
void main() { result = vec4(list[0] + plane[1] * list[1], 1) + space * colour; }
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

TEST_F(OpenglShaderTest, SetsUniformsTexturesAndAttributesOnceItIsBuilt) {
    OpenglShader shader(kVertex, kFragment, kGeometry);
    shader.addAttributeBinding("other", 5);
    shader.addAttributeBinding("other", 7);
    const GLuint texture = makeTexture(1, 1);
    const float list[] = {1, -2, 3, -4, 5, -6};
    Affine planes[] = {Affine(true), Affine(1.5, 2, 3, 4.25, 5, 6)};
    Mat4 space;
    std::iota(std::begin(space.m), std::end(space.m), 1);
    const auto set = [&] {
        shader.setUniform3fv("list", list, 2);
        shader.setUniform4f("colour", Color(0.5, 1, 0, 2));
        shader.setUniformMatrix3f("plane", planes, 2);
        shader.setUniformMatrix4f("space", space, 1);
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
    const auto uniform = [&](const char* name, std::size_t components) {
        std::vector<float> values(components);
        glGetUniformfv(integer<GLuint>(GL_CURRENT_PROGRAM), shader.getUniformLocation(name), values.data());
        return values;
    };
    EXPECT_THAT(uniform("list[1]", 3), ElementsAre(-4, 5, -6));
    EXPECT_THAT(uniform("colour", 4), ElementsAre(0.5, 1, 0, 2));
    EXPECT_THAT(uniform("plane[1]", 9), ElementsAre(1.5, 2, 0, 3, 4.25, 0, 5, 6, 1));
    EXPECT_THAT(uniform("space", 16), testing::ElementsAreArray(space.m));
    EXPECT_NE(shader.getUniformLocation("shift"), -1) << "of the geometry stage";
    EXPECT_EQ(integer<GLenum>(GL_ACTIVE_TEXTURE), GL_TEXTURE3);
    EXPECT_EQ(integer<GLuint>(GL_TEXTURE_BINDING_2D), texture);
    GLint components = 0;
    glGetVertexAttribiv(5, GL_VERTEX_ATTRIB_ARRAY_SIZE, &components);
    EXPECT_EQ(components, 3) << "the first binding counts";
}

} // namespace
} // namespace Tessaloom::BilateralBlur
