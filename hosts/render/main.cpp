// velloran: renders effects over pictures from the command line.
#include "hosts/language/grammar.h"
#include "hosts/language/lsp_command.h"
#include "hosts/render/commands.h"
#include "hosts/render/console.h"
#include "hosts/render/failure.h"
#include "hosts/render/output_file.h"
#include "hosts/render/suggest.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <unistd.h>

#include <clocale>
#include <cstdlib>
#include <exception>
#include <new>
#include <string_view>
#include <system_error>

namespace {

using render::exit_done;
using render::exit_no_memory;
using render::exit_nothing_done;

constexpr const char* main_footer =
    "Examples:\n"
    "  velloran render my.text -i in.png -o out.png\n"
    "  velloran render my.text:Soft -i plate.####.exr -o out.####.exr -f 1001-1024 -p amount=0.5\n"
    "  velloran check my.text\n"
    "  velloran functions blur\n"
    "'velloran COMMAND --help' tells more about each command.";

constexpr const char* render_footer =
    "EFFECT is a plug-in (glow), one of its effects (glow:Soft), or a text of definitions (my.text, my.text:Soft).\n"
    "\n"
    "Frames carry the numbers of their files. Values may change over time: each of several values separated by commas\n"
    "is followed by @ and its frame, and goes evenly to the next.\n"
    "\n"
    "Examples:\n"
    "  One picture:                velloran render my.text -i in.png -o out.png\n"
    "  Every frame of a sequence:  velloran render my.text -i in.%04d.png -o out.%04d.png\n"
    "  Some of them, two inputs:   velloran render glow -i Front=a.####.exr -i Back=still.jpg -o c.####.exr -f 10-20\n"
    "  A movie into a movie:       velloran render my.text -i in.mov -o out.mov\n"
    "  A param over time:          velloran render glow -i in.%04d.tif -o out.%04d.tif -p amount=0@1,1@24\n"
    "  Half size of work, a crop:  velloran render glow -i in.png -o out.png -c res_factor=1 -c crop=0,480,640,0\n"
    "  In a pipe:                  ffmpeg -i a.mov -f yuv4mpegpipe - | velloran render my.text - | ffmpeg -i - b.mp4\n"
    "  What would happen:          velloran render my.text -i in.####.png -o out.####.png -n\n"
    "\n"
    "Exit status: 0 all frames asked for are there; 1 some failed; 2 nothing was tried; 33 out of memory;\n"
    "130 or 143 interrupted. No unfinished file is ever left.";

void one_each(CLI::Option* option) { option->allow_extra_args(false); }

struct Commands {
    CLI::App app{"Renders effects written as texts over pictures and sequences."};
    render::RenderOptions options;
    std::vector<std::string> files;
    std::string effect, function, config;
    bool json = false, quiet = false, textmate = false, stdio = false;
    std::string stream;
    render::HandlesOptions handle_options;
    CLI::App* render = nullptr;
    CLI::App* watch = nullptr;
    CLI::App* list = nullptr;
    CLI::App* check = nullptr;
    CLI::App* functions = nullptr;
    CLI::App* handles = nullptr;
    CLI::App* verify = nullptr;
    CLI::App* lsp = nullptr;
    CLI::App* explain = nullptr;
    render::ExplainOptions explain_options;

