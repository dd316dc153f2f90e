#pragma once

#include "HostInterface/EffectHost.h"

#include <map>
#include <optional>
#include <string>

namespace Tessaloom::BilateralBlur::Host {

/// The host's callbacks and suite functions that can be made to fail.
enum class Callback {
    AddParam,
    CheckoutParam,
    CheckinParam,
    CheckoutLayer,
    CheckoutLayerPixels,
    CheckoutOutput,
    GetPixelData8,
    GetPixelData16,
    Iterate,
    ExecuteScript,
    LockMemHandle,
    FreeMemHandle,
};

/// What a test makes go wrong. Left empty, everything works.
struct Faults {
    std::string missingSuite{};           ///< this suite can't be had, in any version
    std::map<Callback, PF_Err> failing{}; ///< these do nothing and return the given code
    bool noHandles = false;               ///< `host_new_handle` gives null
    bool nullInput = false;               ///< the input layer comes as a null world
    bool nullOutput = false;              ///< so does the output

    /// The output world's size where it is to differ from the frame's.
    struct Size {
        int width, height;
    };
    std::optional<Size> outputSize{};

    PF_Err codeOf(Callback callback) const {
        const auto found = failing.find(callback);
        return found == failing.end() ? PF_Err_NONE : found->second;
    }
};

} // namespace Tessaloom::BilateralBlur::Host
