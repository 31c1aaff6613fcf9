#include "params/custom_lists.h"

#include "functions/custom_lists.h"
#include "records/genotype.h"
#include "records/param.h"
#include "spark/spark.h"

#include <algorithm>

namespace velloran {

void set_custom_lists(Genotype* genotype) {
    for (int i = 0; i < genotype->param_number; ++i) {
        Param* const p = genotype->params[i];
        const NameList list = custom_list(p->kind_flags);
        if (!list.names) continue;
        p->custom_entries = list.names;
        // A control shows so many; a number beyond them has to come from the text.
        p->n_popup_entries = static_cast<uint8_t>(std::min<int>(list.count, SPARK_MAX_POPUP_ENTRIES));
        p->max_value = static_cast<float>(p->n_popup_entries);
    }
}

}  // namespace velloran
