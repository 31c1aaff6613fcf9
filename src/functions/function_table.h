// The one place that knows all functions: it fills the table of genotype/node_fun_table.h.
#pragma once

namespace velloran {

// Fills the table if that has not been done. A faulty row is reported at level 8 and takes the fatal abort. Host's
// thread, before any text is read.
void fill_node_fun_tables();

}  // namespace velloran
