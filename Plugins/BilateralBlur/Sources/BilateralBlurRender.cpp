#include "Plugins/BilateralBlur/Sources/BilateralBlurRender.h"

#include "Plugins/BilateralBlur/Sources/FilterConstants.h"
#include "Plugins/Shared/GL/AEOpenglMainFrameBuffer.h"

#include <algorithm>

namespace Tessaloom::BilateralBlur {

namespace {

constexpr const char* kVertexStage = R"(#version 330
in vec2 position; in vec2 input_uv; out vec2 uv; void main() {uv = input_uv; gl_Position = vec4(position, 0.0, 1.0); }
)";

} // namespace

BilateralBlurRender::BilateralBlurRender()
    : mPass(kVertexStage, kFragmentStage.data(), FullFrameVertices::kFlat) {}

BilateralBlurRender::~BilateralBlurRender() {
    mPass.deleteShader();
}

void BilateralBlurRender::draw(unsigned texture, float multiplier16bit) {
    const AEOpenglMainFrameBuffer& frameBuffer = *AEOpenglMainFrameBuffer::mainFrameBuffer();
    const OpenglShader& shader = mPass.begin(texture, multiplier16bit);
    shader.setUniform1i("blurSize", std::clamp(mBlurSize, 0, kLargestBlurScale));
    shader.setUniform2f("viewSize", frameBuffer.width(), frameBuffer.height());
    mPass.end();
}

} // namespace Tessaloom::BilateralBlur
