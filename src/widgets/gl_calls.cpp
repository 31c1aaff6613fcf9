#include "widgets/gl_calls.h"

#include "support/errors.h"

#include <dlfcn.h>

namespace velloran::widgets {
namespace {

GlCalls system_calls;
enum { not_tried, found, missing } system_state = not_tried;
const GlCalls* others = nullptr;

// What the program has comes first: its context belongs to it.
void* find_call(const char* name, void* library) {
    if (void* const own = dlsym(RTLD_DEFAULT, name)) return own;
    return library ? dlsym(library, name) : nullptr;
}

bool find_system_calls() {
    // The first has no window system with it. Neither is closed: the driver beneath may have threads by then.
    void* gl = dlopen("libOpenGL.so.0", RTLD_LAZY | RTLD_LOCAL);
    if (!gl) gl = dlopen("libGL.so.1", RTLD_LAZY | RTLD_LOCAL);
    void* const glu = dlopen("libGLU.so.1", RTLD_LAZY | RTLD_LOCAL);
    bool all = true;
#define FIND(library, name)                                                                       \
    system_calls.name = reinterpret_cast<decltype(system_calls.name)>(find_call(#name, library)); \
    all = all && system_calls.name;
#define FIND_GL(name) FIND(gl, name)
#define FIND_GLU(name) FIND(glu, name)
    WIDGET_GL_CALLS(FIND_GL)
    WIDGET_GLU_CALLS(FIND_GLU)
    return all;
}

}  // namespace

const GlCalls* gl_calls() {
    if (others) return others;
    if (system_state == not_tried) {
        system_state = find_system_calls() ? found : missing;
        if (system_state == missing)
            V_error(level_error, "Handles cannot be drawn: libGL.so.1 and libGLU.so.1 are needed.");
    }
    return system_state == found ? &system_calls : nullptr;
}

void use_gl_calls(const GlCalls* calls) { others = calls; }

}  // namespace velloran::widgets
