#include "hosts/desk/panel.h"

#include "hosts/desk/colour_field.h"
#include "hosts/desk/engine.h"
#include "hosts/desk/value_field.h"

#include <QCheckBox>
#include <QComboBox>
#include <QContextMenuEvent>
#include <QGridLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPainter>
#include <QPushButton>
#include <QScrollArea>

#include <algorithm>

namespace desk {

namespace {

// Curves of popups, switches and numbers are marked before their widgets alike.
class MarkedRow : public QWidget {
public:
    MarkedRow(QWidget* child, QWidget* parent) : QWidget(parent) {
        auto* const row = new QHBoxLayout(this);
        row->setContentsMargins(key_mark_width + 2, 0, 0, 0);
        row->addWidget(child);
        setFocusProxy(child);
    }
    void set_mark(KeyMark mark) {
        mark_ = mark;
        update();
    }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter painter(this);
        draw_key_mark(painter, QPointF(key_mark_width / 2.0, height() / 2.0), mark_, palette());
    }

private:
    KeyMark mark_ = KeyMark::none;
};

QString step_label(const ControlState& state) { return state.param.isEmpty() ? state.name : state.param; }

}  // namespace

Panel::Panel(Engine& engine, QWidget* parent) : QTabWidget(parent), engine_(engine) {
    setObjectName("panel");
    setAccessibleName("Controls");
    setDocumentMode(true);
}

const ControlState* Panel::find(int number) const {
    for (const ControlState& control : state_.controls)
        if (control.number == number) return &control;
    return nullptr;
}

void Panel::show_state(const PanelState& state) {
    bool alike = state.pages == state_.pages && state.controls.size() == state_.controls.size();
    for (size_t i = 0; alike && i < state.controls.size(); i++)
        alike = state.controls[i].same_layout(state_.controls[i]);
    state_ = state;
    if (!alike) rebuild();
    for (const ControlState& control : state_.controls) update_control(control);
}

void Panel::rebuild() {
    const int shown = currentIndex();
    QString focused = focusWidget() ? focusWidget()->objectName() : QString();
    widgets_.clear();
    while (count() > 0) {
        QWidget* const page = widget(0);
        removeTab(0);
        page->deleteLater();
    }
    for (int page = 0; page < state_.pages.size(); page++) {
        auto* const content = new QWidget;
        auto* const grid = new QGridLayout(content);
        grid->setContentsMargins(10, 6, 10, 6);
        grid->setHorizontalSpacing(18);
        grid->setVerticalSpacing(3);
        bool any = false;
        std::map<int, bool> filled;
        std::map<int, QString> heading;  // in force, by column
        for (const ControlState& control : state_.controls) {
            if (control.page != page) continue;
            any = true;
            filled[control.column] = true;
            QWidget* const made = make_control(control);
            if (!made) continue;
            if (!control.group.isEmpty() && heading[control.column] != control.group) {
                auto* const title = new QLabel(QString(control.group).replace("/", " / "));
                QFont small = title->font();
                small.setPointSizeF(small.pointSizeF() * 0.85);
                small.setBold(true);
                title->setFont(small);
                title->setForegroundRole(QPalette::PlaceholderText);
                title->setContentsMargins(key_mark_width + 2, 3, 0, 0);
                grid->addWidget(title, 2 * control.row, control.column);
            }
            heading[control.column] = control.group;
            grid->addWidget(made, 2 * control.row + 1, control.column);
        }
        if (!any) {
            content->deleteLater();
            continue;
        }
        // A column keeps its place also where it is empty, so that one finds the standard controls where they were.
        const int columns = (SPARK_CONTROLS_PER_PAGE + SPARK_CONTROLS_PER_COLUMN - 1) / SPARK_CONTROLS_PER_COLUMN;
        for (int column = 0; column < columns; column++) {
            grid->setColumnStretch(column, filled[column] ? 4 : 3);
            if (filled[column]) grid->setColumnMinimumWidth(column, 150);
        }
        grid->setRowStretch(2 * SPARK_CONTROLS_PER_COLUMN, 1);
        auto* const scroll = new QScrollArea;
        scroll->setFrameShape(QFrame::NoFrame);
        scroll->setWidgetResizable(true);
        scroll->setWidget(content);
        addTab(scroll, state_.pages[page]);
    }
    if (shown >= 0 && shown < count()) setCurrentIndex(shown);
    if (!focused.isEmpty())
        if (auto* const again = findChild<QWidget*>(focused)) again->setFocus();
}

