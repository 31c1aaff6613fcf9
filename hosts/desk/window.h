// The desk's window: it brings the parts together and keeps none of their knowledge.
#pragma once

#include "hosts/desk/engine.h"

#include <QMainWindow>

class QComboBox;
class QLabel;

namespace desk {

constexpr const char* default_effect = "color:Grade";

class Panel;
class Timeline;
class Viewer;

class Window : public QMainWindow {
    Q_OBJECT

public:
    explicit Window(QWidget* parent = nullptr);
    ~Window() override;

    // Words of the command line: an effect, then pictures; either may be left out.
    void begin(const QStringList& arguments, const QString& setup);
    void open(const OpenRequest& request);

protected:
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    void make_actions();
    void make_viewer_bar(QWidget* bar);
    void show_opened(const OpenState& state);
    void show_picture(const PictureState& picture);
    void show_probe(const ProbeState& probe);
    void tell(int level, const QString& text);
    void open_pictures();
    void take_files(const QStringList& paths);

    Engine engine_;
    OpenRequest request_, asked_;  // what is open, and what was asked for last
    OpenState open_;
    Viewer* viewer_ = nullptr;
    Panel* panel_ = nullptr;
    Timeline* timeline_ = nullptr;
    QComboBox* input_ = nullptr;
    QLabel* title_ = nullptr;
    QLabel* message_ = nullptr;
    QLabel* probe_ = nullptr;
    QLabel* frame_state_ = nullptr;
    QStringList told_;
    QString last_failure_;
};

}  // namespace desk
