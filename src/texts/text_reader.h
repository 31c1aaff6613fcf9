// The one reader of all texts: effect definitions, configuration, lens flares, glares and film types. It reads an open
// file or a string in memory, splits it into tokens, and takes one token back.
//
// There is one reader, on the host's thread; code that reads another text meanwhile saves and restores the source.
// Token functions answer 0, or one of the codes below, which callers pass up. Every token buffer has token_size bytes.
#pragma once

#include "texts/text_place.h"

#include <cstdio>

namespace velloran {

constexpr int token_size = 128;  // with the terminating zero

enum : int {
    token_mismatch = -1,
    token_end = -1,       // end of input; the buffer is empty
    token_too_long = -2,  // longer than 127 characters, reported; all of it was read, the buffer is empty
    token_no_number = -666
};

// ---- Source ----

extern FILE* reading_from_file_ptr;
extern const char* reading_from_string;  // goes before the file
extern int reading_from_string_index;
extern int reading_from_string_length;
extern int unread_token_p;
extern int skip_comments_p;  // 1: tokens end at //, and the rest of the line is dropped

// Reads text, which the caller keeps, from its start. A token that was pushed back stays. map (null: none) leads places
// back to the text before filtering and must live as long as the source.
void open_reading_from_string(const char* text, const TextMap* map = nullptr);

// Ends reading: no source, no token pushed back, comments honoured. To be called before a new body of texts, since a
// fatal abort may have left a text half read.
void reset_text_reader();

struct parser_state {
    FILE* file;
    const char* string;
    int index, length;
    const TextMap* map;
    long token_start;
};
// The source in the record, and none in force. A token that was pushed back is not part of it.
void save_parser_state(parser_state* state);
void restore_parser_state(const parser_state* state);

// One more copy, of source and position, that leaves the source in force.
extern int saved_reading_from_info_p;
void save_reading_from_info();
void restore_reading_from_info();

// Index in the string, or position in the file; behind the token if one was pushed back.
long get_reading_from_position();
void set_reading_from_position(long position);

// Where the last token began (the end of the text after token_end), also after unread_token. False, with a line of 0,
// if that was in another source, or the file cannot be searched.
bool get_last_token_place(TextPlace* place);

// ---- Characters ----

// -1 at the end. Bytes of a string above 127 come out negative, those of a file positive.
int get_next_char();
// The character read last goes back.
void put_back_char(int c);
void skip_whitespace();
// Prints 200 characters around the index to standard output.
void print_some_of_reading_from_string();

// ---- Tokens ----

// The next token: one of " ( ) = [ ] or a run of other characters up to one of these or white space.
int read_token(char* token);
// Only one token can be pushed back; a second takes the fatal abort.
void unread_token(const char* token);
// As read_token, but quoted strings are passed over.
int read_token_ignore_string(char* token);
// A quoted string; buffer has max_length + 1 bytes. \" is the only escape. read_string_1 begins behind the quote.
int read_string(char* buffer, int max_length);
int read_string_1(char* buffer, int max_length);

// With a context, these report what they expected and found.
int read_number(float* number, const char* context);
const char* get_last_non_number_string();  // the token that read_number refused last; empty after the end of input
int expect_token(const char* token, const char* context);
// keyword and a number; if optional and the next token is another, that is left unread and the number is default_value.
int read_number_after(const char* keyword, const char* context, float* number, int optional, float default_value);

// Read up to a token, or tokens in a row. A token that breaks a row does not begin a new one.
int read_until_token(const char* a);
int read_until_tokens_2(const char* a, const char* b);
int read_until_tokens_3(const char* a, const char* b, const char* c);
// The opening parenthesis has been read. An end of input before it is closed takes the fatal abort.
int skip_to_closing_paren();

// ---- Numbers, in any locale ----

// Digits with an optional sign, point and exponent; what follows them does not matter ("2d" is 2). 1 if there was a
// digit, else 0 and no number is stored. Large exponents give infinity.
int parse_float(const char* text, float* number);
// Digits with an optional sign, held to the range of int; what follows does not matter. 1 or 0 as above.
int parse_int(const char* text, int* number);

}  // namespace velloran