QWidget* Panel::make_control(const ControlState& state) {
    const int number = state.number;
    QWidget* made = nullptr;
    if (state.caption) {
        const bool popup = state.kind == SPARK_CONTROL_POPUP && !state.entries.isEmpty();
        auto* const caption = new QLabel(popup ? state.entries[0] : state.name);
        caption->setContentsMargins(key_mark_width + 2, 0, 0, 0);
        return caption;
    }
    const QString label = step_label(state);
    if (state.button) {
        auto* const button = new QPushButton(state.name);
        connect(button, &QPushButton::clicked, this, [this, number, label] {
            engine_.post(0, true, [number, label](Worker& worker) { worker.press_button(number, label); });
        });
        made = new MarkedRow(button, nullptr);
    } else if (state.kind == SPARK_CONTROL_FLOAT || state.kind == SPARK_CONTROL_INT) {
        auto* const field = new ValueField;
        connect(field, &ValueField::moved, this, [this, number, label](float value, int action) {
            engine_.set_control(number, {value}, action, label);
        });
        made = field;
    } else if (state.kind == SPARK_CONTROL_COLOUR) {
        auto* const field = new ColourField;
        connect(field, &ColourField::moved, this, [this, number, label](const QColor& colour, int action) {
            engine_.set_control(number,
                                {static_cast<float>(colour.red()), static_cast<float>(colour.green()),
                                 static_cast<float>(colour.blue())},
                                action, label);
        });
        made = field;
    } else if (state.kind == SPARK_CONTROL_POPUP) {
        auto* const popup = new QComboBox;
        popup->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
        popup->setMinimumContentsLength(8);
        popup->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
        popup->addItems(state.entries);
        popup->setAccessibleName(state.name.isEmpty() ? state.param : state.name);
        popup->setToolTip(state.help);
        connect(popup, &QComboBox::activated, this, [this, number, label](int entry) {
            engine_.set_control(number, {static_cast<float>(entry)}, SPARK_ACTION_RELEASE, label);
        });
        popup->setFocusPolicy(Qt::StrongFocus);
        made = new MarkedRow(popup, nullptr);
    } else if (state.kind == SPARK_CONTROL_STRING) {
        auto* const line = new QLineEdit;
        line->setPlaceholderText(state.name);
        line->setMaxLength(SPARK_MAX_STRING - 1);
        connect(line, &QLineEdit::editingFinished, this, [this, line, number, label] {
            const ControlState* const known = find(number);
            if (known && known->text == line->text()) return;
            engine_.post(0, true, [number, label, text = line->text().toStdString()](Worker& worker) {
                worker.set_text(number, text, label);
            });
        });
        made = new MarkedRow(line, nullptr);
    } else {
        auto* const box = new QCheckBox(state.name);
        connect(box, &QCheckBox::clicked, this, [this, number, label](bool on) {
            engine_.set_control(number, {on ? 1.0f : 0.0f}, SPARK_ACTION_RELEASE, label);
        });
        made = new MarkedRow(box, nullptr);
    }
    if (auto* const field = qobject_cast<NamedField*>(made))
        connect(field, &NamedField::reset_asked, this,
                [this, number] { engine_.post(0, true, [number](Worker& worker) { worker.reset(number); }); });
    QWidget* const leaf = made->focusProxy() ? made->focusProxy() : made;
    leaf->setObjectName(label.isEmpty()                          ? QString("control %1").arg(number)
                        : state.channels == 1 && !state.standard ? QString("%1 %2").arg(label, state.name)
                                                                 : label);
    leaf->setToolTip(state.help);
    if (leaf->accessibleName().isEmpty()) leaf->setAccessibleName(state.name);
    leaf->setProperty("control", number);
    leaf->installEventFilter(this);
    widgets_[number] = made;
    return made;
}

void Panel::update_control(const ControlState& state) {
    const auto at = widgets_.find(state.number);
    if (at == widgets_.end()) return;
    QWidget* const made = at->second;
    if (auto* const field = qobject_cast<NamedField*>(made)) return field->show_state(state, state_.frame);
    if (auto* const row = dynamic_cast<MarkedRow*>(made)) row->set_mark(key_mark(state, state_.frame));
    QWidget* const leaf = made->focusProxy() ? made->focusProxy() : made;
    leaf->setEnabled(state.enabled);
    if (auto* const popup = qobject_cast<QComboBox*>(leaf)) popup->setCurrentIndex(static_cast<int>(state.values[0]));
    if (auto* const box = qobject_cast<QCheckBox*>(leaf)) box->setChecked(state.values[0] != 0);
    if (auto* const line = qobject_cast<QLineEdit*>(leaf))
        if (!line->hasFocus()) line->setText(state.text);
}

