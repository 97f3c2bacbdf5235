#include "ads/present/PXBWebView.h"

#include "ads/core/PXBPrivateUtilities.h"

#include <memory>

PXBWebView::PXBWebView(const QRect& frame, QWidget* parent) : platform::WebView(frame, parent) {
    PXBPrivateUtilities::setPrivateObject(std::make_shared<PXBWebViewPrivate>(), this);
    setClipsToBounds(true);
    setScalesPageToFit(true);
    setAutoresizingMask(platform::ViewAutoresizingFlexibleWidth |
                        platform::ViewAutoresizingFlexibleHeight);
    // Transparent, so that an ad's page can show the application beneath it.
    setOpaque(false);
    setBackgroundColor(Qt::transparent);
    setDataDetectorTypes(platform::DataDetectorTypeNone);
    // Ad video plays in place. It starts only once the user has pressed inside the page: an ad
    // on the desktop shares the screen with whatever the user is doing, and a full screen that
    // plays sound on its own would speak over it.
    setAllowsInlineMediaPlayback(true);
    setMediaPlaybackRequiresUserAction(true);
}

PXBWebView::~PXBWebView() {
    PXBPrivateUtilities::removePrivateObjectForKey(this);
}

bool PXBWebView::touched() const {
    const auto* vars = PXBPrivateUtilities::privateObjectForKey<PXBWebViewPrivate>(this);
    return vars != nullptr && vars->touched;
}

void PXBWebView::setTouched(bool touched) {
    if (auto* vars = PXBPrivateUtilities::privateObjectForKey<PXBWebViewPrivate>(this)) {
        vars->touched = touched;
    }
}

void PXBWebView::touchReached(QEvent::Type type) {
    // Only a press counts as the user's touch (Enter or Space on the focused view is one).
    if (type == QEvent::MouseButtonPress || type == QEvent::MouseButtonDblClick ||
        type == QEvent::TouchBegin || type == QEvent::KeyPress) {
        setTouched(true);
    }
    platform::WebView::touchReached(type);
}
