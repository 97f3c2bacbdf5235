#include "platform/ui/moduleloader.h"

#include <QFile>
#include <QFileInfo>

#include <dlfcn.h>

namespace platform {

void* moduleEntry(const QString& file, const char* entry, QString* error) {
    Dl_info self{};
    if (dladdr(reinterpret_cast<void*>(&moduleEntry), &self) == 0 || self.dli_fname == nullptr) {
        *error = QStringLiteral(
                     "%1 cannot be found: the platform library does not know where "
                     "it is")
                     .arg(file);
        return nullptr;
    }
    const QString path = QFileInfo(QFile::decodeName(self.dli_fname)).absolutePath() +
                         QStringLiteral("/sorvel/") + file;
    void* module = dlopen(QFile::encodeName(path).constData(), RTLD_NOW | RTLD_LOCAL);
    if (module == nullptr) {
        *error =
            QStringLiteral("%1 cannot be loaded: %2").arg(file, QString::fromLocal8Bit(dlerror()));
        return nullptr;
    }
    void* address = dlsym(module, entry);
    if (address == nullptr) {
        *error = QStringLiteral("%1 has no entry %2").arg(path, QLatin1String(entry));
    }
    return address;
}

}  // namespace platform
