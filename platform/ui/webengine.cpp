#include "platform/ui/webengine.h"

#include "platform/clock.h"
#include "platform/cookiestorage.h"
#include "platform/log.h"
#include "platform/netaddress.h"
#include "platform/ui/application.h"

#include <QApplication>
#include <QChildEvent>
#include <QFocusEvent>
#include <QJsonArray>
#include <QJsonDocument>
#include <QKeyEvent>
#include <QPainter>
#include <QPointer>
#include <QTimer>
#include <QWebEngineCookieStore>
#include <QWebEngineHistory>
#include <QWebEngineHttpRequest>
#include <QWebEngineLoadingInfo>
#include <QWebEngineNewWindowRequest>
#include <QWebEnginePage>
#include <QWebEngineProfile>
#include <QWebEngineScript>
#include <QWebEngineScriptCollection>
#include <QWebEngineSettings>
#include <QWebEngineUrlRequestInfo>
#include <QWebEngineUrlRequestInterceptor>
#include <QWebEngineUrlRequestJob>
#include <QWebEngineUrlScheme>
#include <QWebEngineUrlSchemeHandler>
#include <QWebEngineView>

#include <signal.h>

#include <deque>
#include <utility>

// Where the engine itself writes pages' consoles, so the same rules show or hide them.
Q_LOGGING_CATEGORY(lcPageConsole, "js", QtWarningMsg)

namespace platform {

namespace {

// The engine's longest URL, and what a data: URL of HTML carries besides the encoded page.
constexpr qsizetype kEngineMaxUrlLength = 2 * 1024 * 1024;
// An engine page holds on to something of every page it has shown (about 10 KB each, inside the
// engine, freed with the page): after this many views, or HTML strings shown, it is let go.
constexpr int kPagesPerEnginePage = 20;
// A page that has not gone blank by then is stuck (a script that never returns keeps its process
// busy).
constexpr int kBlankTimeoutMs = 5000;
// A spare goes blank this long after its view let it go. The engine's work for a navigation runs
// on this thread, and the request that just let the page go has its answer and its ad page on
// their way here: blanking at once made each of them a few milliseconds slower.
constexpr int kSpareBlankDelayMs = 100;
constexpr qsizetype kDataUrlOverhead = 64;
// How long a page given up on has to answer a script before its content process is ended.
constexpr int kUnresponsiveMilliseconds = 1000;

QWebEngineProfile* profile();

// Schemes the engine loads by itself; a navigation to any other scheme is only ever offered to
// the delegate.
bool engineLoadsScheme(const QString& scheme) {
    static const QStringList schemes = {QStringLiteral("http"),  QStringLiteral("https"),
                                        QStringLiteral("about"), QStringLiteral("data"),
                                        QStringLiteral("file"),  QStringLiteral("blob"),
                                        QStringLiteral("qrc")};
    return schemes.contains(scheme.toLower());
}

// A link the page follows by itself (script, timer) is no click: it counts as one only when the
// user has just pressed or typed in the view.
int navigationTypeFor(QWebEnginePage::NavigationType type, bool userActed) {
    switch (type) {
        case QWebEnginePage::NavigationTypeLinkClicked:
            return userActed ? WebViewNavigationTypeLinkClicked : WebViewNavigationTypeOther;
        case QWebEnginePage::NavigationTypeFormSubmitted:
            return WebViewNavigationTypeFormSubmitted;
        case QWebEnginePage::NavigationTypeBackForward:
            return WebViewNavigationTypeBackForward;
        case QWebEnginePage::NavigationTypeReload:
            return WebViewNavigationTypeReload;
        default:
            return WebViewNavigationTypeOther;
    }
}

// The engine shows an HTML string as a data: URL holding the UTF-8 text in base64.
QByteArray dataUrlPayload(const QUrl& url) {
    const QByteArray encoded = url.toEncoded();
    const int comma = encoded.indexOf(',');
    if (comma < 0) {
        return {};
    }
    const QByteArray head = encoded.left(comma);
    const QByteArray body = QByteArray::fromPercentEncoding(encoded.mid(comma + 1));
    return head.endsWith(";base64") ? QByteArray::fromBase64(body) : body;
}

// Message URLs must be requestable for the engine to offer them to the navigation check at all
// (otherwise it blocks them as "about:blank#blocked"); they are never loaded, so any request
// that gets this far is refused.
class MessageSchemeHandler : public QWebEngineUrlSchemeHandler {
  public:
    using QWebEngineUrlSchemeHandler::QWebEngineUrlSchemeHandler;
    void requestStarted(QWebEngineUrlRequestJob* job) override {
        job->fail(QWebEngineUrlRequestJob::RequestDenied);
    }
};

// The older message form names its message by the URL's host, matched exactly, but the engine
// hands a navigation over as a QUrl, whose host is lower-cased: "torvin://LAUNCH" would arrive
// as "torvin://launch". So each page drops such a navigation itself while its URL is still as
// written (in a script world of its own, out of the page's reach).
void keepMessageHostsExact(QWebEngineProfile* profile) {
    QWebEngineScript script;
    script.setName(QStringLiteral("sorvel-exact-message-hosts"));
    script.setInjectionPoint(QWebEngineScript::DocumentCreation);
    script.setWorldId(QWebEngineScript::ApplicationWorld);
    script.setRunsOnSubFrames(true);
    script.setSourceCode(
        QStringLiteral("if (self.navigation) navigation.addEventListener('navigate', function (e) {"
                       " if (e.cancelable && /^%1:\\/\\/[^\\/?#]*[A-Z]/.test("
                       "e.destination.url)) e.preventDefault(); });")
            .arg(kLegacyMessageUrlScheme));
    profile->scripts()->insert(script);
}

// The engine takes a host-only cookie (the jar keeps its host, undotted, as domain) without a
// domain, from an origin of that host.
QUrl cookieOrigin(const QNetworkCookie& cookie) {
    QString host = cookie.domain();
    if (host.startsWith(QLatin1Char('.'))) {
        host.remove(0, 1);
    }
    QUrl origin;
    origin.setScheme(cookie.isSecure() ? QStringLiteral("https") : QStringLiteral("http"));
    origin.setHost(host);
    origin.setPath(QStringLiteral("/"));
    return origin;
}

void setEngineCookie(QWebEngineCookieStore* store, QNetworkCookie cookie, QUrl origin) {
    if (origin.isEmpty()) {
        origin = cookieOrigin(cookie);
    }
    if (!cookie.domain().startsWith(QLatin1Char('.'))) {
        cookie.setDomain(QString());
    }
    if (!cookie.isSessionCookie() && cookie.expirationDate() < QDateTime::currentDateTimeUtc()) {
        store->deleteCookie(cookie, origin);
    } else {
        store->setCookie(cookie, origin);
    }
}

// The engine's cookie store and the process's jar hold the same cookies: the engine starts with
// the jar's, and each side passes on what it sets or drops.
void shareCookies(QWebEngineCookieStore* store, HttpCookieStorage* jar) {
    if (jar == nullptr) {
        return;
    }
    for (const QNetworkCookie& cookie : jar->cookies()) {
        setEngineCookie(store, cookie, QUrl());
    }
    QObject::connect(store, &QWebEngineCookieStore::cookieAdded, jar,
                     &HttpCookieStorage::mirrorCookie);
    QObject::connect(store, &QWebEngineCookieStore::cookieRemoved, jar,
                     &HttpCookieStorage::forgetCookie);
    QObject::connect(jar, &HttpCookieStorage::cookieReceived, store,
                     [store](const QNetworkCookie& cookie, const QUrl& url) {
                         setEngineCookie(store, cookie, url);
                     });
}

// A page whose script never yields answers nothing, and its process would take the next page of
// its site with it (a spare page, or a new view's): that process is ended, and the next load
// starts a fresh one. A page that answers only waits for the network and is left alone.
void endIfUnresponsive(QWebEnginePage* page) {
    const qint64 pid = page->renderProcessPid();
    if (pid <= 0) {
        return;
    }
    auto answered = std::make_shared<bool>(false);
    page->runJavaScript(QStringLiteral("0"), QWebEngineScript::ApplicationWorld,
                        [answered](const QVariant&) { *answered = true; });
    QTimer::singleShot(kUnresponsiveMilliseconds, qApp,
                       [answered, pid, guard = QPointer<QWebEnginePage>(page)] {
                           if (!*answered && guard != nullptr && guard->renderProcessPid() == pid) {
                               logLine(
                                   QStringLiteral("<Sorvel> A page's content process does "
                                                  "not answer; it is ended"));
                               ::kill(pid_t(pid), SIGKILL);
                           }
                       });
}

// A ring over the page while the keyboard's focus is in it. Pages rarely show their own where it
// meets the view's edges (a banner's link fills its view), so a keyboard user would not see where
// Tab went. It watches the engine's widgets, which the engine makes and replaces as it likes.
class FocusRing : public QWidget {
  public:
    explicit FocusRing(QWidget* view) : QWidget(view) {
        setObjectName(QStringLiteral("focusRing"));
        setAttribute(Qt::WA_TransparentForMouseEvents);
        hide();
    }

