#include "Plugins/Shared/Effect/PreRender.h"

#include <algorithm>

namespace Tessaloom::BilateralBlur {

namespace {

void UnionRect(const PF_LRect* src, PF_LRect* dst) {
    if (IsEmptyRect(dst)) {
        *dst = *src;
    } else if (!IsEmptyRect(src)) {
        dst->left = std::min(dst->left, src->left);
        dst->top = std::min(dst->top, src->top);
        dst->right = std::max(dst->right, src->right);
        dst->bottom = std::max(dst->bottom, src->bottom);
    }
}

} // namespace

bool IsEmptyRect(const PF_LRect* rect) {
    return rect->left >= rect->right || rect->top >= rect->bottom;
}

PF_Err smartPreRender(const PF_InData* in_data, PF_PreRenderExtra* extra) {
    const PF_RenderRequest request = extra->input->output_request;
    PF_CheckoutResult result{};
    const PF_Err error = extra->cb->checkout_layer(in_data->effect_ref, 0, 0, &request, in_data->current_time,
                                                   in_data->time_step, in_data->time_scale, &result);
    if (error != PF_Err_NONE)
        return error;
    UnionRect(&result.result_rect, &extra->output->result_rect);
    UnionRect(&result.max_result_rect, &extra->output->max_result_rect);
    return PF_Err_NONE;
}

} // namespace Tessaloom::BilateralBlur
