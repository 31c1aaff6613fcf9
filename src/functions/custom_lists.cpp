#include "functions/custom_lists.h"

#include "operators/film/film_types.h"
#include "operators/flares/flare_file.h"
#include "records/param.h"

namespace velloran {

NameList custom_list(uint8_t kind_flags) {
    if (!(kind_flags & kind_custom_list)) return {};
    if (kind_flags & (kind_neg_films | kind_print_films)) {
        const FilmTable& films = kind_flags & kind_neg_films ? neg_film_types() : print_film_types();
        return {films.names, films.count};
    }
    const FlareTable* table = nullptr;
    if (kind_flags & kind_lens_flares) table = &lens_flare_table();
    if (kind_flags & kind_glares) table = &glare_table();
    return table ? NameList{table->names, table->count} : NameList{};
}

}  // namespace velloran