    void watch(QWidget* engineView) {
        engineView->installEventFilter(this);
        for (QWidget* child : engineView->findChildren<QWidget*>()) {
            child->installEventFilter(this);
        }
    }

  private:
    void showRing() {
        setGeometry(parentWidget()->rect());
        raise();
        show();
    }

  protected:
    bool eventFilter(QObject* watched, QEvent* event) override {
        switch (event->type()) {
            case QEvent::ChildAdded:
                if (auto* child =
                        qobject_cast<QWidget*>(static_cast<QChildEvent*>(event)->child())) {
                    child->installEventFilter(this);
                }
                break;
            case QEvent::FocusIn: {
                const Qt::FocusReason reason = static_cast<QFocusEvent*>(event)->reason();
                if (reason == Qt::TabFocusReason || reason == Qt::BacktabFocusReason) {
                    showRing();
                }
                break;
            }
            case QEvent::KeyPress: {
                // Tab inside the page moves its focus without Qt's: the keyboard is in use.
                const int key = static_cast<QKeyEvent*>(event)->key();
                if (key == Qt::Key_Tab || key == Qt::Key_Backtab) {
                    showRing();
                }
                break;
            }
            case QEvent::FocusOut:
            case QEvent::MouseButtonPress:
                hide();
                break;
            default:
                break;
        }
        return QWidget::eventFilter(watched, event);
    }

