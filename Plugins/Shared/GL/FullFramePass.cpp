#include "Plugins/Shared/GL/FullFramePass.h"

#include <glbinding/gl/enum.h>
#include <glbinding/gl/functions.h>

namespace Tessaloom::BilateralBlur {

namespace {

constexpr int kPosition = 0;
constexpr int kInputUv = 1;
constexpr int kUvComponents = 2;
constexpr int kVertices = 6;

const float* byteOffset(int floats) {
    return reinterpret_cast<const float*>(static_cast<std::size_t>(floats) * sizeof(float));
}

template<std::size_t size>
void fillBuffer(const float (&positions)[size]) {
    gl::glBufferData(gl::GL_ARRAY_BUFFER, sizeof positions, positions, gl::GL_STATIC_DRAW);
}

void fillWithPositions(int components) {
    static constexpr float kPositions2[] = {
        1.0f,  -1.0f, 1.0f, 0.0f, //
        1.0f,  1.0f,  1.0f, 1.0f, //
        -1.0f, 1.0f,  0.0f, 1.0f, //
        -1.0f, 1.0f,  0.0f, 1.0f, //
        -1.0f, -1.0f, 0.0f, 0.0f, //
        1.0f,  -1.0f, 1.0f, 0.0f, //
    };
    static constexpr float kPositions3[] = {
        1.0f,  -1.0f, 0.0f, 1.0f, 0.0f, //
        1.0f,  1.0f,  0.0f, 1.0f, 1.0f, //
        -1.0f, 1.0f,  0.0f, 0.0f, 1.0f, //
        -1.0f, 1.0f,  0.0f, 0.0f, 1.0f, //
        -1.0f, -1.0f, 0.0f, 0.0f, 0.0f, //
        1.0f,  -1.0f, 0.0f, 1.0f, 0.0f, //
    };
    if (components == 3)
        fillBuffer(kPositions3);
    else
        fillBuffer(kPositions2);
}

} // namespace

FullFramePass::FullFramePass(const char* vertexStage, const char* fragmentStage, int positionComponents)
    : mShader(std::in_place, vertexStage, fragmentStage), mPositionComponents(positionComponents) {
    mShader->addAttributeBinding("position", kPosition);
    mShader->addAttributeBinding("input_uv", kInputUv);
}

FullFramePass::~FullFramePass() {
    if (const gl::GLuint vertexArray = mVertexArray.current())
        gl::glDeleteVertexArrays(1, &vertexArray);
    if (mVertexBuffer)
        gl::glDeleteBuffers(1, &mVertexBuffer);
}

void FullFramePass::draw(unsigned texture, float multiplier16bit) {
    begin(texture, multiplier16bit);
    end();
}

const OpenglShader& FullFramePass::begin(unsigned texture, float multiplier16bit) {
    makeObjects();
    mShader->useProgram();
    gl::glBindVertexArray(mVertexArray.current());
    gl::glBindBuffer(gl::GL_ARRAY_BUFFER, mVertexBuffer);

    const int stride = (mPositionComponents + kUvComponents) * static_cast<int>(sizeof(float));
    if (mPositionComponents == 3)
        mShader->setAttribute3fv(kPosition, byteOffset(0), stride);
    else
        mShader->setAttribute2fv(kPosition, byteOffset(0), stride);
    mShader->setAttribute2fv(kInputUv, byteOffset(mPositionComponents), stride);

    mShader->setUniformTexture("videoTexture", static_cast<int>(gl::GL_TEXTURE_2D), static_cast<int>(texture),
                               0);
    mShader->setUniform1f("multiplier16bit", multiplier16bit);
    return *mShader;
}

void FullFramePass::end() const {
    gl::glDrawArrays(gl::GL_TRIANGLES, 0, kVertices);
    mShader->disableVertexAttributeArray(kPosition);
    mShader->disableVertexAttributeArray(kInputUv);
    gl::glBindVertexArray(0);
    gl::glBindBuffer(gl::GL_ARRAY_BUFFER, 0);
}

// A pass with two components leaves the binding of the vertex array to the drawing.
void FullFramePass::makeObjects() {
    gl::GLuint& vertexArray = mVertexArray.current();
    if (!vertexArray) {
        gl::glGenVertexArrays(1, &vertexArray);
        if (mPositionComponents == 3)
            gl::glBindVertexArray(vertexArray);
    }
    if (!mVertexBuffer) {
        gl::glGenBuffers(1, &mVertexBuffer);
        gl::glBindBuffer(gl::GL_ARRAY_BUFFER, mVertexBuffer);
        fillWithPositions(mPositionComponents);
    }
}

} // namespace Tessaloom::BilateralBlur
