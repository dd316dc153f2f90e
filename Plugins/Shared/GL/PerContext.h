#pragma once

#include "Platform/GLContext.h"

#include <map>

namespace Tessaloom::BilateralBlur {

/// One `T` for each GL context, for what a share group doesn't share: names of vertex arrays and frame
/// buffers, and facts about the context.
///
/// An entry outlives its context until `clear`; as a context's serial never comes back, no other context
/// finds it. Contexts made elsewhere than by `NSOpenGLContext` have one entry in common.
template<typename T>
class PerContext {
public:
    /// The entry of the context that is current on the calling thread, made on first use.
    T& current() { return mValues[CGLGetCurrentContext().serial]; }

    void clear() { mValues.clear(); }

private:
    std::map<std::uint64_t, T> mValues;
};

} // namespace Tessaloom::BilateralBlur
