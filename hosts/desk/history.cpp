#include "hosts/desk/history.h"

#include <algorithm>
#include <map>
#include <sstream>

namespace desk {

namespace {

constexpr int named_changes = 3;

std::map<std::string, std::string> values_of(const std::string& setup) {
    std::map<std::string, std::string> values;
    std::istringstream lines(setup);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string kind, name, rest;
        words >> kind >> name;
        std::getline(words, rest);
        if (kind == "param" || kind == "control" || kind == "text") values[name] += rest;
        if (kind == "key") values[name] += " key" + rest;
    }
    return values;
}

// Few decimals do in a list.
QString short_value(const std::string& text) {
    QStringList numbers;
    for (const QString& word : QString::fromStdString(text).split(' ', Qt::SkipEmptyParts)) {
        if (word == "key") return {};
        bool number = false;
        const double value = word.toDouble(&number);
        numbers << (number ? QString::number(value, 'g', 4) : word);
    }
    return numbers.join(", ");
}

}  // namespace

bool same_open(const OpenRequest& a, const OpenRequest& b) {
    return a.effect == b.effect && a.edited == b.edited && a.text == b.text && a.inputs == b.inputs &&
           a.length == b.length;
}

QString step_words(const std::string& before, const std::string& after, const QString& given) {
    const auto old_values = values_of(before), new_values = values_of(after);
    QStringList names;
    QString value;
    for (const auto& [name, text] : new_values) {
        const auto at = old_values.find(name);
        if (at != old_values.end() && at->second == text) continue;
        names << QString::fromStdString(name);
        value = short_value(text);
    }
    const bool telling = given.contains(' ');
    if (names.isEmpty() || telling) return given;
    if (names.size() == 1) return names[0] + (value.isEmpty() ? QString() : " " + value);
    const QStringList first = names.mid(0, named_changes);
    return first.join(", ") + (names.size() > named_changes ? ", \u2026" : "");
}

const HistoryEntry* History::present() const { return index_ >= 0 ? &entries_[static_cast<size_t>(index_)] : nullptr; }

bool History::add(HistoryEntry entry) {
    const HistoryEntry* const now = present();
    if (now && same_open(now->open, entry.open) && now->setup == entry.setup) return false;
    const int made_from = index_;
    entries_.push_back(std::move(entry));
    before_.push_back(made_from);
    after_.push_back(-1);
    index_ = static_cast<int>(entries_.size()) - 1;
    if (made_from >= 0) after_[static_cast<size_t>(made_from)] = index_;
    return true;
}

void History::replace(HistoryEntry entry) {
    if (index_ >= 0) entries_[static_cast<size_t>(index_)] = std::move(entry);
}

void History::go(int index) {
    if (index < 0 || index >= static_cast<int>(entries_.size())) return;
    index_ = index;
    // Redo leads the way back down the line of the entry that was clicked.
    for (int at = index; before_[static_cast<size_t>(at)] >= 0; at = before_[static_cast<size_t>(at)])
        after_[static_cast<size_t>(before_[static_cast<size_t>(at)])] = at;
}

int History::undo_index() const { return index_ < 0 ? -1 : before_[static_cast<size_t>(index_)]; }
int History::redo_index() const { return index_ < 0 ? -1 : after_[static_cast<size_t>(index_)]; }

}  // namespace desk
