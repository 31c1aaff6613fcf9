#include "hosts/desk/engine.h"

#include "hosts/common/task_pool.h"

#include <chrono>

namespace desk {

namespace {

enum Kind : int {
    any_job,
    view_job,
    probe_job,
    seek_job,
    move_job,
    hover_job,
    text_job,
    thumbnails_job,
    first_control_job = 100
};

}  // namespace

Engine::Engine(QObject* parent) : QObject(parent) {
    qRegisterMetaType<OpenState>();
    qRegisterMetaType<PanelState>();
    qRegisterMetaType<PictureState>();
    qRegisterMetaType<ProbeState>();
    qRegisterMetaType<StepState>();
    qRegisterMetaType<std::vector<TextMessageState>>("std::vector<desk::TextMessageState>");
    qRegisterMetaType<std::vector<EffectState>>("std::vector<desk::EffectState>");
    qRegisterMetaType<Choice>();
    qRegisterMetaType<std::vector<render::FunctionRow>>("std::vector<render::FunctionRow>");
}

void Engine::start() {
    thread_ = std::thread([this] { run(); });
}

Engine::~Engine() {
    {
        const std::lock_guard lock(mutex_);
        stop_ = true;
        if (worker_) worker_->give_up_frame();
    }
    wake_.notify_all();
    if (thread_.joinable()) thread_.join();
}

void Engine::run() {
    Sink sink;
    sink.opened = [this](const OpenState& state) { emit opened(state); };
    sink.panel = [this](const PanelState& state) { emit panel_changed(state); };
    sink.picture = [this](const PictureState& state) { emit picture_made(state); };
    sink.probe = [this](const ProbeState& state) { emit probed(state); };
    sink.step = [this](const StepState& state) { emit step_made(state); };
    sink.message = [this](int level, const QString& text) { emit told(level, text); };
    sink.text_checked = [this](const std::vector<TextMessageState>& messages, bool usable) {
        emit text_checked(messages, usable);
    };
    sink.effects = [this](const std::vector<EffectState>& effects) { emit effects_found(effects); };
    sink.thumbnail = [this](const Choice& what, const QImage& image) { emit thumbnail_made(what, image); };
    {
        Worker worker(sink);
        std::unique_lock lock(mutex_);
        worker_ = &worker;
        lock.unlock();
        try {
            emit functions_found(render::function_rows());
        } catch (const std::exception& problem) {
            emit told(2, QString::fromStdString(problem.what()));
        }
        lock.lock();
        bool more = true;
        while (!stop_) {
            if (queue_.empty() && !more) {
                emit busy_changed(false);
                wake_.wait(lock, [this] { return stop_ || !queue_.empty(); });
                continue;
            }
            if (queue_.empty()) {
                // Something is left for when the hand rests: a look now and then is enough.
                wake_.wait_for(lock, std::chrono::milliseconds(2), [this] { return stop_ || !queue_.empty(); });
                if (stop_ || !queue_.empty()) continue;
                lock.unlock();
                more = worker.idle();
                lock.lock();
                continue;
            }
            const Job job = std::move(queue_.front().job);
            queue_.pop_front();
            lock.unlock();
            emit busy_changed(true);
            try {
                job(worker);
            } catch (const std::exception& problem) {
                // Out of memory, for one: the program goes on with what is there.
                emit told(2, QString::fromStdString(problem.what()));
            }
            lock.lock();
            more = true;
        }
        worker_ = nullptr;
    }
    spark_host::pool_stop();
}

void Engine::post(int kind, bool hurries, Job job) {
    {
        const std::lock_guard lock(mutex_);
        if (kind != any_job && !queue_.empty() && queue_.back().kind == kind)
            queue_.back().job = std::move(job);
        else
            queue_.push_back({kind, std::move(job)});
        if (hurries && worker_) worker_->give_up_frame();
    }
    wake_.notify_all();
}

void Engine::open(const OpenRequest& request) {
    post(any_job, true, [request](Worker& worker) { worker.open(request); });
}

void Engine::check_text(const OpenRequest& request) {
    post(text_job, true, [request](Worker& worker) { worker.check_text(request); });
}

void Engine::set_control(int number, const std::vector<float>& values, int action, const QString& label) {
    const int kind = action == SPARK_ACTION_DRAG ? first_control_job + number : int{any_job};
    post(kind, true, [=](Worker& worker) { worker.set_control(number, values, action, label); });
}

void Engine::set_curve(int number, int channel, const std::vector<KeyState>& keys, bool done) {
    const int kind = done ? int{any_job} : first_control_job + number;
    post(kind, true, [=](Worker& worker) { worker.set_curve(number, channel, keys, done); });
}

void Engine::pen(float x, float y, float pressure, float zoom) {
    // Presses and releases count each; of moves the newest.
    static float last_pressure = 0;
    const bool same = (pressure > 0) == (last_pressure > 0);
    last_pressure = pressure;
    const int kind = !same ? any_job : pressure > 0 ? move_job : hover_job;
    post(kind, pressure > 0, [=](Worker& worker) { worker.pen(x, y, pressure, zoom); });
}

void Engine::seek(int frame) {
    post(seek_job, true, [frame](Worker& worker) { worker.seek(frame); });
}

void Engine::view(const ViewRequest& request) {
    post(view_job, false, [request](Worker& worker) { worker.view(request); });
}

void Engine::probe(int x, int y) {
    post(probe_job, false, [x, y](Worker& worker) { worker.probe(x, y); });
}

void Engine::want_thumbnails(const std::vector<Choice>& what, size_t in_sight) {
    post(thumbnails_job, false, [=](Worker& worker) { worker.want_thumbnails(what, in_sight); });
}

void Engine::job(const QString& output, const QString& frames) {
    post(any_job, false, [this, output, frames](Worker& worker) {
        QStringList arguments;
        for (const std::string& word : worker.job(output.toStdString(), frames.toStdString()))
            arguments << QString::fromStdString(word);
        if (!arguments.isEmpty()) emit job_made(arguments, output);
    });
}

void Engine::command(const QString& output, const QString& frames) {
    post(any_job, false, [this, output, frames](Worker& worker) {
        const std::string line = worker.command(output.toStdString(), frames.toStdString());
        if (!line.empty()) emit command_made(QString::fromStdString(line));
    });
}

}  // namespace desk
