// Effect texts: checked as for their author, filtered, read, compiled, and two small frames rendered, the second with
// other values of the params; each by compiled loops and by the row kernels.
// A first byte of 1 says that the bytes behind it are choices by which a text is written whose calls all fit the
// function table; that leads deep into the compilation and evaluation. A text that holds #ref is loaded as the body of
// definitions to refer to as well, so that it can lead to itself.
#include "fuzz/fuzz.h"

#include "engine/fused_pass.h"
#include "genotype/all_defs.h"
#include "genotype/custom_genotypes.h"
#include "genotype/writer.h"
#include "host/stub_services.h"
#include "records/node.h"
#include "support/memory.h"
#include "testing/engine_rig.h"
#include "texts/if_filter.h"

using namespace velloran;

namespace {

velloran_tests::EngineRig& rig() {
    static velloran_tests::EngineRig* const the_rig = [] {
        velloran_tests::Shape shape;
        shape.width = 41;  // whole blocks of fused passes, and a rest
        shape.height = 6;
        least_fused_samples = 1;
        return new velloran_tests::EngineRig(2, shape);
    }();
    return *the_rig;
}

// A frame with its passes fused and without: the same, unless it goes on from the one before.
void render_both_ways(velloran_tests::EngineRig& r, const Genotype* genotype) {
    fuse_passes_p = 1;
    const int fused = r.render();
    if (fused || (genotype->effect_flags_1 & effect_keeps_own_images)) return;
    const velloran_tests::HostFrame frame = r.dest;
    fuse_passes_p = 0;
    r.record.last_imaged_genotype = nullptr;
    const int plain = r.render();
    fuse_passes_p = 1;
    FUZZ_CHECK(plain || r.dest == frame);
}

// What holds of every genotype that was read.
void check_graph(const Genotype* genotype) {
    FUZZ_CHECK(genotype->node_number <= genotype->node_capacity);
    FUZZ_CHECK(genotype->param_number <= MAX_GENOTYPE_PARAMS && genotype->group_number <= MAX_PARAM_GROUP_NUMBER);
    for (int i = 0; i < genotype->node_number; ++i) {
        const Node& node = genotype->nodes[i];
        FUZZ_CHECK(node.type != node_ref || !node.name);
        for (int a = 0; a < node.arg_number; ++a) {
            FUZZ_CHECK(node.arg_indices[a] > i && node.arg_indices[a] < genotype->node_number);
        }
    }
    for (int i = 0; i < genotype->param_number; ++i) {
        const Param* param = genotype->params[i];
        FUZZ_CHECK(!param->node ||
                   (param->node >= genotype->nodes && param->node < genotype->nodes + genotype->node_number));
        FUZZ_CHECK(param->n_popup_entries * param->n_buttons <= max_popup_entries);
    }
    char* text = nullptr;
    size_t size = 0;
    FILE* stream = open_memstream(&text, &size);
    write_node_tree(stream, genotype->nodes);
    std::fclose(stream);
    FUZZ_CHECK(size > 0);
    std::free(text);
}

// Writes a text that types. Every choice takes a byte; when they are used up, the smallest is taken everywhere.
class Writer {
public:
    Writer(const uint8_t* data, size_t size) : data_(data), end_(data + size) {}

    std::string definition() {
        const int n_names = choose(12);
        std::string out;
        for (int i = 0; i < n_names; ++i) {
            const int elnum = 1 + choose(4);
            out += " n" + std::to_string(i) + " = ";
            out += choose(3) == 0 ? constant(elnum) : expression(elnum, 0);
            elnums_.push_back(elnum);
        }
        const std::string dest = expression(1 + choose(4), 0);
        return "(def_effect W (Source Back Front Matte) (rgba_ok)" + out + " dest = " + dest + ")";
    }

private:
    int choose(int n) { return data_ < end_ ? *data_++ % n : 0; }

    std::string constant(int elnum) {
        static const char* const numbers[] = {"0", "1", "0.5", "-1", "0.1", "2", "-0.25", "64", "1000", "0.0003"};
        std::string out = elnum == 1 ? "" : "[";
        for (int e = 0; e < elnum; ++e) out += std::string(e ? " " : "") + numbers[choose(10)];
        return elnum == 1 ? out : out + "]";
    }

