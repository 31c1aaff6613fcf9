// The number of frames that come out, for programs that plan a run before it begins.
#include "host/frame_mapping.h"
#include "host/stub_services.h"
#include "operators/fields/field_pattern.h"

using namespace velloran;

int V4_changes_frame_count(const GlobalsV4Record* record) { return changes_frame_count_p(record->plugin_name); }

int V4_dest_frames(int n) { return n_dest_frames(n); }