    void paintEvent(QPaintEvent*) override {
        // The system's highlight with a light line inside: seen on a dark ad and a light one.
        QPainter painter(this);
        painter.setPen(QPen(palette().color(QPalette::Highlight), 2));
        painter.drawRect(QRectF(rect()).adjusted(1, 1, -1, -1));
        painter.setPen(QPen(Qt::white, 1));
        painter.drawRect(QRectF(rect()).adjusted(2.5, 2.5, -2.5, -2.5));
    }
};

class EngineBackend;
class RefererInterceptor;

class EnginePage : public QWebEnginePage {
  public:
    // A page made without a back-end is a spare's (it has served no view yet).
    EnginePage(QWebEngineProfile* profile, EngineBackend* backend);
    // A page between two views has no back-end: it goes nowhere but to a blank page.
    void setBackend(EngineBackend* backend) { backend_ = backend; }

    RefererInterceptor* referers = nullptr;  // the page's own
    int views = 1;                           // that it has served
    int pagesShown = 0;                      // HTML strings loaded while a view showed it

  protected:
    bool acceptNavigationRequest(const QUrl& url, NavigationType type, bool isMainFrame) override;
    // A page never holds the application in a modal dialog: alerts are logged, confirmations
    // refused and prompts answered with nothing, as a page without a window to ask in would.
    void javaScriptAlert(const QUrl& securityOrigin, const QString& msg) override;
    bool javaScriptConfirm(const QUrl& securityOrigin, const QString& msg) override;
    bool javaScriptPrompt(const QUrl& securityOrigin, const QString& msg,
                          const QString& defaultValue, QString* result) override;
    // A page's console goes to the log as the engine's own would ("js" category), but escaped,
    // cut short and rationed: the page's author writes it.
    void javaScriptConsoleMessage(JavaScriptConsoleMessageLevel level, const QString& message,
                                  int lineNumber, const QString& sourceID) override;

  private:
    EngineBackend* backend_;
    LogRateLimiter console_{20, 10000};
};

// Adds the "Referer" a caller gave loadRequest to the engine's request for that page (and only
// to that one: later loads of the same URL go without it). The engine cancels a request whose
// referrer says more than its referrer policy lets through, so another site is told the
// referrer's origin only, and a page that leaves https for http is told nothing.
class RefererInterceptor : public QWebEngineUrlRequestInterceptor {
  public:
    using QWebEngineUrlRequestInterceptor::QWebEngineUrlRequestInterceptor;

    void forgetAll() { pending_.clear(); }

    void expect(const QUrl& url, const QString& referer) {
        if (referer.isEmpty()) {
            pending_.remove(url);
        } else {
            pending_.insert(url, referer.toLatin1());
        }
    }

    // On the main thread (Qt 6 calls page interceptors there).
    void interceptRequest(QWebEngineUrlRequestInfo& info) override {
        if (reachesIntoLocalNetwork(info.firstPartyUrl(), info.requestUrl())) {
            logDebug(QStringLiteral("<Sorvel> Not loaded, the local network is out of bounds for "
                                    "a page from %1: %2")
                         .arg(info.firstPartyUrl().host(),
                              info.requestUrl().toString(QUrl::FullyEncoded)));
            info.block(true);
            return;
        }
        if (info.resourceType() != QWebEngineUrlRequestInfo::ResourceTypeMainFrame) {
            return;
        }
        if (auto it = pending_.constFind(info.requestUrl()); it != pending_.constEnd()) {
            const QByteArray referer =
                allowedPart(QUrl(QString::fromLatin1(it.value())), info.requestUrl(), it.value());
            if (!referer.isEmpty()) {
                info.setHttpHeader(QByteArrayLiteral("Referer"), referer);
            }
            pending_.erase(it);
        }
    }

    // A page from the internet does not reach into the user's own network: the router, a
    // printer, a service on this machine. Pages from there may (a development server, the
    // built-in ad server). Names are not looked up here, the engine does that on its own; an
    // address or "localhost" is how such a page would name them.
    static bool reachesIntoLocalNetwork(const QUrl& from, const QUrl& to) {
        static const QStringList network{QStringLiteral("http"), QStringLiteral("https"),
                                         QStringLiteral("ws"), QStringLiteral("wss")};
        return network.contains(to.scheme()) && isLocalNetworkHost(to.host()) &&
               !from.host().isEmpty() && !isLocalNetworkHost(from.host());
    }

    static QByteArray allowedPart(const QUrl& referer, const QUrl& target, const QByteArray& full) {
        if (referer.scheme() == QLatin1String("https") && target.scheme() != referer.scheme()) {
            return {};
        }
        if (referer.scheme() == target.scheme() && referer.host() == target.host() &&
            referer.port() == target.port()) {
            return full;
        }
        return referer
                   .adjusted(QUrl::RemovePath | QUrl::RemoveQuery | QUrl::RemoveFragment |
                             QUrl::RemoveUserInfo)
                   .toEncoded() +
               '/';
    }

