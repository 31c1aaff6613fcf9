// Frames as a movie, in a file that the caller opened and names when it is whole.
#include "hosts/pictures/movie.h"
#include "hosts/pictures/picture.h"

extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>

namespace spark_host {
namespace {

// What each container is written with unless an encoder is named. The first encoder that this machine has is taken.
struct Container {
    const char* ending;
    const char* format;
    const char* encoders[3];
};
constexpr Container containers[] = {
    {"mov", "mov", {"prores_ks", "mjpeg", nullptr}},
    {"mkv", "matroska", {"ffv1", nullptr, nullptr}},
    {"mp4", "mp4", {"libx264", "mpeg4", nullptr}},
};

const Container* container_of(const std::string& path) {
    const size_t dot = path.rfind('.');
    std::string ending = dot == std::string::npos ? "" : path.substr(dot + 1);
    for (char& c : ending) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    for (const Container& container : containers)
        if (ending == container.ending) return &container;
    return nullptr;
}

// Null, and the reason in *error, if there is none.
const AVCodec* find_encoder(const std::string& path, const std::string& codec, std::string* error) {
    const Container* const container = container_of(path);
    const AVCodec* encoder = nullptr;
    if (container && !codec.empty()) encoder = avcodec_find_encoder_by_name(codec.c_str());
    if (container && codec.empty())
        for (const char* name : container->encoders)
            if (name && !encoder) encoder = avcodec_find_encoder_by_name(name);
    if (!encoder || encoder->type != AVMEDIA_TYPE_VIDEO) {
        *error = path + ": there is no encoder " + (codec.empty() ? "for it" : "'" + codec + "'") + " here";
        return nullptr;
    }
    const AVOutputFormat* const format = av_guess_format(container->format, nullptr, nullptr);
    if (format && avformat_query_codec(format, encoder->id, FF_COMPLIANCE_NORMAL) != 0) return encoder;
    *error = path + ": " + container->ending + " files hold no " + avcodec_get_name(encoder->id);
    return nullptr;
}

struct FreeScaler {
    void operator()(SwsContext* scaler) const { sws_freeContext(scaler); }
};
struct FreeOutput {
    void operator()(AVFormatContext* context) const {
        if (context->pb) {
            av_freep(&context->pb->buffer);
            avio_context_free(&context->pb);
        }
        avformat_free_context(context);
    }
};

int write_bytes(void* opaque, uint8_t* bytes, int size) {
    const int file = *static_cast<const int*>(opaque);
    for (int at = 0; at < size;) {
        const ssize_t n = write(file, bytes + at, static_cast<size_t>(size - at));
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return AVERROR(errno);
        at += static_cast<int>(n);
    }
    return size;
}

// Some containers read back what they wrote.
int read_bytes(void* opaque, uint8_t* bytes, int size) {
    const ssize_t n = read(*static_cast<const int*>(opaque), bytes, static_cast<size_t>(size));
    return n < 0 ? AVERROR(errno) : n == 0 ? AVERROR_EOF : static_cast<int>(n);
}

int64_t seek_bytes(void* opaque, int64_t to, int whence) {
    const int file = *static_cast<const int*>(opaque);
    if (whence == AVSEEK_SIZE) {
        const off_t now = lseek(file, 0, SEEK_CUR), size = lseek(file, 0, SEEK_END);
        lseek(file, now, SEEK_SET);
        return size;
    }
    const off_t at = lseek(file, static_cast<off_t>(to), whence & ~AVSEEK_FORCE);
    return at < 0 ? AVERROR(errno) : at;
}

// 23.976 and the like stand for thousands over 1001.
AVRational rate_of(float rate) {
    const double near = std::round(static_cast<double>(rate) * 1.001);
    if (std::abs(near * 1000 / 1001 - static_cast<double>(rate)) < 0.004 && std::abs(std::round(rate) - rate) > 0.004f)
        return {static_cast<int>(near) * 1000, 1001};
    return av_d2q(static_cast<double>(rate), 100000);
}

AVPixelFormat choose_format(const AVCodec& encoder, const FrameFormat& format, bool alpha) {
    const AVPixelFormat from = format.depth == SPARK_DEPTH_8 ? (alpha ? AV_PIX_FMT_RGBA : AV_PIX_FMT_RGB24)
                                                             : (alpha ? AV_PIX_FMT_RGBA64 : AV_PIX_FMT_RGB48);
    if (!encoder.pix_fmts) return from;
    const std::string name = encoder.name;
    // What other programs expect of these; the last is for sizes whose halves are no whole pixels.
    if (name == "libx264" || name == "mpeg4" || name == "libx265")
        return (format.width | format.height) % 2 && name != "mpeg4" ? AV_PIX_FMT_YUV444P : AV_PIX_FMT_YUV420P;
    if (name == "prores_ks") return alpha ? AV_PIX_FMT_YUVA444P10 : AV_PIX_FMT_YUV422P10;
    if (name == "ffv1")  // without loss
        return format.depth == SPARK_DEPTH_8 ? (alpha ? AV_PIX_FMT_BGRA : AV_PIX_FMT_BGR0)
                                             : (alpha ? AV_PIX_FMT_GBRAP16 : AV_PIX_FMT_GBRP16);
    return avcodec_find_best_pix_fmt_of_list(encoder.pix_fmts, from, alpha, nullptr);
}

void choose_quality(const AVCodec& encoder, bool alpha, AVCodecContext& codec) {
    const std::string name = encoder.name;
    if (name == "prores_ks") av_opt_set_int(codec.priv_data, "profile", alpha ? 4 : 3, 0);
    if (name == "ffv1") {
        codec.level = 3;
        codec.slices = 4;
        av_opt_set_int(codec.priv_data, "slicecrc", 1, 0);  // so that damage is found
    }
    if (name == "libx264" || name == "libx265") av_opt_set(codec.priv_data, "crf", "14", 0);
    if (name == "mpeg4" || name == "mjpeg") {
        codec.flags |= AV_CODEC_FLAG_QSCALE;
        codec.global_quality = 2 * FF_QP2LAMBDA;
    }
}

}  // namespace

struct MovieWriter {
    std::string path;
    int file = -1;
    FrameFormat format;
    bool alpha = false;
    std::unique_ptr<AVFormatContext, FreeOutput> container;
    LibavPtr<AVCodecContext> codec;
    std::unique_ptr<SwsContext, FreeScaler> scaler;
    LibavPtr<AVFrame> frame;
    LibavPtr<AVPacket> packet;
    int64_t frames = 0;
};

namespace {

bool fail(const MovieWriter& writer, int status, std::string* error) {
    *error = writer.path + ": " + libav_text(status);
    return false;
}

// Takes all packets that the encoder has ready.
int write_packets(MovieWriter& writer) {
    while (true) {
        int status = avcodec_receive_packet(writer.codec.get(), writer.packet.get());
        if (status == AVERROR(EAGAIN) || status == AVERROR_EOF) return 0;
        if (status < 0) return status;
        AVStream* const stream = writer.container->streams[0];
        // Formats that say how long a frame stands would not know it of the last one.
        if (writer.packet->duration == 0) writer.packet->duration = 1;
        av_packet_rescale_ts(writer.packet.get(), writer.codec->time_base, stream->time_base);
        writer.packet->stream_index = 0;
        status = av_interleaved_write_frame(writer.container.get(), writer.packet.get());
        if (status < 0) return status;
        if (writer.container->pb->error < 0) return writer.container->pb->error;
    }
}

int open_encoder(MovieWriter& writer, const MovieRequest& request, const AVCodec& encoder, AVPixelFormat stored) {
    writer.codec.reset(avcodec_alloc_context3(&encoder));
    if (!writer.codec) return AVERROR(ENOMEM);
    AVCodecContext& codec = *writer.codec;
    const AVRational rate = rate_of(request.frame_rate);
    codec.width = request.format.width;
    codec.height = request.format.height;
    codec.pix_fmt = stored;
    codec.framerate = rate;
    codec.time_base = av_inv_q(rate);
    codec.sample_aspect_ratio = av_d2q(static_cast<double>(request.pixel_ratio), 10000);
    codec.thread_count = 0;
    const AVPixFmtDescriptor* const kind = av_pix_fmt_desc_get(stored);
    if (!(kind->flags & AV_PIX_FMT_FLAG_RGB)) {
        const bool full = std::strncmp(kind->name, "yuvj", 4) == 0;
        codec.colorspace = AVCOL_SPC_BT709;
        codec.color_range = full ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
    }
    if (writer.container->oformat->flags & AVFMT_GLOBALHEADER) codec.flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    choose_quality(encoder, writer.alpha, codec);
    return avcodec_open2(&codec, &encoder, nullptr);
}

int open_scaler(MovieWriter& writer, AVPixelFormat from, AVPixelFormat stored) {
    writer.frame.reset(av_frame_alloc());
    writer.packet.reset(av_packet_alloc());
    if (!writer.frame || !writer.packet) return AVERROR(ENOMEM);
    writer.frame->width = writer.format.width;
    writer.frame->height = writer.format.height;
    writer.frame->format = stored;
    const int status = av_frame_get_buffer(writer.frame.get(), 64);
    if (status < 0) return status;
    writer.scaler.reset(sws_getContext(
        writer.format.width, writer.format.height, from, writer.format.width, writer.format.height, stored,
        SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT | SWS_FULL_CHR_H_INP, nullptr, nullptr, nullptr));
    if (!writer.scaler) return AVERROR(ENOMEM);
    if (!(av_pix_fmt_desc_get(stored)->flags & AV_PIX_FMT_FLAG_RGB)) {
        const int* const matrix = sws_getCoefficients(SWS_CS_ITU709);
        sws_setColorspaceDetails(writer.scaler.get(), matrix, 1, matrix, writer.codec->color_range == AVCOL_RANGE_JPEG,
                                 0, 1 << 16, 1 << 16);
    }
    return 0;
}

int open_container_file(MovieWriter& writer, const MovieRequest& request) {
    AVStream* const stream = avformat_new_stream(writer.container.get(), nullptr);
    constexpr int buffer_size = 1 << 18;
    auto* const buffer = static_cast<unsigned char*>(av_malloc(buffer_size));
    if (!stream || !buffer) {
        av_free(buffer);
        return AVERROR(ENOMEM);
    }
    writer.container->pb =
        avio_alloc_context(buffer, buffer_size, 1, &writer.file, read_bytes, write_bytes, seek_bytes);
    if (!writer.container->pb) {
        av_free(buffer);
        return AVERROR(ENOMEM);
    }
    stream->time_base = writer.codec->time_base;
    stream->avg_frame_rate = writer.codec->framerate;
    stream->sample_aspect_ratio = writer.codec->sample_aspect_ratio;
    const int status = avcodec_parameters_from_context(stream->codecpar, writer.codec.get());
    if (status < 0) return status;
    if (!request.recipe.empty()) av_dict_set(&writer.container->metadata, "comment", request.recipe.c_str(), 0);
    return avformat_write_header(writer.container.get(), nullptr);
}

}  // namespace

bool check_encoder(const std::string& path, const std::string& codec, std::string* error) {
    return find_encoder(path, codec, error) != nullptr;
}

MovieWriter* open_movie_writer(const MovieRequest& request, std::vector<std::string>& losses, std::string* error) {
    quieten_libav();
    auto writer = std::make_unique<MovieWriter>();
    writer->path = request.path;
    writer->file = request.descriptor;
    writer->format = request.format;
    const Container* const container = container_of(request.path);
    const AVCodec* const encoder = find_encoder(request.path, request.codec, error);
    if (!encoder) return nullptr;
    AVFormatContext* made = nullptr;
    int status = avformat_alloc_output_context2(&made, nullptr, container->format, nullptr);
    writer->container.reset(made);
    const bool alpha = request.from && alpha_p(*request.from);
    const AVPixelFormat stored = choose_format(*encoder, request.format, alpha);
    const AVPixFmtDescriptor* const kind = av_pix_fmt_desc_get(stored);
    if (status >= 0 && !kind) status = AVERROR(EINVAL);
    if (status >= 0) {
        writer->alpha = alpha && (kind->flags & AV_PIX_FMT_FLAG_ALPHA);
        if (alpha && !writer->alpha) losses.push_back(std::string(encoder->name) + " keeps no alpha");
        const int bits = request.format.depth == SPARK_DEPTH_8 ? 8 : request.format.depth == SPARK_DEPTH_10 ? 10 : 12;
        if (kind->comp[0].depth < bits)
            losses.push_back(std::string(encoder->name) + " keeps " + std::to_string(kind->comp[0].depth) +
                             " bits of a sample, the frames have " + std::to_string(bits));
        status = open_encoder(*writer, request, *encoder, stored);
    }
    if (status >= 0) {
        const bool deep = request.format.depth != SPARK_DEPTH_8;
        status = open_scaler(*writer,
                             deep ? (writer->alpha ? AV_PIX_FMT_RGBA64 : AV_PIX_FMT_RGB48)
                                  : (writer->alpha ? AV_PIX_FMT_RGBA : AV_PIX_FMT_RGB24),
                             stored);
    }
    if (status >= 0) status = open_container_file(*writer, request);
    if (status >= 0) return writer.release();
    *error = request.path + ": " + encoder->name + " cannot write " + std::to_string(request.format.width) + "x" +
             std::to_string(request.format.height) + ": " + libav_text(status);
    return nullptr;
}

bool add_movie_frame(MovieWriter& writer, const void* frame, const Picture* from, std::string* error) {
    WriteRequest request;
    request.from = from;
    request.format = writer.format;
    request.frame = frame;
    const Bytes pixels = compose_plain(request, writer.alpha);
    int status = av_frame_make_writable(writer.frame.get());
    if (status < 0) return fail(writer, status, error);
    const int channels = writer.alpha ? 4 : 3;
    const uint8_t* const planes[4] = {pixels.data()};
    const int strides[4] = {writer.format.width * channels * writer.format.sample_bytes()};
    if (sws_scale(writer.scaler.get(), planes, strides, 0, writer.format.height, writer.frame->data,
                  writer.frame->linesize) != writer.format.height)
        return fail(writer, AVERROR_EXTERNAL, error);
    writer.frame->pts = writer.frames++;
    writer.frame->quality = writer.codec->global_quality;
    status = avcodec_send_frame(writer.codec.get(), writer.frame.get());
    if (status >= 0) status = write_packets(writer);
    return status >= 0 || fail(writer, status, error);
}

bool finish_movie(MovieWriter& writer, std::string* error) {
    int status = avcodec_send_frame(writer.codec.get(), nullptr);
    if (status >= 0) status = write_packets(writer);
    if (status >= 0) status = av_write_trailer(writer.container.get());
    if (status >= 0) avio_flush(writer.container->pb);
    if (status >= 0) status = writer.container->pb->error;
    return status >= 0 || fail(writer, status, error);
}

void close_movie_writer(MovieWriter* writer) { delete writer; }

bool write_yuv_frame(const WriteRequest& request, int bits, Bytes& to, std::string* error) {
    quieten_libav();
    const int width = request.format.width, height = request.format.height;
    const AVPixelFormat from = bits > 8 ? AV_PIX_FMT_RGB48 : AV_PIX_FMT_RGB24;
    const AVPixelFormat stored = bits == 8    ? AV_PIX_FMT_YUV444P
                                 : bits == 10 ? AV_PIX_FMT_YUV444P10LE
                                              : AV_PIX_FMT_YUV444P12LE;
    const Bytes pixels = compose_plain(request, false);
    const std::unique_ptr<SwsContext, decltype(&sws_freeContext)> scaler(
        sws_getContext(width, height, from, width, height, stored, SWS_BICUBIC | SWS_ACCURATE_RND, nullptr, nullptr,
                       nullptr),
        sws_freeContext);
    const size_t start = to.size();
    to.resize(start + static_cast<size_t>(width) * static_cast<size_t>(height) * 3 * (bits > 8 ? 2 : 1));
    uint8_t* planes[4] = {};
    int strides[4] = {};
    const uint8_t* const in[4] = {pixels.data()};
    const int in_strides[4] = {width * 3 * (bits > 8 ? 2 : 1)};
    if (!scaler || av_image_fill_arrays(planes, strides, to.data() + start, stored, width, height, 1) < 0) {
        *error = "cannot be turned into video's colours";
        return false;
    }
    sws_setColorspaceDetails(scaler.get(), sws_getCoefficients(SWS_CS_DEFAULT), 1, usual_matrix(width, height), 0, 0,
                             1 << 16, 1 << 16);
    if (sws_scale(scaler.get(), in, in_strides, 0, height, planes, strides) == height) return true;
    *error = "cannot be turned into video's colours";
    return false;
}

}  // namespace spark_host
