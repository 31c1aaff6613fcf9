#include "hosts/desk/looks.h"

#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLineEdit>
#include <QListWidget>
#include <QPainter>
#include <QScrollBar>
#include <QVBoxLayout>

#include <algorithm>

namespace desk {

namespace {

constexpr QSize icon_size(118, 70);
constexpr int most_recent = 16;
constexpr int what_role = Qt::UserRole;

enum FixedFamily : int { all_families, recent_family, setup_family, first_family };

// The name as a person says it: "matte_lightning" is "matte lightning".
QString family_title(const QString& family) { return QString(family).replace('_', ' '); }

}  // namespace

QString effect_of_setup(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly) || !file.readLine(1000).startsWith("velloran-setup ")) return {};
    for (int line = 0; line < 4; line++) {
        const QByteArray text = file.readLine(1000).trimmed();
        if (text.startsWith("effect ")) return QString::fromUtf8(text.mid(7));
    }
    return {};
}

std::vector<SetupFile> setups_in(const QString& directory) {
    std::vector<SetupFile> setups;
    for (const QFileInfo& file : QDir(directory).entryInfoList({"*.setup"}, QDir::Files, QDir::Name)) {
        const QString effect = effect_of_setup(file.filePath());
        if (!effect.isEmpty()) setups.push_back({file.filePath(), effect});
    }
    return setups;
}

Looks::Looks(QString setup_directory, QString recent_path, QWidget* parent)
    : QWidget(parent), setup_directory_(std::move(setup_directory)), recent_path_(std::move(recent_path)) {
    auto* const column = new QVBoxLayout(this);
    column->setContentsMargins(6, 4, 6, 4);
    search_ = new QLineEdit;
    search_->setObjectName("look search");
    search_->setPlaceholderText(tr("Search by name or by what it does"));
    search_->setClearButtonEnabled(true);
    column->addWidget(search_);
    family_ = new QComboBox;
    family_->setObjectName("families");
    family_->setAccessibleName(tr("Family"));
    family_->addItems({tr("All effects"), tr("Recent"), tr("My setups")});
    column->addWidget(family_);
    list_ = new QListWidget;
    list_->setObjectName("looks");
    list_->setAccessibleName(tr("Looks"));
    list_->setViewMode(QListView::IconMode);
    list_->setIconSize(icon_size);
    list_->setGridSize(icon_size + QSize(8, 24));
    list_->setResizeMode(QListView::Adjust);
    list_->setMovement(QListView::Static);
    list_->setUniformItemSizes(true);
    list_->setWordWrap(false);
    list_->setTextElideMode(Qt::ElideRight);
    column->addWidget(list_, 1);
    connect(search_, &QLineEdit::textChanged, this, &Looks::refill);
    connect(search_, &QLineEdit::returnPressed, this, [this] {
        if (list_->count() > 0) choose(list_->item(std::max(0, list_->currentRow())));
    });
    connect(family_, &QComboBox::currentIndexChanged, this, &Looks::refill);
    connect(list_, &QListWidget::itemActivated, this, &Looks::choose);
    connect(list_, &QListWidget::itemClicked, this, &Looks::choose);
    QFile recent(recent_path_);
    if (recent.open(QIODevice::ReadOnly))
        for (const QByteArray& line : recent.readAll().split('\n'))
            if (!line.isEmpty()) recent_ << QString::fromUtf8(line);
    setups_changed();
}

void Looks::search() {
    search_->setFocus();
    search_->selectAll();
}

void Looks::add(const std::vector<LookState>& looks) {
    for (const LookState& look : looks) {
        looks_.push_back(look);
        if (family_->findData(look.family) < 0) family_->addItem(family_title(look.family), look.family);
    }
    refill();
}

const LookState* Looks::find(const QString& effect) const {
    for (const LookState& look : looks_)
        if (look.effect.compare(effect, Qt::CaseInsensitive) == 0) return &look;
    return nullptr;
}

void Looks::setups_changed() {
    setups_ = setups_in(setup_directory_);
    refill();
}

void Looks::note_used(const QString& effect) {
    recent_.removeAll(effect);
    recent_.prepend(effect);
    while (recent_.size() > most_recent) recent_.removeLast();
    QFile file(recent_path_);
    if (file.open(QIODevice::WriteOnly)) file.write(recent_.join('\n').toUtf8() + "\n");
    if (family_->currentIndex() == recent_family) refill();
}