    std::string leaf(int elnum) {
        static const char* const inputs[] = {"Source", "Back", "Front", "Matte"};
        const int kind = choose(4);
        if (kind == 1 && !elnums_.empty()) {
            const int name = choose(static_cast<int>(elnums_.size()));
            if (elnums_[static_cast<size_t>(name)] == elnum) return "n" + std::to_string(name);
        }
        if (kind >= 2) {
            if (elnum == 1) return choose(2) ? "x" : "y";
            if (elnum == 2) return "xy";
            if (elnum == 3) return inputs[choose(4)];
            return "Output";
        }
        return constant(elnum);
    }

    std::string expression(int elnum, int depth) {
        if (depth > 5 || choose(4) == 0 || ++calls_ > 60) return leaf(elnum);
        // The first function from a chosen row on that can give so many elements.
        const int start = (choose(256) * 256 + choose(256)) % node_fun_number;
        for (int i = 0; i < node_fun_number; ++i) {
            const NodeFun& fun = node_funs[(start + i) % node_fun_number];
            if (!fun.pixel_funs[0]) continue;
            const int first = choose(fun.arg_type_combo_number);
            for (int c = 0; c < fun.arg_type_combo_number; ++c) {
                const uint32_t combo = fun.arg_type_combos[(first + c) % fun.arg_type_combo_number];
                if (combo_return_elnum(combo) != elnum) continue;
                std::string out = std::string("(") + fun.name;
                for (int a = 0; a < fun.arg_number; ++a) {
                    const int arg_elnum = combo_arg_elnum(combo, a);
                    const bool acts_as_param = fun.arg_restrictions[a] == arg_acts_as_param;
                    const bool parameter = acts_as_param && (fun.params_hold || choose(8) != 1);
                    out += ' ' + (parameter ? constant(arg_elnum) : expression(arg_elnum, depth + 1));
                }
                return out + ')';
            }
        }
        return leaf(elnum);
    }

    const uint8_t *data_, *end_;
    std::vector<int> elnums_;  // of the names so far
    int calls_ = 0;
};

std::string* text;

void use_as_defs() {
    const FuzzFile file(reinterpret_cast<const uint8_t*>(text->data()), text->size());
    if (!fuzz_call([&] { load_all_defs(file.path(), nullptr); })) free_all_defs();
    fuzz_call([&] {
        CustomGenotypeInfo* infos = nullptr;
        get_custom_genotype_infos(file.path(), &infos);
        safe_free(infos);
    });
}

// A check that fails says why, with a place inside the text.
void check_text(const std::string& original) {
    int errors = 0;
    const int failed = V4_check_effects(
        original.c_str(), "fuzz", nullptr,
        [](void* count, int level, int line, int column, const char* message) {
            FUZZ_CHECK(line >= 0 && column >= 0 && message);
            *static_cast<int*>(count) += level >= level_error;
        },
        &errors);
    FUZZ_CHECK(failed <= errors);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz_begin();
    velloran_tests::EngineRig& r = rig();
    std::string original(reinterpret_cast<const char*>(data), size), filtered;
    const bool written = size > 0 && data[0] == 1;
    if (written) original = Writer(data + 1, size - 1).definition();
    if (std::getenv("FUZZ_SHOW_TEXT")) std::fprintf(stderr, "%s\n", original.c_str());
    text = &original;
    if (original.find("#ref") != std::string::npos) use_as_defs();
    check_text(original);
    filtered = original.c_str();
    if (fuzz_call([&] { remove_comments_and_false_if_statements(filtered.data(), "fuzz"); })) {
        const Genotype* genotype = r.load(filtered.c_str());
        FUZZ_CHECK(genotype || !written);
        if (genotype) {
            check_graph(genotype);
            render_both_ways(r, genotype);
            for (int i = 0; i < genotype->param_number; ++i) {
                for (float& v : genotype->params[i]->value) v = v * -1.5f + 0.25f;
            }
            r.set_frame(1);
            render_both_ways(r, genotype);
            r.set_frame(0);
        }
        r.free_effect();
        free_prev_dest_images();
    }
    free_all_defs();
    return 0;
}
