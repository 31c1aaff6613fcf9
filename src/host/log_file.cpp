#include "host/log_file.h"

#include "records/run_state.h"
#include "support/files.h"
#include "support/host_info.h"

#include <sys/utsname.h>
#include <unistd.h>

#include <cstdlib>

namespace velloran {
namespace {

const char* const environment_names[] = {"VELLORAN_VERBOSE", "VELLORAN_ALLOW_GETFRAME_IN_BATCH",
                                         "VELLORAN_MALLOC_LONG_IMAGE", "DL_SPARKS_FORCE_S_RELOAD", "TZ"};

void write_build_section(FILE* log) {
    std::fprintf(log, "\n========= Build information =========\n");
    std::fprintf(log, "product: Velloran\nversion: %s\nbuilt: %s\n", velloran_version, velloran_build_date);
    std::fprintf(log, "platform: %s, %d bits\n",
#if defined(__x86_64__) || defined(__i386__)
                 "x86",
#elif defined(__aarch64__)
                 "arm",
#else
                 "other",
#endif
                 static_cast<int>(8 * sizeof(void*)));
}

void write_host_section(FILE* log) {
    std::fprintf(log, "\n========= Host Information =========\n");
    write_host_info_to_log(log);
}

void write_machine_section(FILE* log) {
    std::fprintf(log, "\n========= Machine Information =========\n");
    utsname names;
    if (uname(&names) == 0)
        std::fprintf(log, "kernel: %s %s %s %s\nhost name: %s\n", names.sysname, names.release, names.version,
                     names.machine, names.nodename);
    std::fprintf(log, "processors: %ld\n", sysconf(_SC_NPROCESSORS_ONLN));
}

void write_environment_section(FILE* log) {
    std::fprintf(log, "\n========= Environment/Registry Settings =========\n");
    for (const char* name : environment_names) {
        const char* const value = std::getenv(name);
        std::fprintf(log, "%s: %s\n", name, value ? value : "<not set>");
    }
}

void write_render_section(FILE* log, const SparkInfoStruct* info) {
    const char* const name = Globals_V4 && Globals_V4->plugin_name ? Globals_V4->plugin_name : "(unknown)";
    std::fprintf(log, "\n========= Render Information =========\n");
    std::fprintf(log, "spark: %s, img %d x %d x %d\n", name, info->FrameWidth, info->FrameHeight, info->FrameDepth);
}

void copy_file(FILE* log, const char* path) {
    FILE* const file = safe_fopen(path, "r", 0);
    if (!file) return;
    std::fprintf(log, "=== Contents of %s:\n", path);
    char block[4096];
    size_t n;
    while ((n = std::fread(block, 1, sizeof(block), file)) > 0) std::fwrite(block, 1, n, log);
    safe_fclose(file);
    std::fprintf(log, "=== End of %s.\n", path);
}

void write_files_section(FILE* log) {
    std::fprintf(log, "\n========= Additional Files =========\n");
    char path[log_path_size];
    for (const char* name : {"v_error_log.txt", "v_error_log.txt.bak"}) {
        log_file_path(name, path);
        copy_file(log, path);
    }
    std::fprintf(log, "### end of log file ###\n");
}

}  // namespace

void write_host_info_to_log(FILE* log) {
    char name[64];
    get_program_name(name);
    std::fprintf(log, "program '%s', API ver %g, called via %s\n", name, static_cast<double>(sparkAPIVersionInfo()),
                 sparkCallingEnv() == SPARK_ENV_BATCH ? "batch" : "desktop");
}

void write_log_file(const SparkInfoStruct* spark_info) {
    char path[log_path_size];
    FILE* const log = open_log_file("v_log.text", "w", path);
    if (!log) return;
    write_build_section(log);
    write_host_section(log);
    write_machine_section(log);
    write_environment_section(log);
    write_render_section(log, spark_info);
    write_files_section(log);
    std::fclose(log);
}

}  // namespace velloran
