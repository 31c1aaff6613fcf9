// What lives on between frames and is to be given back when the last plug-in goes: who makes such a thing says so here,
// and nobody above needs to know of it. Host's thread.
#pragma once

namespace velloran {

// Has the function called once at the next unloading; asking again changes nothing. It may be called when there is
// nothing to free.
void free_at_unload(void (*function)());
// Calls them, the last one first, and forgets them.
void run_unload_functions();

}  // namespace velloran
