#include "host/guard.h"

#include "support/abort.h"
#include "support/files.h"

#include <cstdio>
#include <cstring>

namespace velloran {

void enter_own_directory(OwnDirectory& own) {
    std::snprintf(own.caller, sizeof(own.caller), "%s", get_config_dir());
    const char* const directory = Globals_V4 ? Globals_V4->config_dir : "";
    if (*directory && std::strcmp(directory, own.caller) != 0) spark_set_config_dir(directory);
}

void leave_own_directory(const OwnDirectory& own) {
    if (_V_jmp_set && std::strcmp(get_config_dir(), own.caller) != 0) spark_set_config_dir(own.caller);
}

bool run_guarded(SparkInfoStruct* info, void (*function)(void*), void* argument) {
    SparkInfoStruct* const caller = spark_info_ptr;
    OwnDirectory own;
    enter_own_directory(own);
    AbortTarget outer;
    arm_abort(outer);
    const bool aborted = setjmp(_V_jmpbuf) != 0;
    if (!aborted) {
        spark_info_ptr = info;
        function(argument);
    }
    spark_info_ptr = caller;
    disarm_abort(outer);
    leave_own_directory(own);
    return !aborted;
}

}  // namespace velloran
