// The form in which names of an effect text appear on the host's panels.
#pragma once

namespace velloran {

// name in title case into out, cut to size bytes with the terminating zero: underscores count as blanks, each word
// begins with a capital, other letters stay as they are, trailing blanks go.
void param_display_name(char* out, int size, const char* name);

}  // namespace velloran
