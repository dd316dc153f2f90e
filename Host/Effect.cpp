#include "Host/Effect.h"

#include "Host/Suites.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <new>

namespace Tessaloom::BilateralBlur::Host {

namespace {

constexpr std::int32_t kAllChannels = 0xF;
constexpr std::int16_t kBitDepth = 8;

PF_LRect boundsOf(const World& world) {
    return {0, 0, world.width, world.height};
}

PF_LRect intersection(const PF_LRect& a, const PF_LRect& b) {
    return {std::max(a.left, b.left), std::max(a.top, b.top), std::min(a.right, b.right),
            std::min(a.bottom, b.bottom)};
}

bool isEmpty(const PF_LRect& rect) {
    return rect.left >= rect.right || rect.top >= rect.bottom;
}

bool equal(const PF_LRect& a, const PF_LRect& b) {
    return a.left == b.left && a.top == b.top && a.right == b.right && a.bottom == b.bottom;
}

std::string textOf(const PF_LRect& rect) {
    return std::to_string(rect.left) + "," + std::to_string(rect.top) + " to " + std::to_string(rect.right) +
           "," + std::to_string(rect.bottom);
}

/// A character array that need not be terminated.
template<std::size_t kSize>
std::string textOf(const char (&characters)[kSize]) {
    return {characters, strnlen(characters, kSize)};
}

std::string recordText(const char* what, const void* record) {
    char text[64];
    std::snprintf(text, sizeof text, "%s %p", what, record);
    return text;
}

/// Copies `part` into `whole` with its first pixel at the given place; it has to fit.
void place(const World& part, World& whole, int left, int top) {
    for (int y = 0; y < part.height; ++y)
        std::copy_n(part.row(y), part.width, whole.row(top + y) + left);
}

void requireSame(const Module& module, const std::string& what, const std::string& listed,
                 const std::string& declared) {
    if (listed != declared)
        throw ModuleError(module.path().string() + ": " + what + " is " + listed +
                          " in the property list, but the effect declares " + declared);
}

void requireSame(const Module& module, const std::string& what, std::int64_t listed, std::int64_t declared) {
    requireSame(module, what, std::to_string(listed), std::to_string(declared));
}

void checkGlobals(const Module& module, const PF_OutData& declared) {
    const Resource& resource = module.resource();
    requireSame(module, "Version", resource.version, declared.my_version);
    requireSame(module, "OutFlags", resource.outFlags, declared.out_flags);
    requireSame(module, "OutFlags2", resource.outFlags2, declared.out_flags2);
}

/// `parameters` are the input layer and the sliders.
void checkSliders(const Module& module, const std::vector<PF_ParamDef>& parameters) {
    const std::vector<Slider>& sliders = module.resource().sliders;
    requireSame(module, "the number of sliders", std::ssize(sliders), std::ssize(parameters) - 1);
    for (std::size_t i = 0; i < sliders.size(); ++i) {
        const std::string& name = sliders[i].name;
        const PF_SliderDef& declared = parameters[i + 1].u.sd;
        requireSame(module, "the name of slider " + std::to_string(i + 1), name,
                    textOf(parameters[i + 1].name));
        requireSame(module, name + ": Minimum", sliders[i].minimum, declared.valid_min);
        requireSame(module, name + ": Maximum", sliders[i].maximum, declared.valid_max);
        requireSame(module, name + ": Default", sliders[i].defaultValue, declared.dephault);
    }
}

} // namespace

std::string Result::text() const {
    std::string text = message;
    if (text.empty() && code != PF_Err_NONE)
        text = code == PF_Err_OUT_OF_MEMORY ? "out of memory"
                                            : "the effect failed with code " + std::to_string(code);
    for (const std::string& imbalance : mistakes)
        text += (text.empty() ? "" : "; ") + imbalance;
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c == '\r' || c == '\n'; }, ' ');
    return text;
}

/// What the effect calls back with its `effect_ref`.
struct Effect::Callbacks {
    static Effect& self(void* effectRef) { return *static_cast<Effect*>(effectRef); }

    static PF_Err addParam(void* effectRef, std::int32_t index, PF_ParamDef* param) {
        Effect& effect = self(effectRef);
        const auto count = static_cast<std::int32_t>(effect.mParameters.size());
        if (!param || index < -1 || index == 0 || index > count)
            return PF_Err_BAD_CALLBACK_PARAM;
        if (param->param_type != PF_Param_SLIDER)
            return PF_Err_UNRECOGNIZED_PARAM_TYPE;
        effect.mParameters.insert(effect.mParameters.begin() + (index < 0 ? count : index), *param);
        return PF_Err_NONE;
    }

