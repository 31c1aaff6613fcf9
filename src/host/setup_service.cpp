// Setup files of the library's own form, for hosts that hand them over by path.
#include "host/stub_services.h"

#include "params/effect_selection.h"
#include "params/layout.h"
#include "params/setups.h"
#include "support/abort.h"

using namespace velloran;

int V4_load_setup(SparkInfoStruct info, const char* path) {
    AbortTarget outer;
    arm_abort(outer);
    if (setjmp(_V_jmpbuf)) {
        spark_info_ptr = nullptr;
        disarm_abort(outer);
        return -1;
    }
    spark_info_ptr = &info;
    const int status = load_setup(path);
    if (status >= 0) {
        const int selected = Globals_V4->selected_effect;
        setup_effect_buttons(selected, 0);
        spark_select_effect_i(selected, 0, 1);
    }
    spark_info_ptr = nullptr;
    disarm_abort(outer);
    return status;
}
