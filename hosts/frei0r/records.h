// What a frei0r host is told of an effect: a module with params of frei0r's kinds, in an order that never changes.
#pragma once

#include "hosts/render/effect.h"

#include <string>
#include <vector>

namespace frei0r {

enum class Kind { boolean, number, colour, text };
enum class Scale { even, whole, entries };  // of a number: any value, whole numbers, the entries of a popup

// One channel of an effect's param, or a colour. Its value is 0 to 1 for hosts, and low to high in the effect.
struct Param {
    std::string name;   // no other of the module has it
    std::string param;  // as the text of the effect writes it; empty: the effect has it no longer, and nothing happens
    int channel = 0;
    Kind kind = Kind::number;
    Scale scale = Scale::even;
    float low = 0, high = 1;          // low < high
    float defaults[3] = {0, 0, 0};    // in the effect's units; a colour has three
    std::string note;                 // a sentence for people, with range and unit
    std::vector<std::string> labels;  // of a popup, in order
};

struct Module {
    std::string slug;           // of the file
    std::string effect;         // "family:Effect"
    std::string title, note;    // for people
    int inputs = 0;             // 0 to 3
    std::vector<Param> params;  // in the order of the host's indices
};

// Of an effect as it stands, its params in the order of the text.
Module make_module(const std::string& family, const render::EffectDescription& effect);
// Why an effect has no module; empty if it has.
std::string left_out(const render::EffectDescription& effect);

// The file of orders: "SLUG FAMILY:EFFECT" on a line, and below it the params by name, each indented.
struct Order {
    std::string slug, effect;
    std::vector<std::string> params;
};
// Fails with the line that is wrong.
std::vector<Order> read_orders(const std::string& text, const std::string& path);
std::string orders_text(const std::vector<Order>& orders);
// Puts what the orders lack behind what they have. Answers whether there was anything.
bool append_orders(std::vector<Order>& orders, const std::vector<Module>& modules);

// The modules by the orders: what an order names and no effect has any longer keeps its place without a use, and what
// is in no order is left out.
std::vector<Module> ordered_modules(const std::vector<Module>& modules, const std::vector<Order>& orders);

// A param's value for hosts: 0 to 1.
double host_value(const Param& param, float value);
// The other way round; what is no number counts as the default.
float effect_value(const Param& param, double value);

}  // namespace frei0r
