// The command line of brindle-sounds, with the environment variables that stand in for it.
#pragma once

#include <QString>
#include <QStringList>
#include <QUrl>

#include <optional>

struct AppOptions {
    QUrl adServer;           // --ad-server, else $SORVEL_AD_SERVER; empty: start the built-in one
    QUrl scriptHost;         // --script-host, else $SORVEL_SCRIPT_HOST; empty: the ad server
    QString screenshotPath;  // --screenshot: write a PNG of the window, then quit
    double screenshotDelay = 5.0;  // --screenshot-delay: at the latest after this many seconds
    double quitAfter = -1.0;       // --quit-after: quit after this many seconds (< 0: never)
    bool verbose = false;          // --verbose: the ad client's debug log
    bool inspector = false;        // --inspector: the ad client's inspector window
    bool pressAd = false;          // --press-ad: press the banner once its first ad is drawn
    bool newInstance = false;      // --new-instance: run beside a running one of the profile
    bool help = false;
    bool version = false;

    // Parses `arguments` (the first is the program). On a mistake returns nothing and says why
    // in `error`, in one line. Qt's own options (-platform, -style, --reverse, ...) are left to
    // the application object, which reads them from the same command line.
    static std::optional<AppOptions> parse(const QStringList& arguments, QString* error);
    static QString helpText();
    static QString versionText();

    bool startsBuiltInAdServer() const { return adServer.isEmpty() && scriptHost.isEmpty(); }
};
