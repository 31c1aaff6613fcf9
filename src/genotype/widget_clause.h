// The widget clauses of a declaration: which part of which on-screen handle edits the param.
//
//   "widget" TYPE[.PART] ["name" NAME] ["glyph" SHAPE] ["wenable" ("here" | NUMBER) | "use_wenable" PARAM]
//            ["default_off" | "default_on"] [NUMBER]
#pragma once

#include "records/genotype.h"

namespace velloran {

// Reads what follows the word "widget" and puts the record at the head of the param's list. 0, or -1 after a message.
int read_widget_clause(Genotype* genotype, Param* param);
// What a pointer_set param without a clause gets.
void add_default_widget(Param* param);

}  // namespace velloran
