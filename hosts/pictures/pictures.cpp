#include "hosts/pictures/pictures.h"

#include "hosts/common/module.h"
#include "hosts/pictures/plain_picture.h"
#include "hosts/pictures/tiff_file.h"

#include <dlfcn.h>
#include <sys/mman.h>

#include <algorithm>
#include <future>
#include <mutex>

namespace spark_host {
namespace {

constexpr const char* module_name = "velloran_pictures.so";

// Some of the libraries beneath end the process where they find no memory while they are loaded. That is seen before.
bool room_for_module() {
    constexpr size_t needed = size_t{512} << 20;  // of addresses, with the threads that they start
    void* const room = mmap(nullptr, needed, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (room == MAP_FAILED) return false;
    munmap(room, needed);
    return true;
}

// The module's functions; null, and the reason in *error, if it cannot be loaded. Any thread.
const PictureFunctions* module_functions(std::string* error) {
    static std::mutex mutex;
    static const PictureFunctions* functions = nullptr;
    const std::lock_guard lock(mutex);
    if (functions) return functions;
    if (!room_for_module()) {
        if (error) *error = "pictures of this kind need a module that cannot be loaded: out of memory";
        return nullptr;
    }
    void* const module = open_module(module_name);
    const auto entry = module ? reinterpret_cast<PictureModuleEntry>(dlsym(module, picture_module_entry)) : nullptr;
    if (entry) functions = entry();
    if (!functions && error)
        *error = std::string("pictures of this kind need a module that cannot be loaded: ") + dlerror();
    return functions;
}

const PictureFunctions* module_for(const std::string& path, std::string* error) {
    const PictureFunctions* const functions = module_functions(error);
    if (!functions && error) *error = path + ": " + *error;
    return functions;
}

bool probe(const std::string& path, PictureInfo& info, std::string* error) {
    if (probe_plain(path, info)) return true;
    const auto* const module = module_for(path, error);
    return module && module->probe(path, info, error);
}

PicturePtr read(const std::string& path, int movie_frame, std::string* error) {
    if (movie_frame < 0)
        if (PicturePtr picture = read_plain(path)) return picture;
    const auto* const module = module_for(path, error);
    return module ? module->read(path, movie_frame, error) : nullptr;
}

SamplesFound to_frame(const Picture& picture, const FrameFormat& format, void* frame) {
    if (picture.plain) return plain_to_frame(static_cast<const PlainPicture&>(picture), format, frame);
    return module_functions(nullptr)->to_frame(picture, format, frame);
}

bool write(const std::string& path, const WriteRequest& request, WriteResult& result, std::string* error) {
    if (plain_output_p(path, request)) return write_plain(path, request, result, error);
    const auto* const module = module_for(path, error);
    return module && module->write(path, request, result, error);
}

std::string ending_of(const std::string& path) {
    const size_t slash = path.rfind('/'), dot = path.rfind('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return "";
    std::string ending = path.substr(dot + 1);
    for (char& c : ending) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return ending;
}

bool one_of(const std::string& word, std::initializer_list<const char*> words) {
    return std::any_of(words.begin(), words.end(), [&](const char* known) { return word == known; });
}

bool movie_ending(const std::string& path) { return one_of(ending_of(path), {"mov", "mkv", "mp4"}); }

const char* unwritable(const std::string& path) {
    return movie_ending(path) || one_of(ending_of(path), {"png", "jpg", "jpeg", "tif", "tiff", "exr", "dpx"})
               ? nullptr
               : "the ending must be png, jpg, tif, exr, dpx, mov, mkv or mp4";
}

bool check_encoder(const std::string& path, const std::string& codec, std::string* error) {
    const auto* const module = module_for(path, error);
    return module && module->check_encoder(path, codec, error);
}

MovieWriter* open_movie(const MovieRequest& request, std::vector<std::string>& losses, std::string* error) {
    const auto* const module = module_for(request.path, error);
    return module ? module->open_movie(request, losses, error) : nullptr;
}

bool add_frame(MovieWriter& writer, const void* frame, const Picture* from, std::string* error) {
    return module_functions(nullptr)->add_frame(writer, frame, from, error);
}
bool finish_movie(MovieWriter& writer, std::string* error) {
    return module_functions(nullptr)->finish_movie(writer, error);
}
void close_movie(MovieWriter* writer) { module_functions(nullptr)->close_movie(writer); }

bool check_whole(const std::string& path, std::string& recipe) {
    if (const PicturePtr picture = read_plain(path)) {
        recipe = static_cast<const PlainPicture&>(*picture).recipe;
        return true;
    }
    const auto* const module = module_functions(nullptr);
    return module && module->check_whole(path, recipe);
}

std::string making_of(const std::string& path, std::string* error) {
    PictureInfo info;
    std::string making;
    if (png_path_p(path))
        making = making_of_png(path);
    else if (tiff_path_p(path))
        making = making_of_tiff(path);
    else if (const auto* const module = module_for(path, error))
        return module->making_of(path, error);
    if (!making.empty() || !probe(path, info, error)) return making;
    *error = path + ": does not say how it was made";
    return "";
}

PicturePtr from_yuv(const YuvFormat& format, const PictureInfo& info, const void* planes, std::string* error) {
    const auto* const module = module_functions(error);
    return module ? module->from_yuv(format, info, planes, error) : nullptr;
}

bool to_yuv(const WriteRequest& request, int bits, Bytes& to, std::string* error) {
    const auto* const module = module_functions(error);
    return module && module->to_yuv(request, bits, to, error);
}

}  // namespace

const PictureFunctions& picture_functions() {
    static constexpr PictureFunctions functions = {
        probe,     read,         to_frame,    write,       unwritable, movie_ending, check_encoder, open_movie,
        add_frame, finish_movie, close_movie, check_whole, making_of,  from_yuv,     to_yuv,
    };
    return functions;
}

}  // namespace spark_host
