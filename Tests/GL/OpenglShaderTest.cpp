#include "Plugins/Shared/GL/OpenglShader.h"

#include "Plugins/Shared/Math/Affine.h"
#include "Plugins/Shared/Math/Color.h"
#include "Plugins/Shared/Math/Mat4.h"
#include "Plugins/Shared/Math/Vec2.h"
#include "Plugins/Shared/Math/Vec3.h"
#include "Plugins/Shared/Math/Vec4.h"
#include "Tests/GL/GLTest.h"

namespace Tessaloom::BilateralBlur {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kVertex = R"(#version 330
in vec4 position; in vec2 other; in float single;
out vec2 pair;
void main() { pair = other * single; gl_Position = position; }
)";

// Every uniform counts, so that the linker keeps them all.
constexpr const char* kFragment = R"(#version 330
uniform int i1; uniform ivec2 i2; uniform ivec3 i3; uniform ivec4 i4;
uniform float f1; uniform vec2 f2; uniform vec3 f3; uniform vec4 f4;
uniform int ia1[2]; uniform ivec2 ia2[2]; uniform ivec3 ia3[2]; uniform ivec4 ia4[2];
uniform float fa1[2]; uniform vec2 fa2[2]; uniform vec3 fa3[2]; uniform vec4 fa4[2];
uniform mat3 m3[2]; uniform mat4 m4; uniform sampler2D picture;
in vec2 pair;
out vec4 colour;
void main() {
    colour = vec4(i1 + i2.y, i3.z, i4.w, f1) + f2.xyxy + f3.xyzx + f4 + m4 * vec4(m3[1] * m3[0] * f3, 1)
        + vec4(ia1[0] + ia1[1], ia2[0].x + ia2[1].y, ia3[0].x + ia3[1].z, ia4[0].x + ia4[1].w)
        + vec4(fa1[0] + fa1[1], fa2[0].x + fa2[1].y, fa3[0].x + fa3[1].z, fa4[0].x + fa4[1].w)
        + texture(picture, pair);
}
)";

constexpr const char* kGeometry = R"(#version 330
layout(points) in; layout(points, max_vertices = 1) out;
void main() { gl_Position = gl_in[0].gl_Position; EmitVertex(); }
)";

constexpr const char* kPlain = "#version 330\nout vec4 colour; void main() { colour = vec4(1); }\n";

bool anyProgramOrShader() {
    for (gl::GLuint name = 1; name < 64; ++name)
        if (gl::glIsShader(name) || gl::glIsProgram(name))
            return true;
    return false;
}

