#pragma once

#include "HostInterface/EffectHost.h"

namespace Tessaloom::BilateralBlur {

/// True where `left >= right` or `top >= bottom`.
bool IsEmptyRect(const PF_LRect* rect);

/// The command before a frame: asks for the input layer as the host asks for the frame, and unites the rectangles of
/// that checkout with those of the answer. Returns the code of a failed checkout, and changes nothing then.
PF_Err smartPreRender(const PF_InData* in_data, PF_PreRenderExtra* extra);

} // namespace Tessaloom::BilateralBlur
