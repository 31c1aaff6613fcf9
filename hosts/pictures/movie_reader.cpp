// Frames of a movie, any of them in any order, each whole or not at all: what a decoder would make up for damaged data
// is never shown. A frame is found by its time, so it is the same however it is come by.
#include "hosts/pictures/movie.h"
#include "hosts/pictures/picture.h"

extern "C" {
#include <libavutil/display.h>
#include <libavutil/imgutils.h>
#include <libavutil/pixdesc.h>
#include <libavutil/timecode.h>
#include <libswscale/swscale.h>
}

#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <map>
#include <mutex>
#include <set>
#include <thread>

namespace spark_host {
namespace {

// A decoder at some place of the file.
struct Decoder {
    LibavPtr<AVFormatContext> container;
    LibavPtr<AVCodecContext> codec;
    std::atomic<int> complaints{0};  // errors that the decoder told of
    size_t next_packet = 0;          // in the file's order; unknown_place after a jump
    size_t next_frame = 0;           // without times: number of the frame that comes out next
    int64_t first_time = INT64_MIN;  // frames shown before it lean on what was jumped over
    int64_t last_time = INT64_MIN;   // of what came out
    std::set<size_t> bad;            // packets that did not decode whole, but those that nothing leans on
    std::set<size_t> bad_alone;      // and those
    bool drained = false;
};
constexpr size_t unknown_place = SIZE_MAX;

struct OpenMovie {
    std::mutex mutex;
    struct stat file = {};
    MovieIndex index;
    std::string failure;  // why there is no index
    std::unique_ptr<Decoder> decoder;
    // Frames that came out on the way to another one, for they are asked for next.
    std::map<int64_t, LibavPtr<AVFrame>> kept;
};

constexpr size_t most_kept = 20;

std::shared_ptr<OpenMovie> open_movie(const std::string& path) {
    static std::mutex mutex;
    static std::map<std::string, std::shared_ptr<OpenMovie>> movies;
    const std::lock_guard lock(mutex);
    auto& movie = movies[path];
    if (!movie) movie = std::make_shared<OpenMovie>();
    return movie;
}

// Counts what a decoder complains about, which also happens where it goes on with a guess.
void count_complaints(void* about, int level, const char*, va_list) {
    if (level > AV_LOG_ERROR || !about) return;
    const AVClass* const kind = *static_cast<AVClass**>(about);
    if (!kind || std::strcmp(kind->class_name, "AVCodecContext") != 0) return;
    if (void* const decoder = static_cast<AVCodecContext*>(about)->opaque) static_cast<Decoder*>(decoder)->complaints++;
}

bool open_decoder(const std::string& path, OpenMovie& movie, std::string* error) {
    movie.kept.clear();
    auto decoder = std::make_unique<Decoder>();
    int number = -1;
    decoder->container = open_container(path, number, error);
    if (!decoder->container) return false;
    const AVStream& stream = *decoder->container->streams[number];
    const AVCodec* const kind = avcodec_find_decoder(stream.codecpar->codec_id);
    if (!kind) {
        *error = std::string("no decoder for ") + avcodec_get_name(stream.codecpar->codec_id);
        return false;
    }
    decoder->codec.reset(avcodec_alloc_context3(kind));
    AVCodecContext* const codec = decoder->codec.get();
    int status = codec ? avcodec_parameters_to_context(codec, stream.codecpar) : AVERROR(ENOMEM);
    if (status >= 0) {
        codec->opaque = decoder.get();
        codec->pkt_timebase = stream.time_base;
        codec->err_recognition = AV_EF_CRCCHECK | AV_EF_BITSTREAM | AV_EF_BUFFER | AV_EF_EXPLODE;
        // Tasks that work on one picture: what is told about it is then told at once.
        codec->thread_type = FF_THREAD_SLICE;
        codec->thread_count = static_cast<int>(std::clamp(std::thread::hardware_concurrency(), 1u, 16u));
        status = avcodec_open2(codec, kind, nullptr);
    }
    if (status < 0) {
        *error = libav_text(status);
        return false;
    }
    movie.decoder = std::move(decoder);
    return true;
}

// Goes to a packet that a decoder can begin with, or to one before it. Where the container cannot, the file is begun
// anew.
bool go_to(const std::string& path, OpenMovie& movie, size_t packet, std::string* error) {
    if (!movie.decoder || packet == 0 || !movie.index.timed) return open_decoder(path, movie, error);
    Decoder& decoder = *movie.decoder;
    if (av_seek_frame(decoder.container.get(), movie.index.stream, movie.index.seek_times[packet],
                      AVSEEK_FLAG_BACKWARD) < 0)
        return open_decoder(path, movie, error);
    avcodec_flush_buffers(decoder.codec.get());
    movie.kept.clear();
    decoder.next_packet = unknown_place;
    decoder.last_time = INT64_MIN;
    decoder.bad.clear();
    decoder.bad_alone.clear();
    decoder.drained = false;
    return true;
}

bool damaged_p(const AVFrame& frame) {
    return frame.decode_error_flags != 0 || (frame.flags & (AV_FRAME_FLAG_CORRUPT | AV_FRAME_FLAG_DISCARD)) != 0;
}

// A packet's place is known by its time, which tells where a jump has led.
void find_place(const MovieIndex& index, const AVPacket& packet, Decoder& decoder) {
    if (!index.timed) return;
    if (decoder.next_packet < index.times.size() && index.times[decoder.next_packet] == packet.pts) return;
    const auto at = std::find(index.times.begin(), index.times.end(), packet.pts);
    if (decoder.next_packet == unknown_place) decoder.first_time = packet.pts;
    decoder.next_packet = static_cast<size_t>(at - index.times.begin());
}

// Hands the next packet to the decoder; at the end of the file its word that there are no more. False if that was done
// before.
bool feed(OpenMovie& movie, AVPacket* packet, int& status) {
    Decoder& decoder = *movie.decoder;
    do {
        av_packet_unref(packet);
        status = av_read_frame(decoder.container.get(), packet);
    } while (status >= 0 && packet->stream_index != movie.index.stream);
    if (status < 0) {
        if (decoder.drained) return false;
        decoder.drained = true;
        avcodec_send_packet(decoder.codec.get(), nullptr);
        return true;
    }
    // What is not shown still has to be decoded where later pictures lean on it.
    const bool shown = !(packet->flags & AV_PKT_FLAG_DISCARD);
    if (shown) find_place(movie.index, *packet, decoder);
    const int complaints = decoder.complaints;
    status = avcodec_send_packet(decoder.codec.get(), packet);
    if (status < 0 || (packet->flags & AV_PKT_FLAG_CORRUPT) || decoder.complaints != complaints)
        (packet->flags & AV_PKT_FLAG_DISPOSABLE ? decoder.bad_alone : decoder.bad).insert(decoder.next_packet);
    av_packet_unref(packet);
    if (shown) decoder.next_packet++;
    return true;
}

// Takes all frames that the decoder has ready.
int take_frames(OpenMovie& movie) {
    Decoder& decoder = *movie.decoder;
    while (true) {
        LibavPtr<AVFrame> frame(av_frame_alloc());
        if (!frame) return AVERROR(ENOMEM);
        const int complaints = decoder.complaints;
        const int status = avcodec_receive_frame(decoder.codec.get(), frame.get());
        const bool ready = status != AVERROR(EAGAIN) && status != AVERROR_EOF;
        if (decoder.next_packet > 0 && (decoder.complaints != complaints || (ready && status < 0)))
            decoder.bad.insert(decoder.next_packet - 1);
        if (status == AVERROR(ENOMEM)) return status;
        if (status < 0) return 0;
        const int64_t time =
            movie.index.timed ? frame->best_effort_timestamp : static_cast<int64_t>(decoder.next_frame++);
        if (time < decoder.first_time) continue;
        decoder.last_time = std::max(decoder.last_time, time);
        movie.kept[time] = std::move(frame);
        if (movie.kept.size() > most_kept) movie.kept.erase(movie.kept.begin());
    }
}

// The frame as its decoder gives it; null if it is not whole.
LibavPtr<AVFrame> decode(const std::string& path, OpenMovie& movie, size_t number, std::string* error) {
    const MovieFrame& wanted = movie.index.frames[number];
    if (!wanted.there || wanted.damaged) {
        *error = wanted.damaged ? "is damaged in the file" : "is missing: the file ends early or is damaged";
        return nullptr;
    }
    const LibavPtr<AVPacket> packet(av_packet_alloc());
    int status = packet ? 0 : AVERROR(ENOMEM);
    // On from where the decoder is, unless it has gone by, or a jump to the frame's own start is shorter.
    const Decoder* const at = movie.decoder.get();
    const bool on =
        at && wanted.time > at->last_time && at->next_packet != unknown_place && wanted.from <= at->next_packet;
    if (!on && !movie.kept.count(wanted.time) && !go_to(path, movie, wanted.from, error)) return nullptr;
    bool more = true;
    while (status != AVERROR(ENOMEM) && !movie.kept.count(wanted.time) && more) {
        more = feed(movie, packet.get(), status);
        if (status != AVERROR(ENOMEM)) status = take_frames(movie);
    }
    if (status == AVERROR(ENOMEM)) {
        *error = "out of memory";
        movie.decoder.reset();
        return nullptr;
    }
    const auto found = movie.kept.find(wanted.time);
    LibavPtr<AVFrame> frame;
    if (found != movie.kept.end()) frame = std::move(found->second);
    movie.kept.erase(movie.kept.begin(), movie.kept.upper_bound(wanted.time));
    // What came to the decoder after this frame does not touch it.
    const auto bad = movie.decoder->bad.lower_bound(wanted.from);
    const bool spoilt =
        (bad != movie.decoder->bad.end() && *bad <= wanted.packet) || movie.decoder->bad_alone.count(wanted.packet) > 0;
    if (frame && !damaged_p(*frame) && !spoilt) return frame;
    *error = "does not decode whole";
    return nullptr;
}

// The matrix between colours and what is stored; where a file does not say, it follows from the picture's size, as
// players take it. Null: one that cannot be undone here.
const int* matrix_of(const AVFrame& frame) {
    switch (frame.colorspace) {
        case AVCOL_SPC_UNSPECIFIED:
        case AVCOL_SPC_RESERVED:
            return usual_matrix(frame.width, frame.height);
        case AVCOL_SPC_BT709:
            return sws_getCoefficients(SWS_CS_ITU709);
        case AVCOL_SPC_FCC:
            return sws_getCoefficients(SWS_CS_FCC);
        case AVCOL_SPC_BT470BG:
        case AVCOL_SPC_SMPTE170M:
            return sws_getCoefficients(SWS_CS_ITU601);
        case AVCOL_SPC_SMPTE240M:
            return sws_getCoefficients(SWS_CS_SMPTE240M);
        case AVCOL_SPC_BT2020_NCL:
            return sws_getCoefficients(SWS_CS_BT2020);
        default:
            return nullptr;
    }
}

bool full_range_p(const AVFrame& frame) {
    switch (frame.format) {
        case AV_PIX_FMT_YUVJ411P:
        case AV_PIX_FMT_YUVJ420P:
        case AV_PIX_FMT_YUVJ422P:
        case AV_PIX_FMT_YUVJ440P:
        case AV_PIX_FMT_YUVJ444P:
            return true;
        default:
            return frame.color_range == AVCOL_RANGE_JPEG;
    }
}

bool fill_layer(const AVFrame& frame, Layer& layer, std::string* error) {
    const AVPixFmtDescriptor* const kind = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame.format));
    if (!kind || (kind->flags & AV_PIX_FMT_FLAG_HWACCEL) ||
        !sws_isSupportedInput(static_cast<AVPixelFormat>(frame.format))) {
        *error = "is stored in a way that cannot be read";
        return false;
    }
    const bool deep = kind->comp[0].depth > 8, alpha = (kind->flags & AV_PIX_FMT_FLAG_ALPHA) != 0;
    const bool colours = !(kind->flags & AV_PIX_FMT_FLAG_RGB) && kind->nb_components >= 3;
    const int* const matrix = matrix_of(frame);
    if (colours && !matrix) {
        *error = std::string("has colours of a kind that cannot be read: ") +
                 (av_color_space_name(frame.colorspace) ? av_color_space_name(frame.colorspace) : "unknown");
        return false;
    }
    const AVPixelFormat to =
        deep ? (alpha ? AV_PIX_FMT_RGBA64 : AV_PIX_FMT_RGB48) : (alpha ? AV_PIX_FMT_RGBA : AV_PIX_FMT_RGB24);
    const LibavPtr<AVFrame> rgb(av_frame_alloc());
    if (rgb) {
        rgb->width = frame.width, rgb->height = frame.height, rgb->format = to;
    }
    if (!rgb || av_frame_get_buffer(rgb.get(), 64) < 0) {
        *error = "out of memory";
        return false;
    }
    SwsContext* const scaler = sws_getContext(
        frame.width, frame.height, static_cast<AVPixelFormat>(frame.format), frame.width, frame.height, to,
        SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT | SWS_FULL_CHR_H_INP, nullptr, nullptr, nullptr);
    if (!scaler) {
        *error = "cannot be turned into colours";
        return false;
    }
    if (colours) {
        const int full = full_range_p(frame) ? 1 : 0;
        sws_setColorspaceDetails(scaler, matrix, full, sws_getCoefficients(SWS_CS_DEFAULT), 1, 0, 1 << 16, 1 << 16);
    }
    const int rows = sws_scale(scaler, frame.data, frame.linesize, 0, frame.height, rgb->data, rgb->linesize);
    sws_freeContext(scaler);
    if (rows != frame.height) {
        *error = "cannot be turned into colours";
        return false;
    }
    layer.spec = OIIO::ImageSpec(frame.width, frame.height, alpha ? 4 : 3,
                                 deep ? OIIO::TypeDesc::UINT16 : OIIO::TypeDesc::UINT8);
    layer.spec.attribute("oiio:UnassociatedAlpha", 1);
    layer.pixels.resize(layer.spec.image_bytes());
    const size_t row = layer.spec.scanline_bytes();
    for (int y = 0; y < frame.height; y++)
        std::memcpy(layer.pixels.data() + row * static_cast<size_t>(y),
                    rgb->data[0] + static_cast<ptrdiff_t>(rgb->linesize[0]) * y, row);
    return true;
}

