// How the handles of each type are made.
#pragma once

#include "support/memory.h"
#include "widgets/widget.h"

namespace velloran::widgets {

// Answers the new widget, or null after a message. count params and their clauses; a null enable is always on.
using WidgetFactory = Widget* (*)(const char* name, const char* type_name, Param* enable, const WidgetPart* parts,
                                  int count);

#define WIDGET_FACTORIES(FACTORY) \
    FACTORY(angle)                \
    FACTORY(center)               \
    FACTORY(center_radius)        \
    FACTORY(ellipse)              \
    FACTORY(glint)                \
    FACTORY(radius)               \
    FACTORY(rect)                 \
    FACTORY(rect_c_sz)            \
    FACTORY(rectshift)            \
    FACTORY(simple_rect)          \
    FACTORY(timeslice)            \
    FACTORY(wipe)

#define DECLARE(type) \
    Widget* create_##type(const char* name, const char* type_name, Param* enable, const WidgetPart* parts, int count);
WIDGET_FACTORIES(DECLARE)
#undef DECLARE

// The steps that all of them share. build makes the glyphs for the parts that there are, false after a message.
template <class W>
Widget* make_widget(const char* name, const char* type_name, Param* enable, const WidgetPart* parts, int count) {
    auto* const widget = new W(name, type_name, enable);
    push_abort_cleanup([](void* made) { delete static_cast<W*>(made); }, widget);
    const bool known = widget->construct_basic_widget(parts, count);
    const bool built = widget->build() && known;
    pop_abort_cleanup();
    if (built) return widget;
    delete widget;
    return nullptr;
}

#define DEFINE_WIDGET_FACTORY(type, W)                                                                     \
    Widget* create_##type(const char* name, const char* type_name, Param* enable, const WidgetPart* parts, \
                          int count) {                                                                     \
        return make_widget<W>(name, type_name, enable, parts, count);                                      \
    }

}  // namespace velloran::widgets
