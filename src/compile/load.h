// From an effect text to a genotype that frames can be made of: read, then compiled.
//
// Errors are reported at level 8 and give a null genotype; what there was of it is freed, also when a fatal abort
// passes. While a message is given, get_last_token_place leads to the word that it is about. Host's thread only; the
// record of the plug-in in hand (Globals_V4) gives the element counts of inputs.
#pragma once

#include "records/genotype.h"

namespace velloran {

struct TextMap;

// One definition from the text reader, which stands just behind its name.
Genotype* read_genotype(const char* name);

// The first definition in text. map (null: none) leads places back to the text before filtering.
Genotype* read_genotype_from_string(const char* text, const TextMap* map = nullptr);
// The definition of that name, or the n-th from 0.
Genotype* read_genotype_from_file(const char* file, const char* name);
Genotype* read_genotype_from_file_n(const char* file, int n);

}  // namespace velloran