    Commands() {
        app.name("velloran");
        app.footer(main_footer);
        app.set_version_flag("--version", "velloran 4.04", "Show the version and exit");
        app.set_help_flag("-h,--help", "Show this help and exit");
        app.require_subcommand(1);
        render = app.add_subcommand("render", "Render an effect over pictures");
        list = app.add_subcommand("list", "Show plug-ins, or an effect's inputs and params");
        check = app.add_subcommand("check", "Read texts of definitions and show every message");
        functions = app.add_subcommand("functions", "Show the functions that texts may use");
        watch = app.add_subcommand("watch", "Render a text again whenever it changes");
        verify = app.add_subcommand("verify", "Render a known set and print one hash of it");
        lsp = app.add_subcommand("lsp", "Help an editor with texts, over standard input and output");
        lsp->footer(
            "Speaks the Language Server Protocol: messages while typing, completion, meanings, renaming, layout.\n"
            "An editor starts it; docs/editor.md tells how.");
        lsp->add_flag("--stdio", stdio, "Standard input and output, as always: editors like to say so");
        verify->footer("Two machines with the same hash give the same pictures. --json tells the hash of each effect.");
        verify->add_option("--config", config, "Directory of configuration and data files")->type_name("DIR");
        add_render(*render, render_footer);
        render
            ->add_option("STREAM", stream,
                         "-: from standard input to standard output, as -i - -o -; a picture, or frames as Y4M")
            ->type_name("");
        handles = app.add_subcommand("handles", "Draw an effect's handles over its picture");
        add_handles(*handles);
        explain = app.add_subcommand("explain", "Show what each call of an effect gives, and what it takes");
        add_explain(*explain);
        add_render(*watch, "Takes what render takes; ends when it is interrupted. Pictures stay in memory.");
        list->add_option("EFFECT", effect, "Effect, plug-in or text; without it all plug-ins are listed");
        list->add_option("--config", config, "Directory of configuration and data files")->type_name("DIR");
        check->add_option("FILE", files, "Texts of definitions")->required()->type_name("");
        check->add_flag("-q,--quiet", quiet, "Only messages about the texts");
        check->footer("Exit status: 0 all definitions can be used; 2 some cannot, or a file cannot be read.");
        functions->add_option("NAME", function, "One function, with all it takes");
        functions->add_flag("--textmate", textmate, "All words of texts as a TextMate grammar, for editors");
        functions->footer("A line of elements such as '(3, 1) -> 3' says: three elements and one give three.");
        for (CLI::App* command : {list, check, functions, verify, explain})
            command->add_flag("--json", json, "Output for programs");
    }

    void add_handles(CLI::App& h) {
        render::HandlesOptions& options_of_handles = handle_options;
        render::RenderOptions& o = options_of_handles.render;
        h.footer(
            "Draws as a host's viewer would, without a window. A pen that is given takes hold of what it comes down "
            "on, and\n"
            "the picture is that of the values it drags; coordinates are pixels of the frame from the lower left.");
        h.add_option("EFFECT", o.effect, "Effect, plug-in or text")->required()->type_name("");
        h.add_option("PICTURE", o.inputs, "Its inputs in order; the first stands in for others, black for none")
            ->type_name("");
        h.add_option("-o,--output", o.output, "What to write: png, jpg, tif, exr or dpx")
            ->required()
            ->type_name("PATH");
        h.add_option("-f,--frame", o.frames, "The frame of a sequence or movie")->type_name("N");
        one_each(h.add_option("-p,--param", o.params, "A param, as for render")->type_name("NAME=V[,V...]"));
        one_each(h.add_option("-c,--control", o.controls, "A standard control; crop_view=1 shows the crop's handle")
                     ->type_name("KEY=V[,V...]"));
        h.add_option("--pen", options_of_handles.pen, "Where a pen comes down and, if more is given, is dragged to")
            ->delimiter(',')
            ->type_name("X,Y[,X,Y...]");
        h.add_option("--zoom", options_of_handles.zoom, "Pixels of the file for a pixel of the frame")
            ->check(CLI::Range(0.05, 16.0))
            ->type_name("Z");
        h.add_flag("--as-set", options_of_handles.as_set, "Only handles that are switched on. Default: all");
        h.add_option("--size", o.size, "Size of the frame, without a picture")->type_name("WxH");
        h.add_option("--setup", o.setup, "Read a setup before the values of -p and -c")->type_name("FILE");
        h.add_option("--config", o.config, "Directory of configuration and data files")->type_name("DIR");
    }

