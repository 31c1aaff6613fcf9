// What the tests of the genotype room share: reading texts inside a plug-in's record, and looking at what came of them.
#pragma once

#include "compile/load.h"
#include "functions/function_table.h"
#include "genotype/node_fun_table.h"
#include "genotype/node_table.h"
#include "genotype/writer.h"
#include "records/node.h"
#include "records/run_state.h"
#include "testing/support_messages.h"

#include <cstring>
#include <memory>

using namespace velloran;

struct GenotypeFree {
    void operator()(Genotype* genotype) const { free_genotype(genotype); }
};
using GenotypePtr = std::unique_ptr<Genotype, GenotypeFree>;

class GenotypeTest : public SupportTest {
protected:
    GlobalsV4Record record = {};

    void SetUp() override {
        SupportTest::SetUp();
        const uint8_t tags[8] = {4, 1, 1, 2, 3, 3, 3, 3};
        std::memcpy(record.source_tags, tags, sizeof(tags));
        Globals_V4 = &record;
        fill_node_fun_tables();
    }
    void TearDown() override {
        Globals_V4 = nullptr;
        SupportTest::TearDown();
    }

    static GenotypePtr read_text(const std::string& text) {
        return GenotypePtr(read_genotype_from_string(text.c_str()));
    }
    // A definition around assignments, with one input of 3 elements.
    static std::string effect(const std::string& assignments) { return "(def_effect E (Source) " + assignments + ")"; }

    // The tree of dest as the writer prints it.
    static std::string tree(const Genotype* genotype) {
        if (!genotype) return "null";
        char* text = nullptr;
        size_t size = 0;
        FILE* stream = open_memstream(&text, &size);
        write_node_tree(stream, genotype->nodes);
        std::fclose(stream);
        std::string result = text[0] ? text + 1 : "";  // without the leading blank
        std::free(text);
        return result;
    }
};
