#pragma once

#include "HostInterface/EffectHost.h"

namespace Tessaloom::BilateralBlur {

/// True for a world without pixels.
bool isEmptyWorld(const PF_LayerDef& world);

/// Asks the host to show the user a message, in `printf`'s format, cut to what `return_msg` holds. Does
/// nothing where `out_data` is null.
[[gnu::format(printf, 2, 3)]] void showMessage(PF_OutData* out_data, const char* format, ...);

/// Throws the integer 516, with a message, for worlds that a frame can't be rendered from or into: a null
/// one, an output larger than the input, and rows too close together for their pixels. Rows may run upwards in
/// memory, with negative `rowbytes`.
void checkWorlds(PF_OutData* out_data, const PF_LayerDef* input, const PF_LayerDef* output, int pixelBytes);

} // namespace Tessaloom::BilateralBlur
