#include "genotype/definition_text.h"

#include "texts/characters.h"

#include <cstring>

namespace velloran {

const char* find_definition(const char* text, const char** name, int* name_length) {
    for (const char* p = text; (p = std::strchr(p, '(')); ++p) {
        const char* word = p + 1;
        while (is_space(*word)) ++word;
        for (const char* keyword : definition_keywords) {
            const size_t length = std::strlen(keyword);
            if (std::strncmp(word, keyword, length) != 0 || !is_space(word[length])) continue;
            const char* start = word + length;
            while (is_space(*start)) ++start;
            *name = start;
            *name_length = static_cast<int>(std::strcspn(start, " \t\r\n\f\v()\"=[]"));
            return p;
        }
    }
    return nullptr;
}

bool definition_named_p(const char* wanted, const char* name, int name_length) {
    const auto folded = [](char c) { return c == '_' ? ' ' : c; };
    for (int i = 0; i < name_length; ++i)
        if (!wanted[i] || folded(wanted[i]) != folded(name[i])) return false;
    return wanted[name_length] == 0;
}

}  // namespace velloran
