/*
 * The interface between a compositing host and a plug-in ("spark").
 *
 * Both sides include this header and nothing else of each other. The host owns clips, frame buffers, control
 * panels, worker tasks and the user's attention; the plug-in owns the picture arithmetic and the structures of its
 * own controls. The host loads a plug-in as a shared module, looks up the functions under "What a plug-in exports"
 * by name, and offers the functions under "What a host offers" as symbols of the running program.
 *
 * Threads: every function on either side is called on the host's thread, one call at a time, unless its comment
 * names worker tasks. A host function may call back into the plug-in where its comment says so.
 *
 * Pictures: a frame is a block of rows, the bottom row first, each row FrameWidth pixels of interleaved red, green
 * and blue without padding. Depth codes say how a sample is stored:
 *   SPARK_DEPTH_8   one byte a sample, 255 is white
 *   SPARK_DEPTH_10  a 16-bit word a sample in native byte order, value in the top 10 bits, the low 6 free
 *   SPARK_DEPTH_12  a 16-bit word a sample in native byte order, value in the top 12 bits, the low 4 free
 *
 * Times: FrameNo counts from 0. Curve calls count frames as the host's timeline shows them, from 1.
 */
#ifndef SPARK_SPARK_H
#define SPARK_SPARK_H

#ifdef __cplusplus
extern "C" {
#endif

/* Depth codes of SparkInfoStruct.FrameDepth. */
enum { SPARK_DEPTH_8 = 25, SPARK_DEPTH_10 = 26, SPARK_DEPTH_12 = 48 };

/* Controls are numbered; a plug-in may own the numbers SPARK_FIRST_CONTROL to SPARK_LAST_CONTROL. A page of the
 * control panel holds SPARK_CONTROLS_PER_PAGE of them in columns of SPARK_CONTROLS_PER_COLUMN, from the top left. */
enum { SPARK_FIRST_CONTROL = 6, SPARK_LAST_CONTROL = 92, SPARK_CONTROLS_PER_PAGE = 29, SPARK_CONTROLS_PER_COLUMN = 7 };

enum { SPARK_MAX_POPUP_ENTRIES = 64, SPARK_MAX_STRING = 256, SPARK_MAX_CLIPS = 4 };

/* Actions of a control callback. */
enum { SPARK_ACTION_DRAG = 0, SPARK_ACTION_RELEASE = 1, SPARK_ACTION_PRESS = 2, SPARK_ACTION_TYPED = 3 };

/* Answers of sparkCallingEnv. */
enum { SPARK_ENV_DESKTOP = 1, SPARK_ENV_BATCH = 2 };

/* Bits of SparkMemBufStruct.BufferState. Of CLEAN and DIRTY exactly one is set in a buffer that is ALLOCATED: CLEAN
 * says that it still holds what the plug-in last wrote, DIRTY that its content was lost or is new. */
enum {
    SPARK_BUF_REGISTERED = 1,
    SPARK_BUF_INUSE = 2,
    SPARK_BUF_ALLOCATED = 4,
    SPARK_BUF_CLEAN = 8,
    SPARK_BUF_DIRTY = 16
};

/* What a call is about. Passed by value; pointers in it are the host's and valid during the call. */
typedef struct SparkInfoStruct {
    const char* Name;       /* path of the plug-in module, without its ending; its directory holds its data files */
    int ViewerX, ViewerY;   /* where the viewer shows the frame's lower left corner, in pixels of its window from the
                               lower left */
    unsigned int FrameNo;   /* the frame asked for, from 0 */
    int TotalFrameNo;       /* frames of the clip */
    int FrameWidth;         /* pixels */
    int FrameHeight;        /* rows */
    int FrameDepth;         /* a depth code */
    long FrameBytes;        /* bytes of one frame */
    long FramePixels;       /* FrameWidth * FrameHeight */
    float FramePixelRatio;  /* width of a pixel over its height; 0 if the host does not know */
    void** FrameBuffers;    /* hosts without registered buffers: addresses, the inputs first, then the
                               destination, then spare buffers of the same size; else null */
    int TotalBuffers;       /* entries of FrameBuffers */
    int Quality;            /* render quality: 1 full, 2 preview */
    signed char Processors; /* tasks that sparkMpFork runs, at least 1 */
} SparkInfoStruct;

/* A registered buffer, filled by sparkMemGetBuffer. */
typedef struct SparkMemBufStruct {
    int BufferId;
    int BufferState; /* SPARK_BUF_ bits */
    long BufferSize; /* bytes */
    void* Buffer;    /* host-owned, valid until the entry point returns */
} SparkMemBufStruct;

/* A callback answers the address of the frame that it rendered, or null. */
typedef void* (*SparkCallback)(int action, SparkInfoStruct info);

/*
 * Control structures, one type for each kind. The plug-in owns them and the texts that they point at; the host reads
 * them, writes Value when the user acts, and then calls CallBack (null: none). A null or empty Title shows nothing.
 * The Title of a float, int or string control may end in a colon and a printf field, as in "Radius: %.2f", for hosts
 * that print name and value in one; in it a percent sign of the name is doubled. A name given by sparkSetControlName
 * goes before the Title.
 */
typedef struct SparkFloatStruct {
    float Value, Min, Max, Step;
    const char* Title;
    SparkCallback CallBack;
} SparkFloatStruct;

typedef struct SparkIntStruct {
    int Value, Min, Max, Step;
    const char* Title;
    SparkCallback CallBack;
} SparkIntStruct;

typedef struct SparkColourStruct {
    unsigned int Value; /* packed, in memory order: red, green, blue, 0; a byte each */
    const char* Title;
    SparkCallback CallBack;
} SparkColourStruct;

typedef struct SparkBooleanStruct {
    unsigned char Value; /* 0 or 1 */
    const char* Title;
    SparkCallback CallBack;
} SparkBooleanStruct;

typedef struct SparkPopupStruct {
    int Value;                                  /* index of the entry shown */
    int Entries;                                /* entries in use */
    const char* Names[SPARK_MAX_POPUP_ENTRIES]; /* null beyond Entries */
    const char* Title;
    SparkCallback CallBack;
} SparkPopupStruct;

typedef struct SparkStringStruct {
    char Value[SPARK_MAX_STRING];
    const char* Title;
    SparkCallback CallBack;
} SparkStringStruct;

typedef enum SparkControlKind {
    SPARK_CONTROL_FLOAT = 1,
    SPARK_CONTROL_INT,
    SPARK_CONTROL_COLOUR,
    SPARK_CONTROL_BOOLEAN,
    SPARK_CONTROL_POPUP,
    SPARK_CONTROL_STRING,
    SPARK_CONTROL_TOGGLE /* a SparkBooleanStruct that switches an on-screen handle */
} SparkControlKind;

/* One control that the plug-in uses. Control is a structure of the type that Kind says. */
typedef struct SparkControl {
    int Number;
    SparkControlKind Kind;
    void* Control;
} SparkControl;

/*
 * What a plug-in exports. The host calls SparkClips, SparkMemoryTempBuffers and SparkInitialise once each in this
 * order; then SparkControls; then, in any mix, control callbacks, SparkInteract, SparkOverlay, SparkProcessStart and
 * SparkProcess; and SparkUnInitialise at the end, after which the module may be unloaded.
 *
 *   SparkIsInputFormatSupported  1 if frames of this depth code may be handed over, else 0
 *   SparkClips              number of input clips, 0 to SPARK_MAX_CLIPS
 *   SparkMemoryTempBuffers  registers buffers with sparkMemRegisterBufferSize; only hosts of API 2.502 or later
 *   SparkInitialise         2 if the plug-in is ready; 0 if it must not be used
 *   SparkControls           points *list at the controls in use, answers their number; valid until SparkUnInitialise
 *   SparkProcessStart       before a run of frames; answers how many frames come out of it
 *   SparkProcess            renders info.FrameNo into the destination; its address, or null if there is no frame
 *   SparkInteract           a pen event over the viewer: pressure above 0 is down; x, y in pixels of the full frame
 *                           from the bottom left; zoom is viewer pixels per frame pixel, -n standing for 1/(n + 2)
 *   SparkOverlay            the viewer was drawn; the plug-in may draw over it with OpenGL's fixed pipeline, in pixels
 * of the viewer's window from the lower left, ViewerX and ViewerY being those of the frame; zoom as above
 */
typedef int (*SparkIsInputFormatSupportedFn)(int depth);
typedef int (*SparkClipsFn)(void);
typedef void (*SparkMemoryTempBuffersFn)(void);
typedef int (*SparkInitialiseFn)(SparkInfoStruct info);
typedef int (*SparkControlsFn)(const SparkControl** list);
typedef int (*SparkProcessStartFn)(SparkInfoStruct info);
typedef void* (*SparkProcessFn)(SparkInfoStruct info);
typedef void* (*SparkInteractFn)(SparkInfoStruct info, int event, int modifiers, float pressure, float x, float y,
                                 float zoom);
typedef void (*SparkOverlayFn)(SparkInfoStruct info, float zoom);
typedef void (*SparkUnInitialiseFn)(SparkInfoStruct info);

/* ---- What a host offers ---- */

/* The host itself. */
float sparkAPIVersionInfo(void);               /* version of this interface that the host speaks, e.g. 4.039 */
int sparkCallingEnv(void);                     /* SPARK_ENV_DESKTOP or SPARK_ENV_BATCH */
int sparkProgramGetName(char* name, int size); /* copies the program's name, cut to size; answers its length */
int sparkGetInfo(SparkInfoStruct* info);       /* what the next call would be about; 1, or 0 if unknown yet */

/* Frame memory. Buffer ids: 1 the destination, 2 and on the inputs in order, then the registered ones as answered. */
int sparkMemGetFreeMemory(void);            /* how many more frame-sized buffers the host could register */
int sparkMemRegisterBufferSize(long bytes); /* id of a new buffer, or 0; only inside SparkMemoryTempBuffers */
int sparkMemGetBuffer(int id, SparkMemBufStruct* buffer); /* 1, or 0 if there is no such buffer */
/* Fetches frame (from 0, held to the clip) of an input (from 0) in the current frame format into buffer, of at least
 * FrameBytes. Answers buffer, or null if there is no such frame. May call SparkProcess of other plug-ins. */
void* sparkGetFrame(int input, int frame, void* buffer);

/* The user. Texts are copied during the call. */
void sparkError(const char* text);   /* an error that the user must see */
void sparkMessage(const char* text); /* the message line */
void sparkCursorBusy(void);
void sparkViewingCursor(int on);
void sparkViewingDraw(void);                               /* draw the viewer again; calls SparkOverlay */
int sparkPointerRead(float* x, float* y, float* pressure); /* 1 if the pen is down; null pointers are skipped */
void sparkPointerWaitOff(void);                            /* returns when the pen is up */
void sparkProcessTruncate(void);                           /* the run of frames is to end with this one */

/* Controls. The first argument is the panel, always 1; number is a control number. */
void sparkControlUpdate(int number);                              /* show the control's structure as it now stands */
int sparkSetControlName(int panel, int number, const char* text); /* 1, or 0 for no such control; text copied */
void sparkClipControlTitle(int clip, const char* text);           /* title of an input, from 0; text copied */
int sparkSaveSetup(const char* path); /* writes the host's text of controls and curves: 1 or 0 */
int sparkLoadSetup(const char* path); /* reads it back: 1 or 0 */
float sparkGetCurveValue(int panel, int number, int frame);
float sparkGetCurveValuef(int panel, int number, float frame);       /* between frames; from API 2.5 on */
int sparkSetCurveKey(int panel, int number, int frame, float value); /* adds or moves a key: 1 or 0 */

/* Worker tasks. sparkMpFork runs function once on each of Processors tasks and returns when all have returned; the
 * second argument is 0. A function that runs in a task must not fork. sparkMpInfo may be called in a task: its share
 * of a frame's pixels begins at *offset = index * max(1, FramePixels / Processors), with *size pixels. */
int sparkMpFork(void (*function)(void), int mode);
void sparkMpInfo(int* offset, int* size);

/*
 * Optional services: a host may lack any of these, so a plug-in finds them by name in the running program.
 */
float sparkFrameRate(void);                                /* frames per second */
float sparkGetViewerRatio(void);                           /* width over height of a pixel as the viewer shows it */
int sparkGetScanFormat(void);                              /* 0 progressive, 1 first field dominant, 2 second */
int sparkSystemSh(const char* command);                    /* runs a shell command; its exit status */
int sparkSystemNoSh(const char* path, char* const argv[]); /* starts a program without a shell: process id or -1 */
int sparkWaitpid(int pid, int* status, int options);
int sparkMpIsMainTask(void); /* in a task: 1 on the host's thread */
void* sparkMpAllocateTaskHandle(void);
int sparkMpCreateTask(void* handle, void (*function)(void*), void* argument); /* 1 or 0 */
int sparkMpWaitTask(void* handle); /* returns when the task has ended: 1 or 0 */
void sparkMpFreeTaskHandle(void* handle);
int sparkEnableParameter(int panel, int number);
int sparkDisableParameter(int panel, int number);
int sparkControlTitle(int page, const char* text);              /* title of a control page, from 0; text copied */
int sparkControlGroup(int panel, int number, const char* text); /* heading over it, "" none, "Outer/Inner"; copied */
int sparkMessageDelay(int milliseconds, const char* text);      /* message line for so long, then as before */
int sparkGraphSetup(float* pixel_ratio);                        /* pixel ratio of the footage: 1, or 0 if unknown */

#ifdef __cplusplus
}
#endif

#endif
