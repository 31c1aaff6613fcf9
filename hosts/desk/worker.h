// What happens on the engine's thread: the one plug-in that the window shows, its clips, and the frame in hand. Nothing
// here knows a widget; what is to be told goes to the sink. worker.cpp opens it and gives it away, worker_values.cpp
// has the hand on its values, worker_frames.cpp the frame.
#pragma once

#include "hosts/desk/catalogue.h"
#include "hosts/desk/state.h"
#include "hosts/render/function_list.h"
#include "hosts/render/render_plan.h"
#include "hosts/render/setup_file.h"

#include <QTemporaryDir>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace desk {

class HandleLayer;
class ThumbnailRun;

// What the viewer shows.
struct ViewRequest {
    QRect area;      // of the frame, from the top left
    int step = 1;    // frame pixels for an image pixel
    int input = -1;  // the input that is shown as well, -1 none
    bool handles = true;
    // In pixels of the widget, not of a dense screen: handles are as large and thick there, and as easily taken.
    float zoom = 1;  // for a frame pixel
    QSize viewer;
    QPointF origin;  // place of the frame's bottom left corner in the viewer, from the bottom left
};

inline double seconds_since(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Every function is called on the engine's thread.
struct Sink {
    std::function<void(const OpenState&)> opened;
    std::function<void(const PanelState&)> panel;
    std::function<void(const PictureState&)> picture;
    std::function<void(const ProbeState&)> probe;
    std::function<void(const StepState&)> step;
    std::function<void(int level, const QString& text)> message;  // 0 a note, 1 a warning, 2 a failure
    std::function<void(const std::vector<TextMessageState>&, bool usable)> text_checked;
    std::function<void(const Choice&, const QImage&)> thumbnail;
    std::function<void(const std::vector<EffectState>&)> effects;
};

class Worker {
public:
    explicit Worker(Sink sink);
    ~Worker();
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    // Any thread: the frame in hand is not needed any more, if it is one that may be given up or has taken long.
    void give_up_frame();

    // What was open stays if the request fails.
    void open(const OpenRequest& request);
    void check_text(const OpenRequest& request);
    bool is_open() const { return plan_ != nullptr; }

    // A person's hand on a control. channel: of a colour; values in the control's units. action: SPARK_ACTION_.
    void set_control(int number, const std::vector<float>& values, int action, const QString& label);
    void set_text(int number, const std::string& text, const QString& label);
    void press_button(int number, const QString& label);
    enum class KeyAction { set, remove, smooth, linear };
    void key(int number, KeyAction action);
    // Keys in any order, at frames from 1; the last of one frame counts. done: the hand has let go, which is a step.
    void set_curve(int number, int channel, const std::vector<KeyState>& keys, bool done);
    void pen(float x, float y, float pressure, float zoom);
    void seek(int frame);
    void view(const ViewRequest& request);
    void probe(int x, int y);
    void process_now();

    // Shows a setup's values, those alone that differ. undo: the plug-in's own Undo is pressed first.
    void restore(const std::string& setup, bool undo);
    void load_setup(const std::string& path);
    // The values of a look, and of other params the defaults; empty: all as they come.
    void load_look(const std::string& name);
    void save_setup(const std::string& path);
    void reset(int number);  // 0: all
    // The command that makes the same picture; the output's name is left to whoever pastes it.
    std::string command(const std::string& output, const std::string& frames);
    // The same as arguments for a run of its own, which nothing that happens later changes. Empty after a failure.
    std::vector<std::string> job(const std::string& output, const std::string& frames);

    // Called when nothing else is to be done; true if there is more to do.
    bool idle();
    // The first of them, in sight, come before effects are looked for, the others after.
    void want_thumbnails(const std::vector<Choice>& what, size_t in_sight);

private:
    std::unique_ptr<render::RenderPlan> load(const OpenRequest& request);
    void start(render::RenderPlan& plan, const OpenRequest& request);
    void apply(const std::vector<render::Assignment>& assignments);
    void show_values(const std::string& setup, bool undo);
    bool apply_setup(const std::string& path);
    void apply_over_defaults(const std::vector<render::Assignment>& assignments);
    void tell_panel();
    void tell_step(const QString& label);
    void tell_failure(const QString& text, int level = 2);
    void make_frame(bool quick);
    void frame_made(const void* frame, bool quick, int resolution, double seconds);
    void show();
    bool key_what_moved();
    const void* guarded(const std::function<const void*()>& call);
    int resolution_that_keeps_up() const;
    const render::ParamDescription* param_of(int number, int* channel = nullptr) const;
    bool remembers() const;
    void draw_handles(QImage& image);

    Sink sink_;
    QTemporaryDir private_dir_;
    std::unique_ptr<render::RenderPlan> plan_;
    OpenRequest request_;
    ViewRequest view_;
    const void* frame_ = nullptr;  // the plug-in's, of the last call that made one
    PictureState shown_;
    bool settled_ = true, hand_moves_ = false, step_open_ = false;
    QString open_label_;
    std::chrono::steady_clock::time_point last_touch_;
    double full_cost_ = 0;  // seconds that a frame takes, as far as known
    int probe_x_ = -1, probe_y_ = -1;
    int last_made_ = -1;  // frame that an effect which remembers has come to

    // What give_up_frame may touch.
    std::mutex frame_mutex_;
    bool in_frame_ = false, may_give_up_ = false;
    std::chrono::steady_clock::time_point frame_start_;
    std::atomic<bool> given_up_{false};
    void (*abort_render_)() = nullptr;

    std::unique_ptr<HandleLayer> handles_;
    std::unique_ptr<Catalogue> catalogue_;
    std::unique_ptr<ThumbnailRun> thumbnails_;
    size_t in_sight_ = 0;  // of them, not made yet
};

}  // namespace desk
