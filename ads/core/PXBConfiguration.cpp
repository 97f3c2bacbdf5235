#include "ads/core/PXBConfiguration.h"

namespace {

struct Roots {
    bool adServerSet = false;
    bool scriptHostSet = false;
    QUrl adServer;
    QUrl scriptHost;
};

Roots& roots() {
    static Roots r;
    return r;
}

}  // namespace

QUrl PXBConfiguration::rootFromText(const QString& text) {
    QString trimmed = text.trimmed();
    if (trimmed.isEmpty()) {
        return {};
    }
    if (!trimmed.contains(QLatin1String("://"))) {
        trimmed.prepend(QLatin1String("http://"));
    }
    QUrl url(trimmed, QUrl::StrictMode);
    if (!url.isValid() || url.host().isEmpty() ||
        (url.scheme() != QLatin1String("http") && url.scheme() != QLatin1String("https"))) {
        return {};
    }
    url.setPath(QStringLiteral("/"));
    url.setQuery(QString());
    url.setFragment(QString());
    return url;
}

QUrl PXBConfiguration::adServerURL() {
    Roots& r = roots();
    if (!r.adServerSet) {
        r.adServerSet = true;
        r.adServer = rootFromText(qEnvironmentVariable("SORVEL_AD_SERVER"));
    }
    return r.adServer;
}

void PXBConfiguration::setAdServerURL(const QUrl& url) {
    roots().adServerSet = true;
    roots().adServer = url;
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
