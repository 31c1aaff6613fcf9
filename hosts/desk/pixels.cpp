#include "hosts/desk/pixels.h"

#include "hosts/common/task_pool.h"

#include <algorithm>

namespace desk {

using spark_host::FrameFormat;

namespace {

struct Conversion {
    const void* frame;
    FrameFormat format;
    QRect area;
    int step;
    bool quick;
    uchar* out;
    qsizetype out_stride;
    int width, height;
};
Conversion conversion;  // of the fork that runs

unsigned to_byte(unsigned char sample) { return sample; }
unsigned to_byte(unsigned short sample) { return sample >> 8; }

constexpr QRgb pixel(unsigned red, unsigned green, unsigned blue) {
    return 0xff000000u | (red << 16) | (green << 8) | blue;
}

template <class Sample>
void convert_row(const Conversion& c, int row) {
    const auto* const frame = static_cast<const Sample*>(c.frame);
    auto* const out = reinterpret_cast<QRgb*>(c.out + c.out_stride * row);
    const long stride = 3L * c.format.width;
    // Rows of the host begin at the bottom.
    const auto line = [&](int y) { return frame + stride * (c.format.height - 1 - y); };
    const int top = c.area.top() + row * c.step;
    if (c.step == 1 || c.quick) {
        const Sample* in = line(std::min(top + c.step / 2, c.area.bottom())) + 3L * c.area.left();
        const int middle = 3 * (c.step / 2);
        for (int x = 0; x < c.width; x++) {
            const Sample* const p = x == c.width - 1 ? in : in + middle;
            out[x] = pixel(to_byte(p[0]), to_byte(p[1]), to_byte(p[2]));
            in += 3 * c.step;
        }
        return;
    }
    const int bottom = std::min(top + c.step, c.area.bottom() + 1);
    for (int x = 0; x < c.width; x++) {
        const int left = c.area.left() + x * c.step, right = std::min(left + c.step, c.area.right() + 1);
        unsigned sum[3] = {0, 0, 0};
        for (int y = top; y < bottom; y++) {
            const Sample* p = line(y) + 3L * left;
            for (int i = left; i < right; i++, p += 3)
                for (int channel = 0; channel < 3; channel++) sum[channel] += to_byte(p[channel]);
        }
        const unsigned n = static_cast<unsigned>((bottom - top) * (right - left));
        out[x] = pixel((sum[0] + n / 2) / n, (sum[1] + n / 2) / n, (sum[2] + n / 2) / n);
    }
}

void convert_share() {
    const Conversion& c = conversion;
    const int tasks = spark_host::pool_task_count(), task = spark_host::pool_task_index();
    const int first = c.height * task / tasks, end = c.height * (task + 1) / tasks;
    for (int row = first; row < end; row++) {
        if (c.format.sample_bytes() == 1)
            convert_row<unsigned char>(c, row);
        else
            convert_row<unsigned short>(c, row);
    }
}

}  // namespace

QImage image_of_frame(const void* frame, const FrameFormat& format, QRect area, int step, bool quick, int tasks) {
    area = area.intersected(QRect(0, 0, format.width, format.height));
    if (!frame || area.isEmpty() || step < 1) return {};
    QImage image((area.width() + step - 1) / step, (area.height() + step - 1) / step, QImage::Format_RGB32);
    if (image.isNull()) return image;
    conversion = {frame, format, area, step, quick, image.bits(), image.bytesPerLine(), image.width(), image.height()};
    spark_host::pool_run(convert_share, tasks);
    return image;
}

int white_code(const FrameFormat& format) {
    return format.depth == SPARK_DEPTH_8 ? 255 : format.depth == SPARK_DEPTH_10 ? 1023 : 4095;
}

int code_of_sample(const void* frame, const FrameFormat& format, int x, int y, int channel) {
    const long at = 3 * (static_cast<long>(y) * format.width + x) + channel;
    if (format.depth == SPARK_DEPTH_8) return static_cast<const unsigned char*>(frame)[at];
    return static_cast<const unsigned short*>(frame)[at] >> (format.depth == SPARK_DEPTH_10 ? 6 : 4);
}

void shrink_frame(const void* frame, const FrameFormat& format, const FrameFormat& small, unsigned char* dest) {
    for (int y = 0; y < small.height; y++) {
        const int bottom = static_cast<int>(static_cast<long>(y) * format.height / small.height);
        const int top = std::max(bottom + 1, static_cast<int>(static_cast<long>(y + 1) * format.height / small.height));
        for (int x = 0; x < small.width; x++) {
            const int left = static_cast<int>(static_cast<long>(x) * format.width / small.width);
            const int right =
                std::max(left + 1, static_cast<int>(static_cast<long>(x + 1) * format.width / small.width));
            // A few samples of each cell do for a picture of this size.
            const int dx = std::max(1, (right - left) / 4), dy = std::max(1, (top - bottom) / 4);
            long sum[3] = {0, 0, 0}, n = 0;
            for (int j = bottom; j < std::min(top, format.height); j += dy)
                for (int i = left; i < std::min(right, format.width); i += dx, n++)
                    for (int channel = 0; channel < 3; channel++)
                        sum[channel] += code_of_sample(frame, format, i, j, channel);
            for (const long total : sum)
                *dest++ = static_cast<unsigned char>(n ? total * 255 / (n * white_code(format)) : 0);
        }
    }
}

}  // namespace desk
