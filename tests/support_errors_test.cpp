// Messages, the log, and the printers of a running plug-in.
#include "host/log_file.h"
#include "hosts/common/host.h"
#include "support/task_state.h"
#include "support/user_abort.h"
#include "testing/support_messages.h"

#include <sys/stat.h>

#include <thread>

#include "records/run_state.h"

using namespace velloran;

namespace {

time_t now = 1000000;
double seconds = 0;

class Errors : public SupportTest {
protected:
    spark_host::Host host;
    spark_host::Host* host_before = nullptr;

    void SetUp() override {
        SupportTest::SetUp();
        log_clock = [] { return now; };
        message_clock = [] { return seconds; };
        host_before = spark_host::use_host(&host);
        now += 1000;  // forgets the messages of other tests
        seconds += 1000;
    }
    void TearDown() override {
        spark_host::use_host(host_before);
        SupportTest::TearDown();
    }
    size_t lines(const char* name) const {
        const std::string text = read(name);
        return static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
    }
};

TEST_F(Errors, MessageForms) {
    struct Case {
        int level;
        const char *text, *form;
    };
    const Case cases[] = {
        {0, "plain\n\n", "plain"},  {1, "a", "Info: a"},           {2, "a", "Note: a"},
        {3, "a", "Info:\a a"},      {4, "a\nb\n", "Note:\a a\nb"}, {5, "a", "\aa"},
        {6, "a", "Alert:\a a"},     {7, "a", "Warning:\a a"},      {8, "a", "Error:\a a"},
        {9, "", "Fatal Error:\a "}, {12, "a", "Warning:\a a"},     {-1, "a", "Warning:\a a"},
    };
    for (const Case& c : cases) {
        char form[64];
        format_message(form, sizeof(form), c.level, c.text);
        EXPECT_STREQ(form, c.form) << c.level;
        V_error(c.level, "%s", c.text);
    }
    for (const auto& [level, text] : caught_messages()) EXPECT_TRUE(level >= 0 && level <= 9) << level;
    EXPECT_EQ(caught_messages()[10].first, 7);
    caught_messages().clear();
    V_error(8, "%s", std::string(5000, 'x').c_str());
    EXPECT_EQ(caught_messages().back().second, std::string(1023, 'x'));
    char cut[8];
    format_message(cut, sizeof(cut), 1, "abcdef");
    EXPECT_STREQ(cut, "Info: a");
}

TEST_F(Errors, LogHoldsEveryMessageWithItsTime) {
    char time_text[64];
    ctime_r(&now, time_text);
    time_text[24] = 0;
    const std::string line = std::string(time_text) + ": ";
    V_error(8, "one %d\r\n\n", 1);
    log_warning("two");
    log_print("three\n");
    const auto exported = [](int level, const char* format, ...) {
        va_list arguments;
        va_start(arguments, format);
        print_error(level, format, arguments);
        va_end(arguments);
    };
    exported(12, "not %s", "logged");
    EXPECT_EQ(read("v_error_log.txt"), line + "one 1\n" + line + "two\n" + line + "three\n");
    EXPECT_EQ(caught_messages().back(), std::make_pair(7, std::string("not logged")));
    struct stat status;
    ASSERT_EQ(stat((dir + "/v_error_log.txt").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0666u);
    log_error(std::string(6000, 'y').c_str());
    EXPECT_EQ(lines("v_error_log.txt"), 4u);
    EXPECT_EQ(read("v_error_log.txt").size(), 3 * line.size() + 5 + 3 + 5 + 3 + line.size() + 4056 + 1);
    spark_set_config_dir("/nonexistent/place");
    setenv("XDG_STATE_HOME", "/proc/nothing", 1);
    V_error(8, "still told");
    EXPECT_EQ(caught_messages().back().second, "still told");
}

// Where the configuration directory cannot be written, the logs are the user's own.
TEST_F(Errors, LogsGoToTheUsersStateWhereTheConfigurationIsNotToBeWritten) {
    spark_set_config_dir("/nonexistent/place");
    const auto expect_log = [&](const std::string& state) {
        const std::string log = state + "/velloran/v_error_log.txt";
        V_error(8, "kept");
        const std::string text = read(log);
        EXPECT_NE(text.find(": kept\n"), std::string::npos) << log;
        for (const std::string& path : {log, state + "/velloran"}) {
            struct stat status;
            ASSERT_EQ(stat((dir + "/" + path).c_str(), &status), 0);
            EXPECT_EQ(status.st_mode & 077, 0u) << path << " is for the user alone";
        }
        write(log, std::string(20481, 'b'));
        V_error(8, "next");
        EXPECT_EQ(lines(log.c_str()), 1u);
        EXPECT_EQ(read(log + ".bak").size(), 20481u);
    };
    setenv("XDG_STATE_HOME", (dir + "/some/state").c_str(), 1);
    expect_log("some/state");
    unsetenv("XDG_STATE_HOME");
    const std::string home = getenv("HOME") ? getenv("HOME") : "";
    setenv("HOME", (dir + "/home").c_str(), 1);
    std::filesystem::create_directory(dir + "/home");
    expect_log("home/.local/state");
    setenv("HOME", home.c_str(), 1);
}

TEST_F(Errors, LogRotatesBeyondItsLimit) {
    write("v_error_log.txt.bak", "older");
    const std::string at_limit(20480, 'a'), beyond(20481, 'b');
    write("v_error_log.txt", at_limit);
    log_error("x");
    EXPECT_EQ(read("v_error_log.txt").substr(0, 20480), at_limit);
    EXPECT_EQ(read("v_error_log.txt.bak"), "older");
    write("v_error_log.txt", beyond);
    log_error("x");
    EXPECT_EQ(lines("v_error_log.txt"), 1u);
    EXPECT_EQ(read("v_error_log.txt.bak"), beyond);
    // A backup that cannot be replaced costs the log.
    std::filesystem::remove(dir + "/v_error_log.txt.bak");
    write("v_error_log.txt.bak/in the way", "");
    write("v_error_log.txt", beyond);
    log_error("x");
    EXPECT_EQ(lines("v_error_log.txt"), 1u);
}

TEST_F(Errors, SuppressesAfterMoreThanFiveInARow) {
    for (int i = 0; i < 5; ++i, now += 60) V_error(7, "m");
    EXPECT_FALSE(suppress_errors_p());
    V_error(7, "m");
    EXPECT_TRUE(suppress_errors_p());
    now += 61;
    EXPECT_TRUE(suppress_errors_p());
    V_error(7, "m");
    EXPECT_FALSE(suppress_errors_p());
}

TEST_F(Errors, HostSeesMessages) {
    struct Case {
        const char* name;
        int level, evaluating, forked;
        const char *message, *error;
    };
    const Case cases[] = {
        {"plain", 0, 0, 0, "text", ""},
        {"warning", 7, 0, 0, "Warning: text", ""},
        {"out of range", 12, 0, 0, "Warning: text", ""},
        {"during a frame", 8, 1, 0, "", ""},
        {"in a fork", 8, 0, 1, "", ""},
        {"fatal", 9, 1, 0, "", "Fatal Error: text"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        host.messages.clear();
        host.errors.clear();
        evaluating_frame_p = c.evaluating;
        is_forked = c.forked;
        spark_error_printer(c.level, "text\n");
        evaluating_frame_p = is_forked = 0;
        EXPECT_EQ(host.messages.empty() ? "" : host.messages.back(), c.message);
        EXPECT_EQ(host.errors.empty() ? "" : host.errors.back(), c.error);
    }
    spark_error_printer(8, std::string(1020, 'x').c_str());
    EXPECT_EQ(host.messages.back(), "Error: " + std::string(994, 'x'));

    set_warning_printer(spark_warning_printer);
    log_warning("mind %d", 3);
    EXPECT_EQ(host.messages.back(), "mind 3");
    set_warning_printer(nullptr);

    // A task's fatal message waits for the host's thread.
    host.errors.clear();
    std::thread([] { spark_error_printer(9, "from a task"); }).join();
    EXPECT_TRUE(host.errors.empty());
    EXPECT_EQ(abort_status([] { fatal_abort(3); }), 3);
    EXPECT_EQ(host.errors, std::vector<std::string>{"Fatal Error: from a task"});
}

// A host without delayed messages keeps the user waiting for as long as a message is to be read.
TEST_F(Errors, PrintersAreReplacedAndRestored) {
    const ErrorPrinter mine = [](int, const char*) {};
    const ErrorPrinter before = set_error_printer(mine);
    EXPECT_EQ(set_error_printer(before), mine);
    EXPECT_EQ(set_warning_printer(spark_warning_printer), nullptr);
    EXPECT_EQ(set_warning_printer(nullptr), spark_warning_printer);
    set_error_printer(nullptr);
    EXPECT_EXIT(V_error(9, "the end\n"), testing::ExitedWithCode(1), "Fatal Error:\a the end\n");
}

TEST_F(Errors, UserHoldsThePen) {
    static double time = 0;
    static bool down = false;
    abort_clock = [] { return time; };
    host.read_pen = [] { return spark_host::Pen{0, 0, down ? 1.0f : 0.0f}; };
    // The pen goes down at down_at; polled every step seconds.
    const auto aborted_at = [](double down_at, double first_poll, double step, double end) {
        time += 1000;
        const double start = time;
        down = false;
        reset_abort();
        for (double t = first_poll; t < end; t += step) {
            time = start + t;
            down = t >= down_at;
            if (poll_abort()) return t;
        }
        return -1.0;
    };
    EXPECT_NEAR(aborted_at(1, 0.25, 0.25, 10), 2.75, 1e-9);  // last seen up at 0.75
    EXPECT_EQ(aborted_at(1, 0.25, 0.25, 2.7), -1);
    EXPECT_EQ(aborted_at(0, 130, 1, 200), -1);           // lying on the tablet
    EXPECT_NEAR(aborted_at(0, 0.05, 0.05, 10), 2, 0.2);  // looks at the pen every 0.2 seconds
    EXPECT_TRUE(render_aborted_p());
    bool in_task = false;
    std::thread([&] { in_task = poll_abort(); }).join();
    EXPECT_TRUE(in_task);
    reset_abort();
    EXPECT_FALSE(render_aborted_p());
    enable_pointer_abort = 0;
    EXPECT_EQ(aborted_at(0, 0.5, 0.5, 10), -1);
    enable_pointer_abort = 1;
}

TEST_F(Errors, LogFileTellsAboutHostAndFrame) {
    host.program_name = "Flame";
    host.calling_env = SPARK_ENV_BATCH;
    host.api_version = 4.019f;
    GlobalsV4Record record = {};
    record.plugin_name = "Glow";
    Globals_V4 = &record;
    setenv("VELLORAN_VERBOSE", "yes", 1);
    unsetenv("VELLORAN_MALLOC_LONG_IMAGE");
    write("v_log.text", std::string(9000, 'o'));
    write("v_error_log.txt", "an error\n");
    write("v_error_log.txt.bak", "an older error\n");
    SparkInfoStruct info = {};
    info.FrameWidth = 720;
    info.FrameHeight = 486;
    info.FrameDepth = 48;
    write_log_file(&info);
    Globals_V4 = nullptr;
    unsetenv("VELLORAN_VERBOSE");
    const std::string log = read("v_log.text");
    const std::string path = dir + "/v_error_log.txt";
    size_t at = 0;
    for (const std::string& part :
         {std::string("\n========= Build information =========\n"), std::string("4.04"),
          std::string("program 'flame', API ver 4.019, called via batch\n"),
          std::string("\n========= Machine Information =========\n"),
          std::string("\n========= Environment/Registry Settings =========\n"), std::string("VELLORAN_VERBOSE: yes\n"),
          std::string("VELLORAN_MALLOC_LONG_IMAGE: <not set>\n"),
          std::string("\n========= Render Information =========\nspark: Glow, img 720 x 486 x 48\n"),
          "\n========= Additional Files =========\n=== Contents of " + path + ":\nan error\n=== End of " + path + ".\n",
          "=== Contents of " + path + ".bak:\nan older error\n=== End of " + path +
              ".bak.\n### end of log file ###\n"}) {
        const size_t found = log.find(part, at);
        ASSERT_NE(found, std::string::npos) << part << "\nin\n" << log;
        at = found + part.size();
    }
    EXPECT_EQ(at, log.size());
}

}  // namespace
