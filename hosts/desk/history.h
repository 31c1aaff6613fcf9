// What was done, step by step, to go back to by a click. Nothing is ever dropped: who goes back and then does something
// else adds to the end, and what was undone stays in the list.
#pragma once

#include "hosts/desk/worker.h"

#include <QStringList>

#include <string>
#include <vector>

namespace desk {

struct HistoryEntry {
    OpenRequest open;  // without a setup
    QString label;
    std::string setup;  // all values after the step
};

class History {
public:
    // Adds a step behind the others and stands on it. False if nothing changed.
    bool add(HistoryEntry entry);
    // Stands on another entry.
    void go(int index);
    // A later text of the same effect takes the place of the entry that it stands on.
    void replace(HistoryEntry entry);

    const std::vector<HistoryEntry>& entries() const { return entries_; }
    int index() const { return index_; }
    const HistoryEntry* present() const;
    // Where Undo and Redo lead, -1 nowhere. After a step that followed an undo, Undo first leads back to before the
    // step, and from there past what had been undone.
    int undo_index() const;
    int redo_index() const;

private:
    std::vector<HistoryEntry> entries_;
    std::vector<int> before_;  // of each entry, the one that it was made from
    std::vector<int> after_;   // of each entry, the one that Redo leads to, -1 none
    int index_ = -1;
};

// What changed between two setups, in few words: "exposure 0.5". given: what the action calls itself.
QString step_words(const std::string& before, const std::string& after, const QString& given);

// The same clip and effect, whatever the values.
bool same_open(const OpenRequest& a, const OpenRequest& b);

}  // namespace desk
