// Params that show what data files define.
#pragma once

namespace velloran {

struct Genotype;

// Gives the params of an effect their lists. Before the effect is laid out.
void set_custom_lists(Genotype* genotype);

}  // namespace velloran
