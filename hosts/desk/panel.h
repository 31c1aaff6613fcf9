// The control panel, exactly as the plug-in has laid it out: pages, columns of seven rows, names, kinds and ranges.
#pragma once

#include "hosts/desk/state.h"

#include <QTabWidget>

#include <map>

namespace desk {

class Engine;

class Panel : public QTabWidget {
    Q_OBJECT

public:
    explicit Panel(Engine& engine, QWidget* parent = nullptr);

    void show_state(const PanelState& state);
    const PanelState& state() const { return state_; }
    // The frame of the control's nearest key before (direction -1) or behind (1) a frame, counted from 0; -1: none.
    int key_beside(int number, int direction, int frame) const;
    // The first control of the page that is seen.
    void focus_first();

signals:
    void jump_asked(int number, int direction);
    void control_used(int number);

private:
    void rebuild();
    QWidget* make_control(const ControlState& state);
    void update_control(const ControlState& state);
    void show_menu(int number, QPoint place);
    const ControlState* find(int number) const;
    bool eventFilter(QObject* watched, QEvent* event) override;

    Engine& engine_;
    PanelState state_;
    std::map<int, QWidget*> widgets_;  // by control number
};

}  // namespace desk
