// The inner module of the Python package: arrays in, arrays out. What reads well to people is in package/__init__.py.
//
// Nothing waits for the bridge with the interpreter's lock in hand: what reads an input takes it back, on the thread
// whose turn it is.
#include "hosts/bridge/bridge.h"

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

namespace py = pybind11;

namespace {

using bridge::Effect;
using bridge::Pixels;
using bridge::Samples;

constexpr auto look_for_signals_every = std::chrono::milliseconds(20);

std::string shape_text(const py::array& array) {
    std::string text;
    for (py::ssize_t i = 0; i < array.ndim(); i++) text += (i ? ", " : "") + std::to_string(array.shape(i));
    return "(" + text + (array.ndim() == 1 ? ",)" : ")");
}

std::optional<Samples> samples_of(const py::dtype& type) {
    const char kind = type.kind(), order = type.byteorder();
    if (order == '>') return std::nullopt;
    if (kind == 'u' && type.itemsize() == 1) return Samples::uint8;
    if (kind == 'u' && type.itemsize() == 2) return Samples::uint16;
    if (kind == 'f' && type.itemsize() == 2) return Samples::float16;
    if (kind == 'f' && type.itemsize() == 4) return Samples::float32;
    return std::nullopt;
}

// A view of an array, as it lies. what: how messages call it. Throws TypeError and ValueError.
Pixels view(const py::array& array, const std::string& what, bool keep) {
    const auto samples = samples_of(array.dtype());
    if (!samples)
        throw py::type_error(what + " is of " + py::str(array.dtype()).cast<std::string>() +
                             "; it must be of uint8, uint16, float16 or float32, in this machine's order of bytes");
    const bool flat = array.ndim() == 2;
    const py::ssize_t channels = flat ? 1 : array.ndim() == 3 ? array.shape(2) : 0;
    if (channels != 1 && channels != 3 && channels != 4)
        throw py::value_error(what + " has the shape " + shape_text(array) +
                              "; it must be (height, width) or (height, width, channels) with 1, 3 or 4 channels");
    if (array.shape(0) < 1 || array.shape(1) < 1 || array.shape(0) > 1 << 28 || array.shape(1) > 1 << 28)
        throw py::value_error(what + " has the shape " + shape_text(array) + ", of which nothing can be made");
    Pixels pixels;
    pixels.data = const_cast<void*>(array.data());
    pixels.samples = *samples;
    pixels.height = static_cast<int>(array.shape(0));
    pixels.width = static_cast<int>(array.shape(1));
    pixels.channels = static_cast<int>(channels);
    pixels.down = array.strides(0), pixels.across = array.strides(1);
    pixels.between = flat ? 0 : array.strides(2);
    if (keep)
        pixels.keep = std::shared_ptr<const void>(new py::object(array), [](const py::object* object) {
            const py::gil_scoped_acquire lock;
            delete object;
        });
    return pixels;
}

py::array as_array(const py::object& object, const std::string& what) {
    py::array array = py::array::ensure(object);
    if (!array) {
        PyErr_Clear();
        throw py::type_error(what + " is a " +
                             py::str(py::type::handle_of(object).attr("__name__")).cast<std::string>() +
                             ", of which no array can be made");
    }
    return array;
}

bool on_main_thread() {
    const py::object threading = py::module_::import("threading");
    return threading.attr("current_thread")().is(threading.attr("main_thread")());
}

// A thread that does the main thread's work, one piece after the other. It stays: a new one for each picture would
// begin on whatever processor is free, which the tasks of a frame are not used to.
class Helper {
public:
    // False in a process that was forked, where the thread is not, and for a signal's handler that renders meanwhile.
    bool free() const { return process_ == getpid() && !busy_; }

    // By the main thread alone; what it threw is thrown again. meanwhile is called from time to time.
    void run(const std::function<void()>& work, const std::function<void()>& meanwhile) {
        std::unique_lock lock(mutex_);
        work_ = &work;
        busy_ = true;
        begin_.notify_one();
        while (!end_.wait_for(lock, look_for_signals_every, [&] { return !work_; })) {
            lock.unlock();
            meanwhile();
            lock.lock();
        }
        busy_ = false;
        if (failed_) std::rethrow_exception(std::exchange(failed_, nullptr));
    }

    // Never freed: the thread may outlive everything else.
    static Helper& get() {
        static Helper* const helper = new Helper;
        return *helper;
    }

private:
    Helper() : process_(getpid()) {
        std::thread([this] { serve(); }).detach();
    }

    void serve() {
        std::unique_lock lock(mutex_);
        for (;;) {
            begin_.wait(lock, [&] { return work_; });
            lock.unlock();
            std::exception_ptr failed;
            try {
                (*work_)();
            } catch (...) {
                failed = std::current_exception();
            }
            lock.lock();
            failed_ = std::move(failed);
            work_ = nullptr;
            end_.notify_one();
        }
    }

