#include "hosts/desk/handle_layer.h"

// Before the system's headers, for extensions that are called by name.
#define GL_GLEXT_PROTOTYPES
#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GL/gl.h>
#include <GL/glext.h>

#include <cmath>
#include <cstdlib>

namespace desk {

namespace {

constexpr int largest_side = 8192;

// Whether any switch of a handle is on, the crop's or the effect's.
bool any_handle(const render::RenderPlan& plan) {
    for (const auto& [number, control] : plan.plugin->panel.controls)
        if (control.structure && control.kind == SPARK_CONTROL_TOGGLE && control_value(control, 0) != 0) return true;
    for (const render::ParamDescription& param : plan.description.standard) {
        if (param.key != "crop_view" || param.numbers.empty()) continue;
        const spark_host::Control* const control = find_control(plan.plugin->panel, param.numbers[0]);
        if (control && control_value(*control, 0) != 0) return true;
    }
    return false;
}

}  // namespace

struct HandleLayer::Context {
    EGLDisplay display = EGL_NO_DISPLAY;
    EGLContext context = EGL_NO_CONTEXT;
    GLuint framebuffer = 0, colours = 0;
    QSize size;

    ~Context() {
        if (context != EGL_NO_CONTEXT) {
            drop_pixels();
            eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
            eglDestroyContext(display, context);
        }
        if (display != EGL_NO_DISPLAY) eglTerminate(display);
    }

    void drop_pixels() {
        if (framebuffer) glDeleteFramebuffers(1, &framebuffer);
        if (colours) glDeleteRenderbuffers(1, &colours);
        framebuffer = colours = 0;
    }

    // What failed, or null.
    const char* open() {
        // The same picture on every machine, and the old calls on all of them.
        setenv("LIBGL_ALWAYS_SOFTWARE", "1", 0);
        const auto get_display =
            reinterpret_cast<PFNEGLGETPLATFORMDISPLAYEXTPROC>(eglGetProcAddress("eglGetPlatformDisplayEXT"));
        if (!get_display) return "there is no display without a window";
        display = get_display(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr);
        if (display == EGL_NO_DISPLAY || !eglInitialize(display, nullptr, nullptr)) {
            display = EGL_NO_DISPLAY;
            return "there is no display without a window";
        }
        if (!eglBindAPI(EGL_OPENGL_API)) return "there is no OpenGL";
        const EGLint wanted[] = {EGL_SURFACE_TYPE, EGL_DONT_CARE, EGL_RENDERABLE_TYPE, EGL_OPENGL_BIT, EGL_NONE};
        EGLConfig config = nullptr;
        EGLint found = 0;
        if (!eglChooseConfig(display, wanted, &config, 1, &found) || found < 1) return "no format fits";
        context = eglCreateContext(display, config, EGL_NO_CONTEXT, nullptr);
        if (context == EGL_NO_CONTEXT) return "no context can be made";
        if (!eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, context)) return "the context cannot be used";
        return nullptr;
    }

    const char* resize(QSize wanted) {
        if (wanted == size) return nullptr;
        drop_pixels();
        size = wanted;
        glGenRenderbuffers(1, &colours);
        glBindRenderbuffer(GL_RENDERBUFFER, colours);
        glRenderbufferStorage(GL_RENDERBUFFER, GL_RGBA8, size.width(), size.height());
        glGenFramebuffers(1, &framebuffer);
        glBindFramebuffer(GL_FRAMEBUFFER, framebuffer);
        glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_RENDERBUFFER, colours);
        if (glCheckFramebufferStatus(GL_FRAMEBUFFER) != GL_FRAMEBUFFER_COMPLETE) return "there is no memory for them";
        glViewport(0, 0, size.width(), size.height());
        glMatrixMode(GL_PROJECTION);
        glLoadIdentity();
        glOrtho(0, size.width(), 0, size.height(), -1, 1);
        glMatrixMode(GL_MODELVIEW);
        glLoadIdentity();
        glEnable(GL_BLEND);
        // Colours come weighed with their coverage.
        glBlendFuncSeparate(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA, GL_ONE, GL_ONE_MINUS_SRC_ALPHA);
        glEnable(GL_LINE_SMOOTH);
        glPixelStorei(GL_PACK_ALIGNMENT, 4);
        glClearColor(0, 0, 0, 0);
        return nullptr;
    }
};

HandleLayer::HandleLayer() = default;
HandleLayer::~HandleLayer() = default;

QImage HandleLayer::draw(render::RenderPlan& plan, const ViewRequest& view,
                         const std::function<void(const QString&)>& tell) {
    const QSize size = view.viewer.boundedTo({largest_side, largest_side});
    if (failed_ || size.isEmpty() || !any_handle(plan)) return {};
    const char* failure = nullptr;
    if (!context_) {
        context_ = std::make_unique<Context>();
        failure = context_->open();
    }
    if (!failure) failure = context_->resize(size);
    if (failure) {
        failed_ = true;
        context_ = nullptr;
        tell(QString("Handles cannot be drawn: %1").arg(failure));
        return {};
    }
    plan.host.viewer_x = static_cast<int>(std::lround(view.origin.x()));
    plan.host.viewer_y = static_cast<int>(std::lround(view.origin.y()));
    plan.host.viewer_zoom = spark_host::spark_zoom(view.zoom);
    glClear(GL_COLOR_BUFFER_BIT);
    overlay(*plan.plugin, plan.host.viewer_zoom);
    QImage image(size, QImage::Format_RGBA8888_Premultiplied);
    if (image.isNull()) return {};
    glFinish();
    glReadPixels(0, 0, size.width(), size.height(), GL_RGBA, GL_UNSIGNED_BYTE, image.bits());
    return image.mirrored();
}

}  // namespace desk
