#include "texts/title_case.h"

#include "texts/characters.h"

namespace velloran {

void param_display_name(char* out, int size, const char* name) {
    if (size < 1) return;
    int length = 0;
    bool word_begins = true;
    for (; *name && length < size - 1; ++name) {
        const char c = *name == '_' ? ' ' : *name;
        out[length++] = word_begins ? to_upper(c) : c;
        word_begins = c == ' ';
    }
    while (length > 0 && out[length - 1] == ' ') --length;
    out[length] = 0;
}

}  // namespace velloran
