// Files that appear under their name only when they are complete.
#pragma once

#include <span>
#include <string>

namespace render {

// An unfinished file beside the one that it is to become. Its name is short and tells the machine and the process that
// write it, so that a later run can sweep what a process that was killed left behind. At most 48 at a time.
class PartFile {
public:
    PartFile() = default;
    ~PartFile();
    PartFile(const PartFile&) = delete;
    PartFile& operator=(const PartFile&) = delete;

    // Any thread. False, and the reason in *error, if no file can be made beside path.
    bool open(const std::string& path, std::string* error);
    int descriptor() const { return file_; }
    // Flushes the file to the disk and gives it its name. False, nothing left behind and the reason in *error, if that
    // fails.
    bool commit(std::string* error);
    // Removes it.
    void drop();

private:
    std::string path_;
    int file_ = -1;
    int slot_ = -1;
};

// Writes all bytes through a part file. False, nothing left behind and the reason in *error, if that fails. Any thread.
bool write_whole_file(const std::string& path, std::span<const unsigned char> bytes, std::string* error);

// Removes what processes of this machine that are gone left unfinished in the directory of path.
void sweep_parts(const std::string& path);

// Removes what is half written, on the way out. Safe in a signal handler.
void remove_parts();

// From now on an interruption (SIGINT, SIGTERM, SIGHUP) removes what is half written and ends the program with 128 plus
// the signal's number.
void remove_parts_on_interruption();

// Empty if files can be made beside path, else the reason.
std::string unwritable_directory(const std::string& path);

}  // namespace render
