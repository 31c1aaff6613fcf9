// Pictures of looks to choose from: effects by family, setups, and what was used last.
#pragma once

#include "hosts/desk/catalogue.h"
#include "hosts/desk/state.h"

#include <QWidget>

#include <map>
#include <vector>

class QComboBox;
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

    void add(const std::vector<LookState>& looks);
    void set_thumbnail(const QString& what, const QImage& image);
    // The picture changed: all thumbnails are of another one.
    void forget_thumbnails();
    void note_used(const QString& effect);
    void setups_changed();
    // What a thumbnail is still wanted of, those in sight first: effects, or "EFFECT|SETUP FILE".
    std::vector<std::string> wanted() const;
    const LookState* find(const QString& effect) const;
    void search();

signals:
    void effect_chosen(const QString& effect);
    void setup_chosen(const QString& effect, const QString& path);
    void thumbnails_wanted();

private:
    void refill();
    void choose(QListWidgetItem* item);
    void add_item(const QString& what, const QString& name, const QString& help);

    QString setup_directory_, recent_path_;
    std::vector<LookState> looks_;
    std::vector<SetupFile> setups_;
    QStringList recent_;
    std::map<QString, QImage> thumbnails_;
    QLineEdit* search_;
    QComboBox* family_;
    QListWidget* list_;
};

}  // namespace desk
