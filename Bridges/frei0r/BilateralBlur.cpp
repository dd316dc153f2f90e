#include "Bridges/RenderThread.h"
#include "Plugins/BilateralBlur/Sources/BilateralBlurDeclaration.h"

// The filter's functions are all that the shared object exports. Their header is one for C.
#pragma GCC visibility push(default)
extern "C" {
#include <frei0r.h>
}
#pragma GCC visibility pop

#include <algorithm>
#include <atomic>
#include <cmath>

// The filter as frei0r programs see it. They are not all careful: an instance can be null (some go on without
// one), several threads can be in one instance at once, and some never call f0r_deinit.

namespace Tessaloom::BilateralBlur::Frei0r {

namespace {

class Instance {
public:
    Instance(unsigned width, unsigned height) : mWidth(width), mHeight(height) { Renderer::shared().enter(); }
    ~Instance() { Renderer::shared().leave(); }
    Instance(const Instance&) = delete;
    Instance& operator=(const Instance&) = delete;

    // Kept as given, so that a program reads what it wrote. Programs pass on what their users type.
    void setPosition(double position) {
        if (!std::isnan(position))
            mPosition = std::clamp(position, 0.0, 1.0);
    }
    double position() const { return mPosition; }

    void update(const std::uint32_t* input, std::uint32_t* output) const {
        Renderer::shared().filter({mWidth, mHeight, input, output, blurScale()});
    }

private:
    static constexpr int kRange = Declaration::kBlurScaleMaximum - Declaration::kBlurScaleMinimum;

    std::int32_t blurScale() const {
        return Declaration::kBlurScaleMinimum + static_cast<std::int32_t>(std::lround(mPosition * kRange));
    }

    const unsigned mWidth, mHeight;
    /// Where the slider stands, from 0 at its minimum to 1 at its maximum.
    std::atomic<double> mPosition{double{Declaration::kBlurScaleDefault - Declaration::kBlurScaleMinimum} /
                                  kRange};
};

} // namespace

} // namespace Tessaloom::BilateralBlur::Frei0r

using Tessaloom::BilateralBlur::Frei0r::Instance;
namespace Declaration = Tessaloom::BilateralBlur::Declaration;

int f0r_init() {
    return 1;
}

void f0r_deinit() {}

void f0r_get_plugin_info(f0r_plugin_info_t* info) {
    info->name = Declaration::kName;
    info->author = "the Bilateral Blur authors";
    info->plugin_type = F0R_PLUGIN_TYPE_FILTER;
    info->color_model = F0R_COLOR_MODEL_RGBA8888;
    info->frei0r_version = FREI0R_MAJOR_VERSION;
    info->major_version = Declaration::kVersion;
    info->minor_version = Declaration::kSubversion;
    info->num_params = 1;
    info->explanation = "Smooths surfaces and keeps edges";
}

void f0r_get_param_info(f0r_param_info_t* info, int param_index) {
    if (param_index != 0)
        return;
    info->name = Declaration::kBlurScaleName;
    info->type = F0R_PARAM_DOUBLE;
    info->explanation = "How far the blur reaches: the slider's value of 0 to 60, divided by 60";
}

f0r_instance_t f0r_construct(unsigned int width, unsigned int height) {
    return new Instance(width, height);
}

void f0r_destruct(f0r_instance_t instance) {
    delete static_cast<Instance*>(instance);
}

void f0r_set_param_value(f0r_instance_t instance, f0r_param_t param, int param_index) {
    if (instance && param && param_index == 0)
        static_cast<Instance*>(instance)->setPosition(*static_cast<const f0r_param_double*>(param));
}

void f0r_get_param_value(f0r_instance_t instance, f0r_param_t param, int param_index) {
    if (instance && param && param_index == 0)
        *static_cast<f0r_param_double*>(param) = static_cast<const Instance*>(instance)->position();
}

void f0r_update(f0r_instance_t instance, double, const uint32_t* inframe, uint32_t* outframe) {
    if (instance && inframe && outframe)
        static_cast<const Instance*>(instance)->update(inframe, outframe);
}
