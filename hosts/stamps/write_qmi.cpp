#include "hosts/stamps/write_qmi.h"

#include <array>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace stamp_maker {

namespace {

using Bytes = std::vector<uint8_t>;

void put_16(Bytes& out, int v) {
    out.push_back(static_cast<uint8_t>(v));
    out.push_back(static_cast<uint8_t>(v >> 8));
}
void put_32(Bytes& out, uint32_t v) {
    put_16(out, static_cast<int>(v & 0xffff));
    put_16(out, static_cast<int>(v >> 16));
}

Bytes samples_of(const StampPicture& stamp) {
    Bytes bytes;
    for (const float v : stamp.samples)
        bytes.push_back(static_cast<uint8_t>(std::lround(std::clamp(v, 0.0f, 1.0f) * 255)));
    return bytes;
}

// Runs behind the rarest value as their mark.
Bytes runs_of(const Bytes& samples) {
    std::array<size_t, 256> uses = {};
    for (const uint8_t s : samples) ++uses[s];
    const auto escape = static_cast<uint8_t>(std::min_element(uses.begin(), uses.end()) - uses.begin());
    Bytes out = {escape};
    for (size_t i = 0, n; i < samples.size(); i += n) {
        for (n = 1; n < 255 && i + n < samples.size() && samples[i + n] == samples[i];) ++n;
        if (n < 4 && samples[i] != escape) {
            n = 1;
            out.push_back(samples[i]);
            continue;
        }
        out.push_back(escape);
        out.push_back(static_cast<uint8_t>(n));
        out.push_back(samples[i]);
    }
    return out;
}

void put_stamp(Bytes& out, const StampPicture& stamp) {
    const Bytes samples = samples_of(stamp), runs = runs_of(samples);
    const bool shorter = runs.size() < samples.size();
    const Bytes& data = shorter ? runs : samples;
    out.push_back(shorter ? 1 : 0);
    put_16(out, stamp.width);
    put_16(out, stamp.height);
    put_16(out, stamp.resolution);
    put_16(out, stamp.resolution);
    put_32(out, static_cast<uint32_t>(data.size()));
    out.insert(out.end(), data.begin(), data.end());
}

}  // namespace

std::string write_qmi(const std::string& path, const std::vector<StampPicture>& stamps) {
    if (stamps.empty()) return path + ": there are no stamps to write";
    if (stamps.size() > most_stamps) return path + ": more than " + std::to_string(most_stamps) + " stamps";
    Bytes out = {'Q', 'M', 'I', 'F', 1};
    out.resize(16);
    for (const StampPicture& stamp : stamps) {
        if (stamp.width < 1 || stamp.height < 1) return path + ": an empty stamp";
        if (stamp.width > most_side || stamp.height > most_side) return path + ": a stamp is too large";
        put_stamp(out, stamp);
    }
    const std::string part = path + ".part";
    FILE* const file = std::fopen(part.c_str(), "wb");
    if (!file) return part + ": " + std::strerror(errno);
    const bool written = std::fwrite(out.data(), 1, out.size(), file) == out.size() && std::fflush(file) == 0;
    const int cause = errno;
    const bool closed = std::fclose(file) == 0;
    if (written && closed && std::rename(part.c_str(), path.c_str()) == 0) return "";
    const std::string why = path + ": " + std::strerror(written ? errno : cause);
    std::remove(part.c_str());
    return why;
}

}  // namespace stamp_maker
