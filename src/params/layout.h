// Where the params of the effects stand on the host's fixed grid of controls, which several effects of a plug-in share.
//
// A button index is a control number minus BUTTON_BASE. A page holds 29 buttons in columns of 7. Host's thread only.
#pragma once

#include "records/genotype.h"
#include "records/run_state.h"

namespace velloran {

constexpr int BUTTONS_PER_PAGE = 29;
constexpr int MAX_PARAM_BUTTONS = 85;    // indices 0 to 84
constexpr int BESIDE = 7;                // the control beside a button is so many indices on
constexpr int FIRST_ENABLE_NUMBER = 37;  // control number from which widget enables without one are placed

// Once at start, after the effects are loaded: lays out all effects, makes the widgets and the standard controls.
// Conflicts are reported and survived; too many params take the fatal abort.
void do_layout_and_init_widgets();

// Places one effect's params behind what the button table holds already.
void layout_buttons(Genotype* genotype);

// Why p2 cannot stand on button index where p1 stands, or null. p2_second_half: it is the pot of the colour p2 that
// would stand there, and not the first button of p2. The text is written into buffer.
const char* sharing_error(const Param* p1, const Param* p2, int index, bool p2_second_half, char* buffer, int size);

enum ShowFlags : int {
    show_leave_colors = 1,   // leave colour controls alone
    show_names_only_new = 2  // leave the host's channels alone: only names and structures are written
};
// Puts an effect's params on the controls.
void setup_effect_buttons(int effect, int flags);

void set_control_titles();                        // titles of inputs and pages
void set_param_button_names(Genotype* genotype);  // formats and structures of all its params

}  // namespace velloran
