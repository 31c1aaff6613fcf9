// An explanation as a tree in lines, as JSON, and as a drawing.
#include "hosts/common/numbers.h"
#include "hosts/render/explanation.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>
#include <map>
#include <set>

namespace render {
namespace {

const char* const ways[] = {"not evaluated", "row function", "fused pass",  "table",  "whole image",
                            "input",         "coordinate",   "kept images", "folded", "removed"};

std::string number_of(int row) { return "#" + std::to_string(row); }

std::map<int, const ExplainedNode*> nodes_by_row(const Explanation& explanation) {
    std::map<int, const ExplainedNode*> nodes;
    for (const ExplainedNode& node : explanation.nodes) nodes[node.row] = &node;
    return nodes;
}

std::string words_of(const ExplainedNode& node) {
    std::string text = node.name;
    if (node.function.empty()) return text.empty() ? "number" : text;
    return (text.empty() ? "" : text + " = ") + "(" + node.function + ")";
}

std::string how_of(const ExplainedNode& node) {
    switch (node.how) {
        case SPARK_NODE_UNUSED:
            return "not evaluated: " + node.reason;
        case SPARK_NODE_FOLDED:
            if (!node.param.empty()) return "param " + node.param;
            return node.function.empty() ? "constant" : node.constant == 2 ? "folded, constant" : "folded";
        case SPARK_NODE_PASSED:
            return "removed: " + number_of(node.stands_for) + " stands in its place";
        default:
            break;
    }
    std::string text = ways[node.how];
    if (node.pass >= 0 && node.pass != node.row) text += " of " + number_of(node.pass);
    if (node.planes > 0 && node.how != SPARK_NODE_IMAGE) text += ", into planes";
    return text;
}

std::string number(double value) {
    std::string text = spark_host::number_text(value, 6);
    text.erase(text.find_last_not_of('0') + 1);
    if (text.back() == '.') text.pop_back();
    return text == "-0" ? "0" : text;
}

std::string value_of(const ExplainedNode& node) {
    if (!node.has_value) return "";
    std::string parts, fixed;
    for (int e = 0; e < node.elements; e++) {
        parts += (e ? " " : "") + number(node.value[e] / 4096.0);
        fixed += (e ? " " : "") + std::to_string(node.value[e]);
    }
    return (node.elements > 1 ? "[" + parts + "]" : parts) + " = " + fixed + "/4096";
}

std::string bytes_text(unsigned long bytes) {
    if (bytes >= 1024 * 1024) return spark_host::number_text(static_cast<double>(bytes) / 1048576, 1) + " MiB";
    if (bytes >= 1024) return spark_host::number_text(static_cast<double>(bytes) / 1024, 1) + " KiB";
    return std::to_string(bytes) + " B";
}

std::string milliseconds(double seconds) { return spark_host::number_text(seconds * 1000, 3) + " ms"; }

std::string cost_of(const ExplainedNode& node) {
    std::string text;
    const auto add = [&](const std::string& words) { text += (text.empty() ? "" : ", ") + words; };
    if (node.seconds > 0) add(milliseconds(node.seconds));
    if (node.planes > 0) add("planes " + bytes_text(node.planes));
    if (node.work > 0 && node.how == SPARK_NODE_IMAGE) add("work " + bytes_text(node.work));
    if (node.shared > 0) add("shared " + bytes_text(node.shared));
    if (node.lines > 0 && node.planes == 0) add("lines " + bytes_text(node.lines));
    return text;
}

// Depth first; a node is told where it is met first.
class Tree {
public:
    explicit Tree(const Explanation& explanation) : nodes_(nodes_by_row(explanation)) {
        if (!explanation.nodes.empty()) add(explanation.nodes.front().row, "", 0);
    }
    std::string text() const {
        size_t columns[3] = {};
        for (const Line& line : lines_)
            for (size_t c = 0; c < 3; c++) columns[c] = std::max(columns[c], std::min<size_t>(line[c].size(), 56));
        std::string all;
        for (const Line& line : lines_) {
            std::string row;
            for (size_t c = 0; c < 4; c++) {
                row += line[c];
                if (c < 3)
                    row += std::string(columns[c] > line[c].size() ? columns[c] - line[c].size() : 0, ' ') + "  ";
            }
            row.erase(row.find_last_not_of(' ') + 1);
            all += row + "\n";
        }
        return all;
    }

private:
    using Line = std::vector<std::string>;

