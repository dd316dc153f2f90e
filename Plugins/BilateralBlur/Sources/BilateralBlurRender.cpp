#include "Plugins/BilateralBlur/Sources/BilateralBlurRender.h"

#include "Plugins/BilateralBlur/Sources/FilterConstants.h"
#include "Plugins/Shared/GL/AEOpenglMainFrameBuffer.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace Tessaloom::BilateralBlur {

namespace {

constexpr const char* kVertexStage = R"(#version 330
in vec2 position; in vec2 input_uv; out vec2 uv; void main() {uv = input_uv; gl_Position = vec4(position, 0.0, 1.0); }
)";

// `kernel` has the 2 * kLargestReach + 1 entries that the largest scale needs.
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

/// The decimal number that follows `name` in the fragment stage.
constexpr double numberAfter(std::string_view name) {
    double digits = 0, unit = 1;
    bool isFraction = false;
    for (std::size_t i = kFragmentStage.find(name) + name.size();; ++i) {
        const char character = kFragmentStage[i];
        if (character == '.')
            isFraction = true;
        else if (character < '0' || character > '9')
            return digits / unit;
        else {
            digits = 10 * digits + (character - '0');
            unit *= isFraction ? 10 : 1;
        }
    }
}

static_assert(numberAfter("#define SIGMA ") == kSpatialSigma);
static_assert(numberAfter("#define BSIGMA ") == kRangeSigma);
static_assert(numberAfter("float kernel[") == 2 * kLargestReach + 1,
              "from the declared maximum of the scale");

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
