#include "Bridges/RenderThread.h"

// The filter's functions are all that the shared object exports. Their header is one for C.
#pragma GCC visibility push(default)
extern "C" {
#include <frei0r.h>
}
#pragma GCC visibility pop

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <new>
#include <span>

// The filter as frei0r hosts see it. They are not all careful: an instance can be null (some go on without
// one), several threads can be in one instance at once, and some never call f0r_deinit.

namespace Tessaloom::BilateralBlur::Frei0r {

namespace {

std::span<const SliderDeclaration> sliders() {
    return linkedEffect().declaration.sliders;
}

/// A frei0r parameter is a slider's value divided by its maximum, from 0 to 1. What is below the slider's
/// minimum means the minimum.
std::int32_t valueAt(const SliderDeclaration& slider, double position) {
    return std::max(slider.minimum, static_cast<std::int32_t>(std::lround(position * slider.maximum)));
}

double positionOf(const SliderDeclaration& slider, std::int32_t value) {
    return static_cast<double>(value) / slider.maximum;
}

using Text = std::array<char, 80>;

/// "0 to 1 means 0 to 60", in what users see, with ", at least 1" where the minimum isn't 0.
Text rangeText(const SliderDeclaration& slider, const char* verb) {
    Text text;
    const double steps = slider.steps;
    const int length =
        std::snprintf(text.data(), text.size(), "0 to 1%s 0 to %g", verb, slider.maximum / steps);
    if (slider.minimum != 0)
        std::snprintf(text.data() + length, text.size() - length, ", at least %g", slider.minimum / steps);
    return text;
}

/// Explanations of the parameters, in their order.
const std::array<Text, kMostSliders>& explanations() {
    static const auto kExplanations = [] {
        std::array<Text, kMostSliders> texts;
        std::ranges::transform(sliders(), texts.begin(),
                               [](const SliderDeclaration& slider) { return rangeText(slider, " means"); });
        return texts;
    }();
    return kExplanations;
}

void reportOutOfRange(const SliderDeclaration& slider, double given, double used) {
    static std::atomic_flag kHasReported;
    if (!kHasReported.test_and_set())
        std::fprintf(stderr, "%s: %s %g is out of range, %s); using %g\n", linkedEffect().declaration.name,
                     slider.name, given, rangeText(slider, " (which means").data(), used);
}

void reportFailure(const char* reason) {
    std::fprintf(stderr, "%s: passing frames through unfiltered: %s\n", linkedEffect().declaration.name,
                 reason);
}

class Instance {
public:
    Instance(unsigned width, unsigned height) : mWidth(width), mHeight(height) {
        for (std::size_t i = 0; i < sliders().size(); ++i)
            mPositions[i] = positionOf(sliders()[i], sliders()[i].defaultValue);
        Bridges::RenderThread::shared().enter();
    }
    ~Instance() { Bridges::RenderThread::shared().leave(); }
    Instance(const Instance&) = delete;
    Instance& operator=(const Instance&) = delete;

    /// Kept as given, so that a host reads what it wrote, but within 0 to 1. Not a number changes nothing.
    void setPosition(int index, double given) {
        const double used = std::isnan(given) ? position(index) : std::clamp(given, 0.0, 1.0);
        if (used != given)
            reportOutOfRange(sliders()[index], given, used);
        mPositions[index] = used;
    }
    double position(int index) const { return mPositions[index]; }

    void update(const std::uint32_t* input, std::uint32_t* output) const {
        Bridges::Request request{
            .effect = linkedEffect(), .width = mWidth, .height = mHeight, .input = input, .output = output};
        for (std::size_t i = 0; i < sliders().size(); ++i)
            request.values[i] = valueAt(sliders()[i], mPositions[i]);
        Bridges::RenderThread::shared().filter(request, reportFailure);
    }

private:
    const unsigned mWidth, mHeight;
    std::array<std::atomic<double>, kMostSliders> mPositions;
};

bool isParameter(int index) {
    return 0 <= index && index < std::ssize(sliders());
}

} // namespace

} // namespace Tessaloom::BilateralBlur::Frei0r

using namespace Tessaloom::BilateralBlur::Frei0r;
using namespace Tessaloom::BilateralBlur;

int f0r_init() try {
    Bridges::RenderThread::shared();
    return 1;
} catch (const std::bad_alloc&) {
    return 0;
}

void f0r_deinit() {}

void f0r_get_plugin_info(f0r_plugin_info_t* info) {
    const EffectDeclaration& effect = linkedEffect().declaration;
    info->name = effect.name;
    info->author = "the Bilateral Blur authors";
    info->plugin_type = F0R_PLUGIN_TYPE_FILTER;
    info->color_model = F0R_COLOR_MODEL_RGBA8888;
    info->frei0r_version = FREI0R_MAJOR_VERSION;
    info->major_version = effect.version;
    info->minor_version = effect.subversion;
    info->num_params = static_cast<int>(sliders().size());
    info->explanation = effect.description;
}

void f0r_get_param_info(f0r_param_info_t* info, int param_index) {
    if (!isParameter(param_index))
        return;
    info->name = sliders()[param_index].name;
    info->type = F0R_PARAM_DOUBLE;
    info->explanation = explanations()[param_index].data();
}

f0r_instance_t f0r_construct(unsigned int width, unsigned int height) try {
    return new Instance(width, height);
} catch (const std::bad_alloc&) {
    return nullptr;
}

void f0r_destruct(f0r_instance_t instance) {
    delete static_cast<Instance*>(instance);
}

void f0r_set_param_value(f0r_instance_t instance, f0r_param_t param, int param_index) {
    if (instance && param && isParameter(param_index))
        static_cast<Instance*>(instance)->setPosition(param_index,
                                                      *static_cast<const f0r_param_double*>(param));
}

void f0r_get_param_value(f0r_instance_t instance, f0r_param_t param, int param_index) {
    if (instance && param && isParameter(param_index))
        *static_cast<f0r_param_double*>(param) =
            static_cast<const Instance*>(instance)->position(param_index);
}

void f0r_update(f0r_instance_t instance, double, const uint32_t* inframe, uint32_t* outframe) {
    if (instance && inframe && outframe)
        static_cast<const Instance*>(instance)->update(inframe, outframe);
}
