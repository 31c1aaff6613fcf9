#include "hosts/language/lsp_command.h"

#include "hosts/language/messages.h"
#include "hosts/language/server.h"
#include "hosts/render/console.h"
#include "hosts/render/failure.h"
#include "hosts/render/function_list.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>

namespace language {
namespace {

using Clock = std::chrono::steady_clock;

// The library is asked in a pause of typing, but not too late if there is none.
constexpr int pause = 40, longest_wait = 400;  // milliseconds

// False: nothing comes any more.
bool read_some(Messages& messages) {
    char bytes[65536];
    const ssize_t n = read(STDIN_FILENO, bytes, sizeof(bytes));
    if (n < 0) return errno == EINTR || errno == EAGAIN;
    messages.feed({bytes, static_cast<size_t>(n)});
    return n > 0;
}

bool send(const std::vector<std::string>& texts) {
    for (const std::string& text : texts) render::print(framed(text));
    return render::close_console();
}

}  // namespace

int lsp_command() {
    spark_host::Host host;
    host.calling_env = SPARK_ENV_BATCH;
    std::string error;
    const std::string config = render::default_config_directory();
    const auto module = spark_host::load_plugin(host, render::text_module_path(), config + "/text", &error);
    if (!module) throw render::Failure(error);
    Server server(render::function_rows(), [&](const std::string& text, const std::string& path) {
        std::vector<render::TextMessage> messages;
        render::check_text(*module, text, path, nullptr, messages);
        return messages;
    });
    Messages messages;
    Clock::time_point since;  // with changed: when that was seen
    bool changed = false;
    for (;;) {
        while (const auto message = messages.next()) {
            const bool sent =
                send(message->fault.empty() ? server.take(message->text) : std::vector{Server::fault(message->fault)});
            if (server.ended()) return *server.ended();
            if (!sent) return render::exit_some_failed;
        }
        if (server.changed() && !changed) since = Clock::now();
        changed = server.changed();
        const bool waited = changed && Clock::now() - since > std::chrono::milliseconds(longest_wait);
        pollfd input = {STDIN_FILENO, POLLIN, 0};
        const int ready = poll(&input, 1, !changed ? -1 : waited ? 0 : pause);
        if (ready < 0 && errno != EINTR) return render::exit_some_failed;
        if (changed && (ready == 0 || waited)) {
            if (!send(server.look())) return render::exit_some_failed;
            changed = false;
            continue;
        }
        // An editor that goes away without a word has not shut this down.
        if (ready > 0 && !read_some(messages)) return render::exit_some_failed;
    }
}

}  // namespace language
