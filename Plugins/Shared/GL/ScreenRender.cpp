#include "Plugins/Shared/GL/ScreenRender.h"

namespace Tessaloom::BilateralBlur {

namespace {

constexpr const char* kVertexStage = R"(#version 330
in vec3 position;
in vec2 input_uv;
out vec2 uv;
void main() {
    uv = input_uv;
    gl_Position = vec4(position, 1.0);
}
)";

constexpr const char* kFragmentStage = R"(#version 330
in vec2 uv;
out vec4 colourOut;
uniform sampler2D videoTexture;
uniform float multiplier16bit;
void main() {
    colourOut = texture( videoTexture, uv );
    if (colourOut.a == 0) {
        colourOut = vec4(0);
    } else {
        colourOut = vec4(colourOut.a, colourOut.r / colourOut.a, colourOut.g / colourOut.a, colourOut.b / colourOut.a);
    }
    colourOut = colourOut / multiplier16bit;
}
)";

} // namespace

ScreenRender::ScreenRender() : mPass(kVertexStage, kFragmentStage, FullFrameVertices::kSolid) {}

void ScreenRender::draw(unsigned texture, float multiplier16bit) {
    mPass.draw(texture, multiplier16bit);
}

} // namespace Tessaloom::BilateralBlur
