#include "params/setups.h"

#include "params/param_values.h"
#include "records/genotype.h"
#include "records/run_state.h"
#include "records/widget_record.h"
#include "support/errors.h"
#include "texts/setup_text.h"

#include <sys/stat.h>
#include <unistd.h>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>

namespace velloran {

namespace {

constexpr const char* header_word = "Velloran-save-file";
constexpr int file_version = 4;
constexpr int header_size = 128;
constexpr int most_widgets = 20;
constexpr unsigned failed_write_pause = 1500000;  // microseconds, for the message to be read

int channels_saved(const Param* p) { return std::min<int>(p->n_buttons, 4); }

void write_param(FILE* file, Param* p) {
    // A curve or the host may have moved the control since its last callback.
    if (param_on_buttons_p(p)) param_sync_from_button(p);
    for (int channel = 0; channel < channels_saved(p); ++channel) {
        if (p->type == param_color) {
            std::fprintf(file, " %u", static_cast<unsigned>(param_get_value_c1(p, 0)));
        } else if (p->type == param_string) {
            char text[SPARK_MAX_STRING];
            std::snprintf(text, sizeof(text), "%s", string_param_get_from_buttons(p));
            for (char* c = text; *c; ++c)
                if (*c == '\n' || *c == '\r') *c = ' ';
            std::fprintf(file, " %s\n", text);
        } else {
            std::fputc(' ', file);
            write_number(file, exact_button_value(p, channel));
        }
    }
}

void write_effect(FILE* file, Genotype* genotype) {
    std::fprintf(file, "%d ", genotype->param_number);
    for (int i = 0; i < genotype->param_number; ++i)
        if (genotype->params[i]) write_param(file, genotype->params[i]);
    std::fprintf(file, "\nw %d", widget_count(genotype));
    for (int i = 0; i < widget_count(genotype); ++i) {
        Param* const p = genotype->widgets->widgets[i].enable_param;
        if (p && param_on_buttons_p(p)) param_sync_from_button(p);
        std::fprintf(file, " %d", p ? static_cast<int>(std::floor(p->value[0] + 0.5f)) : 1);
    }
    std::fputc('\n', file);
}

bool global_saved(const Param* p) { return p && !(p->save_flags & save_not_in_setups) && p->n_buttons > 0; }

void write_setup(FILE* file) {
    const GlobalsV4Record* const g = Globals_V4;
    std::fprintf(file, "%s %d\n", header_word, file_version);
    std::fprintf(file, "%d %d\n", g->n_effects, std::max<int>(g->selected_effect, 0));
    for (int i = 0; i < g->n_effects; ++i)
        if (g->genotypes[i]) write_effect(file, g->genotypes[i]);
    for (Param* const p : g->global_params) {
        if (!global_saved(p)) continue;
        param_sync_from_button(p);
        if (p->type == param_color) {
            // All digits: six would lose colours.
            std::fprintf(file, " %u", static_cast<unsigned>(param_get_value_c1(p, 0)));
            continue;
        }
        for (int channel = 0; channel < channels_saved(p); ++channel) {
            std::fputc(' ', file);
            write_number(file, p->value[channel]);
        }
    }
    std::fprintf(file, "\n%d %d\n", g->setup_width, g->setup_height);
}

int write_failed(const char* path) {
    V_error(level_error, "Write of %s failed.", path);
    usleep(failed_write_pause);
    return -1;
}

// ---- Reading. Each step answers false after its message.

bool read_param(FILE* file, const char* path, const Genotype* genotype, Param* p) {
    for (int channel = 0; channel < channels_saved(p); ++channel) {
        bool read;
        double value = 0;
        if (p->type == param_string) {
            char text[SPARK_MAX_STRING + 1];  // the line's end goes
            read = read_rest_of_line(file, text, sizeof(text));
            text[SPARK_MAX_STRING - 1] = 0;
            auto* const control = static_cast<SparkStringStruct*>(p->controls[channel]);
            if (read && control) std::memcpy(control->Value, text, std::strlen(text) + 1);
        } else {
            read = read_double(file, &value);
        }
        if (!read) {
            V_error(level_error, "Setup file %s is corrupt (missing param %s(%d).%s).", path, genotype->name, channel,
                    p->name);
            return false;
        }
        if (p->type == param_string) continue;
        if (p->type != param_color)
            value = button_to_param(p, channel, static_cast<float>(value), button_geometry(), convert_with_scales);
        // Effects share controls: only the one that the caller shows then may write them.
        param_set_value_c1(p, channel, value, set_no_control);
    }
    return true;
}

bool read_widgets(FILE* file, Genotype* genotype) {
    const int c = read_visible(file);
    if (c != 'w') {  // files of older builds have no such list
        if (c != EOF) std::ungetc(c, file);
        return true;
    }
    int count;
    if (!read_int(file, &count)) {
        V_error(level_error, "Setup file is corrupt: no wenables.");
        return false;
    }
    int values[most_widgets] = {};
    const int n = std::min(count, most_widgets);
    for (int i = 0; i < n; ++i) {
        if (read_int(file, &values[i])) continue;
        V_error(level_warning, "Setup file is corrupt: missing wenable.");
        return false;
    }
    if (count != widget_count(genotype)) return true;
    for (int i = 0; i < n; ++i)
        if (Param* const p = genotype->widgets->widgets[i].enable_param)
            param_set_value(p, 0, static_cast<float>(values[i]), 0);
    return true;
}

bool read_effect(FILE* file, const char* path, Genotype* genotype) {
    int n_params;
    if (!read_int(file, &n_params)) {
        V_error(level_error, "Setup file %s is corrupt.", path);
        return false;
    }
    if (n_params != genotype->param_number) {
        std::printf("%s param count has changed since setup was saved, not loading.\n", genotype->name);
        return false;
    }
    for (int i = 0; i < genotype->param_number; ++i)
        if (genotype->params[i] && !read_param(file, path, genotype, genotype->params[i])) return false;
    return read_widgets(file, genotype);
}

bool read_globals(FILE* file) {
    for (Param* const p : Globals_V4->global_params) {
        if (!global_saved(p)) continue;
        for (int channel = 0; channel < channels_saved(p); ++channel) {
            double value;
            if (!read_double(file, &value)) {
                V_error(level_warning, "bad format in save file");
                return false;
            }
            param_set_value_c1(p, channel, value, 0);
            global_param_sync_from_button(p, 0);
        }
    }
    return true;
}

bool read_header(FILE* file, const char* path) {
    char line[header_size];
    if (!std::fgets(line, sizeof(line), file)) {
        V_error(level_warning, "Save file %s has no header; probably corrupt.\n", path);
        return false;
    }
    char word[header_size];
    int version;
    if (std::sscanf(line, "%127s %d", word, &version) != 2 || std::strcmp(word, header_word) != 0) {
        V_error(level_warning, "Save file %s has incorrect format; possibly corrupt.", path);
        return false;
    }
    if (version != file_version) {
        V_error(level_warning, "Save file %s has incorrect version %d; version %d required.", path, version,
                file_version);
        return false;
    }
    return true;
}

int read_setup(FILE* file, const char* path) {
    GlobalsV4Record* const g = Globals_V4;
    g->frame_size_pending = 0;
    if (!read_header(file, path)) return -1;
    int n_effects, selected;
    if (!read_int(file, &n_effects) || !read_int(file, &selected)) {
        V_error(level_error, "Bad saved params in %s.", path);
        return -1;
    }
    if (n_effects != g->n_effects) {
        std::printf("Effect number has changed since setup was saved, not loading.\n");
        return -1;
    }
    if (selected < 0 || selected >= n_effects) {
        V_error(level_warning, "Selected effect index out of range (%d) in setup, not loading.\n", selected);
        return -1;
    }
    g->selected_effect = static_cast<int16_t>(selected);
    for (int i = 0; i < g->n_effects; ++i)
        if (g->genotypes[i] && !read_effect(file, path, g->genotypes[i])) return -1;
    if (!read_globals(file)) return -1;
    int width, height;
    const int items = !read_int(file, &width) ? 0 : !read_int(file, &height) ? 1 : 2;
    g->frame_size_pending = items == 2;
    if (items == 2) {
        g->setup_width_in_file = width;
        g->setup_height_in_file = height;
    }
    return items;
}

}  // namespace

int save_setup(const char* path) {
    // Nobody ever sees half a setup: the file gets its name when it is whole.
    char part[4096];
    if (std::snprintf(part, sizeof(part), "%s.%d.part", path, static_cast<int>(getpid())) >=
        static_cast<int>(sizeof(part)))
        return write_failed(path);
    FILE* const file = std::fopen(part, "w");
    if (!file) return write_failed(path);
    write_setup(file);
    const bool whole = !std::ferror(file) && std::fflush(file) == 0;
    if (std::fclose(file) != 0 || !whole || std::rename(part, path) != 0) {
        std::remove(part);
        return write_failed(path);
    }
    chmod(path, 0666);
    return 0;
}

int load_setup(const char* path) {
    FILE* const file = std::fopen(path, "r");
    if (!file) return -1;
    const int status = read_setup(file, path);
    std::fclose(file);
    return status;
}

void strip_name_tags(char* dest, const char* source, int size) {
    static constexpr struct {
        const char* start;
        size_t length;  // how much goes
    } tags[] = {
        {"_pthreads", 9}, {"_64", 3}, {"_x8", 8},  // "_x86_64", and anything else of that length
    };
    int n = 0;
    const char* from = source ? source : "";
    while (*from && n < size - 1) {
        size_t skip = 0;
        for (const auto& tag : tags)
            if (!std::strncmp(from, tag.start, std::strlen(tag.start)))
                skip = std::max(skip, std::min(tag.length, std::strlen(from)));
        if (skip > 0)
            from += skip;
        else
            dest[n++] = *from++;
    }
    dest[n] = 0;
}

void setup_path(char* dest, const char* name, int size) {
    strip_name_tags(dest, name, size);
    const char* const file = std::strrchr(name ? name : "", '/');
    if (!file) return;
    std::string folder(name, file);
    std::string stripped(folder.size() + 1, 0);
    strip_name_tags(stripped.data(), folder.c_str(), static_cast<int>(stripped.size()));
    stripped.resize(std::strlen(stripped.c_str()));
    if (stripped == folder || access((stripped + "/").c_str(), F_OK) == 0) return;
    if (static_cast<int>(folder.size()) >= size) return;
    std::memcpy(dest, folder.data(), folder.size());
    strip_name_tags(dest + folder.size(), file, size - static_cast<int>(folder.size()));
}

}  // namespace velloran
