#include "host/guard.h"

#include "support/abort.h"

namespace velloran {

bool run_guarded(SparkInfoStruct* info, void (*function)(void*), void* argument) {
    SparkInfoStruct* const caller = spark_info_ptr;
    AbortTarget outer;
    arm_abort(outer);
    const bool aborted = setjmp(_V_jmpbuf) != 0;
    if (!aborted) {
        spark_info_ptr = info;
        function(argument);
    }
    spark_info_ptr = caller;
    disarm_abort(outer);
    return !aborted;
}

}  // namespace velloran
