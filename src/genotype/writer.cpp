#include "genotype/writer.h"

#include "records/node.h"
#include "support/errors.h"
#include "support/files.h"

namespace velloran {
namespace {

double as_number(int32_t v) { return v * (1.0 / fix_scale); }

// Trees share branches, so a small graph can unfold into an endless text.
constexpr int max_written_nodes = 100000;

void write_tree(FILE* stream, const Node* node, int* written) {
    if (++*written > max_written_nodes) {
        if (*written == max_written_nodes + 1) std::fprintf(stream, " ...");
        return;
    }
    switch (node->type) {
        case node_function:
            std::fprintf(stream, " (%s", node->name);
            for (int i = 0; i < node->arg_number; ++i) write_tree(stream, node->args[i], written);
            std::fprintf(stream, ")");
            break;
        case node_constant:
            if (node->elnum == 1) {
                std::fprintf(stream, " %.6g", as_number(node->vals[0]));
                break;
            }
            for (int e = 0; e < node->elnum; ++e)
                std::fprintf(stream, "%s%.6g", e ? " " : " [", as_number(node->vals[e]));
            std::fprintf(stream, "]");
            break;
        case node_var:
        case node_output:
            std::fprintf(stream, " %s", node->name);
            break;
        default:
            V_error(level_error, "write_node_tree: unknown node type.");
            break;
    }
}

}  // namespace

void write_node_tree(FILE* stream, const Node* node) {
    int written = 0;
    write_tree(stream, node, &written);
}

bool save_genotypes_to_file(const Genotype* const* genotypes, int count, const char* file) {
    FILE* stream = safe_fopen(file, "w", file_report_failure);
    if (!stream) return false;
    std::fprintf(stream, "%s Number of defs: %d.\n\n", "//", count);
    for (int i = 0; i < count; ++i) {
        const Genotype* genotype = genotypes[i];
        std::fprintf(stream, "\n(def %s\n", genotype->name[0] ? genotype->name : "noname");
        std::fprintf(stream, "  dest =");
        write_node_tree(stream, &genotype->nodes[0]);
        std::fprintf(stream, "\n)\n");
    }
    const bool written = !std::ferror(stream);
    return safe_fclose(stream) == 0 && written;
}

}  // namespace velloran