    static PF_Err checkoutParam(void* effectRef, std::int32_t index, std::int32_t, std::int32_t,
                                std::uint32_t, PF_ParamDef* param) {
        Effect& effect = self(effectRef);
        if (!param || index < 0 || index >= static_cast<std::int32_t>(effect.mParameters.size()))
            return PF_Err_BAD_CALLBACK_PARAM;
        *param = effect.mParameters[index];
        effect.mServices.ledger().acquire(recordText("parameter", param));
        return PF_Err_NONE;
    }

    static PF_Err checkinParam(void* effectRef, PF_ParamDef* param) {
        Effect& effect = self(effectRef);
        return effect.mServices.ledger().release(recordText("parameter", param)) ? PF_Err_NONE
                                                                                 : PF_Err_BAD_CALLBACK_PARAM;
    }

    static PF_Err checkoutLayer(void* effectRef, std::int32_t index, std::int32_t checkoutId,
                                const PF_RenderRequest* request, std::int32_t, std::int32_t, std::uint32_t,
                                PF_CheckoutResult* result) {
        Effect& effect = self(effectRef);
        if (!effect.mFrame.input || index != 0 || !request || !result)
            return PF_Err_BAD_CALLBACK_PARAM;
        effect.mFrame.layers.insert(checkoutId);
        result->max_result_rect = boundsOf(*effect.mFrame.input);
        result->result_rect = intersection(request->rect, result->max_result_rect);
        return PF_Err_NONE;
    }

    static PF_Err checkoutLayerPixels(void* effectRef, std::int32_t checkoutId, PF_LayerDef** world) {
        Effect& effect = self(effectRef);
        if (!world || !effect.mFrame.layers.count(checkoutId))
            return PF_Err_BAD_CALLBACK_PARAM;
        *world = effect.mFrame.input;
        return PF_Err_NONE;
    }

    /// Layers go back to the host by themselves when the command ends; an effect may be earlier.
    static PF_Err checkinLayerPixels(void* effectRef, std::int32_t checkoutId) {
        Effect& effect = self(effectRef);
        return effect.mFrame.layers.erase(checkoutId) ? PF_Err_NONE : PF_Err_BAD_CALLBACK_PARAM;
    }

    static PF_Err checkoutOutput(void* effectRef, PF_LayerDef** world) {
        Effect& effect = self(effectRef);
        if (!effect.mFrame.input || !world)
            return PF_Err_BAD_CALLBACK_PARAM;
        *world = &effect.mSpare;
        return PF_Err_NONE;
    }
};

Effect::Effect(const Module& module) : mModule(module) {
    mInData.inter = {Callbacks::checkoutParam, Callbacks::checkinParam, Callbacks::addParam};
    mInData.utils = utilCallbacks();
    mInData.effect_ref = this;
    mInData.pica_basicP = basicSuite();
    mInData.time_step = 1;
    mInData.time_scale = 1;
    PF_ParamDef layer{};
    layer.param_type = PF_Param_LAYER;
    mParameters.push_back(layer);
    try {
        setUp();
    } catch (...) {
        send(PF_Cmd_GLOBAL_SETDOWN);
        throw;
    }
}

Effect::~Effect() {
    send(PF_Cmd_GLOBAL_SETDOWN);
}

void Effect::setUp() {
    const auto require = [this](bool fulfilled, const std::string& complaint) {
        if (!fulfilled)
            throw ModuleError(mModule.path().string() + ": " + complaint);
    };
    Result result = send(PF_Cmd_GLOBAL_SETUP);
    require(result.ok(), "global setup failed: " + result.text());
    checkGlobals(mModule, mOutData);
    result = send(PF_Cmd_PARAMS_SETUP);
    require(result.ok(), "parameters setup failed: " + result.text());
    require(mOutData.num_params == static_cast<std::int32_t>(mParameters.size()),
            "the effect reports " + std::to_string(mOutData.num_params) + " parameters but added " +
                std::to_string(mParameters.size()));
    checkSliders(mModule, mParameters);
}

