#pragma once

// The library's functions are all that the shared object exports.
#pragma GCC visibility push(default)
#include "Bridges/library/bilateral-blur.h"
#pragma GCC visibility pop

#include "Plugins/Shared/Effect/LinkedEffect.h"

#include <cstdint>
#include <initializer_list>

namespace Tessaloom::BilateralBlur::Library {

/// What `bilateral_blur_text` says of a value out of its range; each is where the range is checked.
extern const char* const kBadBlurScale;
extern const char* const kBadRadius;
extern const char* const kBadThreshold;

/// Filters an image of the caller's, once it is found to be one. `values` are those of the first sliders,
/// within their ranges; the others have their defaults. Returns a bilateral_blur_code; no exception comes out.
int filter(const LinkedEffect& effect, const bilateral_blur_image* image,
           std::initializer_list<std::int32_t> values) noexcept;

} // namespace Tessaloom::BilateralBlur::Library
