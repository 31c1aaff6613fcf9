// The kinds of on-screen handles and the parts that params can steer.
#pragma once

#include "widgets/widget_factory.h"

namespace velloran {

constexpr int max_type_parts = 12;

struct WidgetType {
    const char* name;
    const char* base;  // the part that every widget of the type has
    widgets::WidgetFactory create;
    const char* parts[max_type_parts];  // aliases of a part after "/"; "*" takes any name
};

// The row of a type, or null.
const WidgetType* find_widget_type(const char* name);
// The i-th type from 0, null behind the last.
const WidgetType* widget_type_at(int i);
// Position of the part that a word names, -1 none.
int find_widget_part(const WidgetType& type, const char* word);
// Whether the word names the type's base part.
bool base_part_p(const WidgetType& type, const char* word);

}  // namespace velloran
