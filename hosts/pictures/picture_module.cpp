#include "hosts/pictures/movie.h"
#include "hosts/pictures/picture.h"

extern "C" __attribute__((visibility("default"))) const spark_host::PictureFunctions* velloran_picture_functions() {
    using namespace spark_host;
    static const PictureFunctions functions = {
        probe_picture,     read_picture,   picture_to_frame,   write_picture,
        nullptr,           nullptr,        check_encoder,      open_movie_writer,
        add_movie_frame,   finish_movie,   close_movie_writer, check_picture_whole,
        making_of_picture, read_yuv_frame, write_yuv_frame,
    };
    return &functions;
}
