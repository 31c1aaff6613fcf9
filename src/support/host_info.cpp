#include "support/host_info.h"

#include "spark/spark.h"

#include <cctype>

namespace velloran {

bool host_api_at_least(float version) { return sparkAPIVersionInfo() >= version; }

bool called_in_batch_p() { return sparkCallingEnv() == SPARK_ENV_BATCH; }

void get_program_name(char* buffer) {
    char name[64] = "";
    if (host_api_at_least(2.502f)) sparkProgramGetName(name, sizeof(name));
    name[15] = 0;
    int i = 0;
    for (; name[i]; ++i) buffer[i] = static_cast<char>(std::tolower(static_cast<unsigned char>(name[i])));
    buffer[i] = 0;
}

}  // namespace velloran