// The frame's own time code, if the file has one for its first frame.
void add_timecode(const AVFormatContext& container, const AVStream& stream, size_t number, Layer& layer) {
    const AVDictionaryEntry* tag = av_dict_get(stream.metadata, "timecode", nullptr, 0);
    if (!tag) tag = av_dict_get(container.metadata, "timecode", nullptr, 0);
    const AVRational rate = stream.avg_frame_rate;
    if (rate.num > 0 && rate.den > 0) {
        const int values[2] = {rate.num, rate.den};
        layer.spec.attribute("FramesPerSecond", OIIO::TypeRational, values);
    }
    AVTimecode timecode = {};
    if (!tag || rate.num <= 0 || av_timecode_init_from_string(&timecode, rate, tag->value, nullptr) < 0) return;
    const unsigned value[2] = {av_timecode_get_smpte_from_framenum(&timecode, static_cast<int>(number)), 0};
    layer.spec.attribute("smpte:TimeCode", OIIO::TypeTimeCode, value);
}

bool same_file_p(const struct stat& a, const struct stat& b) {
    return a.st_ino == b.st_ino && a.st_dev == b.st_dev && a.st_size == b.st_size &&
           a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

// The index, made at the first call and again when the file has changed. The movie is locked by the caller.
bool ensure_index(const std::string& path, OpenMovie& movie, std::string* error) {
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0) {
        *error = std::strerror(errno);
        return false;
    }
    if (status.st_size == 0 || S_ISDIR(status.st_mode)) {
        *error = S_ISDIR(status.st_mode) ? std::strerror(EISDIR) : "the file is empty";
        return false;
    }
    if (!same_file_p(status, movie.file)) {
        movie.file = status;
        movie.index = MovieIndex();
        movie.decoder.reset();
        movie.kept.clear();
        movie.failure.clear();
        if (!index_movie(path, movie.index, &movie.failure)) movie.index = MovieIndex();
        if (movie.failure.find("out of memory") != std::string::npos) movie.file = {};
    }
    if (movie.failure.empty()) return true;
    *error = movie.failure;
    return false;
}

}  // namespace

