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
out vec2 pair;
void main() { pair = other * single; gl_Position = position; }
)";

// Every uniform counts, so that the linker keeps them all.
constexpr const char* kFragment = R"(#version 330
uniform ivec4 i4; uniform float f1; uniform vec2 f2; uniform vec3 f3; uniform vec4 f4; uniform vec4 c4;
uniform int ia1[2]; uniform ivec2 ia2[2]; uniform ivec3 ia3[2]; uniform ivec4 ia4[2];
uniform float fa1[2]; uniform vec2 fa2[2]; uniform vec3 fa3[2]; uniform vec4 fa4[2];
uniform mat3 m3[2]; uniform mat4 m4; uniform sampler2D picture;
in vec2 pair; out vec4 colour;
void main() {
    colour = i4 + f1 + f2.xyxy + f3.xyzx + f4 + c4 + m4 * vec4(m3[1] * m3[0] * f3, 1) + texture(picture, pair)
        + vec4(ia1[1], ia2[1].y, ia3[1].z, ia4[1].w) + vec4(fa1[1], fa2[1].y, fa3[1].z, fa4[1].w);
}
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

    // The components of a uniform with blanks between them.
    static std::string uniform(const OpenglShader& shader, const std::string& name) {
        std::vector<float> values(16, 99);
        glGetUniformfv(integer<GLuint>(GL_CURRENT_PROGRAM), shader.getUniformLocation(name), values.data());
        std::ostringstream text;
        for (std::size_t i = 0; i < values.size() && values[i] != 99; ++i)
            text << (i ? " " : "") << values[i];
        return text.str();
    }
};

TEST_F(OpenglShaderTest, PrintsTheLogOfABuildThatFailsAndTriesAgain) {
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

TEST_F(OpenglShaderTest, BuildsAllThreeStagesAndKeepsTheProgramAlone) {
    OpenglShader shader(kVertex, kPlain, kGeometry);
    shader.useProgram();
    EXPECT_NE(shader.getUniformLocation("shift"), -1);
    EXPECT_EQ(objects(), 1);
}

// Before the program is built nothing reaches GL. A setter that then called another function of GL than its
// name says would leave an error.
TEST_F(OpenglShaderTest, HandsUniformsToGLOnceItIsInUse) {
    OpenglShader shader(kVertex, kFragment);
    const GLuint texture = makeTexture(1, 1);
    const int i[] = {1, -2, 3, -4, 5, -6, 7, -8};
    const float f[] = {1, -2, 3, -4, 5, -6, 7, -8};
    Affine affines[] = {Affine(true), Affine(1.5, 2, 3, 4.25, 5, 6)};
    Mat4 matrix;
    std::iota(std::begin(matrix.m), std::end(matrix.m), 1);
    for (const bool inUse : {false, true}) {
        const GLCalls calls;
        if (inUse)
            shader.useProgram();
        shader.setUniform4i("i4", 1, 2, 3, 4);
        shader.setUniform1f("f1", 0.1f);
        shader.setUniform2f("f2", Vec2(0.1, 0.2));
        shader.setUniform3f("f3", Vec3(4, 5, 6));
        shader.setUniform4f("f4", Vec4(5, 6, 7, 8));
        shader.setUniform4f("c4", Color(0.25, 0.5, 0.75, 1));
        shader.setUniform1iv("ia1", i, 2);
        shader.setUniform2iv("ia2", i, 2);
        shader.setUniform3iv("ia3", i, 2);
        shader.setUniform4iv("ia4", i, 2);
        shader.setUniform1fv("fa1", f, 2);
        shader.setUniform2fv("fa2", f, 2);
        shader.setUniform3fv("fa3", f, 2);
        shader.setUniform4fv("fa4", f, 2);
        shader.setUniformMatrix3f("m3", affines, 2);
        shader.setUniformMatrix4f("m4", matrix, 1);
        shader.setUniformTexture("picture", static_cast<int>(GL_TEXTURE_2D), 0, 2);
        shader.setUniformTexture("absent", static_cast<int>(GL_TEXTURE_2D), static_cast<int>(texture), 3);
        EXPECT_EQ(calls.counts.empty(), !inUse);
    }
    EXPECT_EQ(integer<GLuint>(GL_TEXTURE_BINDING_2D), texture) << "even without its sampler";
    EXPECT_EQ(integer<GLenum>(GL_ACTIVE_TEXTURE), GL_TEXTURE3);
    std::vector<std::string> found;
    for (const char* name : {"i4", "f1", "f2", "f3", "f4", "c4", "m3[0]", "m3[1]", "m4", "picture", "ia1[1]",
                             "ia2[1]", "ia3[1]", "ia4[1]", "fa1[1]", "fa2[1]", "fa3[1]", "fa4[1]"})
        found.push_back(uniform(shader, name));
    EXPECT_THAT(found, testing::ElementsAre("1 2 3 4", "0.1", "0.1 0.2", "4 5 6", "5 6 7 8",
                                            "0.25 0.5 0.75 1", "1 0 0 0 1 0 0 0 1", "1.5 2 0 3 4.25 0 5 6 1",
                                            "1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16", "2", "-2", "3 -4",
                                            "-4 5 -6", "5 -6 7 -8", "-2", "3 -4", "-4 5 -6", "5 -6 7 -8"));
}

TEST_F(OpenglShaderTest, SetsAttributesAndKnowsWhichTakeNoLocation) {
    OpenglShader shader(kVertex, kFragment);
    shader.addAttributeBinding("other", 5);
    shader.addAttributeBinding("other", 7);
    const auto set = [&](int size, const auto& attribute) {
        size == 1   ? shader.setAttribute1fv(attribute, nullptr, 20)
        : size == 2 ? shader.setAttribute2fv(attribute, nullptr, 20)
        : size == 3 ? shader.setAttribute3fv(attribute, nullptr, 20)
                    : shader.setAttribute4fv(attribute, nullptr, 20);
    };
    const auto components = [] {
        GLint enabled = 0, size = 0;
        glGetVertexAttribiv(5, GL_VERTEX_ATTRIB_ARRAY_ENABLED, &enabled);
        glGetVertexAttribiv(5, GL_VERTEX_ATTRIB_ARRAY_SIZE, &size);
        return enabled ? size : 0;
    };
    {
        const GLCalls calls;
        for (int size = 1; size <= 4; ++size) {
            set(size, 5);
            set(size, "other");
        }
        shader.disableVertexAttributeArray(5);
        EXPECT_THAT(calls.counts, testing::IsEmpty()) << "not yet in use";
    }
    shader.useProgram();
    GLuint vertexArray = 0;
    glGenVertexArrays(1, &vertexArray);
    glBindVertexArray(vertexArray);
    for (int size = 1; size <= 4; ++size) {
        set(size, 5);
        EXPECT_EQ(components(), size) << "the first binding holds";
        shader.disableVertexAttributeArray("other");
        EXPECT_EQ(components(), 0);
        set(size, "other");
        EXPECT_EQ(components(), size);
        set(size, "absent");
        EXPECT_EQ(glGetError(), GL_NO_ERROR);
        set(size, -1);
        EXPECT_EQ(glGetError() != GL_NO_ERROR, size == 2 || size == 3) << "these hand -1 on to GL";
        shader.disableVertexAttributeArray(5);
    }
}

} // namespace
} // namespace Tessaloom::BilateralBlur
