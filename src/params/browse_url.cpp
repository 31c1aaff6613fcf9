#include "params/browse_url.h"

#include "spark/spark.h"
#include "support/errors.h"
#include "support/files.h"

#include <sys/wait.h>
#include <unistd.h>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace velloran {

namespace {

constexpr const char* script = "browse-url.sh";

// The child's exit status when the script could not be run at all, as shells have it.
constexpr int not_run = 127;

// Runs the script with the address as its one argument. The exit status, or -1 if it did not end by itself; -2 if no
// process could be made, with errno.
int run_script(const char* path, const char* url, bool trace) {
    if (trace) std::printf("browse_url: %s %s\n", path ? path : script, url);
    const pid_t child = fork();
    if (child < 0) return -2;
    if (child == 0) {
        char* const arguments[] = {const_cast<char*>(script), const_cast<char*>(url), nullptr};
        if (path)
            execv(path, arguments);
        else
            execvp(script, arguments);
        _exit(not_run);
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0)
        if (errno != EINTR) return -1;
    if (trace) std::printf("browse_url: status %d\n", status);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

int browse_url(const char* url) {
    const bool trace = std::getenv("VELLORAN_VERBOSE_NETSCAPE") != nullptr;
    char path[512];
    std::snprintf(path, sizeof(path), "%s/%s", get_config_dir(), script);
    const bool beside_config = access(path, X_OK) == 0;

    // A browser must not run with more rights than its user.
    const uid_t real = getuid(), effective = geteuid();
    const bool lower = effective == 0 && real != 0;
    if (lower && seteuid(real) != 0) V_error(level_error, "Can't set uid to %d", static_cast<int>(real));
    char text[1200];
    std::snprintf(text, sizeof(text), "Starting browser on %s.", url);
    sparkMessage(text);
    // A host that ignores the end of its children would leave nothing to wait for.
    struct sigaction before;
    bool changed_signal = false;
    if (sigaction(SIGCHLD, nullptr, &before) == 0 && before.sa_handler == SIG_IGN) {
        struct sigaction plain;
        std::memset(&plain, 0, sizeof(plain));
        plain.sa_handler = SIG_DFL;
        changed_signal = sigaction(SIGCHLD, &plain, nullptr) == 0;
    }
    std::fflush(stdout);
    const int status = run_script(beside_config ? path : nullptr, url, trace);
    const int error = errno;
    if (changed_signal) sigaction(SIGCHLD, &before, nullptr);
    if (lower && seteuid(effective) != 0) V_error(level_error, "Can't set uid to %d", static_cast<int>(effective));

    if (status == 0) {
        sparkMessage("Browser started.  It should appear shortly.");
        return 1;
    }
    sparkMessage("Error starting browser.");
    if (status == -2)
        V_error(level_error, "Velloran: error (fork) running browser to browse doc from url %s:\n\t%s\n", url,
                std::strerror(error));
    else if (status == not_run)
        V_error(level_error,
                "Velloran: Couldn't run browser to browse doc from url %s.\nPerhaps your browser's dir is not in your "
                "PATH?",
                url);
    return 0;
}

}  // namespace velloran
