// The inside of a picture. For the picture module only.
#pragma once

#include "hosts/pictures/pictures.h"

#include <OpenImageIO/imageio.h>

#include <vector>

namespace spark_host {

struct Layer {
    OIIO::ImageSpec spec;
    std::vector<unsigned char>
        pixels;  // native: all channels of a pixel side by side, each of its own type, top row first

    const unsigned char* channel(int c) const { return pixels.data() + spec.pixel_bytes(0, c, true); }
    OIIO::TypeDesc type(int c) const { return spec.channelformat(c); }
    OIIO::stride_t pixel_stride() const { return static_cast<OIIO::stride_t>(spec.pixel_bytes(true)); }
    OIIO::stride_t row_stride() const { return pixel_stride() * spec.width; }
};

struct LayeredPicture : Picture {
    std::vector<Layer> layers;   // the first one holds the colours
    int colours[3] = {0, 0, 0};  // its channels; all the same for a grey picture

    LayeredPicture() : Picture(false) {}
    bool grey() const { return colours[0] == colours[1]; }
};
using LayeredPicturePtr = std::shared_ptr<const LayeredPicture>;
// The picture itself, or what this library would have read from a plain one's file. Null stays null. The result may not
// outlive the picture.
LayeredPicturePtr layered(const Picture* picture);

// The part of the data window that lies in the display window, in display coordinates.
struct Window {
    int x0 = 0, y0 = 0, x1 = 0, y1 = 0;
    bool empty() const { return x0 >= x1 || y0 >= y1; }
};
Window visible_window(const OIIO::ImageSpec& spec);

bool probe_picture(const std::string& path, PictureInfo& info, std::string* error);
PicturePtr read_picture(const std::string& path, int movie_frame, std::string* error);
SamplesFound picture_to_frame(const Picture& picture, const FrameFormat& format, void* frame);
std::string making_of_picture(const std::string& path, std::string* error);
bool check_picture_whole(const std::string& path, std::string& recipe);

bool write_picture(const std::string& path, const WriteRequest& request, WriteResult& result, std::string* error);
// True if there is alpha beside the colours.
bool alpha_p(const Picture& picture);
// The frame with its colours in the order red, green, blue, top row first, in samples of 8 or 16 bits; with alpha that
// of request.from, or white where it has none.
Bytes compose_plain(const WriteRequest& request, bool alpha);

}  // namespace spark_host
