// The shared platform's web engine: the module sorvel/libsorvel-webengine.so beside this library,
// loaded when the first view needs it and kept.
#include "platform/ui/moduleloader.h"
#include "platform/ui/webengine.h"

namespace platform {

const WebEngine* webEngine(QString* error) {
    static QString failure;
    static const WebEngine* const engine = [] {
        auto entry = reinterpret_cast<decltype(&sorvel_web_engine)>(
            moduleEntry(QStringLiteral("libsorvel-webengine.so"), "sorvel_web_engine", &failure));
        return entry != nullptr ? entry() : nullptr;
    }();
    if (engine == nullptr && error != nullptr) {
        *error =
            failure.isEmpty() ? QStringLiteral("The web engine's module gave no engine") : failure;
    }
    return engine;
}

}  // namespace platform
