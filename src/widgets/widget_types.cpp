#include "widgets/widget_types.h"

#include <cstring>
#include <iterator>

namespace velloran {

namespace {

// clang-format off
constexpr WidgetType types[] = {
    // name           base           factory                        parts
    {"center",        "center",      widgets::create_center,        {"center", "offset", "negate"}},
    {"center_radius", "center",      widgets::create_center_radius, {"center", "radius"}},
    {"radius",        "radius",      widgets::create_radius,        {"radius/*"}},
    {"wipe",          "wipe_amount", widgets::create_wipe,          {"wipe_amount/wipe%/wipe_amt/mix_percent/wipe_percent",
                                                                     "grad_add", "edge_softness", "border_width",
                                                                     "grad_angle", "autotrans_p/auto_trans"}},
    {"rect",          "center",      widgets::create_rect,          {"z_dist", "rotate", "shift", "center"}},
    {"rectshift",     "center",      widgets::create_rectshift,     {"z_dist", "rotate", "shift", "center"}},
    {"ellipse",       "center",      widgets::create_ellipse,       {"width", "angle/rotate", "rel_xy", "rel_width/rel_x",
                                                                     "rel_height/rel_y", "offset", "edge_width",
                                                                     "center", "negate"}},
    {"glint",         "size",        widgets::create_glint,         {"size", "size_x", "size_y", "size_xy", "size_diag1",
                                                                     "size_diag2", "size_red", "size_green",
                                                                     "size_blue", "size_alpha", "center"}},
    {"angle",         "angle",       widgets::create_angle,         {"angle/rotate", "center", "stretch"}},
    {"simple_rect",   "left_bottom", widgets::create_simple_rect,   {"left_bottom", "right_top", "left", "bottom", "right",
                                                                     "top"}},
    {"rect_c_sz",     "center",      widgets::create_rect_c_sz,     {"center", "negate", "offset", "size", "angle", "scale",
                                                                     "scale_rel"}},
    {"timeslice",     "offset",      widgets::create_timeslice,     {"angle", "slice_width", "offset"}},
};
// clang-format on

// Whether one of the names between slashes is the word.
bool names_word_p(const char* names, const char* word) {
    const size_t length = std::strlen(word);
    for (const char* name = names; name;) {
        const char* const slash = std::strchr(name, '/');
        const size_t n = slash ? static_cast<size_t>(slash - name) : std::strlen(name);
        if ((n == length && !std::strncmp(name, word, n)) || (n == 1 && *name == '*')) return true;
        name = slash ? slash + 1 : nullptr;
    }
    return false;
}

}  // namespace

const WidgetType* find_widget_type(const char* name) {
    for (const WidgetType& type : types)
        if (name && !std::strcmp(type.name, name)) return &type;
    return nullptr;
}

const WidgetType* widget_type_at(int i) { return i < static_cast<int>(std::size(types)) ? &types[i] : nullptr; }

int find_widget_part(const WidgetType& type, const char* word) {
    for (int i = 0; i < max_type_parts && type.parts[i]; ++i)
        if (names_word_p(type.parts[i], word)) return i;
    return -1;
}

bool base_part_p(const WidgetType& type, const char* word) {
    const int part = find_widget_part(type, word);
    return part >= 0 && part == find_widget_part(type, type.base);
}

}  // namespace velloran
