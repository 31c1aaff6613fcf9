// The viewer itself. It draws into a framebuffer of its own: surfaces of the platform are not to be had everywhere, and
// their sizes are bounded by other things.
#include "hosts/offscreen/offscreen.h"

#define GL_GLEXT_PROTOTYPES
#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GL/gl.h>
#include <GL/glext.h>

#include <cstdlib>
#include <cstring>
#include <memory>

namespace spark_host {

struct OffscreenViewer {
    int width = 0, height = 0;
    OffscreenKind kind = OffscreenKind::plain;
    EGLDisplay display = EGL_NO_DISPLAY;
    EGLContext context = EGL_NO_CONTEXT;
    GLuint framebuffer = 0, colours = 0;
};

namespace {

void drop_pixels(OffscreenViewer& viewer) {
    if (viewer.framebuffer) glDeleteFramebuffers(1, &viewer.framebuffer);
    if (viewer.colours) glDeleteRenderbuffers(1, &viewer.colours);
    viewer.framebuffer = viewer.colours = 0;
}

void close_viewer(OffscreenViewer* viewer) {
    if (!viewer) return;
    if (viewer->context != EGL_NO_CONTEXT) {
        drop_pixels(*viewer);
        eglMakeCurrent(viewer->display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
        eglDestroyContext(viewer->display, viewer->context);
    }
    // The display stays for the next viewer: ending it would unload the driver, which keeps memory of its own.
    delete viewer;
}

// The step that failed, or null.
const char* open_context(OffscreenViewer& viewer) {
    // The same picture on every machine, whatever its graphics.
    setenv("LIBGL_ALWAYS_SOFTWARE", "1", 0);
    if (viewer.kind != OffscreenKind::layer) setenv("GALLIUM_DRIVER", "softpipe", 0);
    const char* const extensions = eglQueryString(EGL_NO_DISPLAY, EGL_EXTENSIONS);
    if (!extensions || !std::strstr(extensions, "EGL_MESA_platform_surfaceless"))
        return "there is no software renderer";
    const auto get_display =
        reinterpret_cast<PFNEGLGETPLATFORMDISPLAYEXTPROC>(eglGetProcAddress("eglGetPlatformDisplayEXT"));
    if (!get_display) return "there is no display without a window";
    viewer.display = get_display(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr);
    if (viewer.display == EGL_NO_DISPLAY) return "there is no display without a window";
    if (!eglInitialize(viewer.display, nullptr, nullptr)) {
        viewer.display = EGL_NO_DISPLAY;
        return "EGL does not start";
    }
    // Handles are drawn with the calls that a core profile leaves out.
    if (!eglBindAPI(EGL_OPENGL_API)) return "there is no OpenGL";
    const EGLint wanted[] = {EGL_SURFACE_TYPE, EGL_DONT_CARE, EGL_RENDERABLE_TYPE, EGL_OPENGL_BIT, EGL_NONE};
    EGLConfig config = nullptr;
    EGLint found = 0;
    if (!eglChooseConfig(viewer.display, wanted, &config, 1, &found) || found < 1) return "no format fits";
    viewer.context = eglCreateContext(viewer.display, config, EGL_NO_CONTEXT, nullptr);
    if (viewer.context == EGL_NO_CONTEXT) return "no context can be made";
    if (!eglMakeCurrent(viewer.display, EGL_NO_SURFACE, EGL_NO_SURFACE, viewer.context))
        return "the context cannot be used";
    if (viewer.kind != OffscreenKind::plain) {
        glEnable(GL_BLEND);
        glEnable(GL_LINE_SMOOTH);
    }
    if (viewer.kind == OffscreenKind::smooth) glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
    // Colours come weighed with their coverage.
    if (viewer.kind == OffscreenKind::layer)
        glBlendFuncSeparate(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA, GL_ONE, GL_ONE_MINUS_SRC_ALPHA);
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
    glClearColor(0, 0, 0, viewer.kind == OffscreenKind::layer ? 0 : 1);
    return nullptr;
}

void clear_viewer(OffscreenViewer&) { glClear(GL_COLOR_BUFFER_BIT); }

bool resize_viewer(OffscreenViewer& viewer, int width, int height, std::string* error) {
    if (width < 1 || height < 1 || width > max_offscreen || height > max_offscreen) {
        *error = "a viewer of " + std::to_string(width) + "x" + std::to_string(height) + " cannot be had, " +
                 std::to_string(max_offscreen) + " is the most each way";
        return false;
    }
    drop_pixels(viewer);
    viewer.width = width;
    viewer.height = height;
    glGenRenderbuffers(1, &viewer.colours);
    glBindRenderbuffer(GL_RENDERBUFFER, viewer.colours);
    glRenderbufferStorage(GL_RENDERBUFFER, GL_RGBA8, width, height);
    glGenFramebuffers(1, &viewer.framebuffer);
    glBindFramebuffer(GL_FRAMEBUFFER, viewer.framebuffer);
    glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_RENDERBUFFER, viewer.colours);
    if (glCheckFramebufferStatus(GL_FRAMEBUFFER) != GL_FRAMEBUFFER_COMPLETE) {
        *error = "no viewer without a window: there is no memory for its pixels";
        return false;
    }
    glViewport(0, 0, width, height);
    glMatrixMode(GL_PROJECTION);
    glLoadIdentity();
    glOrtho(0, width, 0, height, -1, 1);
    glMatrixMode(GL_MODELVIEW);
    glLoadIdentity();
    clear_viewer(viewer);
    return true;
}

OffscreenViewer* open_viewer(int width, int height, OffscreenKind kind, std::string* error) {
    auto* const viewer = new OffscreenViewer;
    viewer->kind = kind;
    const char* const failed = open_context(*viewer);
    if (failed) *error = std::string("no viewer without a window: ") + failed;
    if (!failed && resize_viewer(*viewer, width, height, error)) return viewer;
    close_viewer(viewer);
    return nullptr;
}

void show_picture(OffscreenViewer&, const unsigned char* rgb, int width, int height, int x, int y, float zoom) {
    glClear(GL_COLOR_BUFFER_BIT);
    glPushAttrib(GL_ALL_ATTRIB_BITS);
    glDisable(GL_BLEND);
    // A corner outside the viewer would drop the whole picture; moved there by nothing drawn it does not.
    glRasterPos2i(0, 0);
    glBitmap(0, 0, 0, 0, static_cast<float>(x), static_cast<float>(y), nullptr);
    glPixelZoom(zoom, zoom);
    glDrawPixels(width, height, GL_RGB, GL_UNSIGNED_BYTE, rgb);
    glPopAttrib();
}

std::vector<unsigned char> read_viewer(OffscreenViewer& viewer) {
    std::vector<unsigned char> rgb(static_cast<size_t>(viewer.width) * static_cast<size_t>(viewer.height) * 3);
    glFinish();
    glReadPixels(0, 0, viewer.width, viewer.height, GL_RGB, GL_UNSIGNED_BYTE, rgb.data());
    return rgb;
}

void read_layer(OffscreenViewer& viewer, unsigned char* rgba) {
    glFinish();
    glReadPixels(0, 0, viewer.width, viewer.height, GL_RGBA, GL_UNSIGNED_BYTE, rgba);
}

}  // namespace
}  // namespace spark_host

extern "C" __attribute__((visibility("default"))) const spark_host::OffscreenFunctions* velloran_offscreen_functions() {
    using namespace spark_host;
    static const OffscreenFunctions functions = {open_viewer, resize_viewer, clear_viewer, show_picture,
                                                 read_viewer, read_layer,    close_viewer};
    return &functions;
}
