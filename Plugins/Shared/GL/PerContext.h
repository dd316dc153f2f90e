#pragma once

#include "Platform/GLContext.h"

#include <map>

namespace Tessaloom::BilateralBlur {

/// One `T` for each GL context, for what a share group doesn't share: names of vertex arrays and
/// framebuffers, and properties of the context.
///
/// An entry outlives its context until `clear`; serials are never reused, so no other context finds it. All
/// contexts that weren't made by `NSOpenGLContext` use the same entry.
template<typename T>
class PerContext {
public:
    /// The entry of the context that is current on the calling thread, made on first use.
    T& current() { return mValues[CGLGetCurrentContext().serial]; }

    /// The same, null if there is none: for destructors and deletions, which mustn't need memory.
    T* find() {
        const auto found = mValues.find(CGLGetCurrentContext().serial);
        return found == mValues.end() ? nullptr : &found->second;
    }

    /// Removes the entry of the context that is current, if there is one.
    void forget() { mValues.erase(CGLGetCurrentContext().serial); }

    void clear() { mValues.clear(); }

private:
    std::map<std::uint64_t, T> mValues;
};

} // namespace Tessaloom::BilateralBlur
