// The calls of OpenGL and of its utility library that draw handles. They are found when the first handle is drawn, in
// the program that made the viewer's context or else in the system's libraries: a host that only renders loads neither,
// and none needs a display. Host's thread only.
#pragma once

#include <GL/gl.h>
#include <GL/glu.h>

namespace velloran::widgets {

#define WIDGET_GL_CALLS(CALL) \
    CALL(glPushAttrib)        \
    CALL(glPopAttrib)         \
    CALL(glFlush)             \
    CALL(glColor3f)           \
    CALL(glEnable)            \
    CALL(glDisable)           \
    CALL(glLineStipple)       \
    CALL(glLineWidth)         \
    CALL(glBegin)             \
    CALL(glEnd)               \
    CALL(glVertex2f)          \
    CALL(glVertex2fv)         \
    CALL(glPushMatrix)        \
    CALL(glPopMatrix)         \
    CALL(glTranslatef)        \
    CALL(glScalef)
#define WIDGET_GLU_CALLS(CALL) \
    CALL(gluNewQuadric)        \
    CALL(gluQuadricDrawStyle)  \
    CALL(gluDisk)              \
    CALL(gluDeleteQuadric)

struct GlCalls {
#define DECLARE(name) decltype(::name)* name;
    WIDGET_GL_CALLS(DECLARE)
    WIDGET_GLU_CALLS(DECLARE)
#undef DECLARE
};

// Null where they cannot be had; that is reported once.
const GlCalls* gl_calls();
// Others in their place, for programs that want to see what is drawn; null: the system's again.
void use_gl_calls(const GlCalls* calls);

}  // namespace velloran::widgets
