#include "hosts/desk/journal.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <unistd.h>

namespace desk {

namespace {

constexpr const char* ending = ".session";
constexpr const char* last_name = "last.closed";

QString text_of(const std::string& text) { return QString::fromStdString(text); }

QJsonObject object_of(const OpenRequest& request) {
    QJsonArray inputs;
    for (const std::string& input : request.inputs) inputs << text_of(input);
    QJsonObject object{{"effect", text_of(request.effect)}, {"inputs", inputs}, {"length", request.length}};
    if (request.edited) object["text"] = text_of(request.text);
    return object;
}

OpenRequest request_of(const QJsonObject& object) {
    OpenRequest request;
    request.effect = object["effect"].toString().toStdString();
    for (const QJsonValue& input : object["inputs"].toArray()) request.inputs.push_back(input.toString().toStdString());
    request.length = object["length"].toInt();
    request.edited = object.contains("text");
    request.text = object["text"].toString().toStdString();
    return request;
}

}  // namespace

Journal::Journal(const QString& directory) : directory_(directory) {
    QDir().mkpath(directory);
    const QString name = QString("%1/%2-%3%4")
                             .arg(directory)
                             .arg(QDateTime::currentDateTime().toString("yyyyMMdd-hhmmss-zzz"))
                             .arg(getpid())
                             .arg(ending);
    lock_ = std::make_unique<QLockFile>(name + ".lock");
    lock_->setStaleLockTime(0);
    lock_->tryLock();
    file_.setFileName(name);
}

Journal::~Journal() = default;

void Journal::write(const QByteArray& line) {
    if (!file_.isOpen() && !file_.open(QIODevice::WriteOnly | QIODevice::Append)) return;
    file_.write(line + "\n");
    file_.flush();
}

void Journal::write_entry(const HistoryEntry& entry, bool replaces) {
    QJsonObject object{{"step", entry.label}, {"setup", text_of(entry.setup)}};
    if (replaces) object["replaces"] = true;
    // A text may be long; it is written once.
    if (!open_known_ || !same_open(open_, entry.open)) object["open"] = object_of(entry.open);
    open_ = entry.open;
    open_known_ = true;
    write(QJsonDocument(object).toJson(QJsonDocument::Compact));
}

void Journal::write_index(int index) {
    write(QJsonDocument(QJsonObject{{"at", index}}).toJson(QJsonDocument::Compact));
}
void Journal::write_frame(int frame) {
    write(QJsonDocument(QJsonObject{{"frame", frame}}).toJson(QJsonDocument::Compact));
}
void Journal::write_text(const QString& text) {
    write(QJsonDocument(QJsonObject{{"text", text}}).toJson(QJsonDocument::Compact));
}

void Journal::close() {
    if (file_.isOpen()) {
        file_.close();
        const QString last = directory_ + "/" + last_name;
        QFile::remove(last);
        QFile::rename(file_.fileName(), last);
    }
    lock_->unlock();
}

std::optional<KeptSession> Journal::read(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) return std::nullopt;
    KeptSession kept;
    kept.path = path;
    kept.when = QFileInfo(path).lastModified().toString("d MMM hh:mm");
    OpenRequest open;
    while (!file.atEnd()) {
        // The last line may be cut where the program was killed; it is no object then.
        const QJsonObject object = QJsonDocument::fromJson(file.readLine()).object();
        if (object.contains("open")) open = request_of(object["open"].toObject());
        if (object.contains("step")) {
            HistoryEntry entry{open, object["step"].toString(), object["setup"].toString().toStdString()};
            if (object["replaces"].toBool() && kept.index >= 0 && kept.index < static_cast<int>(kept.entries.size())) {
                kept.entries[static_cast<size_t>(kept.index)] = std::move(entry);
            } else {
                kept.entries.push_back(std::move(entry));
                kept.index = static_cast<int>(kept.entries.size()) - 1;
            }
        }
        if (object.contains("at")) kept.index = object["at"].toInt();
        if (object.contains("frame")) kept.frame = object["frame"].toInt();
        if (object.contains("text")) kept.text = object["text"].toString();
    }
    if (kept.entries.empty()) return std::nullopt;
    kept.index = std::clamp(kept.index, 0, static_cast<int>(kept.entries.size()) - 1);
    return kept;
}

std::optional<KeptSession> Journal::find_lost(const QString& directory) {
    for (const QFileInfo& file : QDir(directory).entryInfoList({QString("*") + ending}, QDir::Files, QDir::Time)) {
        QLockFile lock(file.filePath() + ".lock");
        lock.setStaleLockTime(0);
        if (!lock.tryLock()) continue;  // of a program that runs
        lock.unlock();
        if (auto kept = read(file.filePath())) return kept;
        QFile::remove(file.filePath());
    }
    return std::nullopt;
}

std::optional<KeptSession> Journal::last_closed(const QString& directory) { return read(directory + "/" + last_name); }

void Journal::drop(const QString& path) {
    // Kept once more under another name: a person may want it after all.
    const QString kept = QFileInfo(path).path() + "/dropped.closed";
    if (QFileInfo(path).fileName() == last_name) return;
    QFile::remove(kept);
    QFile::rename(path, kept);
}

}  // namespace desk
