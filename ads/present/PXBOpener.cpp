// LOCAL SCAFFOLD - not for commit
#include "ads/present/PXBOpener.h"
#include "ads/core/PXBObjectPrivate.h"
#include "platform/log.h"
#include "platform/ui/application.h"
#include "platform/ui/viewcontroller.h"
#include "platform/ui/webview.h"
PXBOpener::PXBOpener() = default;
PXBOpener::~PXBOpener() = default;
platform::ViewController* PXBOpener::viewController() const { return static_cast<platform::ViewController*>(viewController_.data()); }
void PXBOpener::setViewController(platform::ViewController* c) { viewController_ = c; }
platform::WebView* PXBOpener::openingWebView() const { return static_cast<platform::WebView*>(openingWebView_.data()); }
void PXBOpener::setOpeningWebView(platform::WebView* w) { openingWebView_ = w; }
PXBObjectPrivate* PXBOpener::adController() const { return static_cast<PXBObjectPrivate*>(adController_.data()); }
void PXBOpener::setAdController(PXBObjectPrivate* a) { adController_ = a; }
void PXBOpener::openApp(const QUrl& url) { didOpen(); platform::logLine("SCAFFOLD openApp " + url.toString()); platform::Application::sharedApplication()->openURL(url); }
void PXBOpener::openBrowserToURL(const QUrl& url, int) { platform::logLine("SCAFFOLD browser " + url.toString() + " ref " + referringURL_.toString()); platform::Application::sharedApplication()->openURL(url); didOpen(); }
void PXBOpener::openWebApp(const QUrl& url, int) { platform::logLine("SCAFFOLD webapp " + url.toString()); platform::Application::sharedApplication()->openURL(url); didOpen(); }
void PXBOpener::openWebAppWithHTML(const QString&, int) {}
void PXBOpener::openNotification(const PXBNotification& n) { platform::logLine("SCAFFOLD open " + n.description()); }
void PXBOpener::openEmailComposer(const QUrl& url) { platform::logLine("SCAFFOLD mail " + url.toString()); platform::Application::sharedApplication()->openURL(url); }
void PXBOpener::didOpen() { if (auto* a = adController()) a->trackURLs(a->pendingClickURLs()); }
