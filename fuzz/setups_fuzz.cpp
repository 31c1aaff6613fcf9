// A setup file: whatever it holds, the panel stays sound, and what is saved then comes back the same.
#include "fuzz/fuzz.h"
#include "testing/fuzz_panel.h"

#include "params/setups.h"

#include <cmath>
#include <fstream>
#include <sstream>

using namespace velloran;

namespace {

std::string saved() {
    static const std::string path = "/tmp/velloran_setups_fuzz." + std::to_string(getpid());
    FUZZ_CHECK(save_setup(path.c_str()) == 0);
    std::ifstream file(path);
    std::stringstream text;
    text << file.rdbuf();
    std::remove(path.c_str());
    return text.str();
}

void check_params(const FuzzPanel& panel) {
    for (int e = 0; e < 2; ++e) {
        const Genotype* const genotype = panel.record.genotypes[e];
        for (int i = 0; i < genotype->param_number; ++i) {
            const Param* const p = genotype->params[i];
            for (const float v : p->value) FUZZ_CHECK(std::isfinite(v));
            FUZZ_CHECK(p->type != param_popup || (p->value[0] >= 0 && p->value[0] < 3));
            FUZZ_CHECK(p->type != param_boolean || p->value[0] == 0 || p->value[0] == 1);
        }
    }
    FUZZ_CHECK(panel.record.selected_effect == 0 || panel.record.selected_effect == 1);
    FUZZ_CHECK(get_popup_res_factor() >= 1 && get_popup_res_factor() <= 32);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static auto* const panel = new FuzzPanel;
    static const bool quiet = std::freopen("/dev/null", "w", stdout) != nullptr;
    (void)quiet;
    fuzz_begin();
    Globals_V4 = &panel->record;
    panel->reset();
    const FuzzFile file(data, size);
    const char* const path = file.path();
    FUZZ_CHECK(fuzz_call([path] { load_setup(path); }));
    check_params(*panel);
    setup_effect_buttons(panel->record.selected_effect, 0);
    const std::string first = saved();
    const FuzzFile again(reinterpret_cast<const uint8_t*>(first.data()), first.size());
    FUZZ_CHECK(load_setup(again.path()) == 2);
    setup_effect_buttons(panel->record.selected_effect, 0);
    FUZZ_CHECK(saved() == first);
    return 0;
}
