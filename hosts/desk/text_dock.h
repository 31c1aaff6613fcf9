// Where effects are written: colours, messages at their line, completion, and a picture that follows while one types.
#pragma once

#include "hosts/desk/state.h"
#include "hosts/render/function_list.h"

#include <QFileSystemWatcher>
#include <QPlainTextEdit>
#include <QSyntaxHighlighter>
#include <QTimer>

#include <map>
#include <set>

class QCompleter;
class QLabel;
class QListWidget;

namespace desk {

class TextColours : public QSyntaxHighlighter {
public:
    explicit TextColours(QTextDocument* document) : QSyntaxHighlighter(document) {}
    void set_functions(std::set<QString> functions);

protected:
    void highlightBlock(const QString& text) override;

private:
    std::set<QString> functions_;
};

class TextEditor : public QPlainTextEdit {
    Q_OBJECT

public:
    explicit TextEditor(QWidget* parent = nullptr);
    void set_completer(QCompleter* completer);
    void paint_numbers(QPaintEvent* event);
    int number_width() const;
    void mark(const std::vector<TextMessageState>& messages);
    // The innermost call around the caret: its function, and which argument the caret is in (from 0), or empty.
    QString call_at_caret(int* argument) const;

protected:
    void keyPressEvent(QKeyEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    QString word_before_caret() const;
    void complete(const QString& word);

    QCompleter* completer_ = nullptr;
    QWidget* numbers_;
    std::vector<TextMessageState> messages_;
};

class TextDock : public QWidget {
    Q_OBJECT

public:
    explicit TextDock(QWidget* parent = nullptr);

    void set_functions(const std::vector<render::FunctionRow>& rows);
    // The text of what is open. With file: where it lies on disk; else it is a copy that has no file yet.
    void set_text(const QString& text, const QString& path, bool file);
    void show_messages(const std::vector<TextMessageState>& messages, bool usable);
    QString text() const;
    QString path() const { return path_; }
    bool edited() const { return edited_; }
    void save();
    void save_as();
    TextEditor* editor() { return editor_; }

signals:
    // After a pause in typing, or when the file on disk has changed.
    void changed();
    void told(int level, const QString& text);

private:
    void changed_on_disk();
    void show_hint();
    void show_place();
    bool write(const QString& path);

    TextEditor* editor_;
    TextColours* colours_;
    QListWidget* messages_;
    QLabel* hint_;
    QLabel* place_;
    QTimer pause_;
    QFileSystemWatcher watcher_;
    QString path_;
    bool file_ = false, edited_ = false, setting_ = false;
    QByteArray on_disk_;
    QString known_;  // the text as it was last looked at
    std::map<QString, std::vector<render::FunctionRow>> functions_;
};

}  // namespace desk