  private:
    QHash<QUrl, QByteArray> pending_;
};

// The page of a view that was never shown outlives its view as the spare: blanked, with its
// content process kept, it is the next view's page. Making a page and starting a process for it
// is most of what a short-lived hidden view costs (the ad client makes one for every request).
// A spare is handed out only once the blank page has loaded, so a page stuck in a script of its
// last owner is never reused; the newest page always replaces the one kept, and a page serves a
// limited number of views, after which a fresh page takes its place.
class SparePage {
  public:
    static void keep(EnginePage* page) {
        SparePage& spare = instance();
        if (QCoreApplication::closingDown()) {
            delete page;
            return;
        }
        spare.drop();
        if (page->views >= kPagesPerEnginePage) {
            delete page;
            page = new EnginePage(profile(), nullptr);
        }
        static const bool dropAtExit = (qAddPostRoutine([] { instance().drop(); }), true);
        Q_UNUSED(dropAtExit);
        page->setBackend(nullptr);
        page->setParent(nullptr);
        spare.page_ = page;
        // A page comes back time and again: what is put off for it acts on this keeping only.
        const quint64 keeping = ++spare.keepings_;
        auto stillBlanking = [keeping] {
            return instance().keepings_ == keeping && instance().page_ != nullptr &&
                   !instance().ready_;
        };
        spare.watchers_[0] = QObject::connect(
            page, &QWebEnginePage::loadingChanged, page,
            [page, stillBlanking](const QWebEngineLoadingInfo& info) {
                if (info.url() != QUrl(QStringLiteral("about:blank"))) {
                    return;
                }
                if (info.status() == QWebEngineLoadingInfo::LoadSucceededStatus) {
                    page->history()->clear();
                    instance().ready_ = true;
                } else if (info.status() != QWebEngineLoadingInfo::LoadStartedStatus &&
                           ++instance().blankTries_ < 3) {
                    // The engine may abort the first blank load of a page whose last
                    // navigation it is still winding up.
                    QTimer::singleShot(0, [stillBlanking] {
                        if (stillBlanking()) {
                            instance().page_->setUrl(QUrl(QStringLiteral("about:blank")));
                        }
                    });
                }
            });
        spare.watchers_[1] =
            QObject::connect(page, &QWebEnginePage::renderProcessTerminated, page, [keeping] {
                QTimer::singleShot(0, [keeping] {
                    if (instance().keepings_ == keeping) {
                        instance().drop();
                    }
                });
            });
        QTimer::singleShot(kSpareBlankDelayMs, [stillBlanking] {
            if (stillBlanking()) {
                instance().page_->setUrl(QUrl(QStringLiteral("about:blank")));
            }
        });
        // A page that cannot even go blank is stuck (a script that never returns keeps its
        // process busy): let it go, and its process with it.
        QTimer::singleShot(kSpareBlankDelayMs + kBlankTimeoutMs, [stillBlanking] {
            if (stillBlanking()) {
                logDebug(QStringLiteral("A hidden web view's page never went blank: dropped"));
                instance().drop();
            }
        });
    }

    static bool ready() { return instance().ready_ && instance().page_ != nullptr; }

    // A shown view took the spare for good: a fresh page takes its place, so that the next
    // hidden view does not have to wait for one to be made.
    static void refill() {
        if (instance().page_ == nullptr) {
            keep(new EnginePage(profile(), nullptr));
        }
    }

    // The spare, now the caller's, or null when none is ready.
    static EnginePage* take() {
        SparePage& spare = instance();
        if (!ready()) {
            return nullptr;
        }
        EnginePage* page = spare.page_;
        spare.forget();
        ++page->views;
        return page;
    }

  private:
    static SparePage& instance() {
        static SparePage spare;
        return spare;
    }

    void drop() { delete forget(); }

    EnginePage* forget() {
        for (QMetaObject::Connection& watcher : watchers_) {
            QObject::disconnect(watcher);
        }
        ready_ = false;
        blankTries_ = 0;
        return std::exchange(page_, nullptr).data();
    }

    QPointer<EnginePage> page_;
    QMetaObject::Connection watchers_[2];
    bool ready_ = false;
    int blankTries_ = 0;
    quint64 keepings_ = 0;
};

class EngineBackend : public QObject, public WebViewBackend {
  public:
    explicit EngineBackend(WebView* view) : view_(view) {}
    ~EngineBackend() override {
        if (engineView_ != nullptr || page_ == nullptr) {
            delete engineView_.data();
            delete page_;
            return;
        }
        disconnect(page_, nullptr, this, nullptr);
        page_->referers->forgetAll();
        SparePage::keep(page_);
    }

    void loadRequest(const UrlRequest& request) override {
        if (blankPending_) {
            afterBlank_ = [this, request] { loadRequest(request); };
            return;
        }
        afterBlank_ = nullptr;  // a load that still waits is older than this one
        pendingRequests_.push_back(request);
        if (pendingRequests_.size() > 8) {
            pendingRequests_.pop_front();
        }
        // The engine refuses a "Referer" header field on a load (the request fails as blocked);
        // the page's request interceptor adds it to the request the engine then makes.
        const QString referer = request.valueForHTTPHeaderField(QStringLiteral("Referer"));
        page()->referers->expect(request.url(), referer);
        QWebEngineHttpRequest httpRequest(request.url());
        for (const auto& [name, value] : request.allHTTPHeaderFields()) {
            if (name.compare(QLatin1String("Referer"), Qt::CaseInsensitive) != 0) {
                httpRequest.setHeader(name.toLatin1(), value.toLatin1());
            }
        }
        page()->load(httpRequest);
    }

