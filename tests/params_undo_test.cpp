#include "testing/params_fixture.h"

namespace velloran {
namespace {

class Undo : public ParamsTest {
protected:
    Undo() {
        effect = add_effect("E");
        for (const char* const name : {"a", "b", "c"}) {
            add_param(effect, param_float, name);
            effect->params[effect->param_number - 1]->max_value = 1e6f;
        }
        show(0);
    }
    void set(int param, float value, int mode) { param_set_value(effect->params[param], 0, value, mode); }
    std::string values() {
        std::string text;
        for (int i = 0; i < effect->param_number; ++i)
            text += std::to_string(static_cast<int>(effect->params[i]->value[0])) + " ";
        return text;
    }
    UndoList* list() { return get_undo_list(effect); }
    Genotype* effect;
};

TEST_F(Undo, GroupsComeBackWhole) {
    set(0, 1, set_undo_boundary);
    set(0, 2, set_undo_fold);  // the drag goes on: its first value is kept already
    set(0, 3, set_undo_fold);
    EXPECT_EQ(list()->count, 1);
    EXPECT_EQ(list()->bytes, 12 + 32);
    set(1, 5, set_undo_fold);  // a second param of the same change
    EXPECT_EQ(list()->count, 2);
    spark_make_next_undo_record_a_boundary();
    set(0, 9, set_undo_fold);
    EXPECT_EQ(undo_list_undo(list()), 1);
    EXPECT_EQ(values(), "3 5 0 ");
    EXPECT_EQ(undo_list_undo(list()), 1);
    EXPECT_EQ(values(), "0 0 0 ");
    EXPECT_EQ(undo_list_undo(list()), 0);
    EXPECT_EQ(undo_list_redo(list()), 2);
    EXPECT_EQ(values(), "3 5 0 ");
    EXPECT_EQ(undo_list_redo(list()), 1);
    EXPECT_EQ(values(), "9 5 0 ");
    EXPECT_EQ(undo_list_redo(list()), 0);
    EXPECT_EQ(at->floats[6].Value, 9) << "the controls follow";
}

TEST_F(Undo, AChangeAfterUndoDropsWhatCouldBeRedone) {
    set(0, 1, set_undo_boundary);
    set(1, 2, set_undo_boundary);
    undo_list_undo(list());
    set(2, 7, set_undo_boundary);
    EXPECT_EQ(list()->count, 2);
    EXPECT_EQ(list()->bytes, 2 * (12 + 32));
    EXPECT_EQ(undo_list_redo(list()), 0);
    undo_list_undo(list());
    undo_list_undo(list());
    EXPECT_EQ(values(), "0 0 0 ");
}

TEST_F(Undo, TheOldestGoesWhenMemoryIsFull) {
    for (int i = 1; i <= 1000; ++i) set(i % 3, static_cast<float>(i), set_undo_boundary);
    EXPECT_EQ(list()->count, 8192 / 44);
    EXPECT_EQ(list()->bytes, 8192 / 44 * 44);
    int undone = 0;
    while (undo_list_undo(list())) ++undone;
    EXPECT_EQ(undone, 8192 / 44);
    // 1000 - 186 = 814 changes stay: the last to each of params 0, 1 and 2 were 813, 814 and 812.
    EXPECT_EQ(values(), "813 814 812 ");
}

TEST_F(Undo, NothingIsKeptWithoutAnEffect) {
    record.selected_effect = -1;
    set(0, 1, set_undo_boundary);
    EXPECT_EQ(effect->undo_list, nullptr);
}

}  // namespace
}  // namespace velloran
