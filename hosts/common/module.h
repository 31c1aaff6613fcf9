// Modules of a program: what takes longer to load than it is needed is loaded when it is.
#pragma once

namespace spark_host {

// The module of that file name from where the build and the installation put it, seen from the program's own directory;
// then from the search path. Null if there is none; dlerror() tells why. Lazy: most of what the libraries beneath can
// do is never called. Any thread.
void* open_module(const char* file_name);

}  // namespace spark_host
