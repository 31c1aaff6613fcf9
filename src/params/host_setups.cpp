// Edits of the host's own setup text, through temporary copies: the frame size that values were made for, and keys that
// are to be joined by straight lines. And what needs them: the fit of a setup to another frame, and transitions.
#include "params/control_kinds.h"
#include "params/param_values.h"
#include "params/setups.h"
#include "params/standard_controls.h"
#include "records/run_state.h"
#include "support/errors.h"
#include "support/host_info.h"
#include "texts/config.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace velloran {

namespace {

constexpr int most_frames_looked_at = 1000000;
constexpr int line_piece = 1000;  // 999 characters are read at a time

// A new file at a known place: what lies there is not followed.
FILE* create_fresh(const char* path) {
    std::remove(path);
    const int descriptor = open(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0666);
    if (descriptor < 0) return nullptr;
    FILE* const file = fdopen(descriptor, "w");
    if (!file) close(descriptor);
    return file;
}

struct Copy {
    FILE *from, *to;
};

bool open_copy(Copy& copy, const char* from, const char* to) {
    copy.from = std::fopen(from, "r");
    copy.to = copy.from ? create_fresh(to) : nullptr;
    if (copy.to) return true;
    if (copy.from) std::fclose(copy.from);
    return false;
}

int close_copy(const Copy& copy) {
    const bool whole = !std::ferror(copy.from) && !std::ferror(copy.to);
    std::fclose(copy.from);
    return std::fclose(copy.to) == 0 && whole;
}

// Lines come in pieces; only one that is a line by itself can be told by its words.
struct LineReader {
    char piece[line_piece];
    bool whole, inside;  // inside: the next piece goes on with a line
};

bool read_line(LineReader& reader, FILE* file) {
    if (!std::fgets(reader.piece, sizeof(reader.piece), file)) return false;
    const bool begins = !reader.inside;
    reader.inside = !std::strchr(reader.piece, '\n');
    reader.whole = begins && !reader.inside;
    return true;
}

void remove_temporary_copies() {
    std::remove(temp_setup_in);
    std::remove(temp_setup_out);
}

// Lets the host scale what it keeps: it is told that its setup was made for another size. 1 if the text went through.
int reload_with_size(int width, int height) {
    const bool done = sparkSaveSetup(temp_setup_in) &&
                      rewrite_frame_size(temp_setup_in, temp_setup_out, width, height) &&
                      sparkLoadSetup(temp_setup_out);
    remove_temporary_copies();
    return done;
}

bool positioned_p(const Param* p) {
    switch (p->scale_flags & scale_mode_mask) {
        case screen_screen:
        case screen_center:
        case screen_to_norm:
        case screen_center_to_norm:
            return true;
        default:
            return false;
    }
}

// A digest of what the controls of positions and of the crop hold, to see whether the host changed them.
double position_digest(const Genotype* genotype) {
    double sum = 0;
    for (int i = 0; genotype && i < genotype->param_number; ++i) {
        const Param* const p = genotype->params[i];
        if (!p || !positioned_p(p) || !param_on_buttons_p(p)) continue;
        for (int channel = 0; channel < p->n_buttons; ++channel) sum += (i + 1) * 0.5 * read_control(p, channel);
    }
    for (int index = global_crop_left; index <= global_crop_bottom; ++index)
        if (const Param* const p = Globals_V4->global_params[index]) sum += (index + 100) * read_control(p, 0);
    return sum;
}

// Positions were read as pixels of the file's frame: scaled there, and converted for the present one.
void rescale_param(Param* p, float fx, float fy, bool shown) {
    const ScreenGeometry now = button_geometry();
    float values[4];
    for (int channel = 0; channel < p->n_channels && channel < 4; ++channel) {
        const float pixels = param_to_button(p, channel, p->value[channel], now, convert_with_scales);
        values[channel] = button_to_param(p, channel, pixels * (channel == 0 ? fx : fy), now, convert_with_scales);
    }
    param_set_values(p, 0, p->n_channels, values, shown ? set_update_control : set_leave_color | set_no_control);
}

void rescale_crop(float fx, float fy) {
    GlobalsV4Record* const g = Globals_V4;
    open_crop_bounds();
    const auto scale = [g](int index, float factor, float (*round)(float)) {
        Param* const p = g->global_params[index];
        if (p) param_set_value(p, 0, round(param_get_value(p, 0) * factor), set_update_control);
    };
    const auto down = [](float v) { return std::floor(v); };
    const auto up = [](float v) { return std::ceil(v); };
    scale(global_crop_left, fx, down);
    scale(global_crop_right, fx, up);
    scale(global_crop_top, fy, up);
    scale(global_crop_bottom, fy, down);
}

bool first_word_p(const char* line, const char* word) {
    while (*line == ' ' || *line == '\t') ++line;
    return !std::strncmp(line, word, std::strlen(word));
}

}  // namespace