    void add_explain(CLI::App& e) {
        render::RenderOptions& o = explain_options.render;
        e.footer(
            "Renders one frame and tells of every node of the effect, at the values that it has now: elements, whether "
            "it is\n"
            "constant or was removed, how it was evaluated, its value at the pixel, and its time and memory.");
        e.add_option("EFFECT", o.effect, "Effect, plug-in or text")->required()->type_name("");
        one_each(e.add_option("-i,--input", o.inputs,
                              "Its inputs, as for render; the first stands in for others, black for none")
                     ->type_name("[NAME=]PATH"));
        e.add_option("--pixel", explain_options.pixel, "A pixel of the frame, from the lower left")
            ->delimiter(',')
            ->expected(1, 2)
            ->type_name("X,Y");
        e.add_option("-o,--dot", explain_options.drawing, "Write a drawing of the graph, as Graphviz reads it")
            ->type_name("FILE");
        e.add_option("-f,--frame", o.frames, "The frame of a sequence or movie")->type_name("N");
        one_each(e.add_option("-p,--param", o.params, "A param, as for render")->type_name("NAME=V[,V...]"));
        one_each(e.add_option("-c,--control", o.controls, "A standard control")->type_name("KEY=V[,V...]"));
        e.add_option("-d,--depth", o.depth, "Bits of the frames: 8, 10 or 16")->type_name("BITS");
        e.add_option("--size", o.size, "Size of the frame, without a picture. Default: 1920x1080")->type_name("WxH");
        e.add_option("-j,--threads", o.threads, "Tasks that work on the frame. Default: all processors")
            ->type_name("N");
        e.add_option("--setup", o.setup, "Read a setup before the values of -p and -c")->type_name("FILE");
        e.add_option("--config", o.config, "Directory of configuration and data files")->type_name("DIR");
    }

    void add_render(CLI::App& r, const char* footer) {
        render::RenderOptions& o = options;
        r.footer(footer);
        r.add_option("EFFECT", o.effect, "What to render: see below")->type_name("");
        one_each(
            r.add_option(
                 "-i,--input", o.inputs,
                 "A clip: a still, a sequence with %04d or #### in its name, or a movie; in the order of the "
                 "effect's inputs, or with a name; - is standard input, -.rgb24 and its like bare frames from there")
                ->type_name("[NAME=]PATH"));
        r.add_option(
             "-o,--output", o.output,
             "What to write, by its ending: a file or sequence of png, jpg, tif, exr or dpx, or a movie as mov, "
             "mkv or mp4; - is standard output, -.exr the same in another format than png, -.y4m or -.rgb24 for "
             "frames one after the other")
            ->type_name("PATH");
        r.add_option("--codec", o.codec,
                     "Encoder of a movie. Default: prores_ks in mov, ffv1 without loss in mkv, libx264 in mp4")
            ->type_name("NAME");
        choice(r.add_option("--compression", o.compression,
                            "Of png, tif and exr files: none, fast or small. Default: fast for png and exr, none for "
                            "tif, which make a sequence the soonest; a tif or exr that comes in keeps its own"),
               "WHAT", {"none", "fast", "small"});
        r.add_option("-f,--frames", o.frames,
                     "Frames by the files' numbers: 7, 1-24, 1-24x2, 24-1, 1-10,20-30. Default: what is on disk of "
                     "the first sequence")
            ->type_name("LIST");
        choice(r.add_option("--missing", o.missing,
                            "A gap in an input: error, skip the frame, hold the last one, or black"),
               "WHAT", {"error", "skip", "hold", "black"});
        one_each(r.add_option("-p,--param", o.params,
                              "A param by its name in the text; an entry of a popup by its name or number")
                     ->type_name("NAME=V[,V...]"));
        one_each(r.add_option("-c,--control", o.controls,
                              "A standard control: res_factor, on_fields, add_noise, gamma, lut, "
                              "crop=LEFT,TOP,RIGHT,BOTTOM, ...")
                     ->type_name("KEY=V[,V...]"));
        r.add_option("-d,--depth", o.depth, "Bits of the frames: 8, 10 or 16. Default: 8 for files of 8 bits, else 16")
            ->type_name("BITS");
        r.add_option("--size", o.size,
                     "Size of the frames, for effects without inputs and bare frames from standard input")
            ->type_name("WxH");
        r.add_option("--first", o.first,
                     "Number of the clip's first frame. Default: the first on disk. What an effect makes of time "
                     "counts from it")
            ->type_name("N");
        r.add_option("--length", o.length, "Frames of the clip. Default: up to the last on disk")->type_name("N");
        r.add_option("--preroll", o.preroll,
                     "For effects that remember: begin so many frames before the first one asked for. Default: with "
                     "the clip")
            ->type_name("N");
        r.add_option("--fps", o.fps, "Frames per second of the clip")->type_name("R");
        r.add_option("-j,--threads", o.threads, "Tasks that work on a frame. Default: all processors")->type_name("N");
        r.add_option("--look", o.look, "One of the effect's looks, as 'velloran list' shows them; -p and -c count more")
            ->type_name("NAME");
        r.add_option("--setup", o.setup, "Read a setup before the values of -p and -c")->type_name("FILE");
        r.add_option("--save-setup", o.save_setup, "Write a setup with all values and keys")->type_name("FILE");
        r.add_option("--recipe-from", o.recipe_from,
                     "Take effect and values from a png, tif or exr picture that this program made; -p and -c count "
                     "more")
            ->type_name("FILE");
        r.add_option("--config", o.config, "Directory of configuration and data files")->type_name("DIR");
        r.add_flag("-n,--dry-run", o.dry_run, "Read all inputs, show the plan and what would fail, and render nothing");
        r.add_flag("--skip-existing", o.skip_existing,
                   "Leave frames alone that are there, whole, and made from the same things; jpg, tif and "
                   "dpx get a small .recipe file beside them for this");
        choice(r.add_option("--on-error", o.on_error, "After a frame that failed: continue with the others, or stop"),
               "WHAT", {"stop", "continue"});
        choice(r.add_option("--progress", o.progress, "Progress on standard error: auto, on, off or json"), "WHAT",
               {"auto", "on", "off", "json"});
        r.add_flag("--stats", o.stats, "Show times and memory at the end");
        r.add_flag("-q,--quiet", o.quiet, "Only errors and warnings");
        r.add_flag("-v,--verbose", o.verbose, "Also what the library tells of itself");
    }

