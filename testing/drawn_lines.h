// What is drawn through OpenGL, as lines in the viewer's pixels, without a viewer.
#pragma once

#include "widgets/gl_calls.h"

#include <cmath>
#include <vector>

namespace velloran {

struct DrawnLine {
    float x0, y0, x1, y1;
    float r, g, b, width;
    bool dashed;
};

// While one lives, everything that handles draw goes into its lines; circles as their chords. Depth counts attributes
// that were pushed and not popped.
struct DrawnLines {
    std::vector<DrawnLine> lines;
    int depth = 0, flushes = 0;

    DrawnLines() {
        in_force() = this;
        widgets::use_gl_calls(&calls());
    }
    ~DrawnLines() {
        widgets::use_gl_calls(nullptr);
        in_force() = nullptr;
    }
    DrawnLines(const DrawnLines&) = delete;
    DrawnLines& operator=(const DrawnLines&) = delete;

    // Distance in pixels of the nearest line from a place. rims: count the dark rims, too.
    float nearest(float x, float y) const {
        float best = INFINITY;
        for (const DrawnLine& l : lines) {
            if (l.r + l.g + l.b == 0) continue;
            const float dx = l.x1 - l.x0, dy = l.y1 - l.y0, whole = dx * dx + dy * dy;
            float t = whole > 0 ? ((x - l.x0) * dx + (y - l.y0) * dy) / whole : 0;
            t = std::fmin(1.0f, std::fmax(0.0f, t));
            best = std::fmin(best, std::hypot(l.x0 + t * dx - x, l.y0 + t * dy - y));
        }
        return best;
    }

private:
    std::vector<float> points_;
    GLenum mode_ = 0;
    DrawnLine pen_ = {0, 0, 0, 0, 1, 1, 1, 1, false};
    float tx_ = 0, ty_ = 0, sy_ = 1;

    static DrawnLines*& in_force() {
        static DrawnLines* one = nullptr;
        return one;
    }
    void line(float x0, float y0, float x1, float y1) {
        DrawnLine l = pen_;
        l.x0 = x0;
        l.y0 = y0;
        l.x1 = x1;
        l.y1 = y1;
        lines.push_back(l);
    }
    void end() {
        const size_t n = points_.size() / 2;
        const auto join = [this](size_t a, size_t b) {
            line(points_[2 * a], points_[2 * a + 1], points_[2 * b], points_[2 * b + 1]);
        };
        for (size_t i = 0; i + 1 < n; i += mode_ == GL_LINES ? 2 : 1) join(i, i + 1);
        if (mode_ == GL_POLYGON && n > 2) join(n - 1, 0);
    }

    static const widgets::GlCalls& calls() {
        static const widgets::GlCalls all = [] {
            widgets::GlCalls c = {};
            c.glPushAttrib = [](GLbitfield) { in_force()->depth++; };
            c.glPopAttrib = [] { in_force()->depth--; };
            c.glFlush = [] { in_force()->flushes++; };
            c.glColor3f = [](GLfloat r, GLfloat g, GLfloat b) {
                DrawnLine& pen = in_force()->pen_;
                pen.r = r;
                pen.g = g;
                pen.b = b;
            };
            c.glEnable = [](GLenum what) {
                if (what == GL_LINE_STIPPLE) in_force()->pen_.dashed = true;
            };
            c.glDisable = [](GLenum what) {
                if (what == GL_LINE_STIPPLE) in_force()->pen_.dashed = false;
            };
            c.glLineStipple = [](GLint, GLushort) {};
            c.glLineWidth = [](GLfloat width) { in_force()->pen_.width = width; };
            c.glBegin = [](GLenum mode) {
                in_force()->mode_ = mode;
                in_force()->points_.clear();
            };
            c.glEnd = [] { in_force()->end(); };
            c.glVertex2f = [](GLfloat x, GLfloat y) {
                in_force()->points_.push_back(x);
                in_force()->points_.push_back(y);
            };
            c.glVertex2fv = [](const GLfloat* v) {
                in_force()->points_.push_back(v[0]);
                in_force()->points_.push_back(v[1]);
            };
            c.glPushMatrix = [] {};
            c.glPopMatrix = [] {};
            c.glTranslatef = [](GLfloat x, GLfloat y, GLfloat) {
                in_force()->tx_ = x;
                in_force()->ty_ = y;
            };
            c.glScalef = [](GLfloat, GLfloat y, GLfloat) { in_force()->sy_ = y; };
            c.gluNewQuadric = [] { return reinterpret_cast<GLUquadric*>(in_force()); };
            c.gluQuadricDrawStyle = [](GLUquadric*, GLenum) {};
            c.gluDeleteQuadric = [](GLUquadric*) {};
            c.gluDisk = [](GLUquadric*, GLdouble, GLdouble radius, GLint slices, GLint) {
                DrawnLines& d = *in_force();
                const auto at = [&](int i) {
                    const double angle = 2 * M_PI * i / slices;
                    return std::pair<float, float>(static_cast<float>(d.tx_ + radius * std::cos(angle)),
                                                   static_cast<float>(d.ty_ + d.sy_ * radius * std::sin(angle)));
                };
                for (int i = 0; i < slices; ++i) d.line(at(i).first, at(i).second, at(i + 1).first, at(i + 1).second);
            };
            return c;
        }();
        return all;
    }
};

}  // namespace velloran
