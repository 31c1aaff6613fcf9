// How a row of the function table is written down, before it is checked and packed into a NodeFun.
#pragma once

#include "records/node_fun.h"

#include <cstdint>

namespace velloran {

// What the engine has to know of a function beside its code. Small functions stand beside the operator; none of them
// means the common case.
struct FunRules {
    PassArgFun pass = nullptr;        // null: nothing is ever passed through
    NeedRectFun need_rect = nullptr;  // null: the function reads the pixel that it writes
    FoldFun fold = nullptr;           // null: run the code on one sample; an image function takes its image argument
    CallHintFun call_hint = nullptr;  // null: there is nothing that check would have to tell of a call
    int8_t most_images = 0;           // the code makes do with so many images where the column image gives more; 0 none
    int8_t else_arg = -1;             // of a branch: argument of the else side; the then side is the one before
    int8_t filter_arg = -1;           // argument that switches filtered look-ups on; -1 with the flag filt: always on
    NodeStateFun make_state = nullptr;  // both or none: work record of a node for the length of a pass
    NodeStateFun free_state = nullptr;
};

struct FunRow {
    int number;  // place in the table, from 0; names are looked up in this order
    const char* name;
    uint16_t category;  // category_ code
    uint16_t cost;
    float weight;
    const char* image;       // "" for a pixel function, else image_arg/images_per_element/extra_images
    const char* flags;       // words, see flag_words in node_fun_table.cpp
    const char* run;         // e, r, s and an argument index: what switches the work off, makes it grow, counts passes
    const char* aux;         // two small counts, "" for 0,0
    PixelFun function;       // serves all signatures: it reads the element counts at run time
    const char* arguments;   // names; behind a name :p a parameter, :c a value per pixel, :i the image to filter
    const char* signatures;  // in order of trying, each RESULT<ARGUMENTS, a digit for each element count. any1 and any2
                             // stand for what functions of one and two values of any kind take
    const char* meaning;
    FunRules rules = {};
};

}  // namespace velloran
