#include "Tests/Support/GlxHost.h"

#include <GL/glx.h>
#include <stdexcept>

namespace Tessaloom::BilateralBlur {

namespace {

// X11 has one handler for the errors of a process; its own ends the process.
bool mHasFailed = false;

int noteError(Display*, XErrorEvent*) {
    mHasFailed = true;
    return 0;
}

} // namespace

struct GlxHost::Window {
    Display* display = nullptr;
    ::Window window = 0;
    GLXContext context = nullptr;

    bool bind(::Window drawable, GLXContext bound) {
        mHasFailed = false;
        const bool works = glXMakeCurrent(display, drawable, bound);
        XSync(display, False);
        return works && !mHasFailed;
    }
};

GlxHost::GlxHost() : mWindow(new Window) {
    Display* display = mWindow->display = XOpenDisplay(nullptr);
    int attributes[] = {GLX_RGBA, GLX_DOUBLEBUFFER, None};
    XVisualInfo* visual = display ? glXChooseVisual(display, DefaultScreen(display), attributes) : nullptr;
    if (!visual)
        throw std::runtime_error("no X11 display with GLX");
    XSetErrorHandler(noteError);
    const ::Window root = RootWindow(display, visual->screen);
    XSetWindowAttributes with{};
    with.colormap = XCreateColormap(display, root, visual->visual, AllocNone);
    mWindow->window = XCreateWindow(display, root, 0, 0, 16, 16, 0, visual->depth, InputOutput,
                                    visual->visual, CWColormap, &with);
    mWindow->context = glXCreateContext(display, visual, nullptr, True);
    XFree(visual);
}

GlxHost::~GlxHost() {
    makeNoneCurrent();
    glXDestroyContext(mWindow->display, mWindow->context);
    XCloseDisplay(mWindow->display);
    delete mWindow;
}

bool GlxHost::makeCurrent() {
    return mWindow->bind(mWindow->window, mWindow->context);
}

bool GlxHost::makeNoneCurrent() {
    return mWindow->bind(0, nullptr);
}

bool GlxHost::isCurrent() const {
    return glXGetCurrentContext() == mWindow->context;
}

} // namespace Tessaloom::BilateralBlur
