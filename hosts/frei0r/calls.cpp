// What modules forward to: nothing is thrown past here, and an instance that was closed is only one that is not there.
#include "hosts/frei0r/instance.h"
#include "hosts/frei0r/module.h"
#include "hosts/frei0r/records_json.h"
#include "hosts/frei0r/table.h"

#include "hosts/common/numbers.h"

#include <dlfcn.h>
#include <frei0r.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>

namespace {

using frei0r::Instance;
using frei0r::Kind;
using frei0r::Module;

struct State {
    std::mutex mutex;
    std::map<std::string, Module> modules;  // read so far; they stay, hosts keep pointers to what they hold
    std::map<VelloranInstance*, std::shared_ptr<Instance>> instances;
};
State& state() {
    static State s;
    return s;
}

const Module* find_module(const char* slug) {
    const std::lock_guard lock(state().mutex);
    auto& modules = state().modules;
    const auto known = modules.find(slug);
    if (known != modules.end()) return &known->second;
    for (const frei0r::Row& row : frei0r::table())
        if (std::strcmp(row.slug, slug) == 0)
            return &modules.emplace(slug, nlohmann::json::parse(row.json).get<Module>()).first->second;
    return nullptr;
}

std::shared_ptr<Instance> find_instance(VelloranInstance* instance) {
    const std::lock_guard lock(state().mutex);
    const auto at = state().instances.find(instance);
    return at == state().instances.end() ? nullptr : at->second;
}

void tell(const char* slug, const char* reason) { std::fprintf(stderr, "%s: %s\n", slug, reason); }

// What a program does against the rules.
struct Habits {
    double rate = frei0r::usual_rate;  // frames in a second
    double unit = 1;                   // of its time, in seconds
    bool pads_rows = false;            // by what its processor likes
};

// FFmpeg counts time in thousandths of a second, and pads rows. It is known by
// its library or, where that is part of the program, by the program's name.
Habits habits_of(const void* caller) {
    Habits habits;
    const char* const given = std::getenv("VELLORAN_FREI0R_RATE");
    float rate = 0;
    if (given && spark_host::read_number(given, rate) && rate > 0) habits.rate = rate;
    Dl_info info = {};
    if (!dladdr(caller, &info) || !info.dli_fname) return habits;
    const char* const slash = std::strrchr(info.dli_fname, '/');
    const std::string name = slash ? slash + 1 : info.dli_fname;
    for (const char* begin : {"libavfilter", "ffmpeg", "ffplay"}) {
        if (name.compare(0, std::strlen(begin), begin) != 0) continue;
        habits.unit = 0.001;
        habits.pads_rows = true;
    }
    return habits;
}

// Padded rows would be taken for others, and nobody says how long they are: whole blocks of 64 bytes never are padded.
void check_rows(int width, const Habits& habits) {
    if (habits.pads_rows && width % 16)
        throw std::runtime_error(
            "this program pads rows, so the width must be a multiple of 16 pixels: scale or pad it");
}

}  // namespace

void velloran_frei0r_info(const char* slug, f0r_plugin_info* info) {
    try {
        const Module* const module = find_module(slug);
        if (!module) return;
        constexpr int types[] = {F0R_PLUGIN_TYPE_SOURCE, F0R_PLUGIN_TYPE_FILTER, F0R_PLUGIN_TYPE_MIXER2,
                                 F0R_PLUGIN_TYPE_MIXER3};
        info->name = module->title.c_str();
        info->author = "Velloran";
        info->plugin_type = types[module->inputs];
        info->color_model = F0R_COLOR_MODEL_RGBA8888;
        info->frei0r_version = FREI0R_MAJOR_VERSION;
        info->major_version = 4;
        info->minor_version = 4;
        info->num_params = static_cast<int>(module->params.size());
        info->explanation = module->note.c_str();
    } catch (const std::exception& problem) {
        tell(slug, problem.what());
    }
}

void velloran_frei0r_param_info(const char* slug, f0r_param_info* info, int param) {
    try {
        const Module* const module = find_module(slug);
        if (!module || param < 0 || static_cast<size_t>(param) >= module->params.size()) return;
        const frei0r::Param& record = module->params[static_cast<size_t>(param)];
        info->name = record.name.c_str();
        info->type = record.kind == Kind::boolean  ? F0R_PARAM_BOOL
                     : record.kind == Kind::number ? F0R_PARAM_DOUBLE
                     : record.kind == Kind::colour ? F0R_PARAM_COLOR
                                                   : F0R_PARAM_STRING;
        info->explanation = record.note.c_str();
    } catch (const std::exception& problem) {
        tell(slug, problem.what());
    }
}

VelloranInstance* velloran_frei0r_open(const char* slug, unsigned int width, unsigned int height) {
    try {
        const Module* const module = find_module(slug);
        if (!module) throw std::runtime_error("there is no such module");
        const auto side = [](unsigned int n) { return n > INT_MAX ? 0 : static_cast<int>(n); };
        const auto instance = std::make_shared<Instance>(*module, side(width), side(height));
        auto* const handle = reinterpret_cast<VelloranInstance*>(instance.get());
        const std::lock_guard lock(state().mutex);
        state().instances.emplace(handle, instance);
        return handle;
    } catch (const std::exception& problem) {
        tell(slug, problem.what());
        return nullptr;
    }
}

void velloran_frei0r_close(VelloranInstance* instance) {
    std::shared_ptr<Instance> last;  // declared first: it ends when the lock has, or in another thread's call
    const std::lock_guard lock(state().mutex);
    const auto at = state().instances.find(instance);
    if (at == state().instances.end()) return;
    last.swap(at->second);
    state().instances.erase(at);
}

void velloran_frei0r_set(VelloranInstance* instance, const void* value, int param) {
    try {
        if (const auto found = find_instance(instance)) found->set(param, value);
    } catch (const std::exception& problem) {
        tell("velloran", problem.what());
    }
}

void velloran_frei0r_get(VelloranInstance* instance, void* value, int param) {
    try {
        if (const auto found = find_instance(instance)) found->get(param, value);
    } catch (const std::exception& problem) {
        tell("velloran", problem.what());
    }
}

void velloran_frei0r_update(VelloranInstance* instance, double time, const uint32_t* const* inputs, uint32_t* output,
                            const void* caller) {
    std::shared_ptr<Instance> found;
    try {
        found = find_instance(instance);
        if (!found) return;
        const Habits habits = habits_of(caller);
        check_rows(found->width(), habits);
        found->update(time, habits.unit, habits.rate, inputs, output);
    } catch (const std::exception& problem) {
        try {
            if (found) found->fail(problem.what(), output);
        } catch (const std::exception&) {
            tell("velloran", "out of memory");
        }
    }
}
