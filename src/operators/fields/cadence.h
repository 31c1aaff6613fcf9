// Arithmetic of cadences: which fields make an output frame, which frame a field shows, and how many frames there are.
//
// Fields of a clip are counted in the order of time: frame f has the fields 2 f and 2 f + 1. From field `phase` on they
// follow the holds, again and again: a positive hold is so many fields of a picture that begins there; another one is
// so many fields that belong to a picture before. What lies before phase is the end of the last hold.
#pragma once

namespace velloran {

constexpr int max_field_holds = 16;
constexpr int most_cadence_frames = 1 << 29;  // of a clip: their fields can be counted

struct FieldPattern {
    int holds[max_field_holds];
    int length;     // 0 to max_field_holds; 0: there is none
    int phase;      // field at which the first hold begins
    int dominance;  // the physical field, even rows 0 or odd rows 1, that comes first in time
};

int pattern_fields(const FieldPattern& pattern);  // of a period
int pattern_frames(const FieldPattern& pattern);  // pictures that begin in a period

// Fields of the pictures at the start of a clip that the holds do not tell of: those whose beginning is before the
// clip, or that are out of order. True if dest_frame is one of them; then its two fields, counted as frame and field in
// time, the even one as the first. mode is the number of such frames. The pointers may be null.
bool handle_start_of_clip(int dest_frame, const int* pattern, int length, int phase, int* frame_a, int* field_a,
                          int* frame_b, int* field_b, int* mode);
// The same the other way round: true if field (from 0) of the telecined clip belongs to such a frame; then its number.
bool handle_start_of_clip_reinterlace(int field, const int* pattern, int length, int phase, int* frame, int* mode);

// The fields that a whole frame is woven from, counted in time; the same one twice if there is but one. n_fields: of
// the clip. The pattern must have frames.
struct FramePair {
    int first, second;
};
FramePair fields_of_frame(const FieldPattern& pattern, int dest_frame, int n_fields);

// The frame that a field of the telecined clip shows, or -1 where no hold before it says so: an illegal pattern.
int frame_of_field(const FieldPattern& pattern, int field);

// Whole frames in a clip of n frames with the pattern: all that have both of their fields there. A pattern without
// frames leaves n, and so does a clip too long to be counted.
int deinterlaced_frames(const FieldPattern& pattern, int n);
// Frames that n whole ones become.
int reinterlaced_frames(const FieldPattern& pattern, int n);

}  // namespace velloran
