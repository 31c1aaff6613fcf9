#include "functions/custom_lists.h"

#include "operators/flares/flare_file.h"
#include "records/param.h"

namespace velloran {

NameList custom_list(uint8_t kind_flags) {
    if (!(kind_flags & kind_custom_list)) return {};
    const FlareTable* table = nullptr;
    if (kind_flags & kind_lens_flares) table = &lens_flare_table();
    if (kind_flags & kind_glares) table = &glare_table();
    return table ? NameList{table->names, table->count} : NameList{};
}

}  // namespace velloran
