// The thread in which plug-ins live. The window posts jobs to it and hears of results by signals; it never waits.
#pragma once

#include "hosts/desk/worker.h"

#include <QObject>

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace desk {

class Engine : public QObject {
    Q_OBJECT

public:
    explicit Engine(QObject* parent = nullptr);
    // To be called once, when all is connected.
    void start();
    // Waits for the job in hand.
    ~Engine() override;

    using Job = std::function<void(Worker&)>;
    // Jobs are done in order. Of jobs of one kind (not 0) that wait side by side only the newest is done. A job that
    // hurries has the frame in hand given up, where that may be.
    void post(int kind, bool hurries, Job job);

    // What the window asks for; each returns at once.
    void open(const OpenRequest& request);
    void check_text(const OpenRequest& request);
    void set_control(int number, const std::vector<float>& values, int action, const QString& label);
    void pen(float x, float y, float pressure, float zoom);
    // All keys of a channel; done: the hand has let go.
    void set_curve(int number, int channel, const std::vector<KeyState>& keys, bool done);
    void seek(int frame);
    void view(const ViewRequest& request);
    void probe(int x, int y);
    void want_thumbnails(const std::vector<Choice>& what, size_t in_sight);
    // Answered by job_made and command_made.
    void job(const QString& output, const QString& frames);
    void command(const QString& output, const QString& frames);

signals:
    void opened(const desk::OpenState& state);
    void panel_changed(const desk::PanelState& state);
    void picture_made(const desk::PictureState& state);
    void probed(const desk::ProbeState& state);
    void step_made(const desk::StepState& state);
    void told(int level, const QString& text);
    void text_checked(const std::vector<desk::TextMessageState>& messages, bool usable);
    void thumbnail_made(const desk::Choice& what, const QImage& image);
    void effects_found(const std::vector<desk::EffectState>& effects);
    void functions_found(const std::vector<render::FunctionRow>& rows);
    void command_made(const QString& line);
    void job_made(const QStringList& arguments, const QString& output);
    void busy_changed(bool busy);

private:
    struct Waiting {
        int kind;
        Job job;
    };
    void run();

    std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<Waiting> queue_;
    bool stop_ = false;
    Worker* worker_ = nullptr;  // while the thread runs
    std::thread thread_;
};

}  // namespace desk