    void loadHTML(const QString& html, const QUrl& baseUrl) override {
        if (blankPending_) {
            afterBlank_ = [this, html, baseUrl] { loadHTML(html, baseUrl); };
            return;
        }
        afterBlank_ = nullptr;
        const QUrl shown = baseUrl.isEmpty() ? QUrl(QStringLiteral("about:blank")) : baseUrl;
        const QByteArray bytes = html.toUtf8();
        pendingHtml_.push_back({bytes, UrlRequest(shown)});
        if (pendingHtml_.size() > 8) {
            pendingHtml_.pop_front();
        }
        // The engine takes the page as a data: URL, base-64 encoded, and silently drops one
        // longer than its URL limit: the load would neither finish nor fail.
        if ((bytes.size() + 2) / 3 * 4 + kDataUrlOverhead > kEngineMaxUrlLength) {
            logLine(QStringLiteral("<Sorvel> Page of %1 bytes is too large for the web view")
                        .arg(bytes.size()));
            QTimer::singleShot(0, this, [this] {
                view_->didFailLoad(Error::withDescription(
                    kWebViewErrorDomain, kWebViewErrorPageTooLarge,
                    QStringLiteral("the page is too large for the web view")));
            });
            return;
        }
        // A banner shows string after string for as long as the application runs.
        if (engineView_ != nullptr && page_ != nullptr && !started_ &&
            ++page_->pagesShown >= kPagesPerEnginePage) {
            renewPage();
        }
        page()->setHtml(html, baseUrl);
    }

    void evaluateJavaScript(const QString& script,
                            std::function<void(const QVariant&)> done) override {
        QPointer<QObject> guard(this);
        page()->runJavaScript(script, QWebEngineScript::MainWorld,
                              [guard, done = std::move(done)](const QVariant& result) {
                                  if (guard != nullptr && done) {
                                      done(result);
                                  }
                              });
    }

    void evaluateJavaScriptToString(const QString& script,
                                    std::function<void(const QString&)> done) override {
        // Indirect eval runs the script in the global scope, as if it were the page's own.
        const QByteArray quoted = QJsonDocument(QJsonArray{script}).toJson(QJsonDocument::Compact);
        const QString wrapped =
            QStringLiteral(
                "(function(){try{var r=(0,eval)(%1);return r===undefined||r===null?'':"
                "String(r);}catch(e){return '';}})()")
                .arg(QString::fromUtf8(quoted.mid(1, quoted.size() - 2)));
        evaluateJavaScript(wrapped, [done = std::move(done)](const QVariant& result) {
            if (done) {
                done(result.toString());
            }
        });
    }

    bool canGoBack() const override {
        return page_ != nullptr && !forgetBlank_ && page_->history()->canGoBack();
    }
    bool canGoForward() const override {
        return page_ != nullptr && page_->history()->canGoForward();
    }
    void goBack() override { page()->triggerAction(QWebEnginePage::Back); }
    void goForward() override { page()->triggerAction(QWebEnginePage::Forward); }
    void reload() override { page()->triggerAction(QWebEnginePage::Reload); }
    void stopLoading() override {
        afterBlank_ = nullptr;
        if (page_ != nullptr) {
            page_->triggerAction(QWebEnginePage::Stop);
        }
    }
    void abandonLoad() override {
        stopLoading();
        if (page_ != nullptr) {
            endIfUnresponsive(page_);
        }
    }
    void preparePage() override {
        if (page_ != nullptr) {
            return;
        }
        page();
        if (!forgetBlank_) {
            // A page starts its process with its first page; this blank one is none of the
            // view's, as a spare's is not. A load asked for meanwhile waits for its end: one
            // that overtook it could be reported as the blank page's, or not at all.
            forgetBlank_ = true;
            blankAsked_ = true;
            blankPending_ = true;
            page_->setUrl(QUrl(QStringLiteral("about:blank")));
            QTimer::singleShot(kBlankTimeoutMs, this, [this] { blankEnded(); });
        }
    }

    QString userAgent() const override { return profile()->httpUserAgent(); }
    qint64 contentProcessId() const override {
        return page_ != nullptr ? page_->renderProcessPid() : 0;
    }

    void settingsChanged() override {
        if (page_ == nullptr) {
            return;  // applied when the page is made
        }
        page_->settings()->setAttribute(QWebEngineSettings::PlaybackRequiresUserGesture,
                                        view_->mediaPlaybackRequiresUserAction());
        page_->setBackgroundColor(view_->pageBackgroundColor());
        fitPage();
    }

    void viewShown() override {
        // The widget is made only when the view is first shown: a hidden view's page loads and
        // runs its scripts without one.
        if (engineView_ != nullptr) {
            return;
        }
        engineView_ = new QWebEngineView(view_);
        engineView_->setPage(page());
        engineView_->setGeometry(view_->rect());
        focusRing_ = new FocusRing(view_);
        focusRing_->watch(engineView_);
        engineView_->show();
    }

    void viewResized() override {
        if (engineView_ != nullptr) {
            engineView_->setGeometry(view_->rect());
            if (focusRing_ != nullptr) {
                focusRing_->setGeometry(view_->rect());
            }
        }
        fitPage();
    }

