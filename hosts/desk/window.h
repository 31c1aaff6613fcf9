// The desk's window: it brings the parts together and keeps none of their knowledge.
#pragma once

#include "hosts/desk/engine.h"
#include "hosts/desk/history.h"
#include "hosts/desk/journal.h"

#include <QMainWindow>

class QComboBox;
class QDockWidget;
class QLabel;
class QListWidget;

namespace desk {

constexpr const char* default_effect = "color:Grade";

class CurveEditor;
class Looks;
class OutputDock;
class Panel;
class TextDock;
class Timeline;
class Viewer;

class Window : public QMainWindow {
    Q_OBJECT

public:
    explicit Window(QWidget* parent = nullptr);
    ~Window() override;

    // Words of the command line: an effect, then pictures; either may be left out. At most one of a setup's path and
    // the name of a look.
    void begin(const QStringList& arguments, const QString& setup, const QString& look = {});
    void open(const OpenRequest& request);

protected:
    bool event(QEvent* event) override;
    void closeEvent(QCloseEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    void make_docks();
    void make_menus();
    void make_viewer_bar(QWidget* bar);
    QWidget* make_probe();
    QWidget* make_recovery_bar();
    void connect_engine();

    void show_opened(const OpenState& state);
    void show_picture(const PictureState& picture);
    void show_probe(const ProbeState& probe);
    void tell(int level, const QString& text);

    void add_step(const QString& label, const std::string& setup);
    void show_history();
    void go_to_step(int index);
    void recover(const KeptSession& session);
    void offer_lost_session();

    void open_pictures();
    void open_text();
    void new_text();
    void save_setup();
    void load_setup();
    // as_made: a picture alone that says how it was made stands for its effect and values.
    void take_files(const QStringList& paths, bool as_made);
    void open_as_made();
    // Of the effect that is open another look is a step of its values.
    void choose(const Choice& choice);
    void open_choice(const Choice& choice);
    void check_text();
    void want_thumbnails();

    QString data_directory_;
    Engine engine_;
    OpenRequest request_;  // what is open
    OpenState open_;
    History history_;
    Journal journal_;
    QString recovered_text_;  // of the editor, once the effect is open again
    std::optional<KeptSession> lost_;

    Viewer* viewer_ = nullptr;
    Panel* panel_ = nullptr;
    Timeline* timeline_ = nullptr;
    Looks* looks_ = nullptr;
    CurveEditor* curve_ = nullptr;
    TextDock* text_ = nullptr;
    OutputDock* output_ = nullptr;
    QListWidget* steps_ = nullptr;
    QDockWidget* looks_dock_ = nullptr;
    QDockWidget* steps_dock_ = nullptr;
    QDockWidget* curve_dock_ = nullptr;
    QDockWidget* text_dock_ = nullptr;
    QDockWidget* output_dock_ = nullptr;
    QComboBox* input_ = nullptr;
    QLabel* title_ = nullptr;
    QLabel* message_ = nullptr;
    QLabel* probe_ = nullptr;
    QLabel* frame_state_ = nullptr;
    QWidget* recovery_ = nullptr;
    QLabel* recovery_text_ = nullptr;
    QAction* undo_ = nullptr;
    QAction* redo_ = nullptr;
    QStringList told_;
    QString last_failure_;
};

}  // namespace desk
