// The end-to-end harness: the real web engine off screen, the reference ad server in-process on a
// free port, an isolated profile, a phone window with a banner at its foot, and real input.
#pragma once

#include "ads/core/PXBBannerView.h"
#include "ads/core/PXBConfiguration.h"
#include "ads/core/PXBObjectPrivate.h"
#include "ads/core/PXBRequest.h"
#include "ads/present/PXBViewController.h"
#include "ads/present/PXBWebView.h"
#include "ads/stats/PXBStatisticsCore.h"
#include "ads/stats/PXBTiming.h"
#include "adserver/adserver.h"
#include "platform/ui/application.h"
#include "platform/ui/viewcontroller.h"
#include "platform/ui/webviewpaint.h"
#include "platform/ui/window.h"
#include "support/testenv.h"

#include <QApplication>
#include <QDeadlineTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPointer>
#include <QTest>
#include <QTimer>
#include <QUrlQuery>

#include <unistd.h>
#include <csignal>
#include <memory>
#include <optional>

namespace e2e {

inline constexpr int kWait = 20000;
inline const QString kScriptPath = QStringLiteral("/zelm/sdk-core-v40.js");

// A request's "zf_" switch, which steers the reference server's answer.
inline QVariantMap fault(const char* key, const QVariant& value) {
    return {{QStringLiteral("zf_") + QLatin1String(key), value}};
}

// Waits until `condition` holds, turning the event loop in short slices with a rest between
// them, as the QTRY_ macros do. QTest::qWaitFor turns it for the whole timeout in one go: the
// engine keeps posting work, so the main thread never rests and, on a two-core machine, starves
// the engine's own processes (a banner then took seven seconds instead of half of one).
template <class Condition>
bool waitFor(Condition condition, int timeoutMs) {
    QDeadlineTimer deadline(timeoutMs);
    while (!condition()) {
        if (deadline.hasExpired()) {
            return false;
        }
        QTest::qWait(10);
    }
    return true;
}

// Every line written to the log since the last banner was added.
inline QStringList& logLines() {
    static QStringList lines;
    return lines;
}

inline bool logHas(const QString& text) {
    return std::any_of(logLines().begin(), logLines().end(),
                       [&](const QString& line) { return line.contains(text); });
}

inline void captureLog() {
    static QtMessageHandler previous = nullptr;
    previous = qInstallMessageHandler(
        [](QtMsgType type, const QMessageLogContext& context, const QString& message) {
            logLines().append(message);
            if (previous != nullptr) {
                previous(type, context, message);
            }
        });
}

// The banner delegate's events in order: "receive", "fail <code>", "willPresent", ...
class Recorder : public PXBBannerViewDelegate {
  public:
    QStringList events;
    void adViewDidReceiveAd(PXBBannerView*) override { events << QStringLiteral("receive"); }
    void adViewDidFailToReceiveAdWithError(PXBBannerView*, const platform::Error& error) override {
        events << QStringLiteral("fail %1").arg(error.code());
    }
    void adViewWillPresentScreen(PXBBannerView*) override {
        events << QStringLiteral("willPresent");
    }
    void adViewWillDismissScreen(PXBBannerView*) override {
        events << QStringLiteral("willDismiss");
    }
    void adViewDidDismissScreen(PXBBannerView*) override { events << QStringLiteral("didDismiss"); }
    void adViewWillLeaveApplication(PXBBannerView*) override {
        events << QStringLiteral("willLeave");
    }
};

class Harness {
  public:
    adserver::AdServer server;
    std::unique_ptr<platform::Window> window;
    std::shared_ptr<platform::ViewController> root;
    QPointer<PXBBannerView> banner;
    Recorder recorder;
    QList<int> states;

    // What a failed wait shows.
    QByteArray trail() const {
        QStringList stateNames;
        for (int state : states) {
            stateNames << QString::number(state);
        }
        return QStringLiteral("states %1; events %2; log: %3")
            .arg(stateNames.join(QLatin1Char(' ')), recorder.events.join(QStringLiteral(", ")),
                 logLines().mid(std::max<qsizetype>(0, logLines().size() - 8)).join(" | "))
            .toUtf8();
    }

    // Starts the server with `inventory` (next to the suite's sources; empty: the demo one). URLs
    // handed to the desktop are only recorded.
    bool start(const QString& inventory = QString()) {
        captureLog();  // after the test library has installed its own handler
        const QString path = inventory.isEmpty() ? QString()
                                                 : qEnvironmentVariable("SORVEL_SOURCE_DIR") +
                                                       QStringLiteral("/tests/e2e/") + inventory;
        server.setRequestFaultsEnabled(true);  // scenarios steer it with "zf_" switches
        if (!server.start(0, QStringLiteral("127.0.0.1"), path)) {
            qWarning() << server.errorString();
            return false;
        }
        PXBConfiguration::setAdServerURL(server.url());
        PXBConfiguration::setScriptHostURL(server.url());
        platform::Application::sharedApplication()->setUrlOpener([](const QUrl&) { return true; });
        window = std::make_unique<platform::Window>();
        root = std::make_shared<platform::ViewController>();
        window->setRootViewController(root.get());
        window->makeKeyAndVisible();
        return QTest::qWaitForWindowExposed(window->desktopWindow());
    }

