// How a row of the function table is written down. Each file of this directory holds the rows of one subject; their
// order is part of the table (see all_fun_rows in node_fun_table.cpp).
//
// To add a function: write its row here, its pass-through rule in pass_rules.cpp and its needed region in need_rect.cpp
// if it has them, and its code in the room that its subject belongs to.
#pragma once

#include "compile/need_rect.h"
#include "records/node_fun.h"

namespace velloran {

struct FunRow {
    const char* name;
    uint16_t category;  // category_ code
    uint16_t cost;
    float weight;
    const char* image;       // "" for a pixel function, else image_arg/images_per_element/extra_images
    const char* flags;       // words, see fun_flag_words in node_fun_table.cpp
    char pass;               // letter of the pass-through rule (pass_rules.h), 0 none
    const char* run;         // e, r, s and an argument index: what switches the work off, makes it grow, counts passes
    const char* aux;         // two small counts, "" for 0,0
    PixelFun function;       // serves all signatures: it reads the element counts at run time
    const char* arguments;   // names; behind a name :p a parameter, :c a value per pixel, :i the image to filter
    const char* signatures;  // in order of trying, each RESULT<ARGUMENTS, a digit for each element count. any1 and any2
                             // stand for what functions of one and two values of any kind take
    const char* meaning;
    NeedRectFun need_rect = nullptr;  // region that the function reads; null: the pixel that it writes
};

struct FunRows {
    const FunRow* rows;
    int count;
};

// A row whose code is still to be written: texts that use it are read and typed; rendering them is refused.
constexpr PixelFun no_code = nullptr;

extern const FunRows arithmetic_rows, film_dirt_rows, values_rows, vectors_rows, noise_rows, filters_rows, warps_rows,
    flares_rows, queries_rows, frames_rows, looks_rows;

}  // namespace velloran
