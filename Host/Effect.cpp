#include "Host/Effect.h"

#include "Host/Suites.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <functional>
#include <new>
#include <string_view>

namespace Tessaloom::BilateralBlur::Host {

namespace {

constexpr std::int32_t kAllChannels = 0xF;

PF_LRect boundsOf(const World& world) {
    return {0, 0, world.width, world.height};
}

bool equal(const PF_LRect& a, const PF_LRect& b) {
    return a.left == b.left && a.top == b.top && a.right == b.right && a.bottom == b.bottom;
}

bool equal(const PF_LayerDef& a, const PF_LayerDef& b) {
    return a.width == b.width && a.height == b.height && a.rowbytes == b.rowbytes;
}

PF_LRect intersection(const PF_LRect& a, const PF_LRect& b) {
    return {std::max(a.left, b.left), std::max(a.top, b.top), std::min(a.right, b.right),
            std::min(a.bottom, b.bottom)};
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

/// Each run of line ends becomes a blank.
std::string inOneLine(const std::string& text) {
    std::string line;
    for (const char c : text)
        if (c != '\r' && c != '\n')
            line += c;
        else if (!line.ends_with(' '))
            line += ' ';
    return line;
}

[[noreturn]] void refuse(const Module& module, const std::string& complaint) {
    throw ModuleError(module.path().string() + ": " + inOneLine(complaint));
}

void requireSame(const Module& module, const std::string& what, const std::string& listed,
                 const std::string& declared) {
    if (listed != declared)
        refuse(module, what + " is " + listed + " in the property list, but the effect declares " + declared);
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
    return inOneLine(text);
}

/// What the effect calls back with its `effect_ref`.
struct Effect::Callbacks {
    static Effect& self(void* effectRef) { return *static_cast<Effect*>(effectRef); }

    static PF_Err addParam(void* effectRef, std::int32_t index, PF_ParamDef* param) {
        Effect& effect = self(effectRef);
        if (!effect.mTakesParameters)
            effect.mServices.ledger().noteMistake("a parameter was added outside of parameters setup");
        if (!effect.mTakesParameters || !param || index != -1)
            return PF_Err_BAD_CALLBACK_PARAM;
        if (param->param_type != PF_Param_SLIDER)
            return PF_Err_UNRECOGNIZED_PARAM_TYPE;
        effect.addParameter(*param);
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
        if (!effect.mInput || index != 0 || !request || !result)
            return PF_Err_BAD_CALLBACK_PARAM;
        effect.mLayers.insert(checkoutId);
        result->max_result_rect = boundsOf(*effect.mInput);
        result->result_rect = intersection(request->rect, result->max_result_rect);
        return PF_Err_NONE;
    }

    static PF_Err checkoutLayerPixels(void* effectRef, std::int32_t checkoutId, PF_LayerDef** world) {
        Effect& effect = self(effectRef);
        if (!world || !effect.mLayers.count(checkoutId))
            return PF_Err_BAD_CALLBACK_PARAM;
        *world = effect.mInput;
        return PF_Err_NONE;
    }

    /// Layers go back to the host by themselves when the command ends; an effect may be earlier.
    static PF_Err checkinLayerPixels(void* effectRef, std::int32_t checkoutId) {
        Effect& effect = self(effectRef);
        return effect.mLayers.erase(checkoutId) ? PF_Err_NONE : PF_Err_BAD_CALLBACK_PARAM;
    }

    static PF_Err checkoutOutput(void* effectRef, PF_LayerDef** world) {
        Effect& effect = self(effectRef);
        if (!effect.mInput || !world)
            return PF_Err_BAD_CALLBACK_PARAM;
        *world = &effect.mSpare;
        return PF_Err_NONE;
    }
};

namespace {

std::mutex mClaiming;
std::set<PF_EntryPointFunc>& mClaimed =
    *new std::set<PF_EntryPointFunc>; // never destroyed, as effects may be static

} // namespace

Effect::Claim::Claim(const Module& module) : mEntry(module.entry()) {
    const std::lock_guard lock(mClaiming);
    if (!mClaimed.insert(mEntry).second)
        refuse(module, "the process has this effect already; end the one before the other begins");
}

Effect::Claim::~Claim() {
    const std::lock_guard lock(mClaiming);
    mClaimed.erase(mEntry);
}

Effect::Effect(const Module& module) : mModule(module) {
    mInData.inter = {Callbacks::checkoutParam, Callbacks::checkinParam, Callbacks::addParam};
    mInData.utils = utilCallbacks();
    mInData.effect_ref = this;
    mInData.pica_basicP = basicSuite();
    mInData.time_step = 1;
    mInData.time_scale = 1;
    PF_ParamDef layer{};
    layer.param_type = PF_Param_LAYER;
    addParameter(layer);
    try {
        setUp();
    } catch (...) {
        send(PF_Cmd_GLOBAL_SETDOWN);
        throw;
    }
}

Effect::~Effect() {
    try {
        send(PF_Cmd_GLOBAL_SETDOWN);
    } catch (const std::bad_alloc&) {
        // By then the effect has had the command.
    }
}

void Effect::addParameter(const PF_ParamDef& parameter) {
    mParameters.push_back(parameter);
    mParameterList.clear();
    for (PF_ParamDef& each : mParameters)
        mParameterList.push_back(&each);
}

void Effect::setUp() {
    Result result = send(PF_Cmd_GLOBAL_SETUP);
    if (!result.ok())
        refuse(mModule, "global setup failed: " + result.text());
    checkGlobals(mModule, mOutData);
    mTakesParameters = true;
    result = send(PF_Cmd_PARAMS_SETUP);
    mTakesParameters = false;
    if (!result.ok())
        refuse(mModule, "parameters setup failed: " + result.text());
    if (mOutData.num_params != std::ssize(mParameters))
        refuse(mModule, "the effect reports " + std::to_string(mOutData.num_params) +
                            " parameters but added " + std::to_string(mParameters.size()));
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
    Result result;
    try {
        result.code = mModule.entry()(cmd, &mInData, &mOutData, mParameterList.data(), nullptr, extra);
    } catch (...) {
        mServices.ledger().noteMistake("an exception left the entry");
    }
    if (mOutData.out_flags & PF_OutFlag_DISPLAY_ERROR_MESSAGE)
        result.message = textOf(mOutData.return_msg);
    result.mistakes = mServices.settle();
    return result;
}

/// Returns what is wrong with the values, empty if nothing is.
std::string Effect::setValues(std::span<const std::int32_t> values) {
    const std::vector<Slider>& sliders = mModule.resource().sliders;
    if (values.size() > sliders.size())
        return std::to_string(values.size()) + " values were given for " + std::to_string(sliders.size()) +
               " sliders";
    for (std::size_t i = 0; i < sliders.size(); ++i) {
        const Slider& slider = sliders[i];
        const std::int32_t value = i < values.size() ? values[i] : slider.defaultValue;
        if (value < slider.minimum || value > slider.maximum)
            return slider.name + " " + std::to_string(value) + " is out of range, " +
                   std::to_string(slider.minimum) + " to " + std::to_string(slider.maximum);
        mParameters[i + 1].u.sd.value = value;
    }
    return "";
}

Result Effect::render(World& input, World& output, std::span<const std::int32_t> values, Time time) {
    const std::lock_guard lock(mMutex);
    if (!mModule.resource().takes(input.format()))
        return {PF_Err_BAD_CALLBACK_PARAM,
                "the effect doesn't take worlds of " + std::to_string(bitsOf(input.format())) +
                    " bits a channel",
                {}};
    if (const std::string complaint = setValues(values); !complaint.empty())
        return {PF_Err_BAD_CALLBACK_PARAM, complaint, {}};
    mInData.current_time = time.current;
    mInData.time_step = time.step;
    mInData.time_scale = time.scale;

    Result result;
    mInput = &input;
    try {
        result = renderInto(output);
    } catch (const std::bad_alloc&) {
        result.code = PF_Err_OUT_OF_MEMORY;
    }
    mInput = nullptr;
    mLayers.clear();
    return result;
}

Result Effect::renderInto(World& output) {
    Result result = preRender();
    if (result.ok())
        result = smartRender();
    if (result.ok())
        output.swap(mSpare);
    return result;
}

Result Effect::preRender() {
    const PF_LRect whole = boundsOf(*mInput);
    PF_PreRenderInput input{{whole, kAllChannels}};
    PF_PreRenderOutput output{};
    PF_PreRenderCallbacks callbacks{Callbacks::checkoutLayer};
    PF_PreRenderExtra extra{&input, &output, &callbacks};
    Result result = send(PF_Cmd_SMART_PRE_RENDER, &extra);
    if (result.ok() && !equal(output.result_rect, whole))
        result.mistakes.push_back("the effect promises " + textOf(output.result_rect) + " instead of " +
                                  textOf(whole));
    return result;
}

Result Effect::smartRender() {
    if (mSpare.sameShape(*mInput))
        mSpare.clear();
    else
        mSpare = World(mInput->width, mInput->height, mInput->format());
    const PF_LayerDef inputRecord = *mInput, outputRecord = mSpare;
    const std::size_t rows = rowsOfInput();
    PF_SmartRenderInput input{{boundsOf(*mInput), kAllChannels}, bitsOf(mInput->format())};
    PF_SmartRenderCallbacks callbacks{Callbacks::checkoutLayerPixels, Callbacks::checkinLayerPixels,
                                      Callbacks::checkoutOutput};
    PF_SmartRenderExtra extra{&input, &callbacks};
    Result result = send(PF_Cmd_SMART_RENDER, &extra);

    if (!equal(*mInput, inputRecord) || !equal(mSpare, outputRecord))
        result.mistakes.push_back("the record of a world was overwritten");
    static_cast<PF_LayerDef&>(*mInput) = inputRecord;
    static_cast<PF_LayerDef&>(mSpare) = outputRecord;
    if (rowsOfInput() != rows)
        result.mistakes.push_back("the input was overwritten");
    if (!mSpare.paddingIntact()) {
        result.mistakes.push_back("the padding of the output's rows was overwritten");
        mSpare = World(0, 0);
    }
    ++mFrames;
    return result;
}

/// A hash of some rows, padding included. To read all would take as long as a small blur does.
std::size_t Effect::rowsOfInput() const {
    const int step = std::max(1, mInput->height / 64);
    std::size_t hash = 0;
    for (int y = mFrames % step; y < mInput->height; y += step)
        hash = 31 * hash + std::hash<std::string_view>{}(
                               {mInput->row<char>(y), static_cast<std::size_t>(mInput->rowbytes)});
    return hash;
}

} // namespace Tessaloom::BilateralBlur::Host
