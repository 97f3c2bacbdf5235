#include "app/AppOptions.h"

#include "ads/core/PXBConfiguration.h"

#include <QCommandLineParser>
#include <QRegularExpression>

#include <algorithm>
#include <cmath>
#include <iterator>

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
        QStringLiteral("Write a PNG of the window once the first ad is shown (with --press-ad:"
                       " once the screen the press opened has drawn its page), it has failed or "
                       "the delay has passed, then quit."),
        QStringLiteral("PATH")};
    QCommandLineOption screenshotDelay{QStringLiteral("screenshot-delay"),
                                       QStringLiteral("Longest wait for the screenshot (5)."),
                                       QStringLiteral("SECONDS")};
    QCommandLineOption quitAfter{QStringLiteral("quit-after"),
                                 QStringLiteral("Quit after this many seconds."),
                                 QStringLiteral("SECONDS")};
    QCommandLineOption pressAd{
        QStringLiteral("press-ad"),
        QStringLiteral("Press the banner's middle once the first ad is drawn, as a user would.")};
    QCommandLineOption newInstance{
        QStringLiteral("new-instance"),
        QStringLiteral("Start another window even if one runs for this profile (by default a "
                       "second start brings that one to the front).")};
    QCommandLineOption verbose{QStringLiteral("verbose"),
                               QStringLiteral("Show the ad client's debug log.")};
    QCommandLineOption inspector{
        QStringLiteral("inspector"),
        QStringLiteral("Open the ad client's inspector: what each banner does, live.")};
    QCommandLineOption help{{QStringLiteral("h"), QStringLiteral("help")},
                            QStringLiteral("Show this help.")};
    QCommandLineOption version{{QStringLiteral("v"), QStringLiteral("version")},
                               QStringLiteral("Show the version.")};

    Parser() {
        parser.setApplicationDescription(QStringLiteral(
            "A sound board with a banner ad. Keys: 1-9, Q-Y and A-H play the pads, M the music "
            "track,\nN and B open the extra pages, Backspace goes back one page, Esc closes the "
            "ad's\n"
            "screen on top or stops every sound.\n\n"
            "Without --ad-server or --script-host the program starts its own ad server on\n"
            "127.0.0.1 at a free port and shows that server's ads.\n\n"
            "Environment:\n"
            "  SORVEL_AD_SERVER    the ad server's root, when --ad-server is not given\n"
            "  SORVEL_SCRIPT_HOST  the script host, when --script-host is not given\n"
            "  SORVEL_INSPECTOR=1  as --inspector\n\n"
            "Qt's own options (-platform, -style, -reverse, ...) are accepted too."));
        parser.addOptions({adServer, scriptHost, screenshot, screenshotDelay, quitAfter, pressAd,
                           newInstance, verbose, inspector, version, help});
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

// An empty environment variable counts as unset; an empty option is a mistake, not a quiet
// fallback to the built-in server.
bool readRoot(const QString& text, const QString& source, bool given, QUrl* url, QString* error) {
    if (text.isEmpty() && !given) {
        return true;
    }
    *url = PXBConfiguration::rootFromText(text);
    if (url->isEmpty()) {
        *error = QStringLiteral("%1 is not a usable http address: \"%2\"").arg(source, text);
        return false;
    }
    return true;
}

// The options QGuiApplication and QApplication take from the command line themselves: whether
// each is followed by a value, and whether Qt also reads it as "name=value". One dash or two.
struct QtOption {
    const char* name;
    bool takesValue;
    bool joined = false;
};
constexpr QtOption kQtOptions[] = {
    {"platform", true},
    {"platformpluginpath", true},
    {"platformtheme", true},
    {"plugin", true},
    {"qwindowgeometry", true},
    {"qwindowicon", true},
    {"qwindowtitle", true},
    {"reverse", false},
    {"session", true},
    {"display", true},
    {"geometry", true},
    {"style", true, true},
    {"stylesheet", true, true},
    {"widgetcount", false},
    {"nograb", false},
    {"dograb", false},
    {"sync", false},
    {"qmljsdebugger", false, true},  // only as "=value"
    {"name", true},
    {"title", true},
    {"visual", true},
};

// `arguments` without Qt's own options (and their values).
QStringList withoutQtOptions(const QStringList& arguments) {
    QStringList rest;
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QString& argument = arguments[i];
        QStringView name(argument);
        if (i == 0 || !name.startsWith(u'-') || name == u"--") {
            rest << argument;
            continue;
        }
        name = name.mid(name.startsWith(u"--") ? 2 : 1);
        const qsizetype equals = name.indexOf(u'=');
        const bool hasValue = equals >= 0;
        name = name.left(hasValue ? equals : name.size());
        const auto* qt =
            std::find_if(std::begin(kQtOptions), std::end(kQtOptions), [&](const QtOption& o) {
                return name == QLatin1String(o.name) && (!hasValue || o.joined);
            });
        if (qt == std::end(kQtOptions)) {
            rest << argument;
        } else if (qt->takesValue && !hasValue) {
            ++i;  // its value
        }
    }
    return rest;
}

}  // namespace

std::optional<AppOptions> AppOptions::parse(const QStringList& arguments, QString* error) {
    Parser p;
    if (!p.parser.parse(withoutQtOptions(arguments))) {
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
    options.version = p.parser.isSet(p.version);
    options.verbose = p.parser.isSet(p.verbose);
    options.inspector = p.parser.isSet(p.inspector);
    options.pressAd = p.parser.isSet(p.pressAd);
    // A screenshot run is a one-off that must write its file, whatever else runs.
    options.newInstance = p.parser.isSet(p.newInstance) || p.parser.isSet(p.screenshot);
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
    const auto read = [&](const QCommandLineOption& option, const char* variable, QUrl* url) {
        const bool given = p.parser.isSet(option);
        return given ? readRoot(p.parser.value(option), QStringLiteral("--") + option.names()[0],
                                true, url, error)
                     : readRoot(qEnvironmentVariable(variable), QString::fromLatin1(variable),
                                false, url, error);
    };
    if (!read(p.adServer, "SORVEL_AD_SERVER", &options.adServer) ||
        !read(p.scriptHost, "SORVEL_SCRIPT_HOST", &options.scriptHost)) {
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

QString AppOptions::versionText() {
    return QStringLiteral("brindle-sounds " BRINDLE_SOUNDS_VERSION "\n");
}
