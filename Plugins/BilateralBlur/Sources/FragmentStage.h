#pragma once

#include <string_view>

namespace Tessaloom::BilateralBlur {

/// The effect's filter on the GPU, in GLSL. FilterConstants.h takes the sigmas from it. `kernel` has an entry for each
/// pixel of a row of the largest neighbourhood.
constexpr std::string_view kFragmentStage = R"(#version 330
#define SIGMA 10.0
#define BSIGMA 0.1
in vec2 uv;
uniform sampler2D videoTexture;
uniform float multiplier16bit;
float kernel[59];
uniform int blurSize;
uniform vec2 viewSize;
out vec4 colourOut;
float normpdf(in float x, in float sigma) {
    return 0.39894 * exp(-0.5 * x * x/ (sigma * sigma)) / sigma;
}
float normpdf3(in vec3 v, in float sigma) {
    return 0.39894 * exp(-0.5 * dot(v,v) / (sigma * sigma)) / sigma;
}
void main() {
    colourOut = texture(videoTexture, uv);
    vec3 c = colourOut.rgb;
    int kSize = (blurSize - 1) / 2;
    vec3 final_colour = vec3(0.0);
    float Z = 0.0;
    for (int j = 0; j <= kSize; ++j) {
        kernel[kSize+j] = kernel[kSize-j] = normpdf(float(j), SIGMA);
    }
    float bZ = 1.0 / normpdf(0.0, BSIGMA);
    vec3 cc;
    float factor;
    for (int i=-kSize; i <= kSize; ++i) {
        for (int j=-kSize; j <= kSize; ++j) {
            cc = texture(videoTexture, (gl_FragCoord.xy+vec2(float(i),float(j))) / viewSize.xy).rgb;
            factor = normpdf3(cc-c, BSIGMA) * bZ * kernel[kSize+j] * kernel[kSize+i];
            Z += factor;
            final_colour += factor * cc;
        }
    }
    colourOut = vec4(final_colour / Z, colourOut.a) * multiplier16bit;
    colourOut = vec4(colourOut.g, colourOut.b, colourOut.a, colourOut.r);
    colourOut = vec4(colourOut.a * colourOut.r, colourOut.a * colourOut.g, colourOut.a * colourOut.b, colourOut.a);
}
)";

} // namespace Tessaloom::BilateralBlur
