// The ad server's record of what clients sent: one JSON object per request, kept in memory
// (newest entries, bounded) and optionally appended to a file as JSON lines.
#pragma once

#include <QFile>
#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QString>

#include <memory>

namespace adserver {

class RequestLog {
  public:
    explicit RequestLog(int maxEntries = 10000) : maxEntries_(maxEntries) {}

    // Assigns "seq" and keeps the entry; returns it as stored.
    QJsonObject append(QJsonObject entry);
    QJsonArray since(qint64 seq) const;
    qint64 lastSeq() const { return lastSeq_; }
    void clear() { entries_.clear(); }
    void setMaxEntries(int maxEntries);

    bool setFile(const QString& path);  // empty path: no file
    QString errorString() const { return error_; }

  private:
    QList<QJsonObject> entries_;
    qint64 lastSeq_ = 0;
    int maxEntries_;
    std::unique_ptr<QFile> file_;
    QString error_;
};

}  // namespace adserver
