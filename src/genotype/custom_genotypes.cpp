#include "genotype/custom_genotypes.h"

#include "genotype/reader.h"
#include "genotype/reading.h"
#include "support/errors.h"
#include "support/files.h"
#include "support/memory.h"

#include <cstring>

namespace velloran {
namespace {

CustomGenotypeInfo* kept_infos = nullptr;
int n_kept_infos = -1;

struct Scan {
    CustomGenotypeInfo* infos;  // from frame_malloc
    int count, capacity;
};

void close_scan(void* stream) {
    reset_text_reader();
    safe_fclose(static_cast<FILE*>(stream));
}

bool read_custom_inputs(CustomGenotypeInfo* info) {
    char token[token_size];
    if (read_token(token) != 0 || !token_is(token, '(')) {
        V_error(level_error, "Error while reading custom plug-in %s \n", info->name);
        return false;
    }
    for (;;) {
        if (read_token(token) != 0) {
            V_error(level_error, "Eof while reading custom plug-in %s \n", info->name);
            return false;
        }
        if (token_is(token, ')')) return true;
        if (info->input_number < MAX_INPUTS) {
            const int length = input_name_too_long(token) ? MAX_INPUT_NAME_LENGTH : INPUT_NAME_SIZE - 1;
            std::snprintf(info->input_names[info->input_number++], INPUT_NAME_SIZE, "%.*s", length, token);
        }
    }
}

CustomGenotypeInfo* add_info(Scan* scan) {
    if (scan->count == scan->capacity) {
        const int capacity = 2 * scan->capacity + 8;
        CustomGenotypeInfo* grown = frame_array<CustomGenotypeInfo>(static_cast<size_t>(capacity));
        if (scan->count) std::memcpy(grown, scan->infos, sizeof(*grown) * static_cast<size_t>(scan->count));
        frame_free(scan->infos);
        scan->infos = grown;
        scan->capacity = capacity;
    }
    CustomGenotypeInfo* info = &scan->infos[scan->count];
    std::memset(info, 0, sizeof(*info));
    return info;
}

}  // namespace

int get_custom_genotype_infos(const char* file, CustomGenotypeInfo** infos) {
    *infos = nullptr;
    FILE* stream = safe_fopen(file, "r", file_report_failure);
    if (!stream) return 0;
    push_abort_cleanup(close_scan, stream);
    reset_text_reader();
    reading_from_file_ptr = stream;
    Scan scan = {nullptr, 0, 0};
    char name[token_size];
    while (find_next_def(name) == 0) {
        CustomGenotypeInfo* info = add_info(&scan);
        std::snprintf(info->name, sizeof(info->name), "%.*s", GENOTYPE_NAME_SIZE - 1, name);
        if (!read_custom_inputs(info)) break;
        ++scan.count;
    }
    if (scan.count) {
        const size_t bytes = sizeof(CustomGenotypeInfo) * static_cast<size_t>(scan.count);
        *infos = static_cast<CustomGenotypeInfo*>(std::memcpy(safe_malloc(bytes), scan.infos, bytes));
    }
    frame_free(scan.infos);
    pop_abort_cleanup();
    close_scan(stream);
    return scan.count;
}

int maybe_get_custom_genotype_infos(const char* file) {
    if (n_kept_infos < 0) n_kept_infos = get_custom_genotype_infos(file, &kept_infos);
    return n_kept_infos;
}

const CustomGenotypeInfo* get_custom_genotype_info_n(int i) {
    return i >= 0 && i < n_kept_infos ? &kept_infos[i] : nullptr;
}

void free_custom_genotype_infos() {
    safe_free(kept_infos);
    kept_infos = nullptr;
    n_kept_infos = -1;
}

}  // namespace velloran
