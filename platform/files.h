// Well-known directories and small file operations: the caches and documents directories (XDG
// locations), atomic writes, and file times in whole seconds.
#pragma once

#include "error.h"

#include <QByteArray>
#include <QString>

#include <optional>

namespace platform {

// $XDG_CACHE_HOME/<application>, created on demand; empty if it cannot be made.
QString cachesDirectory();
// $XDG_DATA_HOME/<application>/Documents, created on demand; empty if it cannot be made.
QString documentsDirectory();

// Creates `path` and every missing parent. True if the directory exists afterwards.
bool createDirectory(const QString& path);

// Whether a write waits until its data is on the disk: settings must outlive a power cut, a cached
// copy of something fetched need not (and waiting costs a millisecond or more each time).
enum class SyncToDisk { Yes, No };

// Writes `data` to `path` through a temporary file and a rename, so readers see either the old
// contents or the new, never a mix. On failure, returns false and fills `error` if given.
bool writeFileAtomically(const QString& path, const QByteArray& data, Error* error = nullptr,
                         SyncToDisk sync = SyncToDisk::Yes);

// Reads a whole file; nullopt if it cannot be read.
std::optional<QByteArray> readFile(const QString& path);

struct FileTimes {
    qint64 accessTime = 0;        // seconds since 1970
    qint64 modificationTime = 0;  // seconds since 1970
};

// The file's times in whole seconds; nullopt if the file cannot be examined.
std::optional<FileTimes> fileTimes(const QString& path);
// Sets both times in whole seconds (sub-second parts zero). True on success.
bool setFileTimes(const QString& path, qint64 accessTime, qint64 modificationTime);

bool fileExists(const QString& path);
bool removeFile(const QString& path);

}  // namespace platform
