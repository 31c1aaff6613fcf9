// What helps the author of a text beside its messages: likely slips, and the word that was probably meant. Given only
// where somebody listens, which is while a text is checked. Host's thread only.
#pragma once

namespace velloran {

constexpr int level_note = 2;  // beside level_warning: what belongs to the message before

using HintPrinter = void (*)(int level, const char* text);
extern HintPrinter hint_printer;  // null: nobody listens

void hint(int level, const char* format, ...) __attribute__((format(printf, 2, 3)));

// The known word that a wrong one is most like: one or two letters missing, too many, other or exchanged.
struct NearestWord {
    const char* wrong;
    const char* nearest = nullptr;  // null: none is near
    int distance = 0;
};
void consider_word(NearestWord& word, const char* known);
// "did you mean 'blur'?", if a word is near.
void hint_nearest(const NearestWord& word);

// Tells of characters that stand behind a number in its token and do not count.
void hint_behind_number(const char* token);

}  // namespace velloran
