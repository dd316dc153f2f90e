#pragma once

namespace Tessaloom::BilateralBlur {

/// A host on X11 that draws with GLX, in a window of its own on the display that the environment names.
class GlxHost {
public:
    GlxHost();
    ~GlxHost();
    GlxHost(const GlxHost&) = delete;
    GlxHost& operator=(const GlxHost&) = delete;

    /// Makes the host's context current on the calling thread, or none. False where X11 refuses.
    bool makeCurrent();
    bool makeNoneCurrent();

    /// True if the host's context is current on the calling thread.
    bool isCurrent() const;

private:
    struct Window;

    Window* mWindow;
};

} // namespace Tessaloom::BilateralBlur
