#include "operators/stamps/stamp_collections.h"

#include "operators/image_files/qmi_file.h"
#include "operators/image_files/stamp_jpeg.h"
#include "support/errors.h"
#include "support/files.h"
#include "support/memory.h"
#include "support/unload.h"

#include <dirent.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace velloran {

namespace {

constexpr int path_size = 640;

struct LoadedCollection {
    LoadedCollection* next;
    char* directory;
    StampCollection* stamps;
};
LoadedCollection* loaded_collections;

void free_collections() {
    while (LoadedCollection* const first = loaded_collections) {
        loaded_collections = first->next;
        free_stamp_collection(first->stamps);
        safe_free(first->directory);
        safe_free(first);
    }
}

bool ends_in(const char* name, const char* ending) {
    const size_t n = std::strlen(name), m = std::strlen(ending);
    return n > m && std::strcmp(name + n - m, ending) == 0;
}
bool qmi_file_p(const char* name) { return ends_in(name, ".qmi"); }
bool jpeg_file_p(const char* name) { return ends_in(name, ".jpg") || ends_in(name, ".jpeg"); }

// All entries of a directory, of the call, sorted. False after a message, unless there is no such directory.
struct Names {
    char** names;
    int count, room;
};

void add_name(Names* all, const char* name) {
    if (all->count == all->room) {
        all->room = std::max(2 * all->room, 64);
        auto* const more = frame_array<char*>(static_cast<size_t>(all->room));
        std::copy(all->names, all->names + all->count, more);
        frame_free(all->names);
        all->names = more;
    }
    const size_t size = std::strlen(name) + 1;
    auto* const copy = frame_array<char>(size);
    std::memcpy(copy, name, size);
    all->names[all->count++] = copy;
}

bool read_names(const char* directory, Names* all) {
    *all = {};
    DIR* const stream = opendir(directory);
    if (!stream) {
        if (errno == ENOENT || errno == ENOTDIR) return true;
        V_error(level_error, "Open of %s failed: %s\n", directory, std::strerror(errno));
        return false;
    }
    push_abort_cleanup([](void* open) { closedir(static_cast<DIR*>(open)); }, stream);
    for (;;) {
        errno = 0;
        const dirent* const entry = readdir(stream);
        if (!entry) break;
        if (entry->d_name[0] != '.' && (qmi_file_p(entry->d_name) || jpeg_file_p(entry->d_name)))
            add_name(all, entry->d_name);
    }
    const int cause = errno;
    pop_abort_cleanup();
    closedir(stream);
    if (cause) V_error(level_error, "Read of %s failed: %s\n", directory, std::strerror(cause));
    std::sort(all->names, all->names + all->count, [](const char* a, const char* b) { return std::strcmp(a, b) < 0; });
    return !cause;
}

void free_names(Names* all) {
    for (int i = 0; i < all->count; ++i) frame_free(all->names[i]);
    frame_free(all->names);
}

// False: a file could not be read now. total counts also what there is no room for.
bool load_file(const char* path, StampCollection* stamps, int* total) {
    if (qmi_file_p(path)) {
        const int n = load_stamps_from_qmi(path, stamps);
        *total += std::max(n, 0);
        return n != stamps_unreadable;
    }
    if (stamps->count == max_stamps) {
        ++*total;
        return true;
    }
    const StampJpegResult result = load_stamp_from_jpeg(path, true, &stamps->stamps[stamps->count]);
    if (result != stamp_jpeg_done) return result == stamp_jpeg_refused;
    ++stamps->count;
    ++*total;
    return true;
}

bool load_files(const char* name, const char* directory, StampCollection* stamps) {
    Names all;
    if (!read_names(directory, &all)) {
        free_names(&all);
        return false;
    }
    StampFileList list = {};
    for (int i = 0; i < all.count; ++i) list_stamp_file(all.names[i], name, &list);
    bool loaded = true;
    int total = 0;
    for (int i = 0; i < list.count && loaded; ++i) {
        char path[path_size];
        if (std::snprintf(path, sizeof path, "%s/%s", directory, list.names[i]) >= path_size) {
            V_error(level_error, "Open of %s failed: %s\n", path, std::strerror(ENAMETOOLONG));
            loaded = false;
        } else {
            loaded = load_file(path, stamps, &total);
        }
    }
    if (loaded && total > max_stamps)
        V_error(level_warning, "load_stamp_collection(%s): too many stamps %d, max=%d (ignoring extras)\n", name, total,
                max_stamps);
    free_names(&all);
    return loaded;
}

}  // namespace

void list_stamp_file(const char* name, const char* collection, StampFileList* list) {
    if (name[0] == '.' || !(qmi_file_p(name) || jpeg_file_p(name))) return;
    if (list->count < max_stamps) {
        list->names[list->count++] = name;
        return;
    }
    if (list->told) return;
    list->told = true;
    V_error(level_warning, "Too many stamps in list_stamp_file(%s=%d) -- ignoring extras\n", collection, max_stamps);
}

StampCollection* load_stamp_collection(const char* name) {
    char directory[path_size];
    std::snprintf(directory, sizeof directory, "%s/stamps/%s", get_config_dir(), name);
    for (const LoadedCollection* l = loaded_collections; l; l = l->next)
        if (!std::strcmp(l->directory, directory)) return l->stamps;
    free_at_unload(free_collections);
    auto* const entry = safe_new_zeroed<LoadedCollection>();
    push_abort_cleanup(
        [](void* half) {
            auto* const unfinished = static_cast<LoadedCollection*>(half);
            free_stamp_collection(unfinished->stamps);
            safe_free(unfinished->directory);
            safe_free(unfinished);
        },
        entry);
    entry->directory = safe_strdup(directory);
    entry->stamps = new_stamp_collection();
    const bool loaded = load_files(name, directory, entry->stamps);
    pop_abort_cleanup();
    if (!loaded) {
        free_stamp_collection(entry->stamps);
        safe_free(entry->directory);
        safe_free(entry);
        return nullptr;
    }
    entry->next = loaded_collections;
    loaded_collections = entry;
    return entry->stamps;
}

const Stamp* stamp_with_pixels(Stamp* stamp, bool mirrored, bool* lost) {
    *lost = false;
    if (!stamp->level_count) {
        const StampJpegResult result = read_deferred_stamp(stamp);
        *lost = result == stamp_jpeg_unreadable;
        if (result != stamp_jpeg_done) return nullptr;
    }
    return mirrored ? mirrored_stamp(stamp) : stamp;
}

}  // namespace velloran
