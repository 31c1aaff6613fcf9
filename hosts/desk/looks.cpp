#include "hosts/desk/looks.h"

#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPainter>
#include <QScrollBar>
#include <QSplitter>
#include <QVBoxLayout>

#include <algorithm>

namespace desk {

namespace {

constexpr QSize icon_size(128, 76);
constexpr int most_recent = 16;
constexpr int what_role = Qt::UserRole;

enum FixedFamily : int { all_families, all_looks, recent_family, setup_family };

// A name as a person says it: "matte_lightning" is "matte lightning".
QString spoken(const QString& name) { return QString(name).replace('_', ' '); }

bool same_effect(const QString& a, const QString& b) { return a.compare(b, Qt::CaseInsensitive) == 0; }

bool fits(const QStringList& words, const QString& text) {
    return std::all_of(words.begin(), words.end(),
                       [&](const QString& word) { return text.contains(word, Qt::CaseInsensitive); });
}

QString help_text(const QString& title, const QString& note) {
    return "<b>" + title.toHtmlEscaped() + "</b>" + (note.isEmpty() ? QString() : "<br>" + note.toHtmlEscaped());
}

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
    family_->addItems({tr("All effects"), tr("All looks"), tr("Recent"), tr("My setups")});
    column->addWidget(family_);
    auto* const parts = new QSplitter(Qt::Vertical);
    parts->setChildrenCollapsible(false);
    list_ = make_list("looks");
    list_->setAccessibleName(tr("Looks"));
    parts->addWidget(list_);
    auto* const own = new QWidget;
    auto* const own_column = new QVBoxLayout(own);
    own_column->setContentsMargins(0, 2, 0, 0);
    own_title_ = new QLabel;
    own_title_->setObjectName("looks of effect");
    own_column->addWidget(own_title_);
    own_list_ = make_list("own looks");
    own_column->addWidget(own_list_, 1);
    parts->addWidget(own);
    parts->setStretchFactor(0, 1);
    parts->setStretchFactor(1, 0);
    parts->setSizes({600, 2 * own_list_->gridSize().height() + 40});
    column->addWidget(parts, 1);
    // What has come into sight is wanted first, once the hand has stopped.
    scrolled_.setSingleShot(true);
    scrolled_.setInterval(100);
    connect(&scrolled_, &QTimer::timeout, this, &Looks::thumbnails_wanted);
    for (const QListWidget* const list : {list_, own_list_})
        connect(list->verticalScrollBar(), &QScrollBar::valueChanged, &scrolled_, qOverload<>(&QTimer::start));
    connect(search_, &QLineEdit::textChanged, this, &Looks::refill);
    connect(search_, &QLineEdit::returnPressed, this, [this] {
        if (list_->count() > 0) choose(list_->item(std::max(0, list_->currentRow())));
    });
    connect(family_, &QComboBox::currentIndexChanged, this, &Looks::refill);
    QFile recent(recent_path_);
    if (recent.open(QIODevice::ReadOnly))
        for (const QByteArray& line : recent.readAll().split('\n'))
            if (!line.isEmpty()) recent_ << QString::fromUtf8(line);
    setups_changed();
}

QListWidget* Looks::make_list(const char* name) {
    auto* const list = new QListWidget;
    list->setObjectName(name);
    list->setViewMode(QListView::IconMode);
    list->setIconSize(icon_size);
    list->setGridSize(icon_size + QSize(8, 6 + 2 * fontMetrics().height()));
    list->setResizeMode(QListView::Adjust);
    list->setMovement(QListView::Static);
    list->setUniformItemSizes(true);
    list->setWordWrap(false);
    list->setTextElideMode(Qt::ElideRight);
    list->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    list->setMinimumHeight(list->gridSize().height());
    // Two beside each other.
    list->setMinimumWidth(2 * list->gridSize().width() + list->verticalScrollBar()->sizeHint().width() + 6);
    connect(list, &QListWidget::itemActivated, this, &Looks::choose);
    connect(list, &QListWidget::itemClicked, this, &Looks::choose);
    return list;
}

void Looks::search() {
    search_->setFocus();
    search_->selectAll();
}

void Looks::add(const std::vector<EffectState>& effects) {
    for (const EffectState& effect : effects) {
        effects_.push_back(effect);
        if (family_->findData(effect.family) < 0) family_->addItem(spoken(effect.family), effect.family);
    }
    refill();
}

void Looks::set_open(const OpenState& open) {
    open_ = open;
    // A text may have become another one.
    if (open.from_text)
        std::erase_if(thumbnails_, [&](const auto& known) {
            return same_effect(QString::fromStdString(known.first.effect), open.effect);
        });
    own_title_->setText(tr("Looks of %1").arg(spoken(open.name)));
    own_list_->setAccessibleName(own_title_->text());
    refill_own();
    emit thumbnails_wanted();
}

const EffectState* Looks::find(const QString& effect) const {
    for (const EffectState& state : effects_)
        if (same_effect(state.effect, effect)) return &state;
    return nullptr;
}

void Looks::setups_changed() {
    setups_ = setups_in(setup_directory_);
    std::erase_if(thumbnails_, [](const auto& known) { return !known.first.setup.empty(); });
    refill_own();
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

void Looks::show_thumbnail(QListWidgetItem* item, const QImage& image) const {
    const double ratio = devicePixelRatioF();
    QPixmap picture(icon_size * ratio);
    picture.fill(QColor(34, 34, 34));
    if (!image.isNull()) {
        // The whole cell is filled: what is cut off shows little of a look.
        const QImage filled = image.scaled(picture.size(), Qt::KeepAspectRatioByExpanding, Qt::SmoothTransformation);
        QPainter painter(&picture);
        painter.drawImage((picture.width() - filled.width()) / 2, (picture.height() - filled.height()) / 2, filled);
    }
    picture.setDevicePixelRatio(ratio);
    item->setIcon(QIcon(picture));
}

void Looks::add_item(QListWidget* list, const Choice& what, const QString& words, const QString& help) {
    auto* const item = new QListWidgetItem(words);
    item->setData(what_role, QVariant::fromValue(what));
    item->setToolTip(help);
    item->setTextAlignment(Qt::AlignHCenter | Qt::AlignTop);
    const auto known = thumbnails_.find(what);
    show_thumbnail(item, known == thumbnails_.end() ? QImage() : known->second);
    list->addItem(item);
}

void Looks::add_setups(QListWidget* list, const QString& of_effect, const QStringList& words) {
    for (const SetupFile& setup : setups_) {
        const QString name = QFileInfo(setup.path).completeBaseName();
        if ((of_effect.isEmpty() || same_effect(setup.effect, of_effect)) && fits(words, name + " " + setup.effect))
            add_item(list, {setup.effect.toStdString(), {}, setup.path.toStdString()},
                     name + (of_effect.isEmpty() ? "\n" + spoken(setup.effect) : "\n" + tr("my setup")),
                     help_text(name, spoken(setup.effect)));
    }
}

void Looks::refill() {
    const QVariant chosen = list_->currentItem() ? list_->currentItem()->data(what_role) : QVariant();
    const int scrolled = list_->verticalScrollBar()->value();
    const int family = family_->currentIndex();
    const QString named = family_->currentData().toString();
    const QStringList words = search_->text().split(' ', Qt::SkipEmptyParts);
    list_->clear();
    const auto add_effect = [&](const EffectState& effect) {
        const QString title = spoken(effect.family) + " : " + effect.name;
        const QString searched = effect.family + " " + effect.name + " ";
        if (family != all_looks && fits(words, searched + effect.note)) {
            QString help = help_text(title, effect.note);
            if (effect.inputs.size() > 1) help += "<br>" + tr("Takes ") + effect.inputs.join(", ").toHtmlEscaped();
            add_item(list_, {effect.effect.toStdString(), {}, {}},
                     effect.name == spoken(effect.family) ? effect.name : effect.name + "\n" + spoken(effect.family),
                     help);
        }
        // Where one looks for something, a look may be it.
        if (family != all_looks && words.isEmpty()) return;
        for (const LookState& look : effect.looks)
            if (fits(words, searched + spoken(look.name) + " " + look.note))
                add_item(list_, {effect.effect.toStdString(), look.name.toStdString(), {}},
                         spoken(look.name) + "\n" + effect.name,
                         help_text(title + ", " + spoken(look.name), look.note));
    };
    if (family == recent_family) {
        for (const QString& effect : recent_)
            if (const EffectState* const state = find(effect)) add_effect(*state);
    } else if (family != setup_family) {
        for (const EffectState& effect : effects_)
            if (family == all_families || family == all_looks || effect.family == named) add_effect(effect);
    }
    if (family == setup_family || family == all_families) add_setups(list_, {}, words);
    for (int i = 0; i < list_->count() && chosen.isValid(); i++)
        if (list_->item(i)->data(what_role).value<Choice>() == chosen.value<Choice>())
            list_->setCurrentRow(i, QItemSelectionModel::SelectCurrent);
    list_->verticalScrollBar()->setValue(scrolled);
    emit thumbnails_wanted();
}

void Looks::refill_own() {
    own_list_->clear();
    if (open_.effect.isEmpty()) return;
    const std::string effect = open_.effect.toStdString();
    add_item(own_list_, {effect, {}, {}}, tr("As it comes"), help_text(tr("As it comes"), open_.note));
    for (const LookState& look : open_.looks)
        add_item(own_list_, {effect, look.name.toStdString(), {}}, spoken(look.name),
                 help_text(spoken(look.name), look.note));
    add_setups(own_list_, open_.effect, {});
}

void Looks::set_thumbnail(const Choice& what, const QImage& image) {
    thumbnails_[what] = image;
    if (image.isNull()) return;
    for (QListWidget* const list : {own_list_, list_})
        for (int i = 0; i < list->count(); i++)
            if (list->item(i)->data(what_role).value<Choice>() == what) show_thumbnail(list->item(i), image);
}

void Looks::forget_thumbnails() {
    thumbnails_.clear();
    emit thumbnails_wanted();
}

std::vector<Choice> Looks::wanted(size_t* n_in_sight) const {
    std::vector<Choice> in_sight, others;
    for (const QListWidget* const list : {own_list_, list_}) {
        // A text that is being written is not the one on the disk, which a picture would be made of.
        if (list == own_list_ && open_.request.edited) continue;
        for (int i = 0; i < list->count(); i++) {
            const Choice what = list->item(i)->data(what_role).value<Choice>();
            if (thumbnails_.count(what)) continue;
            const bool seen = list->viewport()->rect().intersects(list->visualItemRect(list->item(i)));
            (seen ? in_sight : others).push_back(what);
        }
    }
    *n_in_sight = in_sight.size();
    in_sight.insert(in_sight.end(), others.begin(), others.end());
    return in_sight;
}

void Looks::choose(QListWidgetItem* item) {
    if (item) emit chosen(item->data(what_role).value<Choice>());
}

}  // namespace desk
