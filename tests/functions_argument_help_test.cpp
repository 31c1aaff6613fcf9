// Words for the authors of texts: all arguments have theirs, and none speak of what is not there.
#include "functions/argument_help.h"
#include "functions/function_table.h"
#include "genotype/node_fun_table.h"

#include <gtest/gtest.h>

#include <set>
#include <sstream>
#include <string>

using namespace velloran;

namespace {

std::set<std::string> words(const char* text) {
    std::istringstream in(text);
    std::set<std::string> all;
    for (std::string word; in >> word;) all.insert(word);
    return all;
}

TEST(ArgumentHelps, EveryArgumentHasItsWordsAndNoWordsAreLeftOver) {
    fill_node_fun_tables();
    std::set<const ArgumentHelp*> used;
    std::set<std::pair<const ArgumentHelp*, std::string>> used_names;
    for (int f = 0; f < node_fun_number; ++f) {
        for (int a = 0; a < node_funs[f].arg_number; ++a) {
            const ArgumentHelp* const help = find_argument_help(&node_funs[f], a);
            ASSERT_TRUE(help) << node_funs[f].name << ' ' << node_funs[f].arg_names[a];
            used.insert(help);
            used_names.emplace(help, node_funs[f].name);
            used_names.emplace(help, node_funs[f].arg_names[a]);
        }
    }
    for (int i = 0; i < n_argument_helps; ++i) {
        const ArgumentHelp& help = argument_helps[i];
        SCOPED_TRACE(std::string(help.functions) + ": " + help.arguments);
        EXPECT_TRUE(used.count(&help));
        EXPECT_STRNE(help.meaning, "");
        for (const std::string& name : words(help.functions)) EXPECT_TRUE(used_names.count({&help, name})) << name;
        for (const std::string& name : words(help.arguments)) EXPECT_TRUE(used_names.count({&help, name})) << name;
    }
}

// Kinds are counted from 0.
TEST(ArgumentHelps, ChoicesCountFromZero) {
    int counted = 0;
    for (int i = 0; i < n_argument_helps; ++i) {
        std::istringstream items(argument_helps[i].choices);
        int next = 0;
        for (std::string item; std::getline(items, item, ',');) {
            std::istringstream in(item);
            int number = -1;
            if (!(in >> number)) continue;
            EXPECT_EQ(number, next++) << argument_helps[i].choices;
        }
        EXPECT_TRUE(next == 0 || next >= 2) << argument_helps[i].choices;
        counted += next > 0;
    }
    EXPECT_GT(counted, 10);
}

}  // namespace
