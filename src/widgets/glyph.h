// A shape that is drawn and hit: primitives under a map of its own.
#pragma once

#include "widgets/kept.h"
#include "widgets/primitives.h"

#include <span>

namespace velloran::widgets {

struct Glyph {
    const char* name;
    std::span<const GraphicPrimitive* const> primitives;
    Color color;       // when not highlighted
    Affine transform;  // from the shape's units to pixels of the frame

    // Whether a point of the frame lies on it, or within 6 pixels of the window.
    bool hit_p(float x, float y) const;
    void draw() const;
    // The dark rim that lies beneath, so that the lines are seen over a bright picture too.
    void draw_rim() const;
};

}  // namespace velloran::widgets
