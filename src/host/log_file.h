// The diagnostic dump v_log.text beside the error log, for those who are asked what went wrong.
#pragma once

#include "spark/spark.h"

#include <cstdio>

namespace velloran {

// Version, as it appears in messages and logs.
constexpr const char* velloran_version = "4.04";
constexpr const char* velloran_build_date = "15-jan-2008";

// Writes the file anew: build, host, machine, environment, the frame of spark_info, and the error logs. A file that
// cannot be written is no error. Host's thread only.
void write_log_file(const SparkInfoStruct* spark_info);

// The host section's line.
void write_host_info_to_log(FILE* log);

}  // namespace velloran
