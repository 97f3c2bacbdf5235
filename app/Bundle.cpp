#include "app/Bundle.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

const Bundle& Bundle::mainBundle() {
    static const Bundle bundle(locateResourcePath(QCoreApplication::applicationDirPath()));
    return bundle;
}

void Bundle::setUpApplicationIdentity() {
    // The name also names the folders of the user defaults and caches: it must not follow the
    // executable's file name.
    QCoreApplication::setApplicationName(QStringLiteral("brindle-sounds"));
    QCoreApplication::setApplicationVersion(QStringLiteral(BRINDLE_SOUNDS_VERSION));
    QCoreApplication::setOrganizationName(QStringLiteral("Brindle"));
    QCoreApplication::setOrganizationDomain(QStringLiteral("brindle.example"));
}

Bundle::Bundle(QString resourcePath) : resourcePath_(std::move(resourcePath)) {}

QString Bundle::pathForResource(const QString& name, const QString& type) const {
    if (name.isEmpty() || resourcePath_.isEmpty()) {
        return {};
    }
    const QString file = type.isEmpty() ? name : name + QLatin1Char('.') + type;
    const QString path = QDir(resourcePath_).filePath(file);
    return QFileInfo(path).isFile() ? QDir::cleanPath(path) : QString();
}

QString Bundle::locateResourcePath(const QString& executableDir) {
    const QDir exe(executableDir);
    const QString candidates[] = {
        qEnvironmentVariable("BRINDLE_SOUNDS_RESOURCES"),
        exe.filePath(QStringLiteral("Resources")),
        exe.filePath(QStringLiteral("../share/brindle-sounds")),
    };
    for (const QString& dir : candidates) {
        if (!dir.isEmpty() && QFileInfo(dir).isDir()) {
            return QDir::cleanPath(QFileInfo(dir).absoluteFilePath());
        }
    }
    return QDir::cleanPath(candidates[1]);
}
