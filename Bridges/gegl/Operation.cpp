#include "Bridges/RenderThread.h"

#include <gegl-plugin.h>

#include <algorithm>
#include <cmath>
#include <new>
#include <span>
#include <string>
#include <vector>

// The effect as an operation of GEGL. A pixel's result needs the pixels up to the declaration's margin away, so any
// part of an image gets the bytes that it has in the whole, as long as it is filtered with that margin. At the
// edges of the image there is none: the effect repeats the last pixels there.

namespace Tessaloom::BilateralBlur::Gegl {

namespace {

std::span<const SliderDeclaration> sliders() {
    return linkedEffect().declaration.sliders;
}

/// Bounds the memory that a region takes, however large it is: about 60 MB, 240 of floats.
constexpr int kLargestBlock = 2048;

/// An instance, which GObject allocates and clears. No constructor or destructor runs.
struct Operation {
    GeglOperationAreaFilter parent;
    Bridges::Request::Values values;
    gboolean isGrey; // the input
};

Operation& self(gpointer instance) {
    return *static_cast<Operation*>(instance);
}

void reportFailure(const char* reason) {
    g_log("GEGL", G_LOG_LEVEL_WARNING, "%s: passing pixels through unfiltered: %s",
          linkedEffect().declaration.name, reason);
}

GeglRectangle scaled(const GeglRectangle& rectangle, int level) {
    const int left = rectangle.x >> level, top = rectangle.y >> level;
    return {left, top, ((rectangle.x + rectangle.width) >> level) - left,
            ((rectangle.y + rectangle.height) >> level) - top};
}

GeglRectangle grown(const GeglRectangle& rectangle, int margin) {
    return {rectangle.x - margin, rectangle.y - margin, rectangle.width + 2 * margin,
            rectangle.height + 2 * margin};
}

/// Grey comes back from green, as an effect may leave a colour as it was.
void makeGrey(std::vector<std::uint8_t>& pixels) {
    for (std::size_t i = 0; i < pixels.size(); i += 4)
        pixels[i] = pixels[i + 2] = pixels[i + 1];
}

/// A part of the work: filters `block` with its margin and writes it.
void filterBlock(const Operation& operation, GeglBuffer* input, GeglBuffer* output, const Babl* format,
                 const GeglRectangle& image, const GeglRectangle& block, int level) {
    GeglRectangle source = grown(block, linkedEffect().declaration.margin >> level);
    gegl_rectangle_intersect(&source, &source, &image);
    const int pixelBytes = babl_format_get_bytes_per_pixel(format), rowBytes = pixelBytes * source.width;
    std::vector<std::uint8_t> pixels(static_cast<std::size_t>(rowBytes) * source.height);
    gegl_buffer_get(input, &source, 1.0 / (1 << level), format, pixels.data(), rowBytes, GEGL_ABYSS_CLAMP);
    Bridges::Request request{.effect = linkedEffect(),
                             .width = static_cast<unsigned>(source.width),
                             .height = static_cast<unsigned>(source.height),
                             .input = pixels.data(),
                             .output = pixels.data(),
                             .samples = babl_format_get_type(format, 0) == babl_type("float")
                                            ? Bridges::Samples::Floats
                                            : Bridges::Samples::Bytes};
    for (std::size_t i = 0; i < sliders().size(); ++i)
        request.values[i] = sliders()[i].isDistance ? operation.values[i] >> level : operation.values[i];
    Bridges::RenderThread::shared().filter(request, reportFailure);
    if (operation.isGrey && request.samples == Bridges::Samples::Bytes)
        makeGrey(pixels);
    const std::ptrdiff_t first =
        static_cast<std::ptrdiff_t>(rowBytes) * (block.y - source.y) + pixelBytes * (block.x - source.x);
    gegl_buffer_set(output, &block, level, format, pixels.data() + first, rowBytes);
}

GeglRectangle boundsOfInput(GeglOperation* operation) {
    const GeglRectangle* const bounds = gegl_operation_source_get_bounding_box(operation, "input");
    return bounds ? *bounds : GeglRectangle{0, 0, 0, 0};
}

gboolean process(GeglOperation* operation, GeglBuffer* input, GeglBuffer* output, const GeglRectangle* region,
                 gint level) try {
    if (gegl_rectangle_is_infinite_plane(region)) {
        reportFailure("the region has no bounds; crop it");
        return FALSE;
    }
    const Babl* const format = gegl_operation_get_format(operation, "output");
    const GeglRectangle image = scaled(boundsOfInput(operation), level), whole = scaled(*region, level);
    for (int y = 0; y < whole.height; y += kLargestBlock)
        for (int x = 0; x < whole.width; x += kLargestBlock)
            filterBlock(self(operation), input, output, format, image,
                        {whole.x + x, whole.y + y, std::min(kLargestBlock, whole.width - x),
                         std::min(kLargestBlock, whole.height - y)},
                        level);
    return TRUE;
} catch (const std::bad_alloc&) {
    reportFailure("out of memory");
    return FALSE;
}

/// The encoding of the filtered pixels: a layer's own precision where the effect takes it. Floats hold all others
/// but bytes.
const char* encodingFor(const Babl* source) {
    const bool hasBytes = source && babl_format_get_type(source, 0) == babl_type("u8");
    const bool takesFloats = linkedEffect().declaration.outFlags2 & PF_OutFlag2_FLOAT_COLOR_AWARE;
    return takesFloats && !hasBytes ? "R'G'B'A float" : "R'G'B'A u8";
}

void prepare(GeglOperation* operation) {
    GeglOperationAreaFilter& area = self(operation).parent;
    area.left = area.right = area.top = area.bottom = linkedEffect().declaration.margin;
    const Babl* const source = gegl_operation_get_source_format(operation, "input");
    self(operation).isGrey =
        source && (babl_get_model_flags(babl_format_get_model(source)) & BABL_MODEL_FLAG_GRAY) != 0;
    const Babl* const format =
        babl_format_with_space(encodingFor(source), gegl_operation_get_source_space(operation, "input"));
    gegl_operation_set_format(operation, "input", format);
    gegl_operation_set_format(operation, "output", format);
}

GeglAbyssPolicy abyssPolicy(GeglOperation*, const gchar*) {
    return GEGL_ABYSS_CLAMP;
}

void setProperty(GObject* object, guint id, const GValue* value, GParamSpec*) {
    const std::int32_t steps = sliders()[id - 1].steps;
    self(object).values[id - 1] =
        steps == 1 ? g_value_get_int(value)
                   : static_cast<std::int32_t>(std::lround(g_value_get_double(value) * steps));
}

void getProperty(GObject* object, guint id, GValue* value, GParamSpec*) {
    const std::int32_t steps = sliders()[id - 1].steps, number = self(object).values[id - 1];
    if (steps == 1)
        g_value_set_int(value, number);
    else
        g_value_set_double(value, static_cast<double>(number) / steps);
}

gpointer parentClass = nullptr;

void finalize(GObject* object) {
    G_OBJECT_CLASS(parentClass)->finalize(object);
    Bridges::RenderThread::shared().leave();
}

void initInstance(GTypeInstance*, gpointer) {
    Bridges::RenderThread::shared().enter();
}

/// A slider of whole numbers is an integer, one of fractions a floating-point number.
GParamSpec* propertyOf(const SliderDeclaration& slider) {
    constexpr double kLinear = 1;
    constexpr auto kFlags =
        static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_CONSTRUCT | GEGL_PARAM_PAD_INPUT);
    const auto property = [&](auto make, auto minimum, auto maximum, auto defaultValue) {
        return make(slider.key, slider.name, slider.description, minimum, maximum, defaultValue, minimum,
                    maximum, kLinear, kFlags);
    };
    if (slider.steps == 1)
        return property(gegl_param_spec_int, slider.minimum, slider.maximum, slider.defaultValue);
    const double steps = slider.steps;
    return property(gegl_param_spec_double, slider.minimum / steps, slider.maximum / steps,
                    slider.defaultValue / steps);
}

void initClass(gpointer klass, gpointer) {
    parentClass = g_type_class_peek_parent(klass);
    GObjectClass* const object = G_OBJECT_CLASS(klass);
    object->set_property = setProperty;
    object->get_property = getProperty;
    object->finalize = finalize;
    for (std::size_t i = 0; i < sliders().size(); ++i)
        g_object_class_install_property(object, static_cast<guint>(i + 1), propertyOf(sliders()[i]));

    GeglOperationClass* const operation = GEGL_OPERATION_CLASS(klass);
    operation->prepare = prepare;
    operation->get_bounding_box = boundsOfInput;
    // The effect has threads of its own; split regions would only have more margin to filter.
    operation->threaded = FALSE;
    GEGL_OPERATION_FILTER_CLASS(klass)->process = process;
    GEGL_OPERATION_AREA_FILTER_CLASS(klass)->get_abyss_policy = abyssPolicy;
    const EffectDeclaration& effect = linkedEffect().declaration;
    gegl_operation_class_set_keys(operation, "name", (std::string("bilateral-blur:") + effect.key).c_str(),
                                  "title", effect.name, "categories", "blur", "description",
                                  effect.description, nullptr);
}

/// "Bilateral Blur" is the type "BilateralBlurOperation".
std::string typeName() {
    std::string name = linkedEffect().declaration.name;
    std::erase(name, ' ');
    return name + "Operation";
}

} // namespace

} // namespace Tessaloom::BilateralBlur::Gegl

using namespace Tessaloom::BilateralBlur;
using namespace Tessaloom::BilateralBlur::Gegl;

extern "C" {

G_MODULE_EXPORT const GeglModuleInfo* gegl_module_query(GTypeModule*) {
    static const GeglModuleInfo kInfo{GEGL_MODULE_ABI_VERSION};
    return &kInfo;
}

G_MODULE_EXPORT gboolean gegl_module_register(GTypeModule* module) try {
    Bridges::RenderThread::shared();
    GTypeInfo info{};
    info.class_size = sizeof(GeglOperationAreaFilterClass);
    info.class_init = initClass;
    info.instance_size = sizeof(Operation);
    info.instance_init = initInstance;
    gegl_module_register_type(module, GEGL_TYPE_OPERATION_AREA_FILTER, typeName().c_str(), &info,
                              static_cast<GTypeFlags>(0));
    return TRUE;
} catch (const std::bad_alloc&) {
    return FALSE;
}
}