    static void choice(CLI::Option* option, const char* type, const std::vector<std::string>& words) {
        option->type_name(type)->check([words](const std::string& word) {
            std::string known;
            for (const std::string& w : words) {
                if (w == word) return std::string();
                known += (known.empty() ? "" : ", ") + w;
            }
            return "'" + word + "' is none of " + known + render::did_you_mean(word, words);
        });
    }

    // What the parser did not know, with the nearest thing that it does.
    std::string unknown_argument(const std::vector<std::string>& rest) const {
        const CLI::App* command = &app;
        for (const CLI::App* sub : {render, watch, list, check, functions, handles, verify, explain, lsp})
            if (sub->parsed()) command = sub;
        const std::string wrong = rest.empty() ? "" : rest[0].substr(0, rest[0].find('='));
        std::vector<std::string> known;
        if (wrong.rfind('-', 0) == 0) {
            for (const CLI::Option* option : command->get_options())
                for (const std::string& name : option->get_lnames()) known.push_back("--" + name);
            return "there is no option '" + wrong + "'" + render::did_you_mean(wrong, known) + " (see 'velloran " +
                   (command == &app ? "" : command->get_name() + " ") + "--help')";
        }
        if (command != &app) return "'" + wrong + "' is one argument too many";
        for (const CLI::App* sub : {render, watch, list, check, functions, handles, verify, explain, lsp})
            known.push_back(sub->get_name());
        return "there is no command '" + wrong + "'" + render::did_you_mean(wrong, known);
    }

