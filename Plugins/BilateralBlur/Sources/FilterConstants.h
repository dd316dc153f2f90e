#pragma once

#include "Plugins/Declarations/BilateralBlur.h"
#include "Plugins/Shared/Cpu/BilateralFilter.h"

#include <algorithm>
#include <string_view>

/// The numbers of the effect's bilateral filter: the scale's are those of the declaration, the sigmas those of the
/// shader, so that the CPU can't differ from the GPU.
namespace Tessaloom::BilateralBlur {

/// The filter on the GPU, in GLSL. `kernel` has an entry for each pixel of a row of the largest neighbourhood.
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

/// The decimal number that follows `name` in the shader. It doesn't compile where the shader lacks the name.
consteval double numberAfter(std::string_view name) {
    double digits = 0, unit = 1;
    bool isFraction = false;
    for (const char character : kFragmentStage.substr(kFragmentStage.find(name)).substr(name.size())) {
        if (character == '.')
            isFraction = true;
        else if (character < '0' || character > '9')
            break;
        else {
            digits = 10 * digits + (character - '0');
            unit *= isFraction ? 10 : 1;
        }
    }
    return digits / unit;
}

/// Standard deviation of the weights by distance, in pixels.
constexpr double kSpatialSigma = numberAfter("#define SIGMA ");

/// Standard deviation of the weights by difference of the filtered channels, in units of full scale.
constexpr double kRangeSigma = numberAfter("#define BSIGMA ");

/// The largest blur scale; the smallest is 0. Every other value works as the nearest of the two.
constexpr int kLargestBlurScale = kSliders[0].maximum;
static_assert(kSliders[0].minimum == 0);

/// How far the neighbourhood of a pixel extends to each side at a blur scale, in pixels.
constexpr int reachOf(int blurScale) {
    return (std::clamp(blurScale, 1, kLargestBlurScale) - 1) / 2;
}

constexpr int kLargestReach = reachOf(kLargestBlurScale);
static_assert(kLargestReach <= kReachLimit);
static_assert(kLargestReach == kDeclaration.margin, "EFFECT_MARGIN in Declaration.cmake is this");
static_assert(2 * kLargestReach + 1 == numberAfter("float kernel["));

/// The filter at a blur scale.
constexpr BilateralFilter filterOf(int blurScale) {
    return {reachOf(blurScale), kSpatialSigma, kRangeSigma};
}

} // namespace Tessaloom::BilateralBlur
