#include "userdefaults.h"

#include "files.h"
#include "log.h"
#include "propertylist.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>
#include <QTimer>

namespace platform {

UserDefaults& UserDefaults::standardUserDefaults() {
    static UserDefaults* defaults = [] {
        auto* store = new UserDefaults(defaultFilePath());
        // Changes made late in the run are written when the event loop ends.
        if (auto* app = QCoreApplication::instance()) {
            QObject::connect(app, &QCoreApplication::aboutToQuit, store,
                             [store] { store->synchronize(); });
        }
        return store;
    }();
    return *defaults;
}

QString UserDefaults::defaultFilePath() {
    QString app = QCoreApplication::applicationName();
    if (app.isEmpty()) {
        app = QStringLiteral("sorvel");
    }
    const QString root = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation);
    return QDir(root).filePath(app + QLatin1Char('/') + app + QStringLiteral(".plist"));
}

UserDefaults::UserDefaults(QString filePath, QObject* parent)
    : QObject(parent), filePath_(std::move(filePath)) {
    if (fileExists(filePath_)) {
        const QVariant stored = readPropertyListFile(filePath_);
        if (stored.metaType().id() == QMetaType::QVariantMap) {
            values_ = stored.toMap();
        } else {
            // Keep the unreadable file for inspection rather than overwrite it silently.
            const QString aside = filePath_ + QStringLiteral(".unreadable");
            QFile::remove(aside);
            QFile::rename(filePath_, aside);
            logLine(QStringLiteral("<Sorvel> User defaults at %1 were unreadable; moved to %2")
                        .arg(filePath_, aside));
        }
    }
}

UserDefaults::~UserDefaults() {
    if (dirty_) {
        synchronize();
    }
}

void UserDefaults::registerDefaults(const QVariantMap& defaults) {
    for (auto it = defaults.begin(); it != defaults.end(); ++it) {
        registered_.insert(it.key(), it.value());
    }
}

QVariant UserDefaults::objectForKey(const QString& key) const {
    auto it = values_.constFind(key);
    if (it != values_.constEnd()) {
        return *it;
    }
    return registered_.value(key);
}

void UserDefaults::setObjectForKey(const QVariant& value, const QString& key) {
    if (!value.isValid() || value.isNull()) {
        removeObjectForKey(key);
        return;
    }
    if (!isPropertyListValue(value)) {
        logLine(QStringLiteral("<Sorvel> Refusing to store a non-property-list value for key %1")
                    .arg(key));
        return;
    }
    // Storing what is there already leaves nothing to write: each write of the file waits for
    // the disk, and callers often store everything they hold again.
    if (const auto it = values_.constFind(key);
        it != values_.constEnd() && it->metaType() == value.metaType() && *it == value) {
        return;
    }
    values_.insert(key, value);
    markDirty();
}

void UserDefaults::removeObjectForKey(const QString& key) {
    if (values_.remove(key) > 0) {
        markDirty();
    }
}

QVariantMap UserDefaults::dictionaryForKey(const QString& key) const {
    const QVariant v = objectForKey(key);
    return v.metaType().id() == QMetaType::QVariantMap ? v.toMap() : QVariantMap();
}

QVariantList UserDefaults::arrayForKey(const QString& key) const {
    const QVariant v = objectForKey(key);
    return v.metaType().id() == QMetaType::QVariantList ? v.toList() : QVariantList();
}

void UserDefaults::setFloatForKey(float value, const QString& key) {
    setObjectForKey(QVariant(static_cast<double>(value)), key);
}

bool UserDefaults::synchronize() {
    if (!dirty_) {
        return true;
    }
    const QByteArray xml = writePropertyListXml(values_);
    createDirectory(QFileInfo(filePath_).absolutePath());
    Error error;
    if (xml.isEmpty() || !writeFileAtomically(filePath_, xml, &error)) {
        logLine(QStringLiteral("<Sorvel> Could not save user defaults: %1")
                    .arg(error.localizedDescription()));
        return false;
    }
    dirty_ = false;
    return true;
}

void UserDefaults::markDirty() {
    dirty_ = true;
    // Coalesce a burst of changes into one write on the next turn of the event loop.
    if (!saveScheduled_ && QCoreApplication::instance() != nullptr) {
        saveScheduled_ = true;
        QTimer::singleShot(0, this, [this] {
            saveScheduled_ = false;
            synchronize();
        });
    }
}

}  // namespace platform