const char* temp_setup_in = "/tmp/tempsetup.in";
const char* temp_setup_out = "/tmp/tempsetup.out";

int rewrite_frame_size(const char* from, const char* to, int width, int height) {
    Copy copy;
    if (!open_copy(copy, from, to)) return 0;
    LineReader reader = {};
    bool width_done = false, height_done = false;
    while (read_line(reader, copy.from)) {
        const char* const line = reader.piece;
        if (!width_done && reader.whole && !std::strncmp(line, "frameWidth ", 11)) {
            std::fprintf(copy.to, "frameWidth %d\n", width);
            width_done = true;
        } else if (!height_done && reader.whole && !std::strncmp(line, "frameHeight ", 12)) {
            std::fprintf(copy.to, "frameHeight %d\n", height);
            height_done = true;
        } else {
            std::fputs(line, copy.to);
        }
    }
    return close_copy(copy);
}

int rewrite_curve_linear(const char* from, const char* to, int number, bool by_key) {
    Copy copy;
    if (!open_copy(copy, from, to)) return 0;
    LineReader reader = {};
    bool in_channel = false, in_key = false, passed = false, drop_interpolation = false;
    while (read_line(reader, copy.from)) {
        const char* const line = reader.piece;
        const bool drop = drop_interpolation && reader.whole && std::strstr(line, "Interpolation");
        drop_interpolation = false;
        if (drop) continue;
        std::fputs(line, copy.to);
        if (!reader.whole) continue;
        if (!in_channel) {
            char word[line_piece];
            int n;
            if (!passed && std::sscanf(line, "%999s %d", word, &n) == 2 && !std::strcmp(word, "SPARK_CHANNEL") &&
                n == number)
                in_channel = true;
            continue;
        }
        if (first_word_p(line, "End")) {
            if (!in_key) {
                in_channel = false;
                passed = true;
            }
            in_key = false;
        } else if (first_word_p(line, "Key")) {
            in_key = true;
        } else if (!in_key && first_word_p(line, "Channel") && !by_key) {
            std::fputs("        Interpolation linear\n", copy.to);
        } else if (in_key && by_key && first_word_p(line, "Value")) {
            std::fputs("\t\tInterpolation linear\n", copy.to);
            drop_interpolation = true;
        }
    }
    return close_copy(copy);
}

