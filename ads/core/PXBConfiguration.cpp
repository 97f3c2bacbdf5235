#include "ads/core/PXBConfiguration.h"

#include "ads/device/PXBNetworkChecker.h"
#include "ads/inspect/PXBInspector.h"
#include "platform/netaddress.h"
#include "platform/ui/application.h"

#include <QHostAddress>

namespace {

struct Roots {
    bool adServerSet = false;
    bool scriptHostSet = false;
    QUrl adServer;
    QUrl scriptHost;
    QStringList handOverSchemes;
    double loadTimeoutSeconds = 10;
    double firstRetrySeconds = 5;
    bool refreshes = true;
    bool testMode = false;
};

Roots& roots() {
    static Roots r;
    return r;
}

}  // namespace

void PXBConfiguration::showInspector() {
    PXBInspector::showInspector();
}

void PXBConfiguration::prepareApplication() {
    platform::prepareApplication();
}

QUrl PXBConfiguration::rootFromText(const QString& text) {
    QString trimmed = text.trimmed();
    if (trimmed.isEmpty()) {
        return {};
    }
    const bool bare = !trimmed.contains(QLatin1String("://"));
    if (bare) {
        trimmed.prepend(QLatin1String("http://"));
    }
    QUrl url(trimmed, QUrl::StrictMode);
    // A server named without a scheme is reached privately; plain http only where the traffic
    // never leaves the machine (the built-in server) or where the address asks for it.
    if (bare && !QHostAddress(url.host()).isLoopback() &&
        url.host().compare(QLatin1String("localhost"), Qt::CaseInsensitive) != 0) {
        url.setScheme(QStringLiteral("https"));
    }
    if (!url.isValid() || url.host().isEmpty() ||
        (url.scheme() != QLatin1String("http") && url.scheme() != QLatin1String("https"))) {
        return {};
    }
    url.setPath(QStringLiteral("/"));
    url.setQuery(QString());
    url.setFragment(QString());
    return url;
}

namespace {

// The network checker watches the way to the ad server, whichever way the server was named.
void setAdServer(Roots& r, const QUrl& url) {
    r.adServerSet = true;
    r.adServer = url;
    if (!url.host().isEmpty()) {
        PXBNetworkChecker::setWebHostName(url.host());
    }
}

}  // namespace

QUrl PXBConfiguration::adServerURL() {
    Roots& r = roots();
    if (!r.adServerSet) {
        setAdServer(r, rootFromText(qEnvironmentVariable("SORVEL_AD_SERVER")));
    }
    return r.adServer;
}

void PXBConfiguration::setAdServerURL(const QUrl& url) {
    setAdServer(roots(), url);
}

QUrl PXBConfiguration::scriptHostURL() {
    Roots& r = roots();
    if (!r.scriptHostSet) {
        r.scriptHostSet = true;
        r.scriptHost = rootFromText(qEnvironmentVariable("SORVEL_SCRIPT_HOST"));
    }
    return r.scriptHost.isEmpty() ? adServerURL() : r.scriptHost;
}

void PXBConfiguration::setScriptHostURL(const QUrl& url) {
    roots().scriptHostSet = true;
    roots().scriptHost = url;
}

bool PXBConfiguration::refreshesAutomatically() {
    return roots().refreshes;
}

void PXBConfiguration::setRefreshesAutomatically(bool refreshes) {
    roots().refreshes = refreshes;
}

bool PXBConfiguration::isTestMode() {
    return roots().testMode;
}

void PXBConfiguration::setTestMode(bool testMode) {
    roots().testMode = testMode;
}

QUrl PXBConfiguration::scriptURL() {
    const QUrl root = scriptHostURL();
    if (root.isEmpty()) {
        return {};
    }
    QUrl url = root;
    url.setPath(kScriptPath);
    return url;
}

QString PXBConfiguration::adServerHost() {
    const QUrl root = adServerURL();
    if (root.isEmpty()) {
        return {};
    }
    return root.port() < 0 ? root.host()
                           : QStringLiteral("%1:%2").arg(root.host()).arg(root.port());
}

bool PXBConfiguration::adServerIsOnLocalNetwork() {
    return platform::isLocalNetworkHost(adServerURL().host());
}

QStringList PXBConfiguration::handOverSchemes() {
    return roots().handOverSchemes;
}

void PXBConfiguration::setHandOverSchemes(const QStringList& schemes) {
    roots().handOverSchemes.clear();
    for (const QString& scheme : schemes) {
        roots().handOverSchemes.append(scheme.trimmed().toLower());
    }
}

bool PXBConfiguration::mayHandOver(const QUrl& url) {
    // Only what opens visibly in a program the user knows: a web page, a call, a text. Nothing
    // stands between an ad and the desktop's opener here, which would hand a file:, smb: or
    // ssh: URL, or a launcher file on a share, to whatever program claims it.
    static const QStringList safe{QStringLiteral("http"), QStringLiteral("https"),
                                  QStringLiteral("tel"), QStringLiteral("sms")};
    const QString scheme = url.scheme().toLower();
    return url.isValid() && !scheme.isEmpty() &&
           (safe.contains(scheme) || roots().handOverSchemes.contains(scheme));
}

double PXBConfiguration::loadTimeoutSeconds() {
    return roots().loadTimeoutSeconds;
}

void PXBConfiguration::setLoadTimeoutSeconds(double seconds) {
    roots().loadTimeoutSeconds = seconds;
}

double PXBConfiguration::firstRetrySeconds() {
    return roots().firstRetrySeconds;
}

void PXBConfiguration::setFirstRetrySeconds(double seconds) {
    roots().firstRetrySeconds = seconds;
}
