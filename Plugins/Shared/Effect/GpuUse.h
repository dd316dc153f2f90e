#pragma once

#include <string>

namespace Tessaloom::BilateralBlur {

class GLFailure;

/// Why frames aren't drawn by the GPU. One object serves the process, from one global setup to the next.
class GpuUse {
public:
    static GpuUse& shared();

    /// False after the loss of a context: the GPU isn't asked again until the next setup.
    bool isPossible() const { return !mIsLost; }

    /// Prints one line to standard output with the effect's name and the reason, unless it is the reason of the line
    /// before. Throws nothing.
    void note(const char* effect, const char* reason) noexcept;
    void note(const char* effect, const GLFailure& failure) noexcept;

    /// Forgets all, for a setup.
    void reset() noexcept;

private:
    bool mIsLost = false;
    std::string mReason;
};

} // namespace Tessaloom::BilateralBlur
