// The web view every piece of ad content is shown in (banner, in-app browser, web app): its
// display settings are fixed at creation, and it records whether the user has pressed on it, which
// is what tells a click from a navigation the ad's page started by itself.
#pragma once

#include "platform/ui/webview.h"

#include <QObject>

class PXBWebView : public platform::WebView {
    Q_OBJECT
  public:
    explicit PXBWebView(const QRect& frame = QRect(), QWidget* parent = nullptr);
    ~PXBWebView() override;

    // Set only by a real press reaching the view; cleared only by the ad object.
    bool touched() const;
    void setTouched(bool touched);

  protected:
    void touchReached(QEvent::Type type) override;
};

// The touch record, kept in the private-object table under its view.
class PXBWebViewPrivate : public QObject {
    Q_OBJECT
  public:
    bool touched = false;
};
