// Pictures without anything unusual: one layer of grey or colours, perhaps with alpha, in whole samples of 8 or 16
// bits, that fill the frame. PNG files and portable maps are read, PNG and TIFF written without the picture library;
// what is not plain is left to it.
#pragma once

#include "hosts/pictures/png_file.h"

namespace spark_host {

struct PlainPicture : Picture {
    int bytes = 1;           // of a sample
    Bytes pixels;            // info.channels side by side: grey or red, green, blue, then alpha; top row first
    Bytes header;            // of a PNG file up to its samples, for those who read more of it
    Bytes kept;              // chunks that travel into another PNG file, but for those about the kind of samples
    Bytes kept_same_kind;    // chunks that travel where the kind of samples is the same
    bool described = false;  // has chunks that say more about the picture than what follows
    ColourNotes notes;
    std::string recipe;

    PlainPicture() : Picture(true) {}
    bool alpha() const { return info.channels == 2 || info.channels == 4; }
};

// False: no plain picture, or none that is whole; the other readers know more.
bool probe_plain(const std::string& path, PictureInfo& info);
// Null: as above.
PicturePtr read_plain(const std::string& path);
SamplesFound plain_to_frame(const PlainPicture& picture, const FrameFormat& format, void* frame);

// True if the ending and what comes from another picture let write_plain do it.
bool plain_output_p(const std::string& path, const WriteRequest& request);
// Throws std::bad_alloc.
bool write_plain(const std::string& path, const WriteRequest& request, WriteResult& result, std::string* error);

// The frame, top row first, in samples of 8 or 16 bits. The significant bits of a 16-bit sample are repeated below, so
// that white is 65535.
Bytes upright_frame(const WriteRequest& request);

// Upright colours of 1 or 2 bytes with the alpha of a picture of that size beside them; white where there is none.
Bytes add_alpha(const Bytes& colours, int bytes, const PlainPicture* from);

// The same of any PNG file.
std::string making_of_png(const std::string& path);
bool png_path_p(const std::string& path);
bool tiff_path_p(const std::string& path);

// What this program says in a file about the file; never handed on to another one.
constexpr const char* own_attributes = "velloran:";
constexpr const char* recipe_attribute = "velloran:recipe";
constexpr const char* making_attribute = "velloran:making";

}  // namespace spark_host
