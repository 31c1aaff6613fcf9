// Runs the tests of the Python package, each in an interpreter of its own, and reports each.
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

namespace {

int run(const std::string& argument, std::string& said) {
    const std::string command = "PYTHONPATH='" PYTHON_PACKAGE "' VELLORAN_PROGRAM='" VELLORAN_PROGRAM
                                "' timeout 300 '" PYTHON_PROGRAM "' '" PYTHON_TESTS "' " +
                                argument + " 2>&1";
    FILE* const pipe = popen(command.c_str(), "r");
    if (!pipe) return -1;
    std::array<char, 4096> buffer;
    for (size_t n; (n = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0;) said.append(buffer.data(), n);
    const int status = pclose(pipe);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::vector<std::string> names() {
    std::string said;
    std::vector<std::string> list;
    if (run("--list", said) != 0) return {"failed_to_list"};
    std::istringstream lines(said);
    for (std::string line; std::getline(lines, line);) list.push_back(line);
    return list;
}

class Python : public testing::TestWithParam<std::string> {};

TEST_P(Python, Passes) {
    std::string said;
    EXPECT_EQ(0, run("PackageTest." + GetParam(), said)) << said;
}

INSTANTIATE_TEST_SUITE_P(Package, Python, testing::ValuesIn(names()), [](const auto& test) { return test.param; });

}  // namespace