    int run() const {
        if (watch->parsed()) return render::watch_command(options);
        if (render->parsed()) {
            if (!stream.empty() && stream != "-") throw render::Failure("'" + stream + "' is one argument too many");
            render::RenderOptions asked = options;
            const bool piped = !stream.empty() || (!asked.recipe_from.empty() && asked.effect == "-");
            if (stream.empty() && piped) asked.effect.clear();
            if (piped && asked.inputs.empty()) asked.inputs.push_back("-");
            if (piped && asked.output.empty()) asked.output = "-";
            return render::render_command(asked);
        }
        if (handles->parsed()) return render::handles_command(handle_options);
        if (check->parsed()) return render::check_command(files, json, quiet);
        if (explain->parsed()) {
            render::ExplainOptions asked = explain_options;
            asked.json = json;
            return render::explain_command(asked);
        }
        if (verify->parsed()) return render::verify_command(config, json);
        if (lsp->parsed()) return language::lsp_command();
        if (list->parsed()) return render::list_command(effect, config, json);
        if (textmate && (json || !function.empty()))
            throw render::Failure("--textmate is about all functions, and has a form of its own");
        if (textmate) return language::textmate_command();
        return render::functions_command(function, json);
    }
};

int parse_and_run(int argc, char** argv) {
    Commands commands;
    try {
        commands.app.parse(argc, argv);
    } catch (const CLI::Success& wanted) {
        std::ostringstream out, err;
        commands.app.exit(wanted, out, err);
        render::print(out.str());
        return exit_done;
    } catch (const CLI::ParseError& problem) {
        const std::vector<std::string> rest = commands.app.remaining(true);
        const bool unknown = dynamic_cast<const CLI::ExtrasError*>(&problem) ||
                             (dynamic_cast<const CLI::RequiredError*>(&problem) && !rest.empty());
        render::fail(unknown && !rest.empty() ? commands.unknown_argument(rest) : problem.what());
        return exit_nothing_done;
    }
    try {
        return commands.run();
    } catch (const render::Failure& failure) {
        // Who asked for JSON gets the reason in JSON.
        if (commands.json)
            render::print(nlohmann::ordered_json({{"error", failure.what()}, {"status", failure.status}})
                              .dump(2, ' ', false, nlohmann::json::error_handler_t::replace) +
                          "\n");
        throw;
    }
}

// Known before the arguments are read, so that what is wrong with them is JSON too.
bool json_asked_p(int argc, char** argv) {
    for (int i = 1; i < argc; i++) {
        const std::string_view word = argv[i];
        if (word == "--progress=json") return true;
        if (word == "--progress" && i + 1 < argc && std::string_view(argv[i + 1]) == "json") return true;
    }
    return false;
}

// No thread could be had: that takes memory too.
bool no_thread_p(const std::system_error& problem) {
    return problem.code() == std::errc::resource_unavailable_try_again;
}

// Where a library beneath finds no memory in a place that lets nothing through, the program still ends as it says.
[[noreturn]] void end_uncaught() {
    render::remove_parts();
    bool no_memory = false;
    try {
        if (std::current_exception()) throw;
    } catch (const std::bad_alloc&) {
        no_memory = true;
    } catch (const std::system_error& problem) {
        no_memory = no_thread_p(problem);
    } catch (...) {
    }
    if (!no_memory) std::abort();
    static constexpr char words[] = "velloran: out of memory\n";
    [[maybe_unused]] const ssize_t written = render::json_p() ? 0 : write(STDERR_FILENO, words, sizeof(words) - 1);
    render::json_end_in_handler(exit_no_memory);
    _exit(exit_no_memory);
}

}  // namespace

int main(int argc, char** argv) {
    std::set_terminate(end_uncaught);
    render::open_console();
    std::setlocale(LC_ALL, "C");
    if (json_asked_p(argc, argv)) render::set_json();
    int status = exit_nothing_done;
    std::string error;
    try {
        status = parse_and_run(argc, argv);
    } catch (const render::Failure& failure) {
        error = failure.what();
        status = failure.status;
    } catch (const std::bad_alloc&) {
        error = "out of memory";
        status = exit_no_memory;
    } catch (const std::system_error& problem) {
        error = problem.what();
        if (no_thread_p(problem)) status = exit_no_memory;
    } catch (const std::exception& problem) {
        error = problem.what();
    }
    if (!render::close_console() && status == exit_done) {
        error = "standard output cannot be written";
        status = exit_nothing_done;
    }
    if (!error.empty()) render::fail(error);
    render::json_end(status, error);
    return status;
}
