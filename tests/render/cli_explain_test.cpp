// What `velloran explain` prints, draws and refuses.
#include "tests/render/cli_rig.h"

#include <nlohmann/json.hpp>

#include <algorithm>

using namespace test_cli;

TEST_F(Cli, ExplainsAnEffect) {
    plate("in.png", 3, OIIO::TypeDesc::UINT16);
    write("branch.text",
          "(def_effect Branch (Source) ()\n  flag = 0 (min 0 max 1)\n  gain = 0.5 (min 0 max 2)\n"
          "  soft = (blur Source 0.2 2 1 1)\n  dest = (if_eq flag 1 soft (* gain (expt Source 1)))\n)\n");
    const std::string line = "explain --config cfg branch.text -i in.png --pixel 7,5 ";
    const Outcome json = velloran(line + "--json -o graph.dot");
    ASSERT_EQ(json.status, 0) << json.err;
    const auto told = nlohmann::json::parse(json.out);
    const auto schema = nlohmann::json::parse(read_file(EXPLAIN_SCHEMA), nullptr, false);
    const auto fits = [](const nlohmann::json& object, const nlohmann::json& rules) {
        for (const auto& name : rules["required"]) EXPECT_TRUE(object.contains(name)) << name << " " << object;
        for (const auto& [name, value] : object.items()) EXPECT_TRUE(rules["properties"].contains(name)) << name;
    };
    ASSERT_TRUE(schema.is_object());
    fits(told, schema);
    for (const auto& node : told["nodes"]) {
        const auto& rules = schema["$defs"]["node"];
        fits(node, rules);
        const auto& ways = rules["properties"]["how"]["enum"];
        EXPECT_TRUE(std::find(ways.begin(), ways.end(), node["how"]) != ways.end()) << node["how"];
        for (const auto& argument : node.value("arguments", nlohmann::json::array()))
            fits(argument, schema["$defs"]["argument"]);
    }
    ASSERT_EQ(render("branch.text -i in.png -o out.png -d 16").status, 0);
    const Samples out = samples("out.png");
    std::map<std::string, nlohmann::json> by_name;
    std::map<int, nlohmann::json> by_row;
    for (const auto& node : told["nodes"]) {
        by_row[node["node"]] = node;
        by_name[node.value("name", node.value("function", ""))] = node;
    }
    for (int c = 0; c < 3; c++) {
        EXPECT_EQ(told["picture"][static_cast<size_t>(c)], out.at(7, 23 - 1 - 5, c) >> 4);
        EXPECT_EQ(by_row[0]["fixed"][static_cast<size_t>(c)], told["picture"][static_cast<size_t>(c)]);
    }
    EXPECT_EQ(by_row[0]["how"], "removed");
    EXPECT_EQ(by_name["*"]["node"], by_row[0]["stands_for"]);
    EXPECT_EQ(by_name["soft"]["how"], "not evaluated");
    EXPECT_NE(by_name["soft"]["reason"].get<std::string>().find("if_eq"), std::string::npos);
    EXPECT_FALSE(by_name["soft"].contains("fixed"));
    EXPECT_EQ(by_name["expt"]["how"], "removed");
    EXPECT_EQ(by_name["gain"]["param"], "gain");
    EXPECT_EQ(by_name["gain"]["fixed"][0], 2048);
    EXPECT_EQ(by_name["Source"]["how"], "input");

    // Each node and each argument is in the drawing, and nothing else.
    const std::string drawing = read_file("graph.dot");
    EXPECT_EQ(drawing.rfind("digraph ", 0), 0u);
    size_t arrows = 0, arguments = 0;
    for (size_t at = 0; (at = drawing.find(" -> ", at)) != std::string::npos; at++) arrows++;
    for (const auto& [row, node] : by_row) {
        EXPECT_NE(drawing.find("  n" + std::to_string(row) + " ["), std::string::npos);
        if (node.contains("arguments")) arguments += node["arguments"].size();
    }
    EXPECT_EQ(arrows, arguments);

    // The other side.
    const Outcome other = velloran(line + "-p flag=1");
    ASSERT_EQ(other.status, 0) << other.err;
    EXPECT_NE(other.out.find("soft = (blur)"), std::string::npos);
    EXPECT_NE(other.out.find("whole image"), std::string::npos);
    EXPECT_NE(other.out.find("not evaluated: #0 (if_eq) gives"), std::string::npos) << other.out;
}

TEST_F(Cli, WhatCannotBeExplainedIsTold) {
    plate("in.png");
    const auto says = [&](const std::string& line, const std::string& words) {
        const Outcome ran = velloran("explain --config cfg " + line);
        EXPECT_EQ(ran.status, 2) << line << ran.err;
        EXPECT_NE((ran.out + ran.err).find(words), std::string::npos) << line << "\n" << ran.err;
    };
    says("", "EFFECT");
    says("nowhere", "nowhere");
    says("my.text:Gain -i in.png --pixel 37,0", "outside the frame of 37x23");
    says("my.text:Gain -i in.png --pixel 0,23", "outside the frame of 37x23");
    says("my.text:Gain -i in.png --pixel=-1,0", "outside the frame of 37x23");
    says("my.text:Gain -i in.png --pixel 3", "--pixel");
    says("my.text:Gain -i in.png --pixel 3,1,2", "--pixel");
    says("my.text:Gain -i in.png -p amout=1", "amount");
    says("my.text:Gain -i lost.png", "lost.png");
    says("my.text:Gain -i in.png -c on_fields=1", "field by field");
    says("my.text:Gain -i in.png -o nowhere/graph.dot", "nowhere/graph.dot");
    const Outcome alone = velloran("explain --config cfg none.text");
    EXPECT_EQ(alone.status, 0) << alone.err;
    EXPECT_NE(alone.out.find("1920x1080"), std::string::npos);
}
