// Where the ad client finds its outside parties: the ad server's root (the hidden page's base
// URL and the host whose reachability is watched) and the script host that serves
// "/zelm/sdk-core-v40.js". The application sets them; otherwise SORVEL_AD_SERVER and
// SORVEL_SCRIPT_HOST are read on first use. The script host defaults to the ad server.
#pragma once

#include <QString>
#include <QStringList>
#include <QUrl>

class PXBConfiguration {
  public:
    static inline const QString kScriptPath = QStringLiteral("/zelm/sdk-core-v40.js");

    // The ad server's root, e.g. "http://127.0.0.1:8080/"; empty when not configured.
    static QUrl adServerURL();
    static void setAdServerURL(const QUrl& url);
    // The script host's root; the ad server's when not set.
    static QUrl scriptHostURL();
    static void setScriptHostURL(const QUrl& url);

    // The script host's root with the script's path.
    static QUrl scriptURL();
    // "host" or "host:port" of the ad server, as the reachability check and the request need it.
    static QString adServerHost();
    // Whether the ad server's host is on the local network by its name or address (a server on
    // this machine, say): then trackers may be there too.
    static bool adServerIsOnLocalNetwork();

    // Schemes besides "http", "https", "tel" and "sms" that an ad may hand to the desktop after
    // a press (an application's own store or launcher scheme, say); none by default. Compared
    // without regard to case.
    static QStringList handOverSchemes();
    static void setHandOverSchemes(const QStringList& schemes);
    // Whether `url` may go to the desktop: one of the schemes above.
    static bool mayHandOver(const QUrl& url);

    // How long the hidden page and the ad's page may take to load before the request fails as
    // timed out (10 s).
    static double loadTimeoutSeconds();
    static void setLoadTimeoutSeconds(double seconds);
    // How long after a request that failed for want of the network the ad is first tried again
    // (5 s); each further try waits twice as long as the one before, 5 minutes at most.
    static double firstRetrySeconds();
    static void setFirstRetrySeconds(double seconds);

    // A root as given on a command line: "host:port" gets "https://" ("http://" for a loopback
    // host), a path is dropped to "/". An unusable text gives an empty URL.
    static QUrl rootFromText(const QString& text);
};