std::string Effect::about() {
    const std::lock_guard lock(mMutex);
    return send(PF_Cmd_ABOUT).code == PF_Err_NONE ? textOf(mOutData.return_msg) : "";
}

Result Effect::send(PF_Cmd cmd, void* extra) {
    const Services::Visit visit(mServices);
    // What an effect keeps with the host stays; everything else is the command's own.
    PF_OutData fresh{};
    fresh.global_data = mOutData.global_data;
    fresh.sequence_data = mOutData.sequence_data;
    fresh.frame_data = mOutData.frame_data;
    mOutData = fresh;
    std::vector<PF_ParamDef*> params;
    for (PF_ParamDef& param : mParameters)
        params.push_back(&param);
    Result result;
    try {
        result.code = mModule.entry()(cmd, &mInData, &mOutData, params.data(), nullptr, extra);
    } catch (...) {
        mServices.ledger().noteMistake("an exception left the entry");
    }
    if (mOutData.out_flags & PF_OutFlag_DISPLAY_ERROR_MESSAGE)
        result.message = textOf(mOutData.return_msg);
    result.mistakes = mServices.settle();
    return result;
}

Result Effect::render(World& input, World& output, std::span<const std::int32_t> values, Time time) {
    const std::lock_guard lock(mMutex);
    if (input.format() != PF_PixelFormat_ARGB32)
        return {PF_Err_BAD_CALLBACK_PARAM, "the effect takes worlds of 8 bits a channel", {}};
    if (values.size() + 1 != mParameters.size())
        return {PF_Err_BAD_CALLBACK_PARAM,
                std::to_string(values.size()) + " values were given for " +
                    std::to_string(mParameters.size() - 1) + " sliders",
                {}};
    for (std::size_t i = 0; i < values.size(); ++i)
        mParameters[i + 1].u.sd.value = values[i];
    mInData.current_time = time.current;
    mInData.time_step = time.step;
    mInData.time_scale = time.scale;

    Result result;
    mFrame = {&input};
    try {
        result = renderInto(output);
    } catch (const std::bad_alloc&) {
        result.code = PF_Err_OUT_OF_MEMORY;
    }
    mFrame = {};
    return result;
}

Result Effect::renderInto(World& output) {
    PF_LRect promised{};
    Result result = preRender(promised);
    if (result.ok())
        result = smartRender(promised);
    if (!result.ok())
        return result;
    const World& input = *mFrame.input;
    if (mSpare.sameShape(input)) {
        output.swap(mSpare);
    } else {
        World whole(input.width, input.height);
        place(mSpare, whole, promised.left, promised.top);
        output.swap(whole);
    }
    return result;
}

Result Effect::preRender(PF_LRect& promised) {
    PF_PreRenderInput input{{boundsOf(*mFrame.input), kAllChannels}};
    PF_PreRenderOutput output{};
    PF_PreRenderCallbacks callbacks{Callbacks::checkoutLayer};
    PF_PreRenderExtra extra{&input, &output, &callbacks};
    Result result = send(PF_Cmd_SMART_PRE_RENDER, &extra);
    promised = output.result_rect;
    if (result.ok() && !isEmpty(promised) &&
        !equal(promised, intersection(promised, boundsOf(*mFrame.input))))
        result = {
            PF_Err_BAD_CALLBACK_PARAM, "the effect promises more than was asked, " + textOf(promised), {}};
    return result;
}

Result Effect::smartRender(PF_LRect promised) {
    if (isEmpty(promised))
        promised = {};
    const int width = promised.right - promised.left, height = promised.bottom - promised.top;
    if (mSpare.width == width && mSpare.height == height && mSpare.format() == PF_PixelFormat_ARGB32)
        mSpare.clear();
    else
        mSpare = World(width, height);
    PF_SmartRenderInput input{{promised, kAllChannels}, kBitDepth};
    PF_SmartRenderCallbacks callbacks{Callbacks::checkoutLayerPixels, Callbacks::checkinLayerPixels,
                                      Callbacks::checkoutOutput};
    PF_SmartRenderExtra extra{&input, &callbacks};
    Result result = send(PF_Cmd_SMART_RENDER, &extra);
    if (!mSpare.paddingIntact()) {
        result.mistakes.push_back("the padding of the output's rows was overwritten");
        mSpare = World(0, 0);
    }
    return result;
}

} // namespace Tessaloom::BilateralBlur::Host
