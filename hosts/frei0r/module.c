/* The frei0r module of the effect MODULE_SLUG. */
#include "hosts/frei0r/module.h"

#include <frei0r.h>

#define SHOWN __attribute__((visibility("default")))

SHOWN int f0r_init(void) { return 1; }
SHOWN void f0r_deinit(void) {}

SHOWN void f0r_get_plugin_info(f0r_plugin_info_t* info) { velloran_frei0r_info(MODULE_SLUG, info); }
SHOWN void f0r_get_param_info(f0r_param_info_t* info, int param) {
    velloran_frei0r_param_info(MODULE_SLUG, info, param);
}

SHOWN f0r_instance_t f0r_construct(unsigned int width, unsigned int height) {
    return velloran_frei0r_open(MODULE_SLUG, width, height);
}
SHOWN void f0r_destruct(f0r_instance_t instance) { velloran_frei0r_close(instance); }

SHOWN void f0r_set_param_value(f0r_instance_t instance, f0r_param_t value, int param) {
    velloran_frei0r_set(instance, value, param);
}
SHOWN void f0r_get_param_value(f0r_instance_t instance, f0r_param_t value, int param) {
    velloran_frei0r_get(instance, value, param);
}

SHOWN void f0r_update(f0r_instance_t instance, double time, const uint32_t* inframe, uint32_t* outframe) {
    const uint32_t* const inputs[3] = {inframe, 0, 0};
    velloran_frei0r_update(instance, time, inputs, outframe, __builtin_return_address(0));
}
SHOWN void f0r_update2(f0r_instance_t instance, double time, const uint32_t* inframe1, const uint32_t* inframe2,
                       const uint32_t* inframe3, uint32_t* outframe) {
    const uint32_t* const inputs[3] = {inframe1, inframe2, inframe3};
    velloran_frei0r_update(instance, time, inputs, outframe, __builtin_return_address(0));
}