    // An open node, and what is left to tell of it: graphs may be as deep as they are long.
    void add(int first, const std::string&, size_t) {
        struct Step {
            int row;
            std::string label;
            size_t depth;
        };
        std::vector<Step> open = {{first, "", 0}};
        while (!open.empty()) {
            const Step step = open.back();
            open.pop_back();
            const auto found = nodes_.find(step.row);
            if (found == nodes_.end()) continue;
            const ExplainedNode& node = *found->second;
            const std::string start = std::string(2 * std::min<size_t>(step.depth, 40), ' ') + step.label;
            if (node.function.empty() && node.name.empty()) {
                lines_.push_back({start + "number " + value_of(node), "", "", ""});
                continue;
            }
            if (!told_.insert(step.row).second) {
                lines_.push_back({start + number_of(step.row) + " " + words_of(node), "see above", "", ""});
                continue;
            }
            lines_.push_back(
                {start + number_of(step.row) + " " + words_of(node) + " : " + std::to_string(node.elements),
                 how_of(node), value_of(node), cost_of(node)});
            // Below what is one number, or nothing, there is nothing to see.
            if (node.how == SPARK_NODE_FOLDED || node.how == SPARK_NODE_UNUSED) continue;
            for (size_t a = node.arguments.size(); a-- > 0;)
                open.push_back({node.arguments[a].row, node.arguments[a].name + ": ", step.depth + 1});
        }
    }

    std::map<int, const ExplainedNode*> nodes_;
    std::vector<Line> lines_;
    std::set<int> told_;
};

std::string quoted(const std::string& text) {
    std::string out = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') out += '\\';
        out += c == '\n' ? ' ' : c;
    }
    return out + "\"";
}

}  // namespace

void find_reasons(Explanation& explanation) {
    const auto nodes = nodes_by_row(explanation);
    std::map<int, std::vector<std::string>> reasons;
    for (const ExplainedNode& user : explanation.nodes)
        for (const ExplainedArgument& argument : user.arguments) {
            const std::string who = number_of(user.row) + " (" + user.function + ")";
            std::string why = who + " does not read it at these values";
            if (!argument.evaluated)
                why = who + " asks how many elements it has, and no more";
            else if (user.how == SPARK_NODE_FOLDED)
                why = who + " is folded";
            else if (user.how == SPARK_NODE_PASSED)
                why = who + " gives " + number_of(user.stands_for) + " at these values";
            else if (user.how == SPARK_NODE_UNUSED)
                why = who + " is not evaluated";
            else if (user.how == SPARK_NODE_KEPT)
                why = who + " stands from an earlier frame";
            auto& list = reasons[argument.row];
            if (std::find(list.begin(), list.end(), why) == list.end()) list.push_back(why);
        }
    for (ExplainedNode& node : explanation.nodes) {
        if (node.how != SPARK_NODE_UNUSED) continue;
        for (const std::string& why : reasons[node.row]) node.reason += (node.reason.empty() ? "" : ", ") + why;
        if (node.reason.empty()) node.reason = "nothing reads it";
    }
}

std::string explanation_text(const Explanation& explanation) {
    std::string text = explanation.effect + ", frame " + std::to_string(explanation.frame) + " of " +
                       std::to_string(explanation.width) + "x" + std::to_string(explanation.height) + ": " +
                       milliseconds(explanation.seconds) + ", " + std::to_string(explanation.planes) + " planes of " +
                       bytes_text(explanation.plane_bytes) + "\n";
    if (explanation.pixel) {
        text += "pixel " + std::to_string(explanation.x) + "," + std::to_string(explanation.y) + " of the frame:";
        for (const int sample : explanation.made) text += " " + std::to_string(sample);
        text += " of 4095\n";
    }
    return text + "\n" + Tree(explanation).text();
}

