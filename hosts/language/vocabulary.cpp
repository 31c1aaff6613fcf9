#include "hosts/language/vocabulary.h"

namespace language {
namespace {

constexpr Word declarations[] = {
    {"min", "smallest value; * is no bound", "number"},
    {"max", "largest value", "number"},
    {"step", "how far one step of the control goes", "number"},
    {"angle", "an angle: no bounds, step 0.1"},
    {"int", "whole numbers"},
    {"boolean", "a switch, 0 or 1"},
    {"color", "a colour, for three elements"},
    {"color_only", "a colour without number fields, for three elements"},
    {"popup", "a choice; its entries follow, the first is 0", "entries"},
    {"label", "a line of text on the panel"},
    {"string", "a text field"},
    {"button", "the number of its button", "number"},
    {"screen", "a position in pixels from the lower left corner, for two elements"},
    {"screen_center", "a position in pixels from the middle of the frame, for two elements"},
    {"screen_center0", "a distance or size in pixels, for two elements"},
    {"screen_to_norm", "shown in pixels from the lower left corner, seen by the effect as xy"},
    {"screen_center_to_norm", "shown in pixels from the middle, seen by the effect as xy"},
    {"screen_x", "pixels across"},
    {"screen_y", "pixels up"},
    {"normalize", "coordinates as xy, for two elements"},
    {"normalize_scale", "the effect sees so many times the number", "number"},
    {"pointer_set", "a handle at the position"},
    {"widget", "a handle over the picture", "kind"},
    {"group_start", "begins a group of params", "name"},
    {"group_start_open", "begins a group of params that is shown open", "name"},
    {"group_end", "ends a group of params behind this one", "name"},
    {"doc_group", "a group for the documentation"},
    {"doc_group_name", "a group for the documentation, with a name", "name"},
    {"autotrans", "0 to 1 over the clip by itself: the course of a transition"},
    {"autotrans_hermite", "the same; on a panel the curve is made straight"},
    {"autotrans_spline", "the same; on a panel the curve is made straight"},
    {"shared", "one value for all effects of the plug-in"},
    {"not_shared", "a value of its own for each effect"},
    {"hidden", "no control is shown"},
    {"ignore", "no warning if nothing reads it"},
    {"lens_flare_names", "a choice of the lens flares that are defined"},
    {"glare_names", "a choice of the glares that are defined"},
    {"print_film_names", "a choice of the print films that are defined"},
    {"neg_film_names", "a choice of the negative films that are defined"},
    {"hold_level", "a level that is measured"},
    {"set_hold_level", "the button that measures a level"},
    {"hr", "accepted, without effect"},
    {"percent", "accepted, without effect"},
    {"only_if_full_frames", "accepted, without effect"},
};
constexpr Word modifiers[] = {
    {"rgba_ok", "the effect gives an alpha of its own"},
    {"set_alpha_to_one", "alpha is 1 everywhere"},
    {"rgba_ok_for_input", "this input, from 0, may come with alpha", "number"},
    {"background_input", "which input is background and mask, from 0", "number"},
    {"mask_input", "which input is the mask, from 0", "number"},
    {"copy_alpha_z", "which input gives alpha and depth, from 0", "number"},
    {"z", "what becomes of depth: process or min", "word"},
    {"share_all", "all params are shared"},
    {"effect_popup_name", "name on the panel's choice of effects", "name"},
    {"wont_make_colors_illegal", "colours that are legal stay so"},
    {"renders_everywhere", "makes pixels where the input has none"},
    {"luma_alpha_ok", "takes brightness for alpha"},
    {"warp_crop", "moves what the crop leaves"},
    {"hide_on_fields_button", "no button for work on fields"},
    {"effect_select_with_radio", "the effects of the panel are a row of buttons"},
    {"effect_select_with_yes_no", "the effects of the panel are yes and no"},
    {"mask_color", "the mask is a colour"},
    {"mask_rgba", "the mask is a colour with alpha"},
    {"generates_color", "makes colours from nothing"},
    {"generates_alpha", "makes alpha from nothing"},
    {"source_alpha_affects_rgb", "the input's alpha counts in the colours"},
    {"needs_bg_pixel", "reads the background"},
    {"combines_2_inputs", "puts two inputs together"},
    {"combines_2_constant_inputs", "puts two inputs together that do not move"},
};
constexpr Word variables[] = {
    {"x", "-1 at the left edge of the frame to 1 at the right"},
    {"y", "-r at the bottom to r at the top, where r is height / width"},
    {"xy", "x and y, two elements"},
    {"X", "the same as x"},
    {"Y", "the same as y"},
    {"XY", "the same as xy"},
    {"_image", "the first input"},
    {"_image2", "the second input"},
    {"_image3", "the third input"},
    {"_image4", "the fourth input"},
    {"_clip1", "the first input"},
    {"_clip2", "the second input"},
    {"_clip3", "the third input"},
    {"_clip4", "the fourth input"},
    {"Output", "a value with as many elements as the result must have"},
};
constexpr Word directives[] = {
    {"#if", "keeps what follows if one of the words joined by | holds", "word"},
    {"#ifnot", "keeps what follows if none of the words holds", "word"},
    {"#elseif", "another test, where the ones before did not hold", "word"},
    {"#else", "where no test held"},
    {"#endif", "ends the conditional"},
    {"#ref", "all assignments of another definition", "name"},
};
constexpr Word conditions[] = {
    {"1", "holds"},
    {"0", "does not hold"},
    {"spark", "holds"},
    {"widgets", "holds"},
    {"optional_inputs", "does not hold"},
    {"super_colors", "does not hold"},
    {"ufo", "does not hold"},
    {"awc", "does not hold"},
    {"quantel", "does not hold"},
    {"shake", "does not hold"},
    {"ae", "does not hold"},
    {"avx", "does not hold"},
    {"avx1", "does not hold"},
    {"avx2", "does not hold"},
    {"ofx", "does not hold"},
};
constexpr Word handle_words[] = {
    {"name", "a name of the handle", "name"},
    {"glyph", "the shape of the handle", "shape"},
    {"wenable", "what switches the handle: here, or the number of a button", "word"},
    {"use_wenable", "the param that switches the handle", "param"},
    {"default_on", "the handle is shown at first"},
    {"default_off", "the handle is hidden at first"},
};
constexpr Word widgets[] = {
    {"center", "a point"},
    {"center_radius", "a point with a circle"},
    {"radius", "a circle"},
    {"wipe", "the line of a wipe"},
    {"rect", "a frame that is moved, turned and sized"},
    {"rectshift", "a frame that is shifted"},
    {"ellipse", "an ellipse"},
    {"glint", "the rays of a glint"},
    {"angle", "a direction"},
    {"simple_rect", "a rectangle by its edges"},
    {"rect_c_sz", "a rectangle by its centre and size"},
    {"timeslice", "slices of time"},
};
constexpr Word shapes[] = {
    {"cross_circle", "a cross in a circle"},
    {"cross_circle_red", "a cross in a red circle"},
    {"cross_circle_green", "a cross in a green circle"},
    {"cross_circle_blue", "a cross in a blue circle"},
    {"cross", "a cross"},
    {"simple_cross", "a plain cross"},
    {"single_circle", "a circle"},
    {"single_hline", "a line across"},
    {"star8", "a star"},
    {"no_handles", "an ellipse without handles"},
    {"lensflare", "an ellipse as of a lens flare"},
    {"scale2", "an ellipse of twice the size"},
};
constexpr Word structure[] = {
    {"def_effect", "begins a definition: (def_effect Name (Inputs) () assignments)"},
    {"define", "the same as def_effect"},
    {"def_spark", "the same as def_effect"},
    {"dest", "the result of the effect"},
};

}  // namespace

std::span<const Word> declaration_words() { return declarations; }
std::span<const Word> modifier_words() { return modifiers; }
std::span<const Word> variable_words() { return variables; }
std::span<const Word> directive_words() { return directives; }
std::span<const Word> condition_words() { return conditions; }
std::span<const Word> widget_words() { return handle_words; }
std::span<const Word> widget_types() { return widgets; }
std::span<const Word> glyphs() { return shapes; }
std::span<const Word> structure_words() { return structure; }

const Word* find_word(std::span<const Word> words, std::string_view word) {
    for (const Word& row : words)
        if (row.word == word) return &row;
    return nullptr;
}

Functions functions_by_name(const std::vector<render::FunctionRow>& rows) {
    Functions functions;
    for (const render::FunctionRow& row : rows) functions[row.name].push_back(row);
    return functions;
}

const render::FunctionRow& row_for_argument(const std::vector<render::FunctionRow>& rows, int argument) {
    const render::FunctionRow* row = &rows[0];
    for (const render::FunctionRow& other : rows)
        if (static_cast<int>(row->arguments.size()) <= argument) row = &other;
    return *row;
}

}  // namespace language