std::string libav_text(int error) {
    if (error == AVERROR(ENOMEM)) return "out of memory";
    char text[AV_ERROR_MAX_STRING_SIZE] = "";
    return av_strerror(error, text, sizeof(text)) == 0 ? text : "cannot be read";
}

void quieten_libav() { av_log_set_callback(count_complaints); }

bool probe_movie(const std::string& path, PictureInfo& info, std::string* error) {
    const auto movie = open_movie(path);
    const std::lock_guard lock(movie->mutex);
    std::string cause;
    if (ensure_index(path, *movie, &cause)) {
        info = movie->index.info;
        const AVCodecParameters* codec = nullptr;
        if (movie->decoder || open_decoder(path, *movie, &cause))
            codec = movie->decoder->container->streams[movie->index.stream]->codecpar;
        if (codec) {
            const AVPixFmtDescriptor* const kind = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(codec->format));
            info.eight_bits = kind && kind->comp[0].depth <= 8;
            info.channels = kind && (kind->flags & AV_PIX_FMT_FLAG_ALPHA) ? 4 : 3;
            return true;
        }
    }
    if (error) *error = path + ": " + cause;
    return false;
}

PicturePtr read_movie_frame(const std::string& path, int number, std::string* error) {
    const auto movie = open_movie(path);
    const std::lock_guard lock(movie->mutex);
    std::string cause;
    const auto fail = [&](const std::string& text) {
        if (error) *error = path + ": " + text;
        return nullptr;
    };
    if (!ensure_index(path, *movie, &cause)) return fail(cause);
    const std::string name = "frame " + std::to_string(number + 1) + " ";
    if (number < 0 || static_cast<size_t>(number) >= movie->index.frames.size())
        return fail(name + "is beyond its end");
    const LibavPtr<AVFrame> frame = decode(path, *movie, static_cast<size_t>(number), &cause);
    if (!frame) return fail(name + cause);
    const PictureInfo& info = movie->index.info;
    if (frame->width != info.width || frame->height != info.height)
        return fail(name + "is " + std::to_string(frame->width) + "x" + std::to_string(frame->height) +
                    ", the movie is " + std::to_string(info.width) + "x" + std::to_string(info.height));
    auto picture = std::make_shared<LayeredPicture>();
    if (!fill_layer(*frame, picture->layers.emplace_back(), &cause)) return fail(name + cause);
    Layer& layer = picture->layers[0];
    add_timecode(*movie->decoder->container, *movie->decoder->container->streams[movie->index.stream],
                 static_cast<size_t>(number), layer);
    if (layer.spec.nchannels == 4) layer.spec.alpha_channel = 3;
    for (int i = 0; i < 3; i++) picture->colours[i] = i;
    picture->info = info;
    picture->info.eight_bits = layer.spec.format == OIIO::TypeDesc::UINT8;
    picture->info.channels = layer.spec.nchannels;
    return picture;
}

