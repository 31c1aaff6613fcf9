/*
 * What a plug-in says about its effects beyond the host's interface: names, kinds, ranges and labels of its params by
 * the names that its texts use. For programs that show or set params by name; a host can do without.
 */
#ifndef STUBS_DESCRIBE_H
#define STUBS_DESCRIBE_H

#include "spark/spark.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct SparkEffectInfo {
    int Index; /* entry of the effect popup */
    const char* Name;
    int Inputs;
    const char* InputNames[4];
    int Flags; /* SPARK_EFFECT_ bits */
} SparkEffectInfo;

enum {
    SPARK_EFFECT_REMEMBERS = 1,    /* a frame depends on the frames made before it, not on the clips alone */
    SPARK_EFFECT_READS_FRAMES = 2, /* a frame is made from other frames of the clips, too */
    SPARK_EFFECT_RETIMES = 4       /* another number of frames comes out than there is in the clip */
};

enum {
    SPARK_PARAM_HIDDEN = 1,
    SPARK_PARAM_COLOUR_ONLY = 2,
    SPARK_PARAM_ON_SCREEN = 4,
    SPARK_PARAM_STANDARD = 8,
    SPARK_PARAM_MOVES = 16, /* runs from 0 to 1 over the clip as long as nobody sets it */
    SPARK_PARAM_PIXELS = 32 /* pixels of the full frame: the first channel across, the others up */
};

typedef struct SparkParamInfo {
    int Effect;                  /* Index of its effect; -1 for a standard control */
    const char* Name;            /* as the text writes it; of a standard control its title */
    const char* Key;             /* of a standard control its key, else null */
    int Variant;                 /* tells standard controls of one key apart */
    const char* Kind;            /* float, int, color, popup, boolean, button, string, label */
    const char* Group;           /* null if in none; inner groups as "Outer/Inner" */
    int Channels;                /* numbers that make up a value; 3 for a colour */
    const char* ChannelNames[4]; /* null where a channel has none */
    int Controls;                /* control numbers in use, 1 to 4; a colour's three channels are one control */
    int Numbers[4];              /* of each channel; of a standard control its copies, all alike; -1 none */
    int Flags;                   /* SPARK_PARAM_ bits */
    float Default[4];            /* in the units of the controls; a colour's from 0 to 1 */
    float Min, Max, Step;        /* Min above Max: no bounds known */
    int Labels;                  /* entries of a popup; of several channels one list after the other, a null between */
    const char* const* LabelTexts;
} SparkParamInfo;

typedef struct SparkDescribeVisitor {
    void* Context;
    void (*Effect)(void* context, const SparkEffectInfo* effect);
    void (*Param)(void* context, const SparkParamInfo* param);
} SparkDescribeVisitor;

/* Between SparkInitialise and SparkUnInitialise: visits each effect and after it its params, then the standard
 * controls. Answers the number of effects. What the records point at is valid during the visit. */
typedef int (*SparkDescribeFn)(const SparkDescribeVisitor* visitor);

/* After SparkInitialise: reads a setup file of the library's own form, path, and shows it on the controls. Below 0
 * after a message, 2 if the file is whole. */
typedef int (*SparkLoadSetupFn)(SparkInfoStruct info, const char* path);

/* After SparkInitialise: how many frames come out of a clip of so many, as the controls stand. */
typedef int (*SparkDestFramesFn)(int frames);

/* How a node's value came about in a frame. */
enum {
    SPARK_NODE_UNUSED = 0,     /* not evaluated: nothing that was evaluated reads it */
    SPARK_NODE_ROWS = 1,       /* its row function, in a pass with others */
    SPARK_NODE_FUSED = 2,      /* in a pass that ran as one loop */
    SPARK_NODE_TABLE = 3,      /* looked up in a table, in such a pass */
    SPARK_NODE_IMAGE = 4,      /* a function of whole images */
    SPARK_NODE_READ = 5,       /* an input, read from the host's frame */
    SPARK_NODE_COORDINATE = 6, /* counted along the row */
    SPARK_NODE_KEPT = 7,       /* its images stood from an earlier frame */
    SPARK_NODE_FOLDED = 8,     /* one value for the whole frame */
    SPARK_NODE_PASSED = 9      /* removed: what it stands for is read instead */
};

typedef struct SparkNodeInfo {
    int Index;            /* row of the graph; 0 is dest */
    const char* Name;     /* of the variable that it was assigned to; "" if none */
    const char* Function; /* null: no call */
    const char* Param;    /* name of the param that gives its value, or null */
    int Elements;         /* 1 to 4 */
    int Arguments;
    int ArgumentIndices[16]; /* as written */
    const char* ArgumentNames[16];
    int Evaluated;  /* arguments from this on are not evaluated: their element counts alone are used */
    int Constant;   /* 1: one value for every pixel of this frame; 2: for every frame and all values of the params */
    int StandsFor;  /* of a removed node: the node that is read in its place, else -1 */
    int How;        /* SPARK_NODE_ */
    int Pass;       /* node that is the result of the pass it is worked in, -1 none */
    int HasValue;   /* Value is what it gave for the pixel that is watched, or its value if it is constant */
    int Value[4];   /* 4096 is 1 */
    double Seconds; /* of wall time, without its arguments'; of a pass as one loop all is at its result */
    unsigned long PlaneBytes;  /* planes of its own for the frame */
    unsigned long LineBytes;   /* lines of each task */
    unsigned long WorkBytes;   /* the most that its function held at once beside */
    unsigned long SharedBytes; /* mipmap and long image, which functions take in turn */
} SparkNodeInfo;

typedef struct SparkFrameExplanation {
    const char* Effect;
    double Seconds;           /* of evaluating the frame */
    unsigned long PlaneBytes; /* of one plane */
    int Planes;               /* planes that the effect's images share */
} SparkFrameExplanation;

typedef struct SparkExplainVisitor {
    void* Context;
    void (*Frame)(void* context, const SparkFrameExplanation* frame);
    void (*Node)(void* context, const SparkNodeInfo* node);
} SparkExplainVisitor;

/* After SparkInitialise: the frames from now on are watched, at a pixel of the full frame from the bottom left, or at
 * none (-1). 0 if there is no memory for it. A watched frame takes a little longer; the picture is the same. */
typedef int (*SparkWatchFn)(int x, int y);

/* Visits what the last watched frame told, dest first and only nodes that it is written with, and ends the watching. 0
 * without a visit if the last frame was not made whole, or on fields. What the records point at is valid during the
 * visit. */
typedef int (*SparkExplainFn)(const SparkExplainVisitor* visitor);

/* The definitions as they were written, comments and all. */
typedef const char* (*SparkDefinitionsTextFn)(void);

/* Of the module `text` only, before SparkClips: the definitions to use, copied. name stands in messages. effect, if not
 * null, keeps only that definition. */
typedef void (*SparkTextDefinitionsFn)(const char* text, const char* name, const char* effect);

#ifdef __cplusplus
}
#endif

#endif
