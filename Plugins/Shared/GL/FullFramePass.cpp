#include "Plugins/Shared/GL/FullFramePass.h"

#include <glbinding/gl/enum.h>
#include <glbinding/gl/functions.h>

namespace Tessaloom::BilateralBlur {

namespace {

constexpr int kPosition = 0;
constexpr int kInputUv = 1;
constexpr int kVertices = 6;

constexpr float kFlatValues[] = {
    1.0f,  -1.0f, 1.0f, 0.0f, //
    1.0f,  1.0f,  1.0f, 1.0f, //
    -1.0f, 1.0f,  0.0f, 1.0f, //
    -1.0f, 1.0f,  0.0f, 1.0f, //
    -1.0f, -1.0f, 0.0f, 0.0f, //
    1.0f,  -1.0f, 1.0f, 0.0f, //
};
constexpr float kSolidValues[] = {
    1.0f,  -1.0f, 0.0f, 1.0f, 0.0f, //
    1.0f,  1.0f,  0.0f, 1.0f, 1.0f, //
    -1.0f, 1.0f,  0.0f, 0.0f, 1.0f, //
    -1.0f, 1.0f,  0.0f, 0.0f, 1.0f, //
    -1.0f, -1.0f, 0.0f, 0.0f, 0.0f, //
    1.0f,  -1.0f, 0.0f, 1.0f, 0.0f, //
};

const float* byteOffset(int floats) {
    return reinterpret_cast<const float*>(static_cast<std::size_t>(floats) * sizeof(float));
}

} // namespace

constinit const FullFrameVertices FullFrameVertices::kFlat{kFlatValues, 2, &OpenglShader::setAttribute2fv,
                                                           false};
constinit const FullFrameVertices FullFrameVertices::kSolid{kSolidValues, 3, &OpenglShader::setAttribute3fv,
                                                            true};

FullFramePass::FullFramePass(const char* vertexStage, const char* fragmentStage,
                             const FullFrameVertices& vertices)
    : mShader(vertexStage, fragmentStage), mVertices(vertices) {
    mShader.addAttributeBinding("position", kPosition);
    mShader.addAttributeBinding("input_uv", kInputUv);
}

FullFramePass::~FullFramePass() {
    deleteVertices();
}

void FullFramePass::deleteVertices() {
    if (!CGLIsForked()) {
        if (const gl::GLuint* vertexArray = mVertexArray.find(); vertexArray && *vertexArray)
            gl::glDeleteVertexArrays(1, vertexArray);
        if (mVertexBuffer)
            gl::glDeleteBuffers(1, &mVertexBuffer);
    }
    mVertexArray.forget();
    mVertexBuffer = 0;
}

void FullFramePass::discard() {
    deleteVertices();
    mShader.deleteProgram();
}

void FullFramePass::draw(unsigned texture, float multiplier16bit) {
    begin(texture, multiplier16bit);
    end();
}

const OpenglShader& FullFramePass::begin(unsigned texture, float multiplier16bit) {
    makeObjects();
    mShader.useProgram();
    gl::glBindVertexArray(mVertexArray.current());
    gl::glBindBuffer(gl::GL_ARRAY_BUFFER, mVertexBuffer);

    const auto stride = static_cast<int>(mVertices.values.size_bytes() / kVertices);
    (mShader.*mVertices.setPosition)(kPosition, byteOffset(0), stride);
    mShader.setAttribute2fv(kInputUv, byteOffset(mVertices.positionComponents), stride);

    mShader.setUniformTexture("videoTexture", static_cast<int>(gl::GL_TEXTURE_2D), static_cast<int>(texture),
                              0);
    mShader.setUniform1f("multiplier16bit", multiplier16bit);
    return mShader;
}

void FullFramePass::end() const {
    gl::glDrawArrays(gl::GL_TRIANGLES, 0, kVertices);
    mShader.disableVertexAttributeArray(kPosition);
    mShader.disableVertexAttributeArray(kInputUv);
    gl::glBindVertexArray(0);
    gl::glBindBuffer(gl::GL_ARRAY_BUFFER, 0);
}

void FullFramePass::makeObjects() {
    gl::GLuint& vertexArray = mVertexArray.current();
    if (!vertexArray) {
        gl::glGenVertexArrays(1, &vertexArray);
        if (mVertices.bindsArrayAtOnce)
            gl::glBindVertexArray(vertexArray);
    }
    if (!mVertexBuffer) {
        gl::glGenBuffers(1, &mVertexBuffer);
        gl::glBindBuffer(gl::GL_ARRAY_BUFFER, mVertexBuffer);
        gl::glBufferData(gl::GL_ARRAY_BUFFER, static_cast<gl::GLsizeiptr>(mVertices.values.size_bytes()),
                         mVertices.values.data(), gl::GL_STATIC_DRAW);
    }
}

} // namespace Tessaloom::BilateralBlur
