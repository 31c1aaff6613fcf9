// Which frames a movie holds. Containers say how many there should be; what is not in the file, or cannot be told for
// sure to have the number that it seems to have, counts as missing, so that no frame ever shows another one's picture.
#include "hosts/pictures/movie.h"

extern "C" {
#include <libavutil/crc.h>
}

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace spark_host {
namespace {

constexpr uint64_t intact = UINT64_MAX;

constexpr const char* known_formats =
    "mov,mp4,m4a,3gp,3g2,mj2,matroska,webm,avi,mxf,mpegts,mpeg,mpegvideo,h264,hevc,m4v,flv,asf,ogg,nut,yuv4mpegpipe,dv,"
    "ivf,obu";
constexpr const char* movie_endings[] = {"mov",  "mp4", "m4v", "mkv", "webm", "avi", "mxf", "mpg", "mpeg", "ts", "mts",
                                         "m2ts", "flv", "wmv", "asf", "ogv",  "3gp", "nut", "y4m", "dv",   "ivf"};

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

uint64_t big_endian(const unsigned char* bytes, int n) {
    uint64_t value = 0;
    for (int i = 0; i < n; i++) value = value << 8 | bytes[i];
    return value;
}

// A chain of boxes with their sizes in front: the last one must end with the file.
bool boxes_end_early(std::FILE* file, uint64_t size) {
    uint64_t at = 0;
    while (at + 8 <= size) {
        unsigned char head[16] = {};
        if (fseeko(file, static_cast<off_t>(at), SEEK_SET) != 0 || std::fread(head, 1, 8, file) != 8) return true;
        uint64_t box = big_endian(head, 4);
        if (box == 0) return false;  // to the end of the file, wherever that is
        if (box == 1) {
            if (std::fread(head + 8, 1, 8, file) != 8) return true;
            box = big_endian(head + 8, 8);
        }
        if (box < 8 || box > size - at) return true;
        at += box;
    }
    return at != size;
}

// An element's length: its first byte says how many bytes it takes. All ones: unknown.
bool read_length(const unsigned char* bytes, size_t n, uint64_t& length, size_t& taken) {
    if (n < 1 || bytes[0] == 0) return false;
    taken = 1;
    while (!(bytes[0] & (0x80 >> (taken - 1)))) taken++;
    if (taken > n) return false;
    length = bytes[0] & (0xffu >> taken);
    bool unknown = length == (0xffu >> taken);
    for (size_t i = 1; i < taken; i++) {
        length = length << 8 | bytes[i];
        unknown = unknown && bytes[i] == 0xff;
    }
    if (unknown) length = UINT64_MAX;
    return true;
}

// Elements that may stand in a segment and in a cluster; others mean that the file is damaged.
constexpr uint32_t segment_elements[] = {0x114d9b74, 0x1549a966, 0x1654ae6b, 0x1f43b675, 0x1c53bb6b,
                                         0x1043a770, 0x1254c367, 0x1941a469, 0xec,       0xbf};
constexpr uint32_t cluster_elements[] = {0xe7, 0x5854, 0xa7, 0xab, 0xa3, 0xa0, 0xaf, 0xec, 0xbf};
constexpr uint32_t cluster_element = 0x1f43b675, segment_element = 0x18538067;
constexpr uint64_t most_checked = uint64_t{1} << 28;  // of one element at a time

struct Element {
    uint32_t id = 0;
    uint64_t start = 0, size = 0;  // of what is in it
};

bool read_element(std::FILE* file, uint64_t at, uint64_t end, Element& element) {
    unsigned char head[12] = {};
    if (at >= end || fseeko(file, static_cast<off_t>(at), SEEK_SET) != 0) return false;
    const size_t n = std::fread(head, 1, std::min<uint64_t>(sizeof(head), end - at), file);
    size_t id_bytes = 1, taken = 0;
    while (id_bytes < 5 && !(head[0] & (0x80 >> (id_bytes - 1)))) id_bytes++;
    if (id_bytes > 4 || n <= id_bytes || !read_length(head + id_bytes, n - id_bytes, element.size, taken)) return false;
    element.id = static_cast<uint32_t>(big_endian(head, static_cast<int>(id_bytes)));
    element.start = at + id_bytes + taken;
    return element.size <= end - element.start;
}

template <size_t n>
bool one_of(const uint32_t (&known)[n], uint32_t id) {
    return std::find(known, known + n, id) != known + n;
}

// Many writers put a sum in front of what is in an element.
bool sum_fits(std::FILE* file, const Element& element) {
    if (element.size < 6 || element.size > most_checked) return true;
    std::vector<unsigned char> bytes(element.size);
    if (fseeko(file, static_cast<off_t>(element.start), SEEK_SET) != 0 ||
        std::fread(bytes.data(), 1, bytes.size(), file) != bytes.size())
        return false;
    if (bytes[0] != 0xbf || bytes[1] != 0x84) return true;
    const uint32_t sum = av_crc(av_crc_get_table(AV_CRC_32_IEEE_LE), UINT32_MAX, bytes.data() + 6, bytes.size() - 6);
    return (sum ^ UINT32_MAX) == (bytes[2] | bytes[3] << 8 | bytes[4] << 16 | static_cast<uint32_t>(bytes[5]) << 24);
}

// The first element of a cluster, up to end, that cannot be read; end if all can.
uint64_t damage_in_cluster(std::FILE* file, const Element& cluster, uint64_t end) {
    Element element;
    uint64_t at = cluster.start;
    for (; at < end; at = element.start + element.size)
        if (!read_element(file, at, end, element) || !one_of(cluster_elements, element.id)) break;
    return at;
}

// Where a chain of elements is damaged or cut off; intact if nowhere. 0: what describes the movie is damaged.
uint64_t damage_in_elements(std::FILE* file, uint64_t size) {
    Element head, segment, element;
    if (!read_element(file, 0, size, head)) return 0;
    const uint64_t behind = head.start + head.size;
    unsigned char unknown[16] = {};
    if (!read_element(file, behind, size, segment)) {
        // Cut off, or of unknown length, as what is written to a pipe is: then there is no telling.
        const bool read = fseeko(file, static_cast<off_t>(behind), SEEK_SET) == 0 &&
                          std::fread(unknown, 1, sizeof(unknown), file) == sizeof(unknown);
        uint64_t length = 0;
        size_t taken = 0;
        if (!read || big_endian(unknown, 4) != segment_element || !read_length(unknown + 4, 12, length, taken))
            return 0;
        if (length == UINT64_MAX) return intact;
        segment.start = behind + 4 + taken;
        segment.size = length;
    }
    const uint64_t end = segment.start + segment.size;
    for (uint64_t at = segment.start; at < end; at = element.start + element.size) {
        element = Element();
        const bool whole = at < size && read_element(file, at, std::min(end, size), element);
        // A cluster that the file ends in is good up to there.
        if (!whole && element.id == cluster_element && element.start < size && element.size > size - element.start)
            return damage_in_cluster(file, element, size);
        if (!whole || !one_of(segment_elements, element.id)) return at;
        const uint64_t inside = element.start + element.size;
        if (element.id == cluster_element &&
            (damage_in_cluster(file, element, inside) != inside || !sum_fits(file, element)))
            return at;
        if (element.id != cluster_element && !sum_fits(file, element)) return 0;
    }
    return intact;
}

bool riff_ends_early(std::FILE* file, uint64_t size) {
    unsigned char head[8] = {};
    std::rewind(file);
    if (std::fread(head, 1, 8, file) != 8) return true;
    uint64_t length = 0;
    for (int i = 7; i >= 4; i--) length = length << 8 | head[i];
    return length + 8 > size;
}

// Where a file is damaged or cut off by the sizes and sums that the container itself states; intact if nowhere, or if
// the format has none. 0: nothing in it can be relied on.
uint64_t find_damage(const std::string& path, const char* format) {
    const File file(std::fopen(path.c_str(), "rbe"));
    struct stat status = {};
    if (!file || fstat(fileno(file.get()), &status) != 0) return 0;
    const auto size = static_cast<uint64_t>(status.st_size);
    if (std::strstr(format, "matroska")) return damage_in_elements(file.get(), size);
    const bool early = std::strstr(format, "mov")
                           ? boxes_end_early(file.get(), size)
                           : std::strcmp(format, "avi") == 0 && riff_ends_early(file.get(), size);
    return early ? size : intact;
}

struct Packet {
    int64_t pts, dts, place;  // place: in the file, -1 unknown
    bool key, damaged;
};

// Frames that the container says it has; 0 if it does not. behind: decoding time of the first one that was not found.
size_t stated_frames(const AVFormatContext& context, AVStream& stream, const std::vector<Packet>& packets,
                     int64_t& behind) {
    behind = INT64_MAX;
    if (std::strstr(context.iformat->name, "mov")) {
        size_t count = 0, at = 0;
        for (int i = 0; i < avformat_index_get_entries_count(&stream); i++) {
            const AVIndexEntry* const entry = avformat_index_get_entry(&stream, i);
            if (entry->flags & AVINDEX_DISCARD_FRAME) continue;
            count++;
            if (at < packets.size() && packets[at].dts == entry->timestamp)
                at++;
            else if (behind == INT64_MAX)
                behind = entry->timestamp;
        }
        return count;
    }
    if (stream.nb_frames > 0) return static_cast<size_t>(stream.nb_frames);
    const double rate = av_q2d(stream.avg_frame_rate);
    if (!(rate > 0) || rate > 10000) return 0;
    const bool told = std::strcmp(context.iformat->name, "mxf") == 0 && stream.duration > 0;
    const double seconds = told ? stream.duration * av_q2d(stream.time_base) : 0;
    const double count = seconds * rate;
    return count > 0.5 && count < 1e8 ? static_cast<size_t>(count + 0.5) : 0;
}

// The packet that a decoder can begin with to show this one whole: a key that is shown no later, for pictures shown
// before a key that stands before them in the file lean on what came earlier.
size_t start_of(const std::vector<Packet>& packets, const std::vector<size_t>& keys, size_t packet) {
    auto key = std::upper_bound(keys.begin(), keys.end(), packet);
    while (key != keys.begin())
        if (packets[*--key].pts <= packets[packet].pts) return *key;
    return 0;
}

void describe(const AVFormatContext& context, AVStream& stream, const std::vector<MovieFrame>& frames,
              PictureInfo& info) {
    const AVCodecParameters& codec = *stream.codecpar;
    info.format = avcodec_get_name(codec.codec_id);
    info.width = codec.width;
    info.height = codec.height;
    info.movie_frames = static_cast<int>(std::min<size_t>(frames.size(), INT32_MAX));
    if (stream.avg_frame_rate.num > 0 && stream.avg_frame_rate.den > 0)
        info.frame_rate = static_cast<float>(av_q2d(stream.avg_frame_rate));
    const AVRational ratio =
        stream.sample_aspect_ratio.num > 0 ? stream.sample_aspect_ratio : codec.sample_aspect_ratio;
    if (ratio.num > 0 && ratio.den > 0) info.pixel_ratio = static_cast<float>(av_q2d(ratio));
    for (unsigned i = 0; i < context.nb_streams; i++)
        info.has_sound |= context.streams[i]->codecpar->codec_type == AVMEDIA_TYPE_AUDIO;
    info.asks_for_rotation = av_stream_get_side_data(&stream, AV_PKT_DATA_DISPLAYMATRIX, nullptr) != nullptr;
    // Times are rounded to the units of the container, so small differences are none.
    int64_t least = INT64_MAX, most = 0;
    for (size_t i = 1; i < frames.size() && frames[i].there; i++) {
        least = std::min(least, frames[i].time - frames[i - 1].time);
        most = std::max(most, frames[i].time - frames[i - 1].time);
    }
    const double unit = av_q2d(stream.time_base);
    info.uneven_rate = most > least && (most - least) * unit > 0.0021 && most - least > least / 5;
}

}  // namespace

bool movie_p(const std::string& path) {
    const File file(std::fopen(path.c_str(), "rbe"));
    std::array<unsigned char, 192> head = {};
    const size_t n = file ? std::fread(head.data(), 1, head.size(), file.get()) : 0;
    const auto at = [&](size_t place, const char* text) {
        return n >= place + std::strlen(text) && std::memcmp(head.data() + place, text, std::strlen(text)) == 0;
    };
    for (const char* box : {"moov", "mdat", "wide", "free", "skip", "ftyp"}) {
        if (!at(4, box)) continue;
        // Still pictures use the same boxes.
        for (const char* still : {"avif", "avis", "heic", "heix", "mif1", "msf1", "jp2 ", "jxl "})
            if (at(8, still)) return false;
        return true;
    }
    if (at(0, "\x1a\x45\xdf\xa3") || (at(0, "RIFF") && at(8, "AVI ")) || at(0, "FLV\x01") || at(0, "OggS") ||
        at(0, "YUV4MPEG2 ") || at(0, "DKIF") || at(0, "\x06\x0e\x2b\x34\x02\x05\x01\x01"))
        return true;
    const size_t dot = path.rfind('.');
    if (dot == std::string::npos) return false;
    std::string ending = path.substr(dot + 1);
    for (char& c : ending) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return std::find(std::begin(movie_endings), std::end(movie_endings), ending) != std::end(movie_endings);
}

LibavPtr<AVFormatContext> open_container(const std::string& path, int& stream, std::string* error) {
    quieten_libav();
    AVDictionary* options = nullptr;
    av_dict_set(&options, "protocol_whitelist", "file", 0);
    av_dict_set(&options, "format_whitelist", known_formats, 0);
    AVFormatContext* opened = nullptr;
    // "file:" keeps a name such as "a:b.mov" from being taken for an address.
    int status = avformat_open_input(&opened, ("file:" + path).c_str(), nullptr, &options);
    av_dict_free(&options);
    LibavPtr<AVFormatContext> context(opened);
    if (status >= 0) status = avformat_find_stream_info(opened, nullptr);
    if (status >= 0) status = stream = av_find_best_stream(opened, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    if (status < 0) {
        *error = status == AVERROR_STREAM_NOT_FOUND ? "holds no pictures"
                 : status == AVERROR_INVALIDDATA    ? "not a movie in a known format, or its end is missing"
                                                    : libav_text(status);
        return nullptr;
    }
    for (unsigned i = 0; i < opened->nb_streams; i++)
        if (static_cast<int>(i) != stream) opened->streams[i]->discard = AVDISCARD_ALL;
    return context;
}

bool index_movie(const std::string& path, MovieIndex& index, std::string* error) {
    const auto context = open_container(path, index.stream, error);
    if (!context) return false;
    AVStream& stream = *context->streams[index.stream];
    if (stream.disposition & AV_DISPOSITION_ATTACHED_PIC) {
        *error = "holds no pictures";
        return false;
    }
    const LibavPtr<AVPacket> packet(av_packet_alloc());
    std::vector<Packet> packets;
    int status = packet ? 0 : AVERROR(ENOMEM);
    while (status >= 0 && (status = av_read_frame(context.get(), packet.get())) >= 0) {
        if (packet->stream_index == index.stream && !(packet->flags & AV_PKT_FLAG_DISCARD))
            packets.push_back({packet->pts, packet->dts, packet->pos, (packet->flags & AV_PKT_FLAG_KEY) != 0,
                               (packet->flags & AV_PKT_FLAG_CORRUPT) != 0 || packet->size == 0});
        av_packet_unref(packet.get());
    }
    if (status == AVERROR(ENOMEM)) {
        *error = libav_text(status);
        return false;
    }
    for (const Packet& p : packets) index.timed = index.timed && p.pts != AV_NOPTS_VALUE;
    int64_t behind = INT64_MAX;
    size_t stated = stated_frames(*context, stream, packets, behind);
    // What was cut off is no packet, nor is what comes behind damage: it may have been made up.
    uint64_t damage = find_damage(path, context->iformat->name);
    if (damage == intact && status != AVERROR_EOF) damage = INT64_MAX;
    if (damage == 0) {
        *error = "is damaged";
        return false;
    }
    const bool early = damage != intact;
    while (
        early && !packets.empty() &&
        (packets.back().damaged || packets.back().place >= static_cast<int64_t>(std::min<uint64_t>(damage, INT64_MAX))))
        packets.pop_back();
    if (early) stated = std::max(stated, packets.size() + 1);
    // Without times, pictures that wait for others would come out with the numbers of those that are missing.
    const size_t waiting = static_cast<size_t>(std::max(0, stream.codecpar->video_delay));
    const size_t counted = !early ? 0 : packets.size() - std::min(packets.size(), waiting);
    if (packets.empty() && stated == 0) {
        *error = "holds no pictures";
        return false;
    }

    std::vector<size_t> order(packets.size()), keys;
    for (size_t i = 0; i < packets.size(); i++)
        if (packets[i].key) keys.push_back(i);
    for (size_t i = 0; i < order.size(); i++) order[i] = i;
    if (index.timed)
        std::stable_sort(order.begin(), order.end(),
                         [&](size_t a, size_t b) { return packets[a].pts < packets[b].pts; });
    int64_t before = AV_NOPTS_VALUE, usual = 0;
    for (const size_t i : order) {
        MovieFrame frame;
        frame.time = index.timed ? packets[i].pts : static_cast<int64_t>(i);
        frame.packet = i;
        frame.from = index.timed ? start_of(packets, keys, i) : 0;
        frame.damaged = packets[i].damaged;
        if (index.timed && before == frame.time) {
            *error = "two of its frames are shown at the same time";
            return false;
        }
        // A missing packet is shown no earlier than it is decoded. Whatever is shown later may have another number.
        if (stated > packets.size()) {
            const int64_t bound = behind != INT64_MAX ? behind - 1 : packets.back().dts;
            if (usual == 0 && before != AV_NOPTS_VALUE) usual = frame.time - before;
            const bool gap = behind == INT64_MAX && before != AV_NOPTS_VALUE && (frame.time - before) * 2 > usual * 3;
            if (index.timed ? frame.time > bound || gap : i >= counted) break;
        }
        // Where no picture waits for another, the file's order is that of time.
        if (waiting == 0 && i != index.frames.size()) {
            *error = "its frames are in disorder: it is damaged";
            return false;
        }
        before = frame.time;
        index.frames.push_back(frame);
    }
    MovieFrame missing;
    missing.there = false;
    if (stated > packets.size() || index.frames.size() < packets.size())
        index.frames.resize(std::max(stated, packets.size()), missing);
    for (const Packet& p : packets) {
        index.times.push_back(p.pts);
        index.seek_times.push_back(p.dts != AV_NOPTS_VALUE ? p.dts : p.pts);
    }
    if (const AVDictionaryEntry* const tag = av_dict_get(context->metadata, "comment", nullptr, 0))
        index.recipe = tag->value;
    describe(*context, stream, index.frames, index.info);
    if (index.info.width < 1 || index.info.height < 1) {
        *error = "does not say how large its pictures are";
        return false;
    }
    return true;
}

}  // namespace spark_host
