#include "Plugins/Shared/GL/BackgroundRender.h"

namespace Tessaloom::BilateralBlur {

namespace {

constexpr const char* kVertexStage = R"(#version 330
in vec3 position; in vec2 input_uv; out vec2 uv; void main() {uv = input_uv; gl_Position = vec4(position, 1.0); }
)";

constexpr const char* kFragmentStage = R"(#version 330
in vec2 uv;uniform sampler2D videoTexture;uniform float multiplier16bit;out vec4 colourOut;
void main() {
    colourOut = texture( videoTexture, uv );
    colourOut = colourOut * multiplier16bit;
    colourOut = vec4(colourOut.g, colourOut.b, colourOut.a, colourOut.r);
    colourOut = vec4(colourOut.a * colourOut.r, colourOut.a * colourOut.g, colourOut.a * colourOut.b, colourOut.a); }
)";

} // namespace

BackgroundRender::BackgroundRender() : mPass(kVertexStage, kFragmentStage, FullFrameVertices::kSolid) {}

void BackgroundRender::draw(unsigned texture, float multiplier16bit) {
    mPass.draw(texture, multiplier16bit);
}

} // namespace Tessaloom::BilateralBlur
