#include "platform/ui/webviewpaint.h"

#include "platform/clock.h"
#include "platform/ui/webview.h"

#include <QImage>
#include <QPointer>
#include <QTimer>

namespace platform {

namespace {

// Marks the page once two animation frames have passed since the first asking; answers whether
// that has happened. A page replaced meanwhile starts over.
const QString kPaintProbe = QStringLiteral(
    "(function(){if(window.__sorvelPainted===undefined){window.__sorvelPainted=false;"
    "requestAnimationFrame(function(){requestAnimationFrame(function(){"
    "window.__sorvelPainted=true;});});}return window.__sorvelPainted===true;})()");

// The engine hands its frames to the widget after the page drew them: the view shows the page
// once it holds more than one colour (an empty view is all its background).
bool showsContent(WebView* view) {
    const QImage image = view->grab().toImage();
    if (image.isNull()) {
        return false;
    }
    const QRgb first = image.pixel(0, 0);
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            if (image.pixel(x, y) != first) {
                return true;
            }
        }
    }
    return false;
}

void probe(QPointer<WebView> view, std::function<void(bool)> done, double deadline) {
    if (view == nullptr) {
        return;
    }
    view->evaluateJavaScript(
        kPaintProbe, [view, done = std::move(done), deadline](const QVariant& drawn) mutable {
            const bool painted = drawn.toBool() && (!view->isVisible() || showsContent(view));
            if (painted || monotonicSeconds() >= deadline) {
                done(painted);
                return;
            }
            QTimer::singleShot(16, view, [view, done = std::move(done), deadline]() mutable {
                probe(view, std::move(done), deadline);
            });
        });
}

}  // namespace

void whenPagePainted(WebView* view, std::function<void(bool)> done, double timeoutSeconds) {
    probe(QPointer<WebView>(view), std::move(done), monotonicSeconds() + timeoutSeconds);
}

}  // namespace platform