    bool acceptNavigation(const QUrl& url, QWebEnginePage::NavigationType type, bool mainFrame) {
        if (std::exchange(blankAsked_, false) && mainFrame &&
            url == QUrl(QStringLiteral("about:blank"))) {
            return true;  // preparePage's, not the delegate's
        }
        if (!mainFrame) {
            return acceptFrameNavigation(url, type);
        }
        if (auto it = std::find(preApproved_.begin(), preApproved_.end(), url);
            it != preApproved_.end()) {
            preApproved_.erase(it);
            return allow(url);
        }
        UrlRequest request(url);
        int navigationType = navigationTypeFor(type, view_->hadRecentUserInput());
        if (url.scheme() == QLatin1String("data") && !pendingHtml_.empty()) {
            // Our own HTML string: the delegate sees its base URL, as the phone showed it.
            const QByteArray payload = dataUrlPayload(url);
            auto match = std::find_if(pendingHtml_.begin(), pendingHtml_.end(),
                                      [&](const auto& entry) { return entry.first == payload; });
            if (match == pendingHtml_.end()) {
                match = pendingHtml_.end() - 1;
            }
            request = match->second;
            pendingHtml_.erase(pendingHtml_.begin(), match + 1);
            navigationType = WebViewNavigationTypeOther;
        } else if (type == QWebEnginePage::NavigationTypeTyped ||
                   type == QWebEnginePage::NavigationTypeRedirect) {
            auto match = std::find_if(pendingRequests_.begin(), pendingRequests_.end(),
                                      [&](const UrlRequest& r) { return r.url() == url; });
            if (match != pendingRequests_.end()) {
                request = *match;
                pendingRequests_.erase(pendingRequests_.begin(), match + 1);
            }
        }
        if (!view_->shouldStartLoad(request, navigationType)) {
            return false;
        }
        if (url.scheme() == QLatin1String("data")) {
            allow(url);
            allow(request.url());  // the engine reports the page's end under its base URL
        }
        if (!engineLoadsScheme(url.scheme())) {
            logDebug(QStringLiteral("Web view drops a navigation it cannot load: ") +
                     url.toString());
            return false;
        }
        allow(url);
        return true;
    }

    // A frame's navigation is asked like the page's but leaves the page's load, its request and
    // its start and finish alone. Schemes the engine does not load are never let through: the
    // engine would hand them to the desktop, and message URLs would fail in the frame.
    bool acceptFrameNavigation(const QUrl& url, QWebEnginePage::NavigationType type) {
        const int navigationType = navigationTypeFor(type, view_->hadRecentUserInput());
        if (!view_->shouldStartLoad(UrlRequest(url), navigationType, false)) {
            return false;
        }
        if (!engineLoadsScheme(url.scheme())) {
            logDebug(QStringLiteral("Web view drops a frame navigation it cannot load: ") +
                     url.toString());
            return false;
        }
        return true;
    }

    void newWindowRequested(QWebEngineNewWindowRequest& newWindow) {
        // The phone's web view showed such links in place: ask as for any navigation there.
        const QUrl url = newWindow.requestedUrl();
        const int type = newWindow.isUserInitiated() ? WebViewNavigationTypeLinkClicked
                                                     : WebViewNavigationTypeOther;
        if (!view_->shouldStartLoad(UrlRequest(url), type) || !engineLoadsScheme(url.scheme())) {
            return;
        }
        preApproved_.push_back(url);
        page()->load(url);
    }

    void loadingChanged(const QWebEngineLoadingInfo& info) {
        if (blankPending_ && info.url() == QUrl(QStringLiteral("about:blank")) &&
            info.status() != QWebEngineLoadingInfo::LoadStartedStatus) {
            blankEnded();
            return;
        }
        // A spare page's own blank loads may still report late, after it became ours: they are
        // none of this view's (a late stop would end the view's first load).
        if (forgetBlank_ && info.url() == QUrl(QStringLiteral("about:blank")) &&
            !isAllowed(info.url())) {
            return;
        }
        if (forgetBlank_ && info.status() != QWebEngineLoadingInfo::LoadStartedStatus) {
            page_->history()->clear();
            forgetBlank_ = false;
        }
        switch (info.status()) {
            case QWebEngineLoadingInfo::LoadStartedStatus:
                if (isAllowed(info.url()) && !started_) {
                    started_ = true;
                    currentUrl_ = info.url();
                    view_->didStartLoad();
                }
                break;
            case QWebEngineLoadingInfo::LoadSucceededStatus:
                if (finishes(info.url())) {
                    fitPage();
                    view_->didFinishLoad();
                }
                break;
            case QWebEngineLoadingInfo::LoadStoppedStatus:
                // Any stop ends the running load, whatever URL the engine names: when a step
                // of the load itself is refused (a redirect to another application), it names
                // the refused URL and nothing else follows.
                if (started_) {
                    const bool interrupted = info.url() != currentUrl_ && !isAllowed(info.url());
                    endLoad();
                    view_->didFailLoad(
                        interrupted
                            ? Error(kWebViewErrorDomain, kWebViewErrorFrameLoadInterrupted,
                                    {{Error::kLocalizedDescriptionKey,
                                      QStringLiteral("Frame load interrupted")},
                                     {Error::kUrlKey, info.url()}})
                            : Error::withDescription(kWebViewErrorDomain, kWebViewErrorCancelled,
                                                     QStringLiteral("cancelled")));
                }
                break;
            case QWebEngineLoadingInfo::LoadFailedStatus:
                if (!started_) {
                    break;
                }
                endLoad();
                if (info.errorDomain() == QWebEngineLoadingInfo::HttpStatusCodeDomain) {
                    // The engine flags a 4xx or 5xx answer as failed, but its page arrived and
                    // shows: that is a finished load. Only the network's errors fail one.
                    fitPage();
                    view_->didFinishLoad();
                } else {
                    QVariantMap userInfo{
                        {Error::kLocalizedDescriptionKey, info.errorString()},
                        {Error::kUrlKey, info.url()},
                    };
                    const bool network =
                        info.errorDomain() == QWebEngineLoadingInfo::ConnectionErrorDomain ||
                        info.errorDomain() == QWebEngineLoadingInfo::DnsErrorDomain ||
                        info.errorDomain() == QWebEngineLoadingInfo::CertificateErrorDomain;
                    view_->didFailLoad(Error(network ? kNetworkErrorDomain : kWebViewErrorDomain,
                                             info.errorCode(), userInfo));
                }
                break;
        }
    }

