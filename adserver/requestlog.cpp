#include "adserver/requestlog.h"

#include <QJsonDocument>

namespace adserver {

QJsonObject RequestLog::append(QJsonObject entry) {
    entry.insert(QStringLiteral("seq"), double(++lastSeq_));
    entries_.append(entry);
    if (entries_.size() > maxEntries_) {
        entries_.remove(0, entries_.size() - maxEntries_);
    }
    if (file_) {
        file_->write(QJsonDocument(entry).toJson(QJsonDocument::Compact) + '\n');
        file_->flush();
    }
    return entry;
}

QJsonArray RequestLog::since(qint64 seq) const {
    QJsonArray result;
    for (const QJsonObject& entry : entries_) {
        if (entry.value(QStringLiteral("seq")).toInteger() > seq) {
            result.append(entry);
        }
    }
    return result;
}

void RequestLog::setMaxEntries(int maxEntries) {
    maxEntries_ = qMax(1, maxEntries);
    if (entries_.size() > maxEntries_) {
        entries_.remove(0, entries_.size() - maxEntries_);
    }
}

bool RequestLog::setFile(const QString& path) {
    file_.reset();
    error_.clear();
    if (path.isEmpty()) {
        return true;
    }
    auto file = std::make_unique<QFile>(path);
    if (!file->open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Text)) {
        error_ = QStringLiteral("cannot open log %1: %2").arg(path, file->errorString());
        return false;
    }
    file_ = std::move(file);
    return true;
}

}  // namespace adserver
