// Plug-ins and the library beneath are called by one thread at a time.
#pragma once

namespace spark_host {

// Stands around every call into a plug-in, a call inside a call of the same thread included. Where another thread is
// inside already, the program is ended with a word: what two threads leave behind is a wrong picture at best.
class LibraryCall {
public:
    LibraryCall();
    ~LibraryCall();
    LibraryCall(const LibraryCall&) = delete;
    LibraryCall& operator=(const LibraryCall&) = delete;
};

}  // namespace spark_host
