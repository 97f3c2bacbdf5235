// The shared platform's decoder: the module sorvel/libsorvel-audio.so beside this library, loaded
// on the first sound and kept.
#include "platform/ui/audiodecode.h"

#include <QFile>
#include <QFileInfo>

#include <dlfcn.h>

namespace platform {

namespace {

struct Loaded {
    AudioDecoder decoder = nullptr;
    QString error;
};

Loaded load() {
    Loaded loaded;
    Dl_info self{};
    if (dladdr(reinterpret_cast<void*>(&audioDecoder), &self) == 0 || self.dli_fname == nullptr) {
        loaded.error = QStringLiteral(
            "The audio decoder cannot be found: the platform library "
            "does not know where it is");
        return loaded;
    }
    const QString path = QFileInfo(QFile::decodeName(self.dli_fname)).absolutePath() +
                         QStringLiteral("/sorvel/libsorvel-audio.so");
    void* module = dlopen(QFile::encodeName(path).constData(), RTLD_NOW | RTLD_LOCAL);
    if (module == nullptr) {
        loaded.error = QStringLiteral("The audio decoder cannot be loaded: %1")
                           .arg(QString::fromLocal8Bit(dlerror()));
        return loaded;
    }
    auto entry =
        reinterpret_cast<decltype(&sorvel_audio_decoder)>(dlsym(module, "sorvel_audio_decoder"));
    loaded.decoder = entry != nullptr ? entry() : nullptr;
    if (loaded.decoder == nullptr) {
        loaded.error = QStringLiteral("The audio decoder %1 has no entry").arg(path);
    }
    return loaded;
}

}  // namespace

AudioDecoder audioDecoder(QString* error) {
    static const Loaded loaded = load();
    if (loaded.decoder == nullptr && error != nullptr) {
        *error = loaded.error;
    }
    return loaded.decoder;
}

}  // namespace platform
