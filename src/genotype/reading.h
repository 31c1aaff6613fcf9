// What the files of the genotype reader share among themselves while one definition is read.
#pragma once

#include "records/genotype.h"
#include "records/node.h"
#include "texts/text_reader.h"

namespace velloran {

// Results of the reading functions: 0, or a failure that has been reported.
enum : int { read_ok = 0, read_failed = -1, read_closing_paren = 1 };

inline bool token_is(const char* token, char c) { return token[0] == c && token[1] == 0; }
// One of the reader's own tokens: it cannot be a name.
inline bool delimiter_token(const char* token) {
    return token[0] && !token[1] && __builtin_strchr("()[]=\"", token[0]);
}

// A name that an input cannot have, whose place then has none.
inline bool input_name_too_long(const char* name) {
    return __builtin_strlen(name) > MAX_INPUT_NAME_LENGTH && __builtin_strcmp(name, background_name) != 0;
}

// The list of input names and the list of modifiers behind a definition's name.
int read_input_list(Genotype* genotype);
int read_modifiers(Genotype* genotype);

// Replaces references by what they stand for, drops rows that dest does not reach, and sorts the table so that
// arguments have higher indices than their users. read_failed after a message.
int resolve_genotype(Genotype* genotype);

// Makes get_last_token_place answer the place of that byte of the text in hand; below 1 it stays as it is.
void point_reader_at_byte(long position);
// Makes get_last_token_place answer the place of the row's word for the message about to be given, where the text in
// hand holds it; the reader then goes on where it was.
void point_reader_at(const Node& node);
// The same for the call that gives the row its value.
void point_reader_at_call(const Node& node);

// How a text writes the row: its name, the input's, "(blur ...)" for a call without a name, a number or a vector.
constexpr int shown_node_size = 160;
void show_node(const Genotype* genotype, const Node& node, char (&text)[shown_node_size]);

// A number of a text as the evaluation can hold it: beyond 19 bits and a sign it is reported and held.
float hold_number(const Genotype* genotype, const char* token, float number);

}  // namespace velloran
