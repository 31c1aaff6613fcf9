// Flare definitions from a text, by way of a file, and planes to draw them into. For tests and benches of light.
#pragma once

#include "operators/flares/draw_flare.h"
#include "operators/flares/flare_file.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace velloran_tests {

// The definitions of a text.
class Flares {
public:
    explicit Flares(const std::string& text, bool has_center = true) {
        char path[] = "/tmp/velloran_flares_XXXXXX";
        const int fd = mkstemp(path);
        if (fd < 0 || write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size())) std::abort();
        close(fd);
        path_ = path;
        count = velloran::load_lens_flares_from_file(path, flares, velloran::max_flares_in_table, has_center, "Lens:");
        unlink(path);
    }
    ~Flares() {
        for (int i = 0; i < count; ++i) velloran::free_lens_flare(flares[i]);
    }
    Flares(const Flares&) = delete;
    Flares& operator=(const Flares&) = delete;

    const std::string& path() const { return path_; }
    velloran::LensFlare* flares[velloran::max_flares_in_table] = {};
    int count = 0;

private:
    std::string path_;
};

// Three planes, a part of a picture.
struct FlarePlanes {
    FlarePlanes(int width, int height, int left = 0, int bottom = 0, float whole_width = 0) {
        for (int c = 0; c < 3; ++c) {
            planes[c].resize(static_cast<size_t>(width) * static_cast<size_t>(height));
            canvas.planes[c] = planes[c].data();
        }
        canvas.width = width;
        canvas.height = height;
        canvas.left = left;
        canvas.bottom = bottom;
        canvas.whole_width = whole_width > 0 ? whole_width : static_cast<float>(width);
        canvas.aspect = 1;
    }
    std::vector<velloran::FixPixel> planes[3];
    velloran::FlareCanvas canvas;
};

}  // namespace velloran_tests