    PXBBannerView* addBanner(const QString& adUnitID) {
        removeBanner();
        recorder.events.clear();
        states.clear();
        logLines().clear();
        platform::Application::sharedApplication()->clearOpenedURLs();
        const QRect area = root->view()->bounds();
        banner = new PXBBannerView(QRect(0, area.height() - 50, 320, 50));
        banner->setAdUnitID(adUnitID);
        banner->setRootViewController(root.get());
        banner->setDelegate(&recorder);
        root->view()->addSubview(banner);
        banner->show();
        QObject::connect(ad(), &PXBObjectPrivate::stateChanged, ad(),
                         [this](qint32 state) { states.append(state); });
        return banner;
    }

    void removeBanner() {
        if (banner != nullptr) {
            banner->setDelegate(nullptr);
            delete banner.data();
        }
    }

    PXBObjectPrivate* ad() const { return banner != nullptr ? banner->privateObject() : nullptr; }
    PXBWebView* webView() const { return banner != nullptr ? banner->webView() : nullptr; }
    int state() const { return ad() != nullptr ? ad()->state() : -1; }

    void load(const QVariantMap& extras = {}) {
        auto request = PXBRequest::create();
        request->setAdditionalParameters(extras);
        banner->loadRequest(request.get());
    }

    // The "messages" ad: its page sends `send` ({origin}: the server) on load, or once pressed.
    void loadMessages(const QStringList& send, bool onPress = false) {
        load({{QStringLiteral("zf_creative"), QStringLiteral("messages")},
              {QStringLiteral("send"), send},
              {QStringLiteral("onPress"), onPress}});
    }

    // A fresh banner of `unit` loading a request with `extras`, until its ad is shown.
    bool showAd(const QString& unit, const QVariantMap& extras = {}) {
        addBanner(unit);
        load(extras);
        return waitFor([&] { return state() == kPXBAdStateShown; }, kWait);
    }

    // Waits until the ad is shown, painted and old enough for a press to be a click.
    bool waitUntilClickable() const { return waitUntilClickable(banner); }

    // The same for any banner (one in a window of its own, say).
    static bool waitUntilClickable(PXBBannerView* banner) {
        PXBObjectPrivate* ad = banner->privateObject();
        return waitFor([&] { return ad->state() == kPXBAdStateShown; }, kWait) &&
               waitUntilPainted(banner->webView()) &&
               waitFor([&] { return PXBTiming::counter() - ad->timeLastLoaded() >= 0.15; }, 5000);
    }

    // The same, then the user's press that lets a page open something.
    bool pressShownAd(QPoint point = QPoint(160, 25)) const {
        if (!waitUntilClickable()) {
            return false;
        }
        click(point);
        return true;
    }

    QList<QJsonObject> requestsTo(const QString& path, qint64 since = 0) const {
        QList<QJsonObject> found;
        for (const QJsonValue& entry : server.logEntries(since)) {
            if (entry[QStringLiteral("path")].toString() == path) {
                found.append(entry.toObject());
            }
        }
        return found;
    }

    // Forgets the support script: its cached file and the date of its next revalidation.
    void forgetScript(bool keepFile) const {
        if (!keepFile) {
            PXBCachedFile(nullptr, PXBConfiguration::scriptURL()).invalidate();
        }
        PXBStatisticsCore store(QStringLiteral("PXBObjectPrivate"));
        store.removeObjectForKey(QStringLiteral("expireDate"));
        store.synchronize();
    }

    bool waitUntilPainted() const { return waitUntilPainted(webView()); }

    static bool waitUntilPainted(platform::WebView* view) {
        // Shared with the callback, which may come after we gave up waiting.
        auto painted = std::make_shared<std::optional<bool>>();
        platform::whenPagePainted(view, [painted](bool drawn) { *painted = drawn; });
        return waitFor([&] { return painted->has_value(); }, 10000) && **painted;
    }

    // Ends the page's content process, as the system does when memory runs out, once the page has
    // a process of its own.
    static bool killContentProcess(platform::WebView* view) {
        return waitFor([&] { return view->contentProcessId() > 0; }, kWait) &&
               ::kill(pid_t(view->contentProcessId()), SIGKILL) == 0;
    }

    // A real press and release on the engine's own widget.
    void click(QPoint point = QPoint(160, 25)) const { pressOn(webView(), point); }

