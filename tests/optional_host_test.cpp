// Hosts of every kind: with all optional services, with none, and with each alone. Which of them a host exports is
// settled when it is linked, so each is a program of its own, which looks at itself.
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <cstdio>
#include <sstream>

namespace {

struct Ran {
    int status;
    std::string said;
};

Ran run(const std::string& name, const std::string& services) {
    std::ostringstream command;
    command << PROBE_DIR "/optional_host_probe_" << name << ' ' << services << " 2>&1";
    Ran ran = {-1, ""};
    FILE* const pipe = popen(command.str().c_str(), "r");
    if (!pipe) return ran;
    char line[256];
    while (std::fgets(line, sizeof(line), pipe)) ran.said += line;
    const int status = pclose(pipe);
    if (WIFEXITED(status)) ran.status = WEXITSTATUS(status);
    return ran;
}

}  // namespace

TEST(OptionalHost, ServicesAreFoundWhereTheyAreAndAnsweredForWhereNot) {
    std::istringstream services(PROBES);
    int n = 0;
    for (std::string service; services >> service; ++n) {
        const Ran ran = run(service, service == "none" ? "" : service);
        EXPECT_EQ(ran.status, 0) << "a host with " << service << ": " << ran.said;
    }
    EXPECT_GE(n, 2);
    // A host that lacks what it claims is seen.
    EXPECT_EQ(run("none", "sparkFrameRate").status, 1);
}
