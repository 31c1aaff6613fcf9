#include "hosts/desk/text_dock.h"

#include "hosts/language/completion.h"
#include "hosts/language/outline.h"
#include "hosts/language/vocabulary.h"

#include <QAbstractItemView>
#include <QCompleter>
#include <QDir>
#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <QFontDatabase>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QListWidget>
#include <QPainter>
#include <QPushButton>
#include <QRegularExpression>
#include <QSaveFile>
#include <QScrollBar>
#include <QStandardItemModel>
#include <QTextBlock>
#include <QTreeView>
#include <QVBoxLayout>

#include <algorithm>

namespace desk {

namespace {

constexpr int typing_pause = 250;  // milliseconds
constexpr int shortest_completed = 2;

// The numbers beside the lines.
class LineNumbers : public QWidget {
public:
    explicit LineNumbers(TextEditor* editor) : QWidget(editor), editor_(editor) {}
    QSize sizeHint() const override { return {editor_->number_width(), 0}; }

protected:
    void paintEvent(QPaintEvent* event) override { editor_->paint_numbers(event); }

private:
    TextEditor* editor_;
};

bool dark(const QPalette& palette) { return palette.color(QPalette::Base).lightness() < 128; }

bool name_letter(QChar c) { return c.isLetterOrNumber() || c == '_'; }

}  // namespace

// ---- Colours ----

void TextColours::set_functions(std::set<QString> functions) {
    functions_ = std::move(functions);
    rehighlight();
}

void TextColours::highlightBlock(const QString& text) {
    static const QRegularExpression words(R"(//.*$|"[^"]*"|\(\s*([A-Za-z_][A-Za-z_0-9]*)|^\s*([A-Za-z_]\w*)\s*=|)"
                                          R"((?<![A-Za-z_0-9.])-?\d*\.?\d+)");
    auto* const widget = qobject_cast<QWidget*>(document()->parent());
    const bool night = dark(widget ? widget->palette() : QPalette());
    const QColor function = night ? QColor(120, 180, 250) : QColor(20, 80, 170);
    const QColor structure = night ? QColor(220, 150, 220) : QColor(140, 30, 130);
    const QColor number = night ? QColor(230, 180, 110) : QColor(150, 80, 0);
    const QColor comment = night ? QColor(130, 160, 120) : QColor(70, 110, 60);
    const QColor name = night ? QColor(230, 230, 160) : QColor(90, 90, 0);
    for (auto found = words.globalMatch(text); found.hasNext();) {
        const QRegularExpressionMatch match = found.next();
        if (match.capturedLength(1) > 0) {
            const QString word = match.captured(1);
            if (word == "def_effect")
                setFormat(static_cast<int>(match.capturedStart(1)), static_cast<int>(match.capturedLength(1)),
                          structure);
            else if (functions_.count(word))
                setFormat(static_cast<int>(match.capturedStart(1)), static_cast<int>(match.capturedLength(1)),
                          function);
        } else if (match.capturedLength(2) > 0) {
            setFormat(static_cast<int>(match.capturedStart(2)), static_cast<int>(match.capturedLength(2)),
                      match.captured(2) == "dest" ? structure : name);
        } else {
            const QString whole = match.captured();
            setFormat(static_cast<int>(match.capturedStart()), static_cast<int>(match.capturedLength()),
                      whole.startsWith("//") || whole.startsWith('"') ? comment : number);
        }
    }
}

// ---- The editor ----

TextEditor::TextEditor(QWidget* parent) : QPlainTextEdit(parent), numbers_(new LineNumbers(this)) {
    setObjectName("text");
    setAccessibleName(tr("Effect text"));
    setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    setLineWrapMode(QPlainTextEdit::NoWrap);
    setTabStopDistance(2 * fontMetrics().horizontalAdvance(' '));
    connect(this, &QPlainTextEdit::blockCountChanged, this, [this] { setViewportMargins(number_width(), 0, 0, 0); });
    connect(this, &QPlainTextEdit::updateRequest, this, [this](const QRect& rect, int dy) {
        if (dy)
            numbers_->scroll(0, dy);
        else
            numbers_->update(0, rect.y(), numbers_->width(), rect.height());
    });
    setViewportMargins(number_width(), 0, 0, 0);
}

int TextEditor::number_width() const {
    const int digits = static_cast<int>(QString::number(std::max(1, blockCount())).size());
    return 14 + fontMetrics().horizontalAdvance('9') * std::max(2, digits);
}

void TextEditor::resizeEvent(QResizeEvent* event) {
    QPlainTextEdit::resizeEvent(event);
    const QRect area = contentsRect();
    numbers_->setGeometry(area.left(), area.top(), number_width(), area.height());
}

void TextEditor::paint_numbers(QPaintEvent* event) {
    QPainter painter(numbers_);
    painter.fillRect(event->rect(), palette().color(QPalette::AlternateBase));
    painter.setFont(font());
    QTextBlock block = firstVisibleBlock();
    while (block.isValid()) {
        const QRectF place = blockBoundingGeometry(block).translated(contentOffset());
        if (place.top() > event->rect().bottom()) break;
        const int line = block.blockNumber() + 1;
        const auto at = std::find_if(messages_.begin(), messages_.end(),
                                     [line](const TextMessageState& message) { return message.line == line; });
        const bool marked = at != messages_.end();
        painter.setPen(!marked     ? palette().color(QPalette::PlaceholderText)
                       : at->error ? QColor(225, 80, 60)
                                   : QColor(200, 140, 40));
        const QString number =
            (marked ? QString(at->error ? "\u25cf " : "\u25b2 ") : QString()) + QString::number(line);
        painter.drawText(QRectF(0, place.top(), numbers_->width() - 6, fontMetrics().height()), Qt::AlignRight, number);
        block = block.next();
    }
}

void TextEditor::mark(const std::vector<TextMessageState>& messages) {
    messages_ = messages;
    QList<QTextEdit::ExtraSelection> marks;
    for (const TextMessageState& message : messages) {
        const QTextBlock block = document()->findBlockByNumber(message.line - 1);
        if (message.line < 1 || !block.isValid()) continue;
        QTextEdit::ExtraSelection mark;
        mark.cursor = QTextCursor(block);
        const QString text = block.text();
        int from = std::clamp(message.column - 1, 0, std::max(0, static_cast<int>(text.size()) - 1)), to = from;
        while (to < text.size() && name_letter(text[to])) to++;
        to = std::max(to, std::min(from + 1, static_cast<int>(text.size())));
        mark.cursor.setPosition(block.position() + from);
        mark.cursor.setPosition(block.position() + to, QTextCursor::KeepAnchor);
        mark.format.setUnderlineStyle(QTextCharFormat::WaveUnderline);
        mark.format.setUnderlineColor(message.error ? QColor(225, 80, 60) : QColor(200, 140, 40));
        mark.format.setToolTip(message.text);
        marks << mark;
    }
    setExtraSelections(marks);
    numbers_->update();
}

void TextEditor::set_completer(QCompleter* completer) {
    completer_ = completer;
    completer_->setWidget(this);
    connect(completer_, qOverload<const QString&>(&QCompleter::activated), this, &TextEditor::complete);
}

QString TextEditor::word_before_caret() const {
    const QString text = textCursor().block().text();
    const int end = textCursor().positionInBlock();
    int start = end;
    while (start > 0 && name_letter(text[start - 1])) start--;
    return text.mid(start, end - start);
}

void TextEditor::complete(const QString& word) {
    QTextCursor cursor = textCursor();
    cursor.movePosition(QTextCursor::Left, QTextCursor::KeepAnchor, static_cast<int>(word_before_caret().size()));
    cursor.insertText(word);
    setTextCursor(cursor);
}

void TextEditor::keyPressEvent(QKeyEvent* event) {
    const bool shown = completer_ && completer_->popup()->isVisible();
    if (shown) {
        switch (event->key()) {
            case Qt::Key_Enter:
            case Qt::Key_Return:
            case Qt::Key_Escape:
            case Qt::Key_Tab:
            case Qt::Key_Backtab:
                return event->ignore();  // the list's
            default:
                break;
        }
    }
    const bool asked = event->key() == Qt::Key_Space && (event->modifiers() & Qt::ControlModifier);
    if (!asked && (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter)) {
        // A new line begins where the one before did.
        const QString line = textCursor().block().text();
        int indent = 0;
        while (indent < line.size() && line[indent] == ' ') indent++;
        textCursor().insertText("\n" + QString(indent, ' '));
        ensureCursorVisible();
        return;
    }
    if (!asked) QPlainTextEdit::keyPressEvent(event);
    if (!completer_) return;
    const QString word = word_before_caret();
    const bool typed = !event->text().isEmpty() && name_letter(event->text()[0]);
    if (!asked && (!typed || word.size() < shortest_completed || word[0].isDigit())) return completer_->popup()->hide();
    completer_->setCompletionPrefix(word);
    if (completer_->completionCount() == 0 ||
        (completer_->completionCount() == 1 && completer_->currentCompletion() == word))
        return completer_->popup()->hide();
    completer_->popup()->setCurrentIndex(completer_->completionModel()->index(0, 0));
    QRect place = cursorRect();
    place.translate(number_width(), 2);
    place.setWidth(520);
    completer_->complete(place);
}

QString TextEditor::call_at_caret(int* argument) const {
    const QString text = toPlainText();
    const QByteArray bytes = text.toUtf8();
    const auto offset = static_cast<size_t>(text.left(textCursor().position()).toUtf8().size());
    const language::Caret caret = language::caret_at({bytes.data(), static_cast<size_t>(bytes.size())}, offset);
    if (argument) *argument = caret.argument;
    return QString::fromStdString(caret.function);
}

// ---- The dock ----

TextDock::TextDock(QWidget* parent) : QWidget(parent) {
    auto* const column = new QVBoxLayout(this);
    column->setContentsMargins(4, 4, 4, 4);
    column->setSpacing(3);
    auto* const row = new QHBoxLayout;
    place_ = new QLabel;
    place_->setObjectName("text path");
    row->addWidget(place_, 1);
    auto* const save_button = new QPushButton(tr("Save"));
    save_button->setObjectName("save text");
    save_button->setToolTip(tr("Save the text (Ctrl+Shift+S)"));
    connect(save_button, &QPushButton::clicked, this, &TextDock::save);
    row->addWidget(save_button);
    column->addLayout(row);
    editor_ = new TextEditor;
    colours_ = new TextColours(editor_->document());
    column->addWidget(editor_, 1);
    hint_ = new QLabel;
    hint_->setObjectName("argument help");
    hint_->setWordWrap(true);
    hint_->setTextFormat(Qt::RichText);
    hint_->setMinimumHeight(2 * fontMetrics().height());
    hint_->setAlignment(Qt::AlignTop);
    column->addWidget(hint_);
    messages_ = new QListWidget;
    messages_->setObjectName("text messages");
    messages_->setAccessibleName(tr("Messages about the text"));
    messages_->setMaximumHeight(4 * fontMetrics().height() + 12);
    messages_->setWordWrap(true);
    messages_->hide();
    column->addWidget(messages_);
    pause_.setSingleShot(true);
    pause_.setInterval(typing_pause);
    connect(&pause_, &QTimer::timeout, this, &TextDock::changed);
    connect(editor_, &QPlainTextEdit::textChanged, this, [this] {
        // Colours change the document too.
        const QString now = text();
        if (setting_ || now == known_) return;
        known_ = now;
        edited_ = true;
        show_place();
        pause_.start();
    });
    connect(editor_, &QPlainTextEdit::cursorPositionChanged, this, &TextDock::show_hint);
    connect(messages_, &QListWidget::itemActivated, this, [this](QListWidgetItem* item) {
        const QTextBlock block = editor_->document()->findBlockByNumber(item->data(Qt::UserRole).toInt() - 1);
        QTextCursor cursor(block);
        cursor.setPosition(block.position() +
                           std::clamp(item->data(Qt::UserRole + 1).toInt() - 1, 0, std::max(0, block.length() - 1)));
        editor_->setTextCursor(cursor);
        editor_->setFocus();
    });
    connect(messages_, &QListWidget::itemClicked, messages_, &QListWidget::itemActivated);
    connect(&watcher_, &QFileSystemWatcher::fileChanged, this, &TextDock::changed_on_disk);
    connect(&watcher_, &QFileSystemWatcher::directoryChanged, this, &TextDock::changed_on_disk);
}

void TextDock::set_functions(const std::vector<render::FunctionRow>& rows) {
    std::set<QString> names;
    functions_.clear();
    for (const render::FunctionRow& row : rows) {
        const QString name = QString::fromStdString(row.name);
        names.insert(name);
        functions_[name].push_back(row);
    }
    auto* const model = new QStandardItemModel(this);
    for (const auto& [name, list] : functions_) {
        auto* const word = new QStandardItem(name);
        auto* const meaning = new QStandardItem(QString::fromStdString(list[0].meaning));
        model->appendRow({word, meaning});
    }
    for (const auto words : {language::structure_words(), language::declaration_words(), language::widget_words(),
                             language::variable_words(), language::modifier_words()}) {
        for (const language::Word& row : words) {
            const auto shown = [](std::string_view text) {
                return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
            };
            const QString word = shown(row.word);
            if (model->findItems(word).isEmpty())
                model->appendRow({new QStandardItem(word), new QStandardItem(shown(row.meaning))});
        }
    }
    model->sort(0);
    auto* const completer = new QCompleter(model, this);
    completer->setCaseSensitivity(Qt::CaseInsensitive);
    auto* const view = new QTreeView;
    view->setRootIsDecorated(false);
    view->header()->hide();
    view->setAccessibleName(tr("Completions"));
    completer->setPopup(view);
    view->header()->setStretchLastSection(true);
    view->setColumnWidth(0, 170);
    editor_->set_completer(completer);
    colours_->set_functions(std::move(names));
}

QString TextDock::text() const { return editor_->toPlainText(); }

void TextDock::set_text(const QString& text, const QString& path, bool file) {
    path_ = path;
    file_ = file;
    setting_ = true;
    if (editor_->toPlainText() != text) editor_->setPlainText(text);
    setting_ = false;
    edited_ = false;
    known_ = text;
    on_disk_ = text.toUtf8();
    pause_.stop();
    if (!watcher_.files().isEmpty()) watcher_.removePaths(watcher_.files());
    if (!watcher_.directories().isEmpty()) watcher_.removePaths(watcher_.directories());
    if (file) watcher_.addPaths({path, QFileInfo(path).absolutePath()});
    show_place();
    show_messages({}, true);
}

void TextDock::show_place() {
    const QString name = QFileInfo(path_).fileName();
    place_->setText(edited_ ? tr("%1 \u2022 not saved").arg(name) : name);
    place_->setToolTip(path_);
}

// Other editors write in place, or write beside and rename.
void TextDock::changed_on_disk() {
    QFile file(path_);
    if (!file_ || !file.open(QIODevice::ReadOnly)) return;
    if (!watcher_.files().contains(path_)) watcher_.addPath(path_);
    const QByteArray now = file.readAll();
    if (now == on_disk_) return;
    if (edited_) {
        emit told(1, tr("%1 was changed elsewhere; what is typed here stays, and saving writes over it").arg(path_));
        on_disk_ = now;
        return;
    }
    set_text(QString::fromUtf8(now), path_, true);
    emit changed();
}

void TextDock::show_messages(const std::vector<TextMessageState>& messages, bool) {
    editor_->mark(messages);
    messages_->clear();
    for (const TextMessageState& message : messages) {
        const QString place = message.line > 0 ? QString("%1:%2  ").arg(message.line).arg(message.column) : QString();
        auto* const item = new QListWidgetItem((message.error ? tr("Error ") : tr("Warning ")) + place + message.text);
        item->setData(Qt::UserRole, message.line);
        item->setData(Qt::UserRole + 1, message.column);
        item->setForeground(message.error ? QColor(225, 80, 60) : QColor(200, 140, 40));
        messages_->addItem(item);
    }
    messages_->setVisible(!messages.empty());
}

void TextDock::show_hint() {
    int argument = -1;
    const auto at = functions_.find(editor_->call_at_caret(&argument));
    if (at == functions_.end()) return hint_->clear();
    const render::FunctionRow* const row = &language::row_for_argument(at->second, argument);
    QString text = "<tt>(" + at->first;
    for (size_t i = 0; i < row->arguments.size(); i++) {
        const QString name = QString::fromStdString(row->arguments[i].name).toHtmlEscaped();
        text += static_cast<int>(i) == argument ? " <b><u>" + name + "</u></b>" : " " + name;
    }
    text += ")</tt> " + QString::fromStdString(row->meaning).toHtmlEscaped();
    if (argument >= 0 && argument < static_cast<int>(row->arguments.size())) {
        const auto& told = row->arguments[static_cast<size_t>(argument)];
        const QString facts = QString::fromStdString(language::argument_facts(told)).toHtmlEscaped();
        if (!facts.isEmpty()) text += "<br><b>" + QString::fromStdString(told.name).toHtmlEscaped() + "</b>: " + facts;
    }
    hint_->setText(text);
}

bool TextDock::write(const QString& path) {
    QSaveFile file(path);
    const QByteArray bytes = text().toUtf8();
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !file.commit()) {
        emit told(2, path + ": " + file.errorString());
        return false;
    }
    on_disk_ = bytes;
    edited_ = false;
    const bool moved = path != path_ || !file_;
    path_ = path;
    file_ = true;
    if (!watcher_.files().contains(path)) watcher_.addPaths({path, QFileInfo(path).absolutePath()});
    show_place();
    emit told(0, tr("Saved %1").arg(path));
    if (moved) emit changed();
    return true;
}

void TextDock::save() {
    if (file_)
        write(path_);
    else
        save_as();
}

void TextDock::save_as() {
    const QString path =
        QFileDialog::getSaveFileName(this, tr("Save the text"), QFileInfo(path_).fileName(), tr("Texts (*.text)"));
    if (!path.isEmpty()) write(path);
}

}  // namespace desk
