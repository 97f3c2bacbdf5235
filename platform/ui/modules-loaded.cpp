// The shared platform library's modules: the parts with heavy dependencies of their own (the web
// engine, the audio stack, the decoder) live in "sorvel" beside the library and are loaded the
// first time they are needed, so that their libraries cost a program nothing until then. (The
// static platform links them in: the *-linked.cpp files.)
#include "platform/ui/audiodecode.h"
#include "platform/ui/audiostack.h"
#include "platform/ui/webengine.h"

#include <QFile>
#include <QFileInfo>

#include <dlfcn.h>

namespace platform {

namespace {

// What a module's entry gave, or why there is nothing.
template <typename Value>
struct Loaded {
    Value value = nullptr;
    QString error;

    Value get(QString* why) const {
        if (value == nullptr && why != nullptr) {
            *why = error;
        }
        return value;
    }
};

// Loads sorvel/`file` beside this library (once: the loader keeps it) and calls its `entry`.
template <typename Value>
Loaded<Value> load(const QString& file, const char* entry) {
    Loaded<Value> loaded;
    Dl_info self{};
    if (dladdr(reinterpret_cast<void*>(&load<Value>), &self) == 0 || self.dli_fname == nullptr) {
        loaded.error =
            QStringLiteral("%1 cannot be found: the platform library does not know where it is")
                .arg(file);
        return loaded;
    }
    const QString path = QFileInfo(QFile::decodeName(self.dli_fname)).absolutePath() +
                         QStringLiteral("/sorvel/") + file;
    void* module = dlopen(QFile::encodeName(path).constData(), RTLD_NOW | RTLD_LOCAL);
    if (module == nullptr) {
        loaded.error =
            QStringLiteral("%1 cannot be loaded: %2").arg(file, QString::fromLocal8Bit(dlerror()));
        return loaded;
    }
    auto call = reinterpret_cast<Value (*)()>(dlsym(module, entry));
    loaded.value = call != nullptr ? call() : nullptr;
    if (loaded.value == nullptr) {
        loaded.error =
            QStringLiteral("%1 gives nothing from its entry %2").arg(path, QLatin1String(entry));
    }
    return loaded;
}

}  // namespace

const WebEngine* webEngine(QString* error) {
    static const auto loaded =
        load<const WebEngine*>(QStringLiteral("libsorvel-webengine.so"), "sorvel_web_engine");
    return loaded.get(error);
}

const AudioStack* audioStack(QString* error) {
    static const auto loaded =
        load<const AudioStack*>(QStringLiteral("libsorvel-audio.so"), "sorvel_audio");
    return loaded.get(error);
}

AudioDecoder audioDecoder(QString* error) {
    static const auto loaded =
        load<AudioDecoder>(QStringLiteral("libsorvel-decoder.so"), "sorvel_audio_decoder");
    return loaded.get(error);
}

}  // namespace platform
