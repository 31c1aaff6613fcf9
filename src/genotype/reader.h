// Effect texts to genotypes.
//
//   definition := "(" keyword NAME inputs? modifiers? assignment* ")"
//   keyword    := def_effect | define | def_spark
//   inputs     := "(" WORD* ")"
//   modifiers  := "(" modifier* ")"
//   assignment := WORD "=" expression param-info?  |  "#ref" WORD
//   expression := NUMBER  |  "[" NUMBER+ "]"  |  WORD  |  "(" FUNCTION expression* ")"
//
// Errors are reported at level 8 and give a null genotype; what was read of it is freed, also when a fatal abort
// passes. While a message is given, get_last_token_place leads to the word that it is about. Host's thread only; the
// record of the plug-in in hand (Globals_V4) gives the element counts of inputs.
#pragma once

#include "records/genotype.h"

namespace velloran {

constexpr int MAX_EXPRESSION_DEPTH = 256;  // calls within calls
constexpr int MAX_REF_DEPTH = 16;          // #ref within definitions that #ref leads to

// Reads one definition from the text reader, which stands just behind its name. The result is sorted and not compiled:
// read_genotype (compile/load.h) does both.
Genotype* parse_genotype(const char* name);

// Reads on to the next definition and its name (token_size bytes). 0, or the end-of-input code.
int find_next_def(char* name);

// Index of a variable by name: x, y, xy (0 to 2), the inputs (3 on); -1 if the word is none.
int find_variable(const char* word, const Genotype* genotype);

}  // namespace velloran
