// Test isolation: points the XDG directories (config, cache, data) at a fresh temporary folder
// so that user defaults and cached files of one test never meet another's or the user's.
#pragma once

#include <QByteArray>
#include <QDir>
#include <QTemporaryDir>

namespace testsupport {

class TempHome {
  public:
    TempHome() {
        for (const char* name : {"XDG_CONFIG_HOME", "XDG_CACHE_HOME", "XDG_DATA_HOME"}) {
            const QString path = dir_.filePath(QString::fromLatin1(name).toLower());
            QDir().mkpath(path);
            qputenv(name, path.toLocal8Bit());
        }
    }
    QString path() const { return dir_.path(); }

  private:
    QTemporaryDir dir_;
};

}  // namespace testsupport
