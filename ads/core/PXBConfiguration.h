/// \file
/// PXBConfiguration, the ad client's settings.
#pragma once

#include "platform/export.h"

#include <QString>
#include <QStringList>
#include <QUrl>

/// The ad client's settings: one process-wide set, made on the main thread before the first
/// banner loads. They say where it finds its outside parties (the ad server's root, which is the
/// hidden page's base URL and the host whose reachability is watched, and the script host that
/// serves "/zelm/sdk-core-v40.js"), refresh, test mode, what an ad may hand to the desktop, and its
/// time limits. The application sets the roots; otherwise SORVEL_AD_SERVER and SORVEL_SCRIPT_HOST
/// are read on first use. The script host defaults to the ad server.
class SORVEL_EXPORT PXBConfiguration {
  public:
    /// The path of the ad client's support script on the script host.
    static inline const QString kScriptPath = QStringLiteral("/zelm/sdk-core-v40.js");

    /// Call first thing in main(), before the QApplication exists: readies the application for
    /// the web engine, which the client loads when it first shows a page (pages drawn in
    /// software, so that the ad's full screens stack over the banner as widgets do). Later calls
    /// do nothing.
    static void prepareApplication();

    /// The ad server's root, e.g. "http://127.0.0.1:8080/"; empty when not configured.
    static QUrl adServerURL();
    static void setAdServerURL(const QUrl& url);  ///< Sets adServerURL().
    /// The script host's root; the ad server's when not set.
    static QUrl scriptHostURL();
    static void setScriptHostURL(const QUrl& url);  ///< Sets scriptHostURL().

    /// The script host's root with the script's path.
    static QUrl scriptURL();
    /// "host" or "host:port" of the ad server, as the reachability check and the request need it.
    static QString adServerHost();
    /// Whether the ad server's host is on the local network by its name or address (a server on
    /// this machine, say): then trackers may be there too.
    static bool adServerIsOnLocalNetwork();

    /// Schemes besides "http", "https", "tel" and "sms" that an ad may hand to the desktop after
    /// a press (an application's own store or launcher scheme, say); none by default. Compared
    /// without regard to case.
    static QStringList handOverSchemes();
    static void setHandOverSchemes(const QStringList& schemes);  ///< Sets handOverSchemes().
    /// Whether `url` may go to the desktop: its scheme is "http", "https", "tel", "sms" or one of
    /// handOverSchemes().
    static bool mayHandOver(const QUrl& url);

    /// Whether the ad refreshes by itself at the interval the ad server gives (on by default).
    /// Off, an ad stays until the application loads another request.
    static bool refreshesAutomatically();
    static void setRefreshesAutomatically(bool refreshes);  ///< Sets refreshesAutomatically().
    /// Test mode asks the ad server for test ads, which it neither bills nor counts, with every
    /// request ("adtest" set to "on"); off by default. For development builds and automated runs.
    static bool isTestMode();
    static void setTestMode(bool testMode);  ///< Sets isTestMode().

    /// Opens the inspector: a window that shows, live, what the ad client does for each banner
    /// (its states, request, ad URL, response, trackers, refresh and errors) and every action it
    /// refused, with the reason. For integrators; SORVEL_INSPECTOR=1 opens it with the first ad.
    static void showInspector();

    /// How long the hidden page and the ad's page may take to load before the request fails as
    /// timed out (10 s).
    static double loadTimeoutSeconds();
    static void setLoadTimeoutSeconds(double seconds);  ///< Sets loadTimeoutSeconds().
    /// How long after a request that failed for want of the network the ad is first tried again
    /// (5 s); each further try waits twice as long as the one before, 5 minutes at most.
    static double firstRetrySeconds();
    static void setFirstRetrySeconds(double seconds);  ///< Sets firstRetrySeconds().

    /// A root as given on a command line: "host:port" gets "https://" ("http://" for a loopback
    /// host), a path is dropped to "/". An unusable text gives an empty URL.
    static QUrl rootFromText(const QString& text);
};
