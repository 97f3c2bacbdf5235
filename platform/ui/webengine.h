// The web engine behind WebView's pages. Programs on the static platform have it linked in; the
// shared platform loads it as a module (sorvel/libsorvel-webengine.so beside that library) when
// a view first needs it, so that the engine's libraries, some hundred megabytes of them, cost
// nothing before the first window is drawn.
#pragma once

#include "platform/ui/webview.h"

#include <memory>

namespace platform {

struct WebEngine {
    // A back-end that loads `view`'s pages in the engine. All of them share one off-the-record
    // profile, whose cookies are HttpCookieStorage::sharedStorage()'s, mirrored both ways (so
    // UrlConnection's too, and the lasting ones are kept across launches: see cookiestorage.h).
    std::unique_ptr<WebViewBackend> (*makeBackend)(WebView* view);
};

// This program's engine; null, with `error` saying why, when its module cannot be loaded.
const WebEngine* webEngine(QString* error);

}  // namespace platform

// The module's entry: its engine.
extern "C" const platform::WebEngine* sorvel_web_engine();
