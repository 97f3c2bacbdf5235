#include "files.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStandardPaths>
#include <QTemporaryFile>

#include <sys/stat.h>
#include <sys/time.h>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace platform {

namespace {

QString applicationFolder(QStandardPaths::StandardLocation base) {
    const QString root = QStandardPaths::writableLocation(base);
    if (root.isEmpty()) {
        return {};
    }
    QString app = QCoreApplication::applicationName();
    if (app.isEmpty()) {
        app = QStringLiteral("sorvel");
    }
    return QDir(root).filePath(app);
}

}  // namespace

QString cachesDirectory() {
    const QString dir = applicationFolder(QStandardPaths::GenericCacheLocation);
    return !dir.isEmpty() && createDirectory(dir) ? dir : QString();
}

QString documentsDirectory() {
    const QString app = applicationFolder(QStandardPaths::GenericDataLocation);
    if (app.isEmpty()) {
        return {};
    }
    const QString dir = QDir(app).filePath(QStringLiteral("Documents"));
    return createDirectory(dir) ? dir : QString();
}

bool createDirectory(const QString& path) {
    return !path.isEmpty() && QDir().mkpath(path);
}

bool writeFileAtomically(const QString& path, const QByteArray& data, Error* error,
                         SyncToDisk sync) {
    auto fail = [&](const QString& what, const QString& why) {
        if (error != nullptr) {
            *error = Error(kFileErrorDomain, 512,
                           {{Error::kLocalizedDescriptionKey,
                             QStringLiteral("%1 \u201c%2\u201d: %3").arg(what, path, why)},
                            {QStringLiteral("NSFilePath"), path}});
        }
        return false;
    };
    if (sync == SyncToDisk::No) {
        QTemporaryFile file(path + QStringLiteral(".XXXXXX"));
        if (path.isEmpty() || !file.open()) {
            return fail(QStringLiteral("Could not open"), file.errorString());
        }
        if (file.write(data) != data.size() || !file.flush()) {
            return fail(QStringLiteral("Could not write"), file.errorString());
        }
        if (::rename(QFile::encodeName(file.fileName()).constData(),
                     QFile::encodeName(path).constData()) != 0) {
            return fail(QStringLiteral("Could not save"), QString::fromLocal8Bit(strerror(errno)));
        }
        file.setAutoRemove(false);
        return true;
    }
    QSaveFile file(path);
    if (path.isEmpty() || !file.open(QIODevice::WriteOnly)) {
        return fail(QStringLiteral("Could not open"), file.errorString());
    }
    if (file.write(data) != data.size()) {
        file.cancelWriting();
        return fail(QStringLiteral("Could not write"), file.errorString());
    }
    if (!file.commit()) {
        return fail(QStringLiteral("Could not save"), file.errorString());
    }
    return true;
}

std::optional<QByteArray> readFile(const QString& path) {
    QFile file(path);
    if (path.isEmpty() || !file.open(QIODevice::ReadOnly)) {
        return std::nullopt;
    }
    return file.readAll();
}

std::optional<FileTimes> fileTimes(const QString& path) {
    struct stat st {};
    if (path.isEmpty() || ::stat(QFile::encodeName(path).constData(), &st) != 0) {
        return std::nullopt;
    }
    return FileTimes{static_cast<qint64>(st.st_atime), static_cast<qint64>(st.st_mtime)};
}

bool setFileTimes(const QString& path, qint64 accessTime, qint64 modificationTime) {
    struct timeval times[2] = {};
    times[0].tv_sec = static_cast<time_t>(accessTime);
    times[1].tv_sec = static_cast<time_t>(modificationTime);
    return !path.isEmpty() && ::utimes(QFile::encodeName(path).constData(), times) == 0;
}

bool fileExists(const QString& path) {
    return !path.isEmpty() && QFileInfo::exists(path);
}

bool removeFile(const QString& path) {
    return !path.isEmpty() && QFile::remove(path);
}

}  // namespace platform
