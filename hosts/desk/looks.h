// Pictures to choose from: effects by family, their looks, setups, and what was used last; below them the looks of the
// effect that is open.
#pragma once

#include "hosts/desk/catalogue.h"
#include "hosts/desk/state.h"

#include <QTimer>
#include <QWidget>

#include <map>
#include <vector>

class QComboBox;
class QLabel;
class QLineEdit;
class QListWidget;
class QListWidgetItem;

namespace desk {

// A setup of the person's own.
struct SetupFile {
    QString path, effect;
};
// The setups in a directory, by name. Those that do not say whose they are are left out.
std::vector<SetupFile> setups_in(const QString& directory);
// The effect that a setup file names, empty if it names none.
QString effect_of_setup(const QString& path);

class Looks : public QWidget {
    Q_OBJECT

public:
    Looks(QString setup_directory, QString recent_path, QWidget* parent = nullptr);

    void add(const std::vector<EffectState>& effects);
    // The effect that is open.
    void set_open(const OpenState& open);
    void set_thumbnail(const Choice& what, const QImage& image);
    // The picture changed: all thumbnails are of another one.
    void forget_thumbnails();
    void note_used(const QString& effect);
    void setups_changed();
    // What a thumbnail is still wanted of, those in sight first, and how many these are.
    std::vector<Choice> wanted(size_t* in_sight) const;
    void search();

signals:
    void chosen(const desk::Choice& choice);
    void thumbnails_wanted();

private:
    QListWidget* make_list(const char* name);
    const EffectState* find(const QString& effect) const;
    void refill();
    void refill_own();
    void choose(QListWidgetItem* item);
    void add_item(QListWidget* list, const Choice& what, const QString& words, const QString& help);
    void add_setups(QListWidget* list, const QString& of_effect, const QStringList& words);
    void show_thumbnail(QListWidgetItem* item, const QImage& image) const;

    QString setup_directory_, recent_path_;
    std::vector<EffectState> effects_;
    OpenState open_;
    std::vector<SetupFile> setups_;
    QStringList recent_;
    std::map<Choice, QImage> thumbnails_;
    QTimer scrolled_;
    QLineEdit* search_;
    QComboBox* family_;
    QListWidget* list_;
    QLabel* own_title_;
    QListWidget* own_list_;  // of the effect that is open
};

}  // namespace desk