void Looks::add_item(const QString& what, const QString& name, const QString& help) {
    auto* const item = new QListWidgetItem(name);
    item->setData(what_role, what);
    item->setToolTip(help);
    item->setTextAlignment(Qt::AlignHCenter | Qt::AlignTop);
    const auto known = thumbnails_.find(what);
    QPixmap picture(icon_size);
    picture.fill(QColor(34, 34, 34));
    if (known != thumbnails_.end() && !known->second.isNull()) {
        // The whole cell is filled: what is cut off shows little of a look.
        const QImage filled = known->second.scaled(icon_size, Qt::KeepAspectRatioByExpanding, Qt::SmoothTransformation);
        QPainter painter(&picture);
        painter.drawImage((icon_size.width() - filled.width()) / 2, (icon_size.height() - filled.height()) / 2, filled);
    }
    item->setIcon(QIcon(picture));
    list_->addItem(item);
}

void Looks::refill() {
    const QString chosen = list_->currentItem() ? list_->currentItem()->data(what_role).toString() : QString();
    const int scrolled = list_->verticalScrollBar()->value();
    const int family = family_->currentIndex();
    const QString named = family_->currentData().toString();
    const QStringList words = search_->text().split(' ', Qt::SkipEmptyParts);
    const auto fits = [&](const QString& text) {
        return std::all_of(words.begin(), words.end(),
                           [&](const QString& word) { return text.contains(word, Qt::CaseInsensitive); });
    };
    list_->clear();
    const auto add_look = [&](const LookState& look) {
        if (!fits(look.family + " " + look.name + " " + look.note)) return;
        QString help = "<b>" + family_title(look.family) + " : " + look.name.toHtmlEscaped() + "</b>";
        if (!look.note.isEmpty()) help += "<br>" + look.note.toHtmlEscaped();
        if (look.inputs.size() > 1) help += "<br>" + tr("Takes ") + look.inputs.join(", ").toHtmlEscaped();
        add_item(look.effect, look.name, help);
    };
    if (family == recent_family) {
        for (const QString& effect : recent_)
            if (const LookState* const look = find(effect)) add_look(*look);
    } else if (family != setup_family) {
        for (const LookState& look : looks_)
            if (family == all_families || look.family == named) add_look(look);
    }
    if (family == setup_family || family == all_families)
        for (const SetupFile& setup : setups_) {
            const QString name = QFileInfo(setup.path).completeBaseName();
            if (fits(name + " " + setup.effect))
                add_item(setup.effect + "|" + setup.path, name, "<b>" + name + "</b><br>" + setup.effect);
        }
    for (int i = 0; i < list_->count() && !chosen.isEmpty(); i++)
        if (list_->item(i)->data(what_role) == chosen) list_->setCurrentRow(i, QItemSelectionModel::SelectCurrent);
    list_->verticalScrollBar()->setValue(scrolled);
    emit thumbnails_wanted();
}

void Looks::set_thumbnail(const QString& what, const QImage& image) {
    thumbnails_[what] = image;
    if (image.isNull()) return;
    for (int i = 0; i < list_->count(); i++) {
        QListWidgetItem* const item = list_->item(i);
        if (item->data(what_role) != what) continue;
        QPixmap picture(icon_size);
        picture.fill(QColor(34, 34, 34));
        const QImage filled = image.scaled(icon_size, Qt::KeepAspectRatioByExpanding, Qt::SmoothTransformation);
        QPainter painter(&picture);
        painter.drawImage((icon_size.width() - filled.width()) / 2, (icon_size.height() - filled.height()) / 2, filled);
        painter.end();
        item->setIcon(QIcon(picture));
    }
}

void Looks::forget_thumbnails() {
    thumbnails_.clear();
    emit thumbnails_wanted();
}

std::vector<std::string> Looks::wanted() const {
    std::vector<std::string> wanted;
    for (int i = 0; i < list_->count(); i++) {
        const QString what = list_->item(i)->data(what_role).toString();
        if (thumbnails_.find(what) == thumbnails_.end()) wanted.push_back(what.toStdString());
    }
    return wanted;
}

void Looks::choose(QListWidgetItem* item) {
    if (!item) return;
    const QString what = item->data(what_role).toString();
    const qsizetype bar = what.indexOf('|');
    if (bar < 0)
        emit effect_chosen(what);
    else
        emit setup_chosen(what.left(bar), what.mid(bar + 1));
}

}  // namespace desk