    static void pressOn(QWidget* view, QPoint point) {
        QWidget* target = view->childAt(point);
        if (target == nullptr) {
            target = view;
        }
        // The press goes straight to the widget, so it is sent only once a mouse could reach
        // it: a screen still sliding in lets presses through to what lies beneath.
        const auto reachable = [target] {
            for (const QWidget* w = target; w != nullptr; w = w->parentWidget()) {
                if (w->testAttribute(Qt::WA_TransparentForMouseEvents)) {
                    return false;
                }
            }
            return true;
        };
        if (!waitFor(reachable, 5000)) {
            qWarning() << "pressing a widget that a mouse cannot reach:" << target;
        }
        const QPoint local = target->mapFrom(view, point);
        QTest::mousePress(target, Qt::LeftButton, {}, local);
        QTest::mouseRelease(target, Qt::LeftButton, {}, local);
    }

    // What `script` evaluates to in the view's page ("" when it does not answer).
    static QString evaluate(platform::WebView* view, const QString& script) {
        auto answer = std::make_shared<std::optional<QString>>();
        view->stringByEvaluatingJavaScriptFromString(
            script, [answer](const QString& result) { *answer = result; });
        return waitFor([&] { return answer->has_value(); }, 10000) ? **answer : QString();
    }

    // The centre of the first element matching `selector`, scrolled into view; (-1, -1): none.
    static QPoint centreOf(platform::WebView* view, const QString& selector) {
        const QString answer = evaluate(
            view, QStringLiteral(
                      "(function(){var e=document.querySelector(%1);if(!e)return '';"
                      "e.scrollIntoView({block:'center'});var r=e.getBoundingClientRect();"
                      "return Math.round(r.left+r.width/2)+','+Math.round(r.top+r.height/2);})()")
                      .arg(QString::fromUtf8(QJsonDocument(QJsonArray{selector})
                                                 .toJson(QJsonDocument::Compact)
                                                 .chopped(1)
                                                 .mid(1))));
        if (answer.isEmpty()) {
            return {-1, -1};
        }
        const QStringList xy = answer.split(QLatin1Char(','));
        return {xy.value(0).toInt(), xy.value(1).toInt()};
    }

    // Minimises (or restores) the window, until the application has heard of it.
    bool setBackground(bool background) const {
        background ? window->desktopWindow()->showMinimized()
                   : window->desktopWindow()->showNormal();
        const auto wanted = background ? platform::Application::StateBackground
                                       : platform::Application::StateActive;
        return waitFor(
            [&] {
                return platform::Application::sharedApplication()->applicationState() == wanted;
            },
            5000);
    }

    // Whatever a case left on screen goes before the next one.
    void closeScreens() const {
        while (auto* screen = qobject_cast<PXBViewController*>(top())) {
            screen->relinquishScreen();
            if (!waitFor([&] { return top() != screen; }, 5000)) {
                return;
            }
        }
    }

    // The controller on top of the window: the root, or the last screen presented over it.
    platform::ViewController* top() const { return window->topViewController(); }

    template <class Screen>
    Screen* topAs() const {
        return qobject_cast<Screen*>(top());
    }
};

// The query of a logged request, with nested values (JSON text) decoded.
inline QVariantMap queryOf(const QJsonObject& entry) {
    QVariantMap query = entry[QStringLiteral("query")].toObject().toVariantMap();
    for (auto it = query.begin(); it != query.end(); ++it) {
        const QString text = it.value().toString();
        if (text.startsWith(QLatin1Char('{')) || text.startsWith(QLatin1Char('['))) {
            it.value() = QJsonDocument::fromJson(text.toUtf8()).toVariant();
        }
    }
    return query;
}

inline QList<QVariantMap> queriesTo(const Harness& h, const QString& path, qint64 since = 0) {
    QList<QVariantMap> queries;
    for (const QJsonObject& entry : h.requestsTo(path, since)) {
        queries.append(queryOf(entry));
    }
    return queries;
}

inline QStringList queryValues(const Harness& h, const QString& path, const QString& key,
                               qint64 since = 0) {
    QStringList values;
    for (const QVariantMap& query : queriesTo(h, path, since)) {
        values << query.value(key).toString();
    }
    return values;
}

// A rectangle sent as a dictionary of "x", "y", "w" and "h".
inline QRectF rectOf(const QVariant& value) {
    const QVariantMap map = value.toMap();
    return {map.value(QStringLiteral("x")).toDouble(), map.value(QStringLiteral("y")).toDouble(),
            map.value(QStringLiteral("w")).toDouble(), map.value(QStringLiteral("h")).toDouble()};
}

}  // namespace e2e

// main() for end-to-end suites: a fresh profile for the whole process, made before anything can
// read the user's.
#define SORVEL_E2E_MAIN(TestObject)                           \
    int main(int argc, char** argv) {                         \
        testsupport::TempHome home;                           \
        platform::prepareApplication();                       \
        QApplication app(argc, argv);                         \
        app.setApplicationName(QStringLiteral("sorvel-e2e")); \
        TestObject test;                                      \
        return QTest::qExec(&test, argc, argv);               \
    }
