#include "Plugins/BilateralSmooth/Sources/BilateralSmoothRender.h"

namespace Tessaloom::BilateralBlur {

namespace {

constexpr const char* kVertexStage = R"(#version 330
in vec2 position;
in vec2 input_uv;
out vec2 uv;
void main() {
    uv = input_uv;
    gl_Position = vec4(position, 0.0, 1.0);
}
)";

// Means are of differences, so that they are as precise as the pixel itself. A difference that overflows has the
// weight 0, and mustn't be multiplied by it.
constexpr const char* kFragmentStage = R"(#version 330
uniform sampler2D videoTexture;
uniform float multiplier16bit;
uniform int radius;
uniform float threshold;
out vec4 colourOut;
bool isFinite(vec4 v) {
    return !any(isnan(v)) && !any(isinf(v));
}
void main() {
    ivec2 last = textureSize(videoTexture, 0) - 1;
    ivec2 place = ivec2(gl_FragCoord.xy);
    vec4 own = texelFetch(videoTexture, place, 0);
    colourOut = own;
    if (radius == 0 || !isFinite(own))
        return;
    float sigma = 0.5 * float(radius);
    float byDistance = -0.5 / (sigma * sigma);
    float scale = multiplier16bit / threshold;
    vec3 sum = vec3(0.0);
    float total = 0.0;
    for (int y = -radius; y <= radius; ++y) {
        for (int x = -radius; x <= radius; ++x) {
            vec4 neighbour = texelFetch(videoTexture, clamp(place + ivec2(x, y), ivec2(0), last), 0);
            vec3 difference = neighbour.gba - own.gba;
            vec3 scaled = scale * difference;
            float weight = max(neighbour.r, 0.0) * exp(byDistance * float(x * x + y * y) - 0.5 * dot(scaled, scaled));
            if (weight > 0.0 && isFinite(neighbour)) {
                total += weight;
                sum += weight * difference;
            }
        }
    }
    if (total > 0.0)
        colourOut.gba += sum / total;
}
)";

} // namespace

BilateralSmoothRender::BilateralSmoothRender()
    : mPass(kVertexStage, kFragmentStage, FullFrameVertices::kFlat) {}

void BilateralSmoothRender::draw(unsigned texture, float multiplier16bit) {
    const OpenglShader& shader = mPass.begin(texture, multiplier16bit);
    shader.setUniform1i("radius", mRadius);
    shader.setUniform1f("threshold", mThreshold);
    mPass.end();
}

} // namespace Tessaloom::BilateralBlur
