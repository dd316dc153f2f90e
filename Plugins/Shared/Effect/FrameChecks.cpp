#include "Plugins/Shared/Effect/FrameChecks.h"

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace Tessaloom::BilateralBlur {

namespace {

// Rows may run upwards in memory. Where a single row is doesn't depend on a distance.
void checkRows(PF_OutData* out_data, const char* which, const PF_LayerDef& world, int pixelBytes) {
    if (isEmptyWorld(world) || world.height == 1 ||
        std::abs(std::int64_t{world.rowbytes}) >= std::int64_t{pixelBytes} * world.width)
        return;
    showMessage(out_data, "The rows of the %s, %d bytes apart, don't hold %d pixels.", which, world.rowbytes,
                world.width);
    throw int{PF_Err_BAD_CALLBACK_PARAM};
}

} // namespace

bool isEmptyWorld(const PF_LayerDef& world) {
    return world.width <= 0 || world.height <= 0;
}

void showMessage(PF_OutData* out_data, const char* format, ...) {
    if (!out_data)
        return;
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(out_data->return_msg, sizeof out_data->return_msg, format, arguments);
    va_end(arguments);
    out_data->out_flags |= PF_OutFlag_DISPLAY_ERROR_MESSAGE;
}

void checkWorlds(PF_OutData* out_data, const PF_LayerDef* input, const PF_LayerDef* output, int pixelBytes) {
    if (!input || !output) {
        showMessage(out_data, "The host gave no %s world.", input ? "output" : "input");
        throw int{PF_Err_BAD_CALLBACK_PARAM};
    }
    checkRows(out_data, "input", *input, pixelBytes);
    checkRows(out_data, "output", *output, pixelBytes);
    if (!isEmptyWorld(*output) && (output->width > input->width || output->height > input->height)) {
        showMessage(out_data, "The output of %d x %d pixels is larger than the input of %d x %d.",
                    output->width, output->height, input->width, input->height);
        throw int{PF_Err_BAD_CALLBACK_PARAM};
    }
}

} // namespace Tessaloom::BilateralBlur