    // The page's content process is gone (crashed, or killed by the system): the page is blank
    // until the next load, which starts a new process. A load it was running fails here, with
    // an error that says why; the engine would only report it stopped afterwards.
    void renderProcessTerminated(QWebEnginePage::RenderProcessTerminationStatus status,
                                 int exitCode) {
        if (status == QWebEnginePage::NormalTerminationStatus) {
            blankEnded();
            return;
        }
        logLine(QStringLiteral("<Sorvel> A web view's content process ended (status %1, code %2)")
                    .arg(int(status))
                    .arg(exitCode));
        // A load waiting for the blank page to end was as good as running.
        const bool waited = std::exchange(afterBlank_, nullptr) != nullptr;
        blankEnded();
        QPointer<WebView> view(view_);
        if (started_ || waited) {
            endLoad();
            view_->didFailLoad(
                Error::withDescription(kWebViewErrorDomain, kWebViewErrorContentProcessEnded,
                                       QStringLiteral("the web content process ended")));
        }
        if (view != nullptr) {
            view->contentProcessDidEnd();
        }
    }

  private:
    // preparePage's blank page has loaded, failed or timed out: a load that waited goes now,
    // from the event loop rather than from inside the engine's report.
    void blankEnded() {
        if (!std::exchange(blankPending_, false)) {
            return;
        }
        QTimer::singleShot(0, this, [this] {
            if (auto load = std::exchange(afterBlank_, nullptr)) {
                load();
            }
        });
    }

    EnginePage* page() {
        if (page_ == nullptr) {
            page_ = SparePage::take();
            if (page_ != nullptr) {
                page_->setParent(this);
                page_->setBackend(this);
                forgetBlank_ = true;  // the spare's blank page is no page of this view
            } else {
                page_ = new EnginePage(profile(), this);
            }
            connect(page_, &QWebEnginePage::newWindowRequested, this,
                    &EngineBackend::newWindowRequested);
            connect(page_, &QWebEnginePage::loadingChanged, this, &EngineBackend::loadingChanged);
            connect(page_, &QWebEnginePage::renderProcessTerminated, this,
                    &EngineBackend::renderProcessTerminated);
            connect(page_, &QWebEnginePage::contentsSizeChanged, this, [this] { fitPage(); });
            settingsChanged();
        }
        return page_;
    }

    // The shown page goes for a fresh one (taken from the spare when one is ready). Not at once:
    // a delegate may load while the engine is still inside one of the old page's calls.
    void renewPage() {
        EnginePage* old = std::exchange(page_, nullptr);
        disconnect(old, nullptr, this, nullptr);
        engineView_->setPage(page());
        SparePage::refill();
        old->deleteLater();
    }

    bool allow(const QUrl& url) {
        allowed_.push_back(url);
        if (allowed_.size() > 16) {
            allowed_.pop_front();
        }
        if (started_) {
            currentUrl_ = url;  // a redirect or a new page replaces the one loading
        }
        return true;
    }

    bool isAllowed(const QUrl& url) const {
        return std::find(allowed_.begin(), allowed_.end(), url) != allowed_.end();
    }

    // A load that ends is reported only if we reported its start: refused navigations (message
    // URLs, other applications' schemes) outside a load leave no trace with the delegate.
    bool finishes(const QUrl& url) {
        if (!started_ || (url != currentUrl_ && !isAllowed(url))) {
            return false;
        }
        endLoad();
        return true;
    }

    void endLoad() {
        started_ = false;
        allowed_.clear();
    }

    void fitPage() {
        if (page_ == nullptr) {
            return;
        }
        double zoom = 1.0;
        // The engine gives the page's size in device pixels, zoomed: twice the page's own on a
        // screen of scale 2.
        const double contentWidth = page_->contentsSize().width() / page_->zoomFactor() /
                                    std::max(1.0, view_->devicePixelRatioF());
        if (view_->scalesPageToFit() && contentWidth > view_->width() && view_->width() > 0) {
            zoom = std::max(0.25, view_->width() / contentWidth);
        }
        if (!qFuzzyCompare(zoom, page_->zoomFactor())) {
            page_->setZoomFactor(zoom);
        }
    }

