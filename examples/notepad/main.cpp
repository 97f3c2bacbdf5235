// A plain-text editor with a banner ad in its status bar: an ordinary Qt Widgets application
// showing ads from the installed Sorvel library. The ad's full screens (a landing page, a web
// app) cover the main window; Esc closes them.
//
//   sorvel-notepad [--ad-server URL] [--test-mode] [--inspector] [--screenshot FILE]
//                  [--exit-after-first-ad]
#include <SorvelAds>

#include <QApplication>
#include <QCommandLineParser>
#include <QDir>
#include <QFileInfo>
#include <QMainWindow>
#include <QPlainTextEdit>
#include <QStatusBar>
#include <QTimer>

#include <cstdio>

int main(int argc, char** argv) {
    // Before the QApplication: the web engine must know the ad's message schemes.
    PXBConfiguration::prepareApplication();
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("sorvel-notepad"));

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("A text editor with a banner ad."));
    parser.addHelpOption();
    const QCommandLineOption adServer(
        QStringLiteral("ad-server"),
        QStringLiteral("The ad server's root (else SORVEL_AD_SERVER)."), QStringLiteral("url"));
    const QCommandLineOption testMode(QStringLiteral("test-mode"),
                                      QStringLiteral("Ask the ad server for test ads."));
    const QCommandLineOption screenshot(
        QStringLiteral("screenshot"),
        QStringLiteral("Save the window to a PNG once the first ad shows, then quit."),
        QStringLiteral("file"));
    const QCommandLineOption inspector(QStringLiteral("inspector"),
                                       QStringLiteral("Open the ad client's inspector."));
    const QCommandLineOption exitAfterFirstAd(
        QStringLiteral("exit-after-first-ad"),
        QStringLiteral("Quit with 0 once the first ad shows (1 if none shows in a minute)."));
    parser.addOptions({adServer, testMode, screenshot, inspector, exitAfterFirstAd});
    parser.process(app);

    if (parser.isSet(adServer)) {
        const QUrl root = PXBConfiguration::rootFromText(parser.value(adServer));
        if (root.isEmpty()) {
            std::fprintf(stderr, "sorvel-notepad: not an ad server address: %s\n",
                         qPrintable(parser.value(adServer)));
            return 2;
        }
        PXBConfiguration::setAdServerURL(root);
    }
    PXBConfiguration::setTestMode(parser.isSet(testMode));
    if (parser.isSet(inspector)) {
        PXBConfiguration::showInspector();
    }

    QMainWindow window;
    window.setWindowTitle(QStringLiteral("Notepad"));
    auto* editor = new QPlainTextEdit;
    editor->setPlaceholderText(QStringLiteral("Write here…"));
    window.setCentralWidget(editor);

    // The banner is an ordinary widget: here, at its standard size in the status bar. Without a
    // root view controller the ad's full screens cover the window the banner is in.
    auto* banner = new PXBBannerView;
    banner->setFixedSize(320, 50);
    banner->setAdUnitID(QStringLiteral("0a1b2c3d4e5f601"));  // the reference server's demo ads
    window.statusBar()->addPermanentWidget(banner);

    QObject::connect(banner, &PXBBannerView::adReceived, &window, [&] {
        window.statusBar()->showMessage(QStringLiteral("Ad shown"), 3000);
        if (parser.isSet(exitAfterFirstAd) && !parser.isSet(screenshot)) {
            std::printf("first ad shown\n");
            QCoreApplication::exit(0);
        }
        if (parser.isSet(screenshot)) {
            // The page is shown; give the engine a moment to paint it.
            QTimer::singleShot(1000, &window, [&] {
                const QString path = parser.value(screenshot);
                bool saved = window.grab().save(path);
                // Other windows (the inspector) beside it, named after their titles.
                const QFileInfo file(path);
                for (QWidget* other : QApplication::topLevelWidgets()) {
                    if (other != &window && other->isVisible()) {
                        const QString title = other->windowTitle().toLower().replace(' ', '-');
                        saved = other->grab().save(file.dir().filePath(file.completeBaseName() +
                                                                       '-' + title + ".png")) &&
                                saved;
                    }
                }
                QCoreApplication::exit(saved ? 0 : 1);
            });
        }
    });
    QObject::connect(banner, &PXBBannerView::adFailed, &window, [&](const platform::Error& error) {
        window.statusBar()->showMessage(QStringLiteral("No ad: ") + error.localizedDescription(),
                                        3000);
    });
    if (parser.isSet(exitAfterFirstAd) || parser.isSet(screenshot)) {
        QTimer::singleShot(60000, &app, [] {
            std::fprintf(stderr, "sorvel-notepad: no ad shown within a minute\n");
            QCoreApplication::exit(1);
        });
    }

    window.resize(640, 480);
    window.show();
    banner->loadRequest(PXBRequest::request().get());
    return QApplication::exec();
}