    const pid_t process_;
    bool busy_ = false;  // of the main thread
    std::mutex mutex_;
    std::condition_variable begin_, end_;
    const std::function<void()>* work_ = nullptr;
    std::exception_ptr failed_;
};

// Does work without the interpreter's lock. The main thread, which alone learns of signals, has it done and looks for
// them meanwhile: if one raises, the render is given up, and what it raised goes on.
void without_lock(Effect& effect, const std::function<void()>& work) {
    const bool watching = on_main_thread();
    std::exception_ptr raised, failed;
    {
        const py::gil_scoped_release released;
        if (!watching || !Helper::get().free()) return work();
        try {
            Helper::get().run(work, [&] {
                if (!raised) {
                    const py::gil_scoped_acquire acquired;
                    if (PyErr_CheckSignals() != 0) raised = std::make_exception_ptr(py::error_already_set());
                }
                if (raised) effect.abort();
            });
        } catch (...) {
            failed = std::current_exception();
        }
    }
    if (raised) std::rethrow_exception(raised);
    if (failed) std::rethrow_exception(failed);
}

// A function of the number of a frame, for each input, as what the bridge asks.
bridge::ReadInput reader(const std::vector<py::object>& inputs, const std::vector<std::string>& names) {
    return [&inputs, &names](int input, int frame) {
        const py::gil_scoped_acquire lock;
        const size_t at = static_cast<size_t>(input);
        if (at >= inputs.size() || inputs[at].is_none()) return Pixels();
        const std::string what = names[at] + " at frame " + std::to_string(frame);
        return view(as_array(inputs[at](frame), what), what, true);
    };
}

void render_into(Effect& effect, int frame, const std::vector<py::object>& inputs,
                 const std::vector<std::string>& names, const py::array& to) {
    const Pixels pixels = view(to, "the result", false);
    if (!to.writeable()) throw py::value_error("the result cannot be written to");
    const bridge::ReadInput read = reader(inputs, names);
    without_lock(effect, [&] { effect.render(frame, read, pixels); });
}

py::dict param_dict(const render::ParamDescription& param) {
    py::dict told;
    told["name"] = param.effect < 0 ? param.key : param.name;
    told["kind"] = param.kind;
    told["channels"] = param.channels;
    told["hidden"] = param.hidden;
    return told;
}

py::dict effect_dict(const Effect& effect) {
    const render::EffectDescription& description = effect.description();
    py::dict told;
    told["name"] = description.name;
    told["inputs"] = description.inputs;
    told["reads_frames"] = description.reads_frames;
    told["remembers"] = description.remembers;
    told["retimes"] = description.retimes;
    py::list params;
    for (const render::ParamDescription& param : description.params) params.append(param_dict(param));
    told["params"] = params;
    return told;
}

bridge::Settings settings_of(int width, int height, int depth, int first, int total, float rate, float ratio,
                             int processors) {
    bridge::Settings settings;
    settings.width = width, settings.height = height, settings.depth = depth;
    settings.first_frame = first, settings.total_frames = total;
    settings.frame_rate = rate, settings.pixel_ratio = ratio, settings.processors = processors;
    return settings;
}

// The last reference may go on any thread and waits for its turn.
struct Release {
    void operator()(Effect* effect) const {
        const py::gil_scoped_release released;
        delete effect;
    }
};

}  // namespace

PYBIND11_MODULE(_velloran, module) {
    module.doc() = "The inner module of velloran; use that.";
    static py::object error_class = py::none(), aborted_class = py::none();
    module.def("set_errors", [](const py::object& error, const py::object& aborted) {
        error_class = error, aborted_class = aborted;
    });
    py::register_exception_translator([](std::exception_ptr thrown) {
        try {
            if (thrown) std::rethrow_exception(thrown);
        } catch (const bridge::Aborted& aborted) {
            PyErr_SetString(aborted_class.ptr(), aborted.what());
        } catch (const bridge::Error& error) {
            const py::object made =
                error_class(error.what(), error.file.empty() ? py::object(py::none()) : py::object(py::str(error.file)),
                            error.line > 0 ? py::object(py::int_(error.line)) : py::object(py::none()),
                            error.line > 0 ? py::object(py::int_(error.column)) : py::object(py::none()));
            PyErr_SetObject(error_class.ptr(), made.ptr());
        }
    });
    // The interpreter must not free them behind its own end.
    py::module_::import("atexit").attr("register")(py::cpp_function([] {
        error_class.release().dec_ref();
        aborted_class.release().dec_ref();
        error_class = py::reinterpret_borrow<py::object>(PyExc_RuntimeError);
        aborted_class = error_class;
    }));

    const auto free = py::call_guard<py::gil_scoped_release>();
    py::class_<Effect, std::unique_ptr<Effect, Release>>(module, "Effect")
        .def(py::init([](const std::string& name, int width, int height, int depth, int first, int total, float rate,
                         float ratio, int processors) {
            const py::gil_scoped_release released;
            return std::unique_ptr<Effect, Release>(
                new Effect(name, settings_of(width, height, depth, first, total, rate, ratio, processors)));
        }))
        .def(py::init([](const std::string& text, const std::string& name, const std::string& file, int width,
                         int height, int depth, int first, int total, float rate, float ratio, int processors) {
            const py::gil_scoped_release released;
            return std::unique_ptr<Effect, Release>(
                new Effect(text, name, file, settings_of(width, height, depth, first, total, rate, ratio, processors)));
        }))
        .def("describe", &effect_dict)
        .def("set", &Effect::set, free)
        .def("set_control", &Effect::set_control, free)
        .def("reset", &Effect::reset, free)
        .def("frames", &Effect::frames, free)
        .def("abort", &Effect::abort, free)
        .def("take_warnings", &Effect::take_warnings, free)
        .def("render", &render_into);
    module.def("families", &bridge::families, free);
    module.def("list_json", &bridge::list_json, free);
    module.def("check", [](const std::string& text, const std::string& file) {
        bridge::CheckedText checked;
        {
            const py::gil_scoped_release released;
            checked = bridge::check(text, file);
        }
        py::list messages;
        for (const render::TextMessage& message : checked.messages)
            messages.append(py::make_tuple(message.level, message.line, message.column, message.text,
                                           bridge::message_text(message, text, file)));
        return messages;
    });
}
