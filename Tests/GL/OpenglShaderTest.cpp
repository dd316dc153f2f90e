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
in vec2 pair[];
void main() { gl_Position = gl_in[0].gl_Position; EmitVertex(); }
)";

constexpr const char* kPlainFragment = "#version 330\nout vec4 colour; void main() { colour = vec4(1); }\n";

std::string logOf(gl::GLenum stage, const std::string& source) {
    const gl::GLuint shader = gl::glCreateShader(stage);
    const char* text = source.c_str();
    gl::glShaderSource(shader, 1, &text, nullptr);
    gl::glCompileShader(shader);
    std::vector<char> log(1 << 16);
    gl::GLsizei length = 0;
    gl::glGetShaderInfoLog(shader, static_cast<gl::GLsizei>(log.size()), &length, log.data());
    gl::glDeleteShader(shader);
    return {log.data(), static_cast<std::size_t>(length)};
}

bool anyProgramOrShader() {
    for (gl::GLuint name = 1; name < 64; ++name)
        if (gl::glIsShader(name) || gl::glIsProgram(name))
            return true;
    return false;
}

class OpenglShaderTest : public GLTest {
protected:
    gl::GLuint program() const {
        gl::GLint name = 0;
        gl::glGetIntegerv(gl::GL_CURRENT_PROGRAM, &name);
        return static_cast<gl::GLuint>(name);
    }
};

TEST_F(OpenglShaderTest, PrintsTheLogOfABuildThatFailsAndTriesAgain) {
    const std::string broken = "#version 330\nvoid main() { nonsense; }\n";
    const std::string longLog = "#version 330\n#error " + std::string(2000, 'x') + "\nvoid main() {}\n";
    const std::string noMain = "#version 330\nvoid helper() {}\n";
    struct {
        std::string vertex, fragment, geometry;
        const char* label;
        gl::GLenum stage;
    } const cases[] = {
        {broken, kFragment, "", "vert", gl::GL_VERTEX_SHADER},
        {kVertex, broken, "", "frag", gl::GL_FRAGMENT_SHADER},
        {kVertex, longLog, kGeometry, "frag", gl::GL_FRAGMENT_SHADER},
        {kVertex, kPlainFragment, broken, "geo", gl::GL_GEOMETRY_SHADER},
        {kVertex, noMain, "", nullptr, {}},
    };
    for (const auto& failing : cases) {
        std::string expected = "Program error:\n";
        if (failing.label) {
            const std::string& source = failing.geometry == broken ? failing.geometry
                                        : failing.vertex == broken ? failing.vertex
                                                                   : failing.fragment;
            // GL counts the terminator among the 512.
            expected = std::string("Shader ") + failing.label + " error:\n" +
                       logOf(failing.stage, source).substr(0, 511) + "\n";
        }
        OpenglShader shader(failing.vertex, failing.fragment, failing.geometry);
        for (int attempt = 0; attempt < 2; ++attempt) {
            const CapturedOutput output;
            shader.useProgram();
            if (failing.label)
                EXPECT_EQ(output.text(), expected);
            else
                EXPECT_THAT(output.text(),
                            testing::AllOf(testing::StartsWith(expected), testing::EndsWith("\n"),
                                           testing::SizeIs(testing::Gt(expected.size() + 5))));
        }
        EXPECT_EQ(program(), 0u);
        EXPECT_EQ(shader.getUniformLocation("f1"), -1);
        EXPECT_FALSE(anyProgramOrShader()) << expected;
    }
}

TEST_F(OpenglShaderTest, DoesNothingBeforeItsFirstUse) {
    const auto calls = callsOf([] {
        OpenglShader shader(kVertex, kFragment, kGeometry);
        shader.addAttributeBinding("position", 3);
        const float value = 1;
        shader.setUniform1i("i1", 1);
        shader.setUniform4fv("fa4", &value, 1);
        shader.setUniform3f("f3", Vec3(1, 2, 3));
        Affine affine;
        shader.setUniformMatrix3f("m3", &affine, 1);
        shader.setUniformMatrix4f("m4", Mat4(), 1);
        shader.setUniformTexture("picture", static_cast<int>(gl::GL_TEXTURE_2D), 1, 0);
        shader.setAttribute2fv("other", nullptr, 8);
        shader.setAttribute2fv(1, nullptr, 8);
        shader.disableVertexAttributeArray("other");
        shader.disableVertexAttributeArray(1);
        EXPECT_EQ(shader.getUniformLocation("f1"), -1);
    });
    EXPECT_THAT(calls, IsEmpty());
}

