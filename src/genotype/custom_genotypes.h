// What the definitions of a file are called and what inputs they take, found without reading their bodies. Host's
// thread.
#pragma once

#include "records/genotype.h"

namespace velloran {

struct CustomGenotypeInfo {
    char name[GENOTYPE_NAME_SIZE];                  // as written, cut to 31 characters
    int32_t input_number;                           // at most 4
    char input_names[MAX_INPUTS][INPUT_NAME_SIZE];  // cut to 8 characters, but for Background
};

// Counts the definitions of a file and answers them in *infos, to be freed with safe_free. A fault is reported at level
// 8 and ends the scan; what was found before it counts.
int get_custom_genotype_infos(const char* file, CustomGenotypeInfo** infos);

// The same, read on first use and kept.
int maybe_get_custom_genotype_infos(const char* file);
const CustomGenotypeInfo* get_custom_genotype_info_n(int i);  // null beyond the last
void free_custom_genotype_infos();

}  // namespace velloran
