// The way up from the params to the on-screen handles: laying out an effect needs the switches of its handles, showing
// one needs the handles themselves. The entry points put the functions here before the first effect is laid out; null
// means that there are no handles.
#pragma once

#include "records/widget_record.h"

namespace velloran {

struct WidgetRequests {
    void (*collect)(Genotype* genotype);  // makes the records of the effect's handles, with the params that switch them
    void (*create)(Genotype* genotype);   // makes the handles on first use
};
extern WidgetRequests widget_requests;

}  // namespace velloran
