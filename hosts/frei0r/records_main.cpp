// velloran-frei0r-records: from what the plug-ins say of themselves to what is built, and what editing programs read.
//     orders FILE           appends to the file of orders what it lacks
//     table FILE OUT        the records as source of the modules' library
//     pages FILE DIRECTORY  pages for MLT and Kdenlive
//     left-out              effects without a module, and why
#include "hosts/frei0r/pages.h"
#include "hosts/frei0r/records_json.h"
#include "hosts/render/console.h"
#include "hosts/render/failure.h"

#include <cstdio>
#include <filesystem>
#include <fstream>

namespace {

namespace fs = std::filesystem;
using frei0r::Module;
using render::Failure;

struct Shipped {
    std::vector<Module> modules;
    std::vector<std::string> left_out;
};

Shipped read_shipped() {
    Shipped shipped;
    for (const std::string& family : render::plugin_names()) {
        const render::EffectChoice choice = render::choose_effect(family);
        spark_host::Host host;
        host.calling_env = SPARK_ENV_BATCH;
        host.memory_buffers = 10000;
        host.on_error = [](const std::string& text) { render::fail(text); };
        const auto plugin = render::load_choice(host, choice, render::default_config_directory());
        if (!start_plugin(*plugin)) throw Failure(family + ": the plug-in cannot be used");
        for (const render::EffectDescription& effect : render::describe_plugin(*plugin).effects) {
            const std::string reason = frei0r::left_out(effect);
            if (reason.empty())
                shipped.modules.push_back(frei0r::make_module(family, effect));
            else
                shipped.left_out.push_back(family + ":" + effect.name + ": " + reason);
        }
    }
    return shipped;
}

// The file appears whole or not at all.
void write_file(const fs::path& path, const std::string& text) {
    const fs::path part = path.string() + ".part";
    std::ofstream file(part, std::ios::binary);
    file << text;
    file.close();
    std::error_code error;
    if (file) fs::rename(part, path, error);
    if (!file || error) throw Failure(path.string() + ": cannot be written");
}

std::vector<Module> modules_of(const std::string& path) {
    return ordered_modules(read_shipped().modules, frei0r::read_orders(render::read_text_file(path), path));
}

void renew_orders(const std::string& path) {
    auto orders = frei0r::read_orders(fs::exists(path) ? render::read_text_file(path) : "", path);
    if (append_orders(orders, read_shipped().modules)) write_file(path, orders_text(orders));
}

void write_table(const std::string& path, const std::string& out) {
    std::string text =
        "#include \"hosts/frei0r/table.h\"\n\nnamespace frei0r {\n\nconst std::vector<Row>& table() {\n"
        "    static const std::vector<Row> rows = {\n";
    for (const Module& module : modules_of(path))
        text += "        {\"" + module.slug + "\",\n         R\"records(" + nlohmann::json(module).dump() +
                ")records\"},\n";
    write_file(out, text + "    };\n    return rows;\n}\n\n}  // namespace frei0r\n");
}

void write_pages(const std::string& path, const fs::path& directory) {
    for (const char* below : {"mlt", "kdenlive/effects", "kdenlive/generators", "kdenlive/transitions"})
        fs::create_directories(directory / below);
    for (const Module& module : modules_of(path)) {
        write_file(directory / "mlt" / mlt_name(module), mlt_page(module));
        const std::string page = kdenlive_page(module);
        if (!page.empty()) write_file(directory / "kdenlive" / kdenlive_name(module), page);
    }
}

}  // namespace

int main(int argc, char** argv) try {
    render::open_console();
    render::drop_plugin_output();
    const std::string command = argc > 1 ? argv[1] : "";
    if (command == "orders" && argc == 3) {
        renew_orders(argv[2]);
    } else if (command == "table" && argc == 4) {
        write_table(argv[2], argv[3]);
    } else if (command == "pages" && argc == 4) {
        write_pages(argv[2], argv[3]);
    } else if (command == "left-out" && argc == 2) {
        for (const std::string& line : read_shipped().left_out) render::print(line + "\n");
    } else {
        std::fputs("usage: velloran-frei0r-records orders FILE | table FILE OUT | pages FILE DIRECTORY | left-out\n",
                   stderr);
        return 2;
    }
    return render::close_console() ? 0 : 1;
} catch (const std::exception& problem) {
    std::fprintf(stderr, "velloran-frei0r-records: %s\n", problem.what());
    return 1;
}