TEST_F(OpenglShaderTest, HandsUniformsToGL) {
    OpenglShader shader(kVertex, kFragment);
    shader.useProgram();
    const int ints[] = {1, -2, 3, -4, 5, -6, 7, -8};
    const float floats[] = {0.5f, -1.5f, 2.5f, -3.5f, 4.5f, -5.5f, 6.5f, -7.5f};
    Affine affines[] = {Affine(true), Affine(1.5, 2, 3, 4.25, 5, 6)};
    Mat4 matrix;
    matrix.m[1] = 0.25;
    matrix.m[12] = 7;
    matrix.m[13] = 8;
    matrix.m[14] = 9;
    using Values = std::vector<float>;
    struct {
        const char* name;
        std::function<void(const char*)> set;
        std::vector<Values> expected; // of each array element
    } const cases[] = {
        {"i1", [&](auto name) { shader.setUniform1i(name, -3); }, {{-3}}},
        {"i2", [&](auto name) { shader.setUniform2i(name, 1, 2); }, {{1, 2}}},
        {"i3", [&](auto name) { shader.setUniform3i(name, 1, 2, 3); }, {{1, 2, 3}}},
        {"i4", [&](auto name) { shader.setUniform4i(name, 1, 2, 3, 4); }, {{1, 2, 3, 4}}},
        {"f1", [&](auto name) { shader.setUniform1f(name, 0.1f); }, {{0.1f}}},
        {"f2", [&](auto name) { shader.setUniform2f(name, 1, 2); }, {{1, 2}}},
        {"f3", [&](auto name) { shader.setUniform3f(name, 1, 2, 3); }, {{1, 2, 3}}},
        {"f4", [&](auto name) { shader.setUniform4f(name, 1, 2, 3, 4); }, {{1, 2, 3, 4}}},
        {"ia1", [&](auto name) { shader.setUniform1iv(name, ints, 2); }, {{1}, {-2}}},
        {"ia2", [&](auto name) { shader.setUniform2iv(name, ints, 2); }, {{1, -2}, {3, -4}}},
        {"ia3", [&](auto name) { shader.setUniform3iv(name, ints, 2); }, {{1, -2, 3}, {-4, 5, -6}}},
        {"ia4", [&](auto name) { shader.setUniform4iv(name, ints, 2); }, {{1, -2, 3, -4}, {5, -6, 7, -8}}},
        {"fa1", [&](auto name) { shader.setUniform1fv(name, floats, 2); }, {{0.5f}, {-1.5f}}},
        {"fa2", [&](auto name) { shader.setUniform2fv(name, floats, 2); }, {{0.5f, -1.5f}, {2.5f, -3.5f}}},
        {"fa3",
         [&](auto name) { shader.setUniform3fv(name, floats, 2); },
         {{0.5f, -1.5f, 2.5f}, {-3.5f, 4.5f, -5.5f}}},
        {"fa4",
         [&](auto name) { shader.setUniform4fv(name, floats, 2); },
         {{0.5f, -1.5f, 2.5f, -3.5f}, {4.5f, -5.5f, 6.5f, -7.5f}}},
        {"f2", [&](auto name) { shader.setUniform2f(name, Vec2(0.1, 0.2)); }, {{0.1f, 0.2f}}},
        {"f3", [&](auto name) { shader.setUniform3f(name, Vec3(4, 5, 6)); }, {{4, 5, 6}}},
        {"f4", [&](auto name) { shader.setUniform4f(name, Vec4(5, 6, 7, 8)); }, {{5, 6, 7, 8}}},
        {"f4",
         [&](auto name) { shader.setUniform4f(name, Color(0.25, 0.5, 0.75, 1)); },
         {{0.25f, 0.5f, 0.75f, 1}}},
        {"m3",
         [&](auto name) { shader.setUniformMatrix3f(name, affines, 2); },
         {{1, 0, 0, 0, 1, 0, 0, 0, 1}, {1.5f, 2, 0, 3, 4.25f, 0, 5, 6, 1}}},
        {"m4",
         [&](auto name) { shader.setUniformMatrix4f(name, matrix, 1); },
         {{1, 0.25f, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 7, 8, 9, 1}}},
    };
    for (const auto& uniform : cases) {
        SCOPED_TRACE(uniform.name);
        uniform.set(uniform.name);
        for (std::size_t element = 0; element < uniform.expected.size(); ++element) {
            std::string name = uniform.name;
            if (uniform.expected.size() > 1)
                name.append("[").append(std::to_string(element)).append("]");
            Values values(16, 99);
            gl::glGetUniformfv(program(), shader.getUniformLocation(name), values.data());
            values.resize(uniform.expected[element].size());
            EXPECT_EQ(values, uniform.expected[element]);
        }
        EXPECT_THAT(callsOf([&] { uniform.set("absent"); }), ElementsAre("glGetUniformLocation"));
    }
}

