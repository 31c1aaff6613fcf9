// Effect texts: filtered, read, compiled, and two small frames rendered, the second with other values of the params.
// A text that holds #ref is loaded as the body of definitions to refer to as well, so that it can lead to itself.
#include "fuzz/fuzz.h"

#include "genotype/all_defs.h"
#include "genotype/custom_genotypes.h"
#include "genotype/node.h"
#include "genotype/writer.h"
#include "support/if_filter.h"
#include "support/memory.h"
#include "tests/engine_rig.h"

using namespace velloran;

namespace {

velloran_tests::EngineRig& rig() {
    static velloran_tests::EngineRig* const the_rig = [] {
        velloran_tests::Shape shape;
        shape.width = 9;
        shape.height = 6;
        return new velloran_tests::EngineRig(2, shape);
    }();
    return *the_rig;
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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz_begin();
    velloran_tests::EngineRig& r = rig();
    std::string original(reinterpret_cast<const char*>(data), size), filtered;
    text = &original;
    if (original.find("#ref") != std::string::npos) use_as_defs();
    filtered = original.c_str();
    if (fuzz_call([&] { remove_comments_and_false_if_statements(filtered.data(), "fuzz"); })) {
        const Genotype* genotype = r.load(filtered.c_str());
        if (genotype) {
            check_graph(genotype);
            r.render();
            for (int i = 0; i < genotype->param_number; ++i) {
                for (float& v : genotype->params[i]->value) v = v * -1.5f + 0.25f;
            }
            r.set_frame(1);
            r.render();
            r.set_frame(0);
        }
        r.free_effect();
        free_prev_dest_images();
    }
    free_all_defs();
    return 0;
}