    WebView* view_;
    EnginePage* page_ = nullptr;
    QPointer<QWebEngineView> engineView_;
    QPointer<FocusRing> focusRing_;
    std::deque<std::pair<QByteArray, UrlRequest>> pendingHtml_;
    std::deque<UrlRequest> pendingRequests_;
    std::deque<QUrl> preApproved_;
    std::deque<QUrl> allowed_;
    QUrl currentUrl_;
    bool started_ = false;
    bool forgetBlank_ = false;
    bool blankAsked_ = false;
    bool blankPending_ = false;
    std::function<void()> afterBlank_;
};

EnginePage::EnginePage(QWebEngineProfile* profile, EngineBackend* backend)
    : QWebEnginePage(profile, backend),
      referers(new RefererInterceptor(this)),
      views(backend != nullptr ? 1 : 0),
      backend_(backend) {
    setUrlRequestInterceptor(referers);
}

bool EnginePage::acceptNavigationRequest(const QUrl& url, NavigationType type, bool isMainFrame) {
    if (backend_ == nullptr) {
        return isMainFrame && url == QUrl(QStringLiteral("about:blank"));
    }
    return backend_->acceptNavigation(url, type, isMainFrame);
}

void EnginePage::javaScriptConsoleMessage(JavaScriptConsoleMessageLevel level,
                                          const QString& message, int lineNumber,
                                          const QString& sourceID) {
    const QtMsgType type = level == ErrorMessageLevel     ? QtCriticalMsg
                           : level == WarningMessageLevel ? QtWarningMsg
                                                          : QtInfoMsg;
    if (!lcPageConsole().isEnabled(type)) {
        return;
    }
    QString line;
    switch (console_.take()) {
        case LogRateLimiter::kWrite:
            line = QStringLiteral("%1:%2: %3")
                       .arg(escapeForLog(sourceID, 200))
                       .arg(lineNumber)
                       .arg(escapeForLog(message));
            break;
        case LogRateLimiter::kDropFirst:
            line = QStringLiteral("too many console lines: the page's console is cut off for now");
            break;
        case LogRateLimiter::kDrop:
            return;
    }
    if (type == QtCriticalMsg) {
        qCCritical(lcPageConsole).noquote() << line;
    } else if (type == QtWarningMsg) {
        qCWarning(lcPageConsole).noquote() << line;
    } else {
        qCInfo(lcPageConsole).noquote() << line;
    }
}

void EnginePage::javaScriptAlert(const QUrl& /*securityOrigin*/, const QString& msg) {
    logDebug(QStringLiteral("<Sorvel> Page alert not shown: %1").arg(msg));
}

bool EnginePage::javaScriptConfirm(const QUrl& /*securityOrigin*/, const QString& msg) {
    // The engine asks "leave this page?" here for a page's beforeunload handler, in its own
    // words: the answer is always yes, or a page could refuse every later load of its view and
    // every close of its screen.
    if (msg == QCoreApplication::translate("QWebEnginePage",
                                           "Are you sure you want to leave this page? Changes "
                                           "that you made may not be saved.")) {
        logDebug(QStringLiteral("<Sorvel> A page's beforeunload handler is passed over"));
        return true;
    }
    logDebug(QStringLiteral("<Sorvel> Page confirmation refused: %1").arg(msg));
    return false;
}

bool EnginePage::javaScriptPrompt(const QUrl& /*securityOrigin*/, const QString& msg,
                                  const QString& /*defaultValue*/, QString* /*result*/) {
    logDebug(QStringLiteral("<Sorvel> Page prompt not answered: %1").arg(msg));
    return false;
}

// The profile of every page. Unknown URL schemes reach the navigation check.
QWebEngineProfile* profile() {
    static QPointer<QWebEngineProfile> shared;
    if (shared == nullptr) {
        shared = new QWebEngineProfile(qApp);  // no storage name: off the record
        shared->settings()->setUnknownUrlSchemePolicy(
            QWebEngineSettings::AllowAllUnknownUrlSchemes);
        // Nothing shows a page's icon: asking each server for one is a request it never wanted.
        shared->settings()->setAttribute(QWebEngineSettings::AutoLoadIconsForPage, false);
        auto* handler = new MessageSchemeHandler(shared);
        shared->installUrlSchemeHandler(kMessageUrlScheme.toLatin1(), handler);
        shared->installUrlSchemeHandler(kLegacyMessageUrlScheme.toLatin1(), handler);
        shareCookies(shared->cookieStore(), HttpCookieStorage::sharedStorage());
        keepMessageHostsExact(shared);
    }
    return shared;
}

// Registered schemes reach the page's navigation check like any link; the engine never loads
// them itself. Path syntax keeps "qmsg://..." URLs exactly as the page wrote them. The engine
// takes registrations until its first profile is made.
void registerSchemes() {
    for (const QString& name : {kMessageUrlScheme, kLegacyMessageUrlScheme}) {
        QWebEngineUrlScheme scheme(name.toLatin1());
        scheme.setSyntax(QWebEngineUrlScheme::Syntax::Path);
        QWebEngineUrlScheme::registerScheme(scheme);
    }
}

std::unique_ptr<WebViewBackend> makeBackend(WebView* view) {
    return std::make_unique<EngineBackend>(view);
}

}  // namespace

}  // namespace platform

extern "C" __attribute__((visibility("default"))) const platform::WebEngine* sorvel_web_engine() {
    static const platform::WebEngine engine = [] {
        platform::registerSchemes();
        return platform::WebEngine{&platform::makeBackend};
    }();
    return &engine;
}