class OpenglShaderTest : public GLTest {
protected:
    // The components of a uniform with blanks between them.
    static std::string uniform(const OpenglShader& shader, const std::string& name) {
        std::vector<float> values(16, 99);
        gl::glGetUniformfv(integer<gl::GLuint>(gl::GL_CURRENT_PROGRAM), shader.getUniformLocation(name),
                           values.data());
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
    const auto log = [](const char* label) {
        return AllOf(testing::StartsWith(std::string("Shader ") + label + " error:\n"),
                     testing::HasSubstr("nonsense"), testing::EndsWith("\n"));
    };
    struct {
        OpenglShader shader;
        testing::Matcher<std::string> output;
    } cases[] = {
        {{broken, kFragment}, log("vert")},
        {{kVertex, broken}, log("frag")},
        {{kVertex, kPlain, broken}, log("geo")},
        // GL counts the terminator among the 512 characters.
        {{kVertex, chatty},
         AllOf(testing::StartsWith("Shader frag error:\n"), testing::EndsWith("xxx\n"),
               testing::SizeIs(19 + 511 + 1))},
        {{kVertex, idle}, AllOf(testing::MatchesRegex("Program error:\n.+\n"))},
    };
    for (auto& [shader, expected] : cases)
        for (int attempt = 0; attempt < 2; ++attempt) {
            const CapturedOutput output;
            shader.useProgram();
            EXPECT_THAT(output.text(), expected);
            EXPECT_EQ(integer(gl::GL_CURRENT_PROGRAM), 0);
            EXPECT_EQ(shader.getUniformLocation("f1"), -1);
            EXPECT_FALSE(anyProgramOrShader());
        }
}

TEST_F(OpenglShaderTest, BuildsOnceAtItsFirstUse) {
    const GLCalls calls;
    {
        OpenglShader shader(kVertex, kPlain, kGeometry);
        const float value = 1;
        Affine affine;
        shader.setUniform4fv("fa4", &value, 1);
        shader.setUniformMatrix3f("m3", &affine, 1);
        shader.setUniformMatrix4f("m4", Mat4(), 1);
        shader.setUniformTexture("picture", static_cast<int>(gl::GL_TEXTURE_2D), 1, 0);
        shader.setAttribute2fv("other", nullptr, 8);
        shader.setAttribute2fv(1, nullptr, 8);
        shader.disableVertexAttributeArray(1);
        EXPECT_THAT(calls.names, IsEmpty());
        shader.useProgram();
        shader.useProgram();
        EXPECT_EQ(calls.count("glCreateShader"), 3);
        EXPECT_EQ(calls.count("glDetachShader"), 3);
        EXPECT_EQ(calls.count("glCreateProgram"), 1);
        gl::glUseProgram(0);
    }
    EXPECT_FALSE(anyProgramOrShader());
}

// A setter that called another function of GL than its name says would leave an error.
TEST_F(OpenglShaderTest, HandsUniformsToGL) {
    OpenglShader shader(kVertex, kFragment);
    shader.useProgram();
    const int i[] = {1, -2, 3, -4, 5, -6, 7, -8};
    const float f[] = {1.5f, -2, 3, -4, 5, -6, 7, -8.5f};
    shader.setUniform1i("i1", -3);
    shader.setUniform2i("i2", 1, 2);
    shader.setUniform3i("i3", 1, 2, 3);
    shader.setUniform4i("i4", 1, 2, 3, 4);
    shader.setUniform1f("f1", 0.1f);
    shader.setUniform1iv("ia1", i, 2);
    shader.setUniform2iv("ia2", i, 2);
    shader.setUniform3iv("ia3", i, 2);
    shader.setUniform4iv("ia4", i, 2);
    shader.setUniform1fv("fa1", f, 2);
    shader.setUniform2fv("fa2", f, 2);
    shader.setUniform3fv("fa3", f, 2);
    shader.setUniform4fv("fa4", f, 2);
    shader.setUniform2f("f2", Vec2(0.1, 0.2));
    shader.setUniform3f("f3", Vec3(4, 5, 6));
    shader.setUniform4f("f4", Vec4(5, 6, 7, 8));
    const std::pair<const char*, const char*> expected[] = {
        {"i1", "-3"},      {"i2", "1 2"},      {"i3", "1 2 3"},       {"i4", "1 2 3 4"},
        {"f1", "0.1"},     {"f2", "0.1 0.2"},  {"f3", "4 5 6"},       {"f4", "5 6 7 8"},
        {"ia1[1]", "-2"},  {"ia2[1]", "3 -4"}, {"ia3[1]", "-4 5 -6"}, {"ia4[1]", "5 -6 7 -8"},
        {"fa1[0]", "1.5"}, {"fa2[1]", "3 -4"}, {"fa3[1]", "-4 5 -6"}, {"fa4[1]", "5 -6 7 -8.5"}};
    for (const auto& [name, values] : expected)
        EXPECT_EQ(uniform(shader, name), values) << name;

    Affine affines[] = {Affine(true), Affine(1.5, 2, 3, 4.25, 5, 6)};
    Mat4 matrix;
    for (const int element : {1, 12, 13, 14})
        matrix.m[element] = element + 0.5;
    shader.setUniformMatrix3f("m3", affines, 2);
    EXPECT_EQ(uniform(shader, "m3[0]"), "1 0 0 0 1 0 0 0 1");
    EXPECT_EQ(uniform(shader, "m3[1]"), "1.5 2 0 3 4.25 0 5 6 1");
    shader.setUniformMatrix4f("m4", matrix, 1);
    EXPECT_EQ(uniform(shader, "m4"), "1 1.5 0 0 0 1 0 0 0 0 1 0 12.5 13.5 14.5 1");
    shader.setUniform4f("f4", Color(0.25, 0.5, 0.75, 1));
    EXPECT_EQ(uniform(shader, "f4"), "0.25 0.5 0.75 1");
    EXPECT_THAT(callsOf([&] { shader.setUniform2f("absent", 1, 2); }), ElementsAre("glGetUniformLocation"));

    const TextureTarget target(1, 1, gl::GL_RGBA8);
    for (const auto& [name, unit] : {std::pair{"picture", 2}, {"absent", 3}}) {
        shader.setUniformTexture(name, static_cast<int>(gl::GL_TEXTURE_2D), static_cast<int>(target.texture),
                                 unit);
        EXPECT_EQ(integer(gl::GL_ACTIVE_TEXTURE), static_cast<gl::GLint>(gl::GL_TEXTURE0) + unit);
        EXPECT_EQ(integer<gl::GLuint>(gl::GL_TEXTURE_BINDING_2D), target.texture)
            << "even without its sampler";
        EXPECT_EQ(uniform(shader, "picture"), "2");
    }
}

TEST_F(OpenglShaderTest, SetsAttributesAndKnowsWhichTakeNoLocation) {
    mErrorsExpected = true; // location -1 reaches GL where it is handed on
    OpenglShader shader(kVertex, kFragment);
    shader.addAttributeBinding("other", 5);
    shader.addAttributeBinding("other", 7);
    shader.useProgram();
    shader.addAttributeBinding("single", 9);
    shader.useProgram();
    EXPECT_EQ(shader.getAttributeLocation("other"), 5) << "the first binding holds";
    EXPECT_NE(shader.getAttributeLocation("single"), 9) << "too late";
    EXPECT_EQ(shader.getAttributeLocation("absent"), -1);

    const auto offset = reinterpret_cast<const float*>(8);
    const GLCalls calls;
    for (const int location : {5, -1}) {
        shader.setAttribute1iv(location, reinterpret_cast<const int*>(8), 20);
        shader.setAttribute1fv(location, offset, 20);
        shader.setAttribute2fv(location, offset, 20);
        shader.setAttribute3fv(location, offset, 20);
        shader.setAttribute4fv(location, offset, 20);
    }
    for (const char* name : {"other", "absent"}) {
        shader.setAttribute1fv(name, offset, 20);
        shader.setAttribute2fv(name, offset, 20);
        shader.setAttribute3fv(name, offset, 20);
        shader.setAttribute4fv(name, offset, 20);
    }
    std::vector<std::string> pointers;
    std::copy_if(calls.texts.begin(), calls.texts.end(), std::back_inserter(pointers),
                 [](const std::string& text) { return text.find("Pointer") != text.npos; });
    const auto pointer = [](const char* location, const char* components) {
        return std::string("glVertexAttribPointer(") + location + ", " + components + ", GL_FALSE, 20, 0x8)";
    };
    EXPECT_THAT(pointers, ElementsAre(pointer("5", "1, GL_INT"), pointer("5", "1, GL_FLOAT"),
                                      pointer("5", "2, GL_FLOAT"), pointer("5", "3, GL_FLOAT"),
                                      pointer("5", "4, GL_FLOAT"), pointer("4294967295", "2, GL_FLOAT"),
                                      pointer("4294967295", "3, GL_FLOAT"), pointer("5", "1, GL_FLOAT"),
                                      pointer("5", "2, GL_FLOAT"), pointer("5", "3, GL_FLOAT"),
                                      pointer("5", "4, GL_FLOAT")));
    EXPECT_EQ(calls.count("glEnableVertexAttribArray"), 11);
    EXPECT_THAT(callsOf([&] {
                    shader.disableVertexAttributeArray("absent");
                    shader.disableVertexAttributeArray("other");
                    shader.disableVertexAttributeArray(5);
                }),
                ElementsAre("glGetAttribLocation", "glGetAttribLocation", "glDisableVertexAttribArray",
                            "glDisableVertexAttribArray"));
}

} // namespace
} // namespace Tessaloom::BilateralBlur