void fix_setup_frame_size() {
    GlobalsV4Record* const g = Globals_V4;
    if (!g->frame_size_pending || !spark_info_ptr) return;
    g->frame_size_pending = 0;
    const int width = spark_info_ptr->FrameWidth, height = spark_info_ptr->FrameHeight;
    if (g->setup_width_in_file == width && g->setup_height_in_file == height) return;
    if (g->setup_width_in_file <= 0 || g->setup_height_in_file <= 0) return;  // of an instance that never saw a frame

    // The effect whose controls the host has scaled, -1 if it has not.
    int selected = g->selected_effect;
    if (config.load_save_channel_setups) {
        if (selected == 0 && g->n_effects == 1) return;
    } else if (total_spark_initialize_count < 2) {
        selected = -1;
    } else {
        const Genotype* const shown = selected >= 0 ? g->genotypes[selected] : nullptr;
        const double before = position_digest(shown);
        // A host that keeps pixels as they are leaves the work to us.
        if (!reload_with_size(g->setup_width_in_file, g->setup_height_in_file) || position_digest(shown) == before)
            selected = -1;
    }
    const float fx = static_cast<float>(width) / static_cast<float>(g->setup_width_in_file);
    const float fy = static_cast<float>(height) / static_cast<float>(g->setup_height_in_file);
    for (int i = 0; i < g->n_effects; ++i)
        for (int k = 0; g->genotypes[i] && k < g->genotypes[i]->param_number; ++k)
            g->genotypes[i]->params[k]->save_flags &= static_cast<uint8_t>(~save_rescaled);
    if (selected >= 0 && g->genotypes[selected]) {
        const Genotype* const genotype = g->genotypes[selected];
        for (int k = 0; k < genotype->param_number; ++k) genotype->params[k]->save_flags |= save_rescaled;
    }
    for (int i = 0; i < g->n_effects; ++i) {
        for (int k = 0; g->genotypes[i] && k < g->genotypes[i]->param_number; ++k) {
            Param* const p = g->genotypes[i]->params[k];
            if ((p->save_flags & save_rescaled) || !positioned_p(p)) continue;
            rescale_param(p, fx, fy, param_on_buttons_p(p));
            p->save_flags |= save_rescaled;
        }
    }
    if (selected >= 0) return;
    rescale_crop(fx, fy);
}

void setup_autotrans_curve(Param* p) {
    const int frames = spark_info_ptr ? spark_info_ptr->TotalFrameNo : 0;
    if (frames < 2 || p->first_button < 0) return;
    const int number = param_control_number(p, 0);
    const float first = sparkGetCurveValue(1, number, 0);
    // Hosts count a clip's frames from 1, so the last one is included. A length that no clip has is looked at in steps.
    const int step = 1 + frames / most_frames_looked_at;
    for (int passed = 0; passed < frames; passed += std::min(step, frames - passed))
        if (sparkGetCurveValue(1, number, passed + 1) != first) return;  // the user animated it
    const bool batch = called_in_batch_p();
    if (batch && first != 0) return;
    sparkSetCurveKey(1, number, frames, 1.0f);
    sparkSetCurveKey(1, number, 1, 0.0f);
    const bool hermite = (p->scale_flags & scale_autotrans_mask) == scale_autotrans_hermite;
    if (hermite && !batch) {
        if (sparkSaveSetup(temp_setup_in) &&
            rewrite_curve_linear(temp_setup_in, temp_setup_out, number, host_api_at_least(2.5f)))
            sparkLoadSetup(temp_setup_out);
        remove_temporary_copies();
    }
    if (p->controls[0] && param_kind(p).number)
        control_kind(p).write(p->controls[0],
                              sparkGetCurveValue(1, number, static_cast<int>(spark_info_ptr->FrameNo) + 1));
}

int save_channel_setup(const char* path) {
    const GlobalsV4Record* const g = Globals_V4;
    int done;
    if (spark_info_ptr && spark_info_ptr->FrameWidth == g->setup_width &&
        spark_info_ptr->FrameHeight == g->setup_height) {
        done = sparkSaveSetup(path);
    } else {
        done =
            sparkSaveSetup(temp_setup_in) && rewrite_frame_size(temp_setup_in, path, g->setup_width, g->setup_height);
        std::remove(temp_setup_in);
    }
    chmod(path, 0666);
    return done ? 0 : -1;
}

int load_channel_setup(const char* path) { return sparkLoadSetup(path) ? 0 : -1; }

}  // namespace velloran