bool Panel::eventFilter(QObject* watched, QEvent* event) {
    const QVariant number = watched->property("control");
    if (!number.isValid()) return QTabWidget::eventFilter(watched, event);
    if (event->type() == QEvent::FocusIn || event->type() == QEvent::MouseButtonPress)
        emit control_used(number.toInt());
    if (event->type() == QEvent::ContextMenu) {
        show_menu(number.toInt(), static_cast<QContextMenuEvent*>(event)->globalPos());
        return true;
    }
    // A wheel that passes over a popup must not change it.
    auto* const leaf = static_cast<QWidget*>(watched);
    if (event->type() == QEvent::Wheel && qobject_cast<QComboBox*>(leaf) && !leaf->hasFocus()) {
        event->ignore();
        return true;
    }
    if (event->type() == QEvent::KeyPress && !qobject_cast<QLineEdit*>(leaf)) {
        auto* const key = static_cast<QKeyEvent*>(event);
        const int control = number.toInt();
        using Action = Worker::KeyAction;
        if (key->key() == Qt::Key_K && key->modifiers() == Qt::NoModifier) {
            engine_.post(0, true, [control](Worker& worker) { worker.key(control, Action::set); });
            return true;
        }
        if (key->key() == Qt::Key_K && key->modifiers() == Qt::ShiftModifier) {
            engine_.post(0, true, [control](Worker& worker) { worker.key(control, Action::remove); });
            return true;
        }
        if (key->key() == Qt::Key_BracketLeft || key->key() == Qt::Key_BracketRight) {
            emit jump_asked(control, key->key() == Qt::Key_BracketLeft ? -1 : 1);
            return true;
        }
    }
    return QTabWidget::eventFilter(watched, event);
}

void Panel::focus_first() {
    for (const auto& [number, made] : widgets_) {
        QWidget* const leaf = made->focusProxy() ? made->focusProxy() : made;
        if (leaf->isVisible() && leaf->isEnabled()) return leaf->setFocus(Qt::ShortcutFocusReason);
    }
    setFocus();
}

int Panel::key_beside(int number, int direction, int frame) const {
    const ControlState* const control = find(number);
    if (!control) return -1;
    const float now = static_cast<float>(frame + 1);
    float best = 0;
    for (const auto& keys : control->keys)
        for (const KeyState& key : keys) {
            const float ahead = (key.frame - now) * static_cast<float>(direction);
            if (ahead > 0 && (best == 0 || ahead < (best - now) * static_cast<float>(direction))) best = key.frame;
        }
    return static_cast<int>(best) - 1;
}

void Panel::show_menu(int number, QPoint place) {
    const ControlState* const control = find(number);
    if (!control) return;
    const KeyMark mark = key_mark(*control, state_.frame);
    const bool curves = control->kind != SPARK_CONTROL_STRING && !control->button;
    QMenu menu(this);
    using Action = Worker::KeyAction;
    const auto add_key = [&](const QString& text, Action action, bool possible) {
        QAction* const item = menu.addAction(text, this, [this, number, action] {
            engine_.post(0, true, [number, action](Worker& worker) { worker.key(number, action); });
        });
        item->setEnabled(possible);
    };
    if (curves) {
        add_key(tr("Set key\tK"), Action::set, true);
        add_key(tr("Delete key\tShift+K"), Action::remove, mark == KeyMark::here);
        menu.addAction(tr("Next key\t]"), this, [this, number] { emit jump_asked(number, 1); })
            ->setEnabled(mark != KeyMark::none);
        menu.addAction(tr("Previous key\t["), this, [this, number] { emit jump_asked(number, -1); })
            ->setEnabled(mark != KeyMark::none);
        add_key(tr("Straight between keys"), Action::linear, mark != KeyMark::none);
        add_key(tr("Smooth between keys"), Action::smooth, mark != KeyMark::none);
        menu.addSeparator();
    }
    menu.addAction(tr("Reset\tDel"), this,
                   [this, number] { engine_.post(0, true, [number](Worker& worker) { worker.reset(number); }); });
    menu.addAction(tr("Reset all"), this, [this] { engine_.post(0, true, [](Worker& worker) { worker.reset(0); }); });
    menu.exec(place);
}

}  // namespace desk
