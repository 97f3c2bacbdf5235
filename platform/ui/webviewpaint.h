// Waiting for a web view's page to be drawn: the page has loaded when the delegate hears so, but
// its first frame reaches the screen a little later. A screenshot or a press on the page waits
// for that frame.
#pragma once

#include <functional>

namespace platform {

class WebView;

// Calls `done` on the main thread once the page now in `view` has rendered two animation frames
// (so its first frame has been drawn), or after `timeoutSeconds` if the page never gets there
// (`done` then gets false). Not called if the view is destroyed first.
void whenPagePainted(WebView* view, std::function<void(bool painted)> done,
                     double timeoutSeconds = 5.0);

}  // namespace platform