bool check_movie_whole(const std::string& path, std::string& recipe) {
    MovieIndex index;
    std::string error;
    if (!index_movie(path, index, &error)) return false;
    recipe = index.recipe;
    return std::all_of(index.frames.begin(), index.frames.end(),
                       [](const MovieFrame& frame) { return frame.there && !frame.damaged; });
}

const int* usual_matrix(int width, int height) {
    return sws_getCoefficients(height >= 720 || width >= 1280 ? SWS_CS_ITU709 : SWS_CS_ITU601);
}

PicturePtr read_yuv_frame(const YuvFormat& format, const PictureInfo& info, const void* planes, std::string* error) {
    quieten_libav();
    const std::string name = std::string(format.alpha ? "yuva" : "yuv") + "4" +
                             (format.across == 4   ? "11"
                              : format.across == 1 ? "44"
                              : format.down == 2   ? "20"
                                                   : "22") +
                             "p" + (format.bits > 8 ? std::to_string(format.bits) + "le" : "");
    const LibavPtr<AVFrame> frame(av_frame_alloc());
    if (!frame) {
        *error = "out of memory";
        return nullptr;
    }
    frame->format = av_get_pix_fmt(name.c_str());
    frame->width = format.width, frame->height = format.height;
    frame->color_range = format.full_range ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
    const int filled = av_image_fill_arrays(frame->data, frame->linesize, static_cast<const uint8_t*>(planes),
                                            static_cast<AVPixelFormat>(frame->format), format.width, format.height, 1);
    if (filled < 0) {
        *error = libav_text(filled);
        return nullptr;
    }
    auto picture = std::make_shared<LayeredPicture>();
    picture->info = info;
    if (!fill_layer(*frame, picture->layers.emplace_back(), error)) return nullptr;
    for (int i = 0; i < 3; i++) picture->colours[i] = i;
    return picture;
}

}  // namespace spark_host
