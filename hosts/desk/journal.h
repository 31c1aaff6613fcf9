// The session, written down as one goes: a person finds the work again when the program was killed.
#pragma once

#include "hosts/desk/history.h"

#include <QFile>
#include <QLockFile>
#include <QString>

#include <memory>
#include <optional>

namespace desk {

struct KeptSession {
    QString path;
    std::vector<HistoryEntry> entries;
    int index = -1;
    int frame = 0;
    QString text;  // of the editor, with what the effect did not take yet
    QString when;
};

class Journal {
public:
    // In a directory of journals, which is made. Those of programs that are gone are left as they are.
    explicit Journal(const QString& directory);
    ~Journal();
    Journal(const Journal&) = delete;
    Journal& operator=(const Journal&) = delete;

    void write_entry(const HistoryEntry& entry, bool replaces);
    void write_index(int index);
    void write_frame(int frame);
    void write_text(const QString& text);
    // The person closed the program: the session is kept as the last one, and not offered.
    void close();

    // The newest session of a program that ended without closing it.
    static std::optional<KeptSession> find_lost(const QString& directory);
    static std::optional<KeptSession> last_closed(const QString& directory);
    static std::optional<KeptSession> read(const QString& path);
    // It was taken over, or is not wanted.
    static void drop(const QString& path);

private:
    void write(const QByteArray& line);

    QString directory_;
    QFile file_;
    std::unique_ptr<QLockFile> lock_;
    OpenRequest open_;
    bool open_known_ = false;
};

}  // namespace desk
