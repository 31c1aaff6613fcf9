#include "hosts/render/commands.h"
#include "hosts/render/console.h"
#include "hosts/render/effect.h"
#include "hosts/render/failure.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace render {

int check_command(const std::vector<std::string>& files, bool json, bool quiet) {
    set_quiet(quiet);
    spark_host::Host host;
    host.calling_env = SPARK_ENV_BATCH;
    std::string error;
    const std::string config = default_config_directory();
    const auto module = spark_host::load_plugin(host, text_module_path(), config + "/text", &error);
    if (!module) throw Failure(error);
    int failed = 0;
    nlohmann::ordered_json report = nlohmann::ordered_json::array();
    for (const std::string& path : files) {
        std::vector<TextMessage> messages;
        std::string text;
        int broken = 0;
        try {
            text = read_text_file(path);
            if (text.find('\0') != std::string::npos) throw Failure(path + ": not a text: it holds a zero byte");
            broken = check_text(*module, text, path, nullptr, messages);
        } catch (const Failure& problem) {
            broken = 1;
            if (json)
                messages.push_back({8, 0, 0, problem.what()});
            else
                fail(problem.what());
        }
        const auto errors = std::count_if(messages.begin(), messages.end(), error_p);
        failed += broken + errors > 0;
        if (json) {
            nlohmann::ordered_json list = nlohmann::ordered_json::array();
            for (const TextMessage& message : messages)
                list.push_back({{"severity", severity(message)},
                                {"line", message.line},
                                {"column", message.column},
                                {"text", message.text}});
            report.push_back({{"file", path}, {"failed", broken}, {"messages", list}});
            continue;
        }
        for (const TextMessage& message : messages) print(message_text(message, text, path));
        if (errors == 0) note(path + ": no errors");
    }
    if (json) print(report.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n");
    return failed > 0 ? exit_nothing_done : exit_done;
}

}  // namespace render
