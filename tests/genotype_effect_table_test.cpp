#include "genotype/effect_table.h"
#include "testing/genotype_reading.h"

namespace {

class EffectTableTest : public GenotypeTest {
protected:
    std::vector<GenotypePtr> effects;

    void add(const std::string& name, const std::string& inputs) {
        effects.push_back(read_text("(def_effect " + name + " (" + inputs + ") dest = 1)"));
        ASSERT_TRUE(effects.back());
        record.genotypes[record.n_effects++] = effects.back().get();
    }
};

TEST_F(EffectTableTest, ColumnsByInputsAndRowsByName) {
    add("Blur", "Source");
    add("Glow", "Source");
    add("blur", "Source Matte");
    add("Glow", "matte SOURCE");
    EffectTable* table = make_effect_table("plug");
    EXPECT_EQ(messages(), "");
    EXPECT_EQ(effect_table_n_effects(table), 2);
    EXPECT_EQ(effect_table_input_index(table, "MATTE"), 1);
    EXPECT_EQ(effect_table_input_index(table, "Mat"), -1);
    EXPECT_EQ(effect_table_input_mask(table, 1), 3);
    EXPECT_EQ(effect_table_n_inputs(table, 1), 2);
    EXPECT_EQ(effect_table_input_mask(table, 0), 1);
    const struct {
        int popup, mask, index;
    } rows[] = {{0, 1, 0},  {1, 1, 1},  {0, 3, 2},   {1, 3, 3},  {1, 0xff, 3},
                {0, 2, -1}, {2, 1, -1}, {-1, 1, -1}, {49, 1, -1}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.popup * 1000 + row.mask);
        EXPECT_EQ(get_effect_from_table(table, row.popup, row.mask), row.index);
    }
    EXPECT_EQ(get_first_effect_from_table(table, 1), 1);
    EXPECT_EQ(get_effect_index_from_genotype(table, "GLOW"), 1);
    EXPECT_TRUE(genotype_uses_input_p(table, 1, effects[3].get()));
    EXPECT_FALSE(genotype_uses_input_p(table, 1, effects[0].get()));
    EXPECT_EQ(messages(), "");
    EXPECT_EQ(get_first_effect_from_table(table, 2), -1);
    EXPECT_EQ(get_effect_index_from_genotype(table, "None"), -1);
    EXPECT_EQ(messages(),
              "8 get_first_effect_from_table: effect (popup) index 2 not found in table.\n"
              "8 get_effect_index_from_genotype: genotype None not found in table.\n");
    ++table->ref_count;
    free_effect_table(table);
    EXPECT_EQ(effect_table_n_effects(table), 2);
    free_effect_table(table);
}

TEST_F(EffectTableTest, FaultsOfATable) {
    EffectTable* table = new_effect_table("plug");
    const char* five[] = {"A", "B", "C", "D", "E"};
    const char* gap[] = {"A", ""};
    EXPECT_EQ(add_to_effect_table(table, "One", five, 5, 0), 2);
    EXPECT_EQ(add_to_effect_table(table, "ONE", five, 4, 1), 1);
    EXPECT_EQ(add_to_effect_table(table, "Two", gap, 2, 2), 2);
    EXPECT_EQ(messages(),
              "8 plug: Too many input names\n"
              "8 Effect ONE: some version already in table!\n"
              "8 Null name in effect table for Two input 1\n");
    EXPECT_EQ(add_to_effect_table(table, "Three", five, 1, 3), 2);
    check_effect_table(table);
    EXPECT_EQ(
        messages(),
        "8 plug: effect Two with mask 1 out of order.  Since it's 0 down in its effect table column, I expected it "
        "to be One.\n"
        "8 plug: effect Three with mask 1 out of order.  Since it's 1 down in its effect table column, I expected it "
        "to be Two.\n"
        "8 plug: Column 1 has 2 effects, prev column had 1.\n"
        "8 plug: 3 total effects, but 2 columns of 2 members.\n");
    free_effect_table(table);

    table = new_effect_table("");
    for (int i = 0; i < 50; ++i) add_to_effect_table(table, ("E" + std::to_string(i)).c_str(), five, 1, i);
    EXPECT_EQ(messages(), "8 : too many effects in single plug-in\n");
    EXPECT_EQ(get_effect_from_table(table, 48, 1), 48);
    check_effect_table(table);
    EXPECT_EQ(messages().substr(0, 36), "8 effect table: bad plugin name\n8 : ");
    free_effect_table(table);
}

TEST_F(EffectTableTest, AnEffectTwiceInOneColumnStopsTheLoad) {
    add("One", "Source");
    add("One", "Source");
    EXPECT_NE(abort_status([] { make_effect_table("plug"); }), 0);
    EXPECT_EQ(messages(),
              "8 Effect One: some version already in table!\n"
              "9 One: effect already in effect table.  Probably duplicated in def file.\n");
}

}  // namespace
