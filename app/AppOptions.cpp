#include "app/AppOptions.h"

#include "ads/core/PXBConfiguration.h"

#include <QCommandLineParser>
#include <QRegularExpression>

#include <cmath>

namespace {

struct Parser {
    QCommandLineParser parser;
    QCommandLineOption adServer{QStringLiteral("ad-server"),
                                QStringLiteral("The ad server's root (host[:port] or URL)."),
                                QStringLiteral("URL")};
    QCommandLineOption scriptHost{
        QStringLiteral("script-host"),
        QStringLiteral("Where /zelm/sdk-core-v40.js is fetched (default: the ad server)."),
        QStringLiteral("URL")};
    QCommandLineOption screenshot{
        QStringLiteral("screenshot"),
        QStringLiteral("Write a PNG of the window once the first ad is shown (or has failed) or "
                       "the delay has passed, then quit."),
        QStringLiteral("PATH")};
    QCommandLineOption screenshotDelay{QStringLiteral("screenshot-delay"),
                                       QStringLiteral("Longest wait for the screenshot (5)."),
                                       QStringLiteral("SECONDS")};
    QCommandLineOption quitAfter{QStringLiteral("quit-after"),
                                 QStringLiteral("Quit after this many seconds."),
                                 QStringLiteral("SECONDS")};
    QCommandLineOption verbose{QStringLiteral("verbose"),
                               QStringLiteral("Show the ad client's debug log.")};
    QCommandLineOption help{{QStringLiteral("h"), QStringLiteral("help")},
                            QStringLiteral("Show this help.")};

    Parser() {
        parser.setApplicationDescription(QStringLiteral(
            "A sound board with a banner ad. Keys: 1-9, Q-Y and A-H play the pads, M the music "
            "track,\nN and B open the extra pages, Backspace goes back, Esc stops every sound."));
        parser.addOptions(
            {adServer, scriptHost, screenshot, screenshotDelay, quitAfter, verbose, help});
    }
};

bool readSeconds(const QString& text, const QString& option, double* seconds, QString* error) {
    bool ok = false;
    const double value = text.toDouble(&ok);
    if (!ok || value < 0 || !std::isfinite(value)) {
        *error = QStringLiteral("--%1 wants a number of seconds, not \"%2\"").arg(option, text);
        return false;
    }
    *seconds = value;
    return true;
}

bool readRoot(const QString& text, const QString& source, QUrl* url, QString* error) {
    if (text.isEmpty()) {
        return true;
    }
    *url = PXBConfiguration::rootFromText(text);
    if (url->isEmpty()) {
        *error = QStringLiteral("%1 is not a usable http address: \"%2\"").arg(source, text);
        return false;
    }
    return true;
}

}  // namespace

std::optional<AppOptions> AppOptions::parse(const QStringList& arguments, QString* error) {
    Parser p;
    if (!p.parser.parse(arguments)) {
        *error = p.parser.errorText();
        return std::nullopt;
    }
    if (!p.parser.positionalArguments().isEmpty()) {
        *error = QStringLiteral("unexpected argument \"%1\"")
                     .arg(p.parser.positionalArguments().first());
        return std::nullopt;
    }
    AppOptions options;
    options.help = p.parser.isSet(p.help);
    options.verbose = p.parser.isSet(p.verbose);
    options.screenshotPath = p.parser.value(p.screenshot);
    if (p.parser.isSet(p.screenshot) && options.screenshotPath.isEmpty()) {
        *error = QStringLiteral("--screenshot wants a file name");
        return std::nullopt;
    }
    if (p.parser.isSet(p.screenshotDelay) &&
        !readSeconds(p.parser.value(p.screenshotDelay), QStringLiteral("screenshot-delay"),
                     &options.screenshotDelay, error)) {
        return std::nullopt;
    }
    if (p.parser.isSet(p.quitAfter) &&
        !readSeconds(p.parser.value(p.quitAfter), QStringLiteral("quit-after"), &options.quitAfter,
                     error)) {
        return std::nullopt;
    }
    // The command line wins over the environment.
    const auto pick = [&](const QCommandLineOption& option, const char* variable) {
        return p.parser.isSet(option)
                   ? std::pair(p.parser.value(option), QStringLiteral("--") + option.names()[0])
                   : std::pair(qEnvironmentVariable(variable), QString::fromLatin1(variable));
    };
    const auto [server, serverSource] = pick(p.adServer, "SORVEL_AD_SERVER");
    const auto [script, scriptSource] = pick(p.scriptHost, "SORVEL_SCRIPT_HOST");
    if (!readRoot(server, serverSource, &options.adServer, error) ||
        !readRoot(script, scriptSource, &options.scriptHost, error)) {
        return std::nullopt;
    }
    return options;
}

QString AppOptions::helpText() {
    Parser p;
    // The parser takes the name from the application object, which does not exist yet.
    QString text = p.parser.helpText();
    text.replace(QRegularExpression(QStringLiteral("^Usage: \\S+")),
                 QStringLiteral("Usage: brindle-sounds"));
    return text;
}
