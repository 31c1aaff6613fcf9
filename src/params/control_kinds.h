// The kinds of controls that a host shows, and which kind shows a param: what may be done with a control structure
// whose type is known only at run time. A control of a new kind is a row here. Host's thread only.
#pragma once

#include "records/param.h"
#include "records/run_state.h"

namespace velloran {

// A structure is the stub's, given as it stands in the record; never null here.
struct ControlKind {
    void* (*at)(const GlobalsV4Record* g, int number);  // the record's structure of that control number, or null
    double (*read)(const void* control);                // a boolean as 0 or 1, a colour packed; 0 of a string
    // Write a value; whether the structure changed. write_held holds it first to what the control itself can show.
    bool (*write)(void* control, double value);
    bool (*write_held)(void* control, double value);
    const char*& (*title)(void* control);
    void (*set_bounds)(void* control, float min, float max, float step);  // null: it has none
};

enum ControlKindIndex : int {
    control_float,
    control_int,
    control_color,
    control_boolean,
    control_toggle,
    control_popup,
    control_string,
    n_control_kinds
};
extern const ControlKind control_kinds[n_control_kinds];

// How the values of a type of param are kept and named.
struct ParamKind {
    ControlKindIndex control;           // of an effect's param
    ControlKindIndex standard_control;  // of a standard control
    bool number;                        // has bounds and a relation to the frame
    bool stored;                        // one float for each channel, in Param::value
    bool whole;                         // kept rounded
    bool reads_zero;                    // whatever its control holds
    bool padded;                        // the names of a column are padded, so that what follows stands in line
    int name_width;                     // to which names are cut or padded; 0: the common one less the decimals
    const char* field;                  // behind the name in a title: a colon and a printf field; null: by the step
};

// A type that has no row counts as unknown: nothing is kept of it.
const ParamKind& param_kind(const Param* p);
// The kind of p's controls; a switch of a handle stands on a toggle.
const ControlKind& control_kind(const Param* p);

}  // namespace velloran