TEST_F(OpenglShaderTest, BindsATextureEvenWithoutItsSampler) {
    OpenglShader shader(kVertex, kFragment);
    shader.useProgram();
    const TextureTarget target(1, 1, gl::GL_RGBA8);
    for (const char* name : {"picture", "absent"}) {
        const int unit = *name == 'p' ? 2 : 3;
        shader.setUniformTexture(name, static_cast<int>(gl::GL_TEXTURE_2D), static_cast<int>(target.texture),
                                 unit);
        gl::GLint active = 0, bound = 0, sampler = 0;
        gl::glGetIntegerv(gl::GL_ACTIVE_TEXTURE, &active);
        gl::glGetIntegerv(gl::GL_TEXTURE_BINDING_2D, &bound);
        gl::glGetUniformiv(program(), shader.getUniformLocation("picture"), &sampler);
        EXPECT_EQ(active, static_cast<gl::GLint>(gl::GL_TEXTURE0) + unit);
        EXPECT_EQ(bound, static_cast<gl::GLint>(target.texture));
        EXPECT_EQ(sampler, 2);
    }
}

TEST_F(OpenglShaderTest, SetsAttributesAndKnowsWhichTakeNoLocation) {
    mErrorsExpected = true; // location -1 reaches GL where it is handed on
    OpenglShader shader(kVertex, kFragment);
    shader.addAttributeBinding("position", 2);
    shader.addAttributeBinding("other", 5);
    shader.addAttributeBinding("other", 7);
    shader.useProgram();
    shader.addAttributeBinding("single", 9);
    shader.useProgram();
    EXPECT_EQ(shader.getAttributeLocation("position"), 2);
    EXPECT_EQ(shader.getAttributeLocation("other"), 5) << "the first binding holds";
    EXPECT_NE(shader.getAttributeLocation("single"), 9) << "too late";
    EXPECT_EQ(shader.getAttributeLocation("absent"), -1);

    gl::GLuint array = 0, buffer = 0;
    gl::glGenVertexArrays(1, &array);
    gl::glBindVertexArray(array);
    gl::glGenBuffers(1, &buffer);
    gl::glBindBuffer(gl::GL_ARRAY_BUFFER, buffer);
    const auto offset = reinterpret_cast<const float*>(8);
    const auto intOffset = reinterpret_cast<const int*>(8);
    struct {
        std::function<void(int)> byLocation;
        std::function<void(const char*)> byName; // where there is such a form
        int components;
        gl::GLenum type;
        bool minusOneToGL;
    } const cases[] = {
        {[&](int at) { shader.setAttribute1iv(at, intOffset, 20); }, {}, 1, gl::GL_INT, false},
        {[&](int at) { shader.setAttribute1fv(at, offset, 20); },
         [&](auto name) { shader.setAttribute1fv(name, offset, 20); }, 1, gl::GL_FLOAT, false},
        {[&](int at) { shader.setAttribute2fv(at, offset, 20); },
         [&](auto name) { shader.setAttribute2fv(name, offset, 20); }, 2, gl::GL_FLOAT, true},
        {[&](int at) { shader.setAttribute3fv(at, offset, 20); },
         [&](auto name) { shader.setAttribute3fv(name, offset, 20); }, 3, gl::GL_FLOAT, true},
        {[&](int at) { shader.setAttribute4fv(at, offset, 20); },
         [&](auto name) { shader.setAttribute4fv(name, offset, 20); }, 4, gl::GL_FLOAT, false},
    };
    const auto attribute = [](gl::GLenum what) {
        gl::GLint value = 0;
        gl::glGetVertexAttribiv(5, what, &value);
        return value;
    };
    for (const auto& setter : cases) {
        for (const bool byName : {false, true}) {
            if (byName && !setter.byName)
                continue;
            SCOPED_TRACE(std::to_string(setter.components) + (byName ? " by name" : " by location"));
            byName ? setter.byName("other") : setter.byLocation(5);
            EXPECT_EQ(attribute(gl::GL_VERTEX_ATTRIB_ARRAY_ENABLED), 1);
            EXPECT_EQ(attribute(gl::GL_VERTEX_ATTRIB_ARRAY_SIZE), setter.components);
            EXPECT_EQ(attribute(gl::GL_VERTEX_ATTRIB_ARRAY_TYPE), static_cast<gl::GLint>(setter.type));
            EXPECT_EQ(attribute(gl::GL_VERTEX_ATTRIB_ARRAY_STRIDE), 20);
            EXPECT_EQ(attribute(gl::GL_VERTEX_ATTRIB_ARRAY_NORMALIZED), 0);
            void* pointer = nullptr;
            gl::glGetVertexAttribPointerv(5, gl::GL_VERTEX_ATTRIB_ARRAY_POINTER, &pointer);
            EXPECT_EQ(pointer, offset);
            byName ? shader.disableVertexAttributeArray("other") : shader.disableVertexAttributeArray(5);
            EXPECT_EQ(attribute(gl::GL_VERTEX_ATTRIB_ARRAY_ENABLED), 0);
        }
        EXPECT_EQ(callsOf([&] { setter.byLocation(-1); }).size(), setter.minusOneToGL ? 2u : 0u);
        if (setter.byName) {
            EXPECT_THAT(callsOf([&] { setter.byName("absent"); }), ElementsAre("glGetAttribLocation"));
        }
    }
    EXPECT_THAT(callsOf([&] { shader.disableVertexAttributeArray("absent"); }),
                ElementsAre("glGetAttribLocation"));
    gl::glDeleteVertexArrays(1, &array);
    gl::glDeleteBuffers(1, &buffer);
}

TEST_F(OpenglShaderTest, BuildsOnceAndLeavesNoShaderObjects) {
    for (const std::string geometry : {"", kGeometry}) {
        auto shader =
            std::make_unique<OpenglShader>(kVertex, geometry.empty() ? kFragment : kPlainFragment, geometry);
        const CapturedOutput output;
        {
            const GLCalls calls;
            shader->useProgram();
            shader->useProgram();
            EXPECT_EQ(calls.count("glCreateShader"), geometry.empty() ? 2 : 3);
            EXPECT_EQ(calls.count("glDeleteShader"), geometry.empty() ? 2 : 3);
            EXPECT_EQ(calls.count("glCreateProgram"), 1);
        }
        EXPECT_EQ(output.text(), "");
        gl::GLint attached = -1;
        gl::glGetProgramiv(program(), gl::GL_ATTACHED_SHADERS, &attached);
        EXPECT_EQ(attached, 0);
        gl::glUseProgram(0);
        shader.reset();
        EXPECT_FALSE(anyProgramOrShader());
    }
}

} // namespace
} // namespace Tessaloom::BilateralBlur
