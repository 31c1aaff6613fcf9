// What plug-in modules and the command line ask of the library beyond the host's calls.
#pragma once

#include "host/entry_points.h"
#include "records/argument_help.h"

// Runs the conditional filter over a text of effect definitions and puts each definition into record->effect_strings,
// owned by the record. Definitions beyond the 49th are reported and left out. Answers their number and stores it in
// n_effects. effect, if not null, keeps only the definition of that name (underscores and blanks count as equal).
// Needs no earlier call.
V4_EXPORT int V4_split_effects(const char* text, const char* name, const char* effect,
                               velloran::GlobalsV4Record* record);

// Reads every definition of a text (effect null), the first (effect empty) or those of a name, and reports each message
// with its place in the original text (line and column from 1; 0, 0 if the message has no place). What a frame would be
// refused for is told as well. level: 8 and 9 what makes a definition fail, 7 a warning, below that a note. Answers the
// number of definitions that failed; a text without any counts as one. name: of the text, for messages.
V4_EXPORT int V4_check_effects(const char* text, const char* name, const char* effect,
                               void (*report)(void* context, int level, int line, int column, const char* message),
                               void* context);

// Hands out every row of the function table in its order; fun is valid during the call.
V4_EXPORT void V4_describe_functions(void (*report)(void* context, const velloran::NodeFun* fun), void* context);

// What an argument of a row of the function table means; null if there is nothing to say.
V4_EXPORT const velloran::ArgumentHelp* V4_argument_help(const velloran::NodeFun* fun, int argument);

// Whether an instance puts out another number of frames than there is in its clip; and how many come out of n in the
// one in force as its controls stand.
V4_EXPORT int V4_changes_frame_count(const velloran::GlobalsV4Record* record);
V4_EXPORT int V4_dest_frames(int n);

// Reads a setup file into the instance in force and shows what it holds on the controls. Below 0 after a message; what
// was read until then stands. 2 if the file is whole.
V4_EXPORT int V4_load_setup(SparkInfoStruct info, const char* path);

// The frame in hand, if there is one, is not needed any more: it ends early, what it drew stands, and the user is not
// told. Any thread, while a plug-in is loaded; the one call that may come beside another.
V4_EXPORT void V4_abort_render(void);

// Whether it is told on standard output what is loaded, which belongs to the program around a library. Default 1.
V4_EXPORT void V4_set_notices(int on);