std::string explanation_json(const Explanation& explanation) {
    nlohmann::ordered_json all = {
        {"effect", explanation.effect},          {"frame", explanation.frame},     {"width", explanation.width},
        {"height", explanation.height},          {"seconds", explanation.seconds}, {"planes", explanation.planes},
        {"plane_bytes", explanation.plane_bytes}};
    if (explanation.pixel) {
        all["pixel"] = {explanation.x, explanation.y};
        all["picture"] = explanation.made;
    }
    all["nodes"] = nlohmann::ordered_json::array();
    for (const ExplainedNode& node : explanation.nodes) {
        nlohmann::ordered_json n = {{"node", node.row}};
        if (!node.name.empty()) n["name"] = node.name;
        if (!node.function.empty()) n["function"] = node.function;
        if (!node.param.empty()) n["param"] = node.param;
        n["elements"] = node.elements;
        if (!node.arguments.empty()) n["arguments"] = nlohmann::ordered_json::array();
        for (const ExplainedArgument& argument : node.arguments)
            n["arguments"].push_back(
                {{"name", argument.name}, {"node", argument.row}, {"evaluated", argument.evaluated}});
        n["constant"] = node.constant > 0;
        n["how"] = ways[node.how];
        if (!node.reason.empty()) n["reason"] = node.reason;
        if (node.stands_for >= 0) n["stands_for"] = node.stands_for;
        if (node.pass >= 0) n["pass"] = node.pass;
        if (node.has_value) {
            const std::vector<int> fixed(node.value, node.value + node.elements);
            std::vector<double> value;
            for (const int v : fixed) value.push_back(v / 4096.0);
            n["fixed"] = fixed;
            n["value"] = value;
        }
        n["seconds"] = node.seconds;
        n["plane_bytes"] = node.planes;
        n["line_bytes"] = node.lines;
        n["work_bytes"] = node.work;
        n["shared_bytes"] = node.shared;
        all["nodes"].push_back(n);
    }
    return all.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

std::string explanation_drawing(const Explanation& explanation) {
    const auto nodes = nodes_by_row(explanation);
    std::string text = "digraph " + quoted(explanation.effect) +
                       " {\n  rankdir=BT;\n  node [shape=box, fontname=\"sans-serif\", fontsize=10];\n"
                       "  edge [fontname=\"sans-serif\", fontsize=8];\n";
    for (const ExplainedNode& node : explanation.nodes) {
        std::string label = words_of(node) + " : " + std::to_string(node.elements);
        for (const std::string& line : {how_of(node), value_of(node), cost_of(node)})
            if (!line.empty()) label += "\n" + line;
        std::string written = quoted("");
        written.clear();
        for (const char c : label)
            written += c == '\n'               ? std::string("\\n")
                       : c == '"' || c == '\\' ? std::string("\\") + c
                                               : std::string(1, c);
        const bool off = node.how == SPARK_NODE_UNUSED || node.how == SPARK_NODE_PASSED;
        const char* const look = off                             ? ", style=dashed, fontcolor=gray40, color=gray40"
                                 : node.how == SPARK_NODE_FOLDED ? ", style=filled, fillcolor=gray92"
                                 : node.how == SPARK_NODE_IMAGE  ? ", style=filled, fillcolor=lightblue"
                                 : node.how == SPARK_NODE_READ   ? ", style=filled, fillcolor=palegreen"
                                                                 : "";
        text += "  n" + std::to_string(node.row) + " [label=\"" + written + "\"" + look + "];\n";
    }
    for (const ExplainedNode& node : explanation.nodes)
        for (const ExplainedArgument& argument : node.arguments) {
            const bool read = argument.evaluated && node.how != SPARK_NODE_UNUSED && node.how != SPARK_NODE_PASSED &&
                              nodes.count(argument.row) && nodes.at(argument.row)->how != SPARK_NODE_UNUSED;
            text += "  n" + std::to_string(argument.row) + " -> n" + std::to_string(node.row) +
                    " [label=" + quoted(argument.name) + (read ? "" : ", style=dashed, color=gray60") + "];\n";
        }
    return text + "}\n";
}

}  // namespace render
