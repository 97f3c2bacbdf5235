// sorvel-adserver: runs the reference ad server until interrupted.
#include "adserver/adserver.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QTextStream>
#include <QTimer>

#include <csignal>

namespace {
volatile std::sig_atomic_t stopRequested = 0;
}

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("sorvel-adserver"));
    QCoreApplication::setApplicationVersion(QStringLiteral(SORVEL_ADSERVER_VERSION));

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Reference ad server for the Sorvel ad client: support script, ads, "
                       "tracking, landing pages and a request log."));
    const QCommandLineOption help({QStringLiteral("h"), QStringLiteral("help")},
                                  QStringLiteral("Show this help."));
    const QCommandLineOption version({QStringLiteral("v"), QStringLiteral("version")},
                                     QStringLiteral("Show the version."));
    const QCommandLineOption port(
        {QStringLiteral("p"), QStringLiteral("port")},
        QStringLiteral("Port to listen on, 0 for any free one (default: 8080)."),
        QStringLiteral("N"), QStringLiteral("8080"));
    const QCommandLineOption host(QStringLiteral("host"),
                                  QStringLiteral("Address to listen on (default: 127.0.0.1)."),
                                  QStringLiteral("IP"), QStringLiteral("127.0.0.1"));
    const QCommandLineOption inventory(
        QStringLiteral("inventory"),
        QStringLiteral("Inventory JSON file (default: the built-in demo inventory)."),
        QStringLiteral("FILE"));
    const QCommandLineOption log(QStringLiteral("log"),
                                 QStringLiteral("Append every request as a JSON line to FILE."),
                                 QStringLiteral("FILE"));
    const QCommandLineOption key(
        QStringLiteral("location-key"),
        QStringLiteral("Location key, 32 hex digits (default: SORVEL_LOCATION_KEY or the "
                       "compiled-in key)."),
        QStringLiteral("HEX"));
    const QCommandLineOption quiet({QStringLiteral("q"), QStringLiteral("quiet")},
                                   QStringLiteral("Do not print each request."));
    const QCommandLineOption requestFaults(
        QStringLiteral("allow-request-faults"),
        QStringLiteral("Let requests switch faults on themselves (\"zf_...\" parameters), for "
                       "test runs only: any page that reaches the server could then use them."));
    const QCommandLineOption logToken(
        QStringLiteral("log-token"),
        QStringLiteral("Serve /log to peers off loopback that present TOKEN (as \"Authorization: "
                       "Bearer TOKEN\" or token=TOKEN)."),
        QStringLiteral("TOKEN"));
    const QCommandLineOption serverName(
        QStringLiteral("server-name"),
        QStringLiteral("Also answer requests for this host name (NAME or NAME:PORT); may be "
                       "repeated. Other names than the address and localhost get 400."),
        QStringLiteral("NAME"));
    parser.addOptions({port, host, inventory, log, key, quiet, requestFaults, logToken, serverName,
                       version, help});

    QTextStream err(stderr);
    QTextStream out(stdout);
    if (!parser.parse(QCoreApplication::arguments())) {
        err << "sorvel-adserver: " << parser.errorText() << " (try --help)" << Qt::endl;
        return 2;
    }
    if (parser.isSet(help)) {
        // The usage line names the program, not the path it was started by.
        QString text = parser.helpText();
        text.replace(QRegularExpression(QStringLiteral("^Usage: \\S+")),
                     QStringLiteral("Usage: sorvel-adserver"));
        out << text;
        return 0;
    }
    if (parser.isSet(version)) {
        out << "sorvel-adserver " << QCoreApplication::applicationVersion() << Qt::endl;
        return 0;
    }
    if (!parser.positionalArguments().isEmpty()) {
        err << "sorvel-adserver: unexpected argument \"" << parser.positionalArguments().first()
            << "\" (try --help)" << Qt::endl;
        return 2;
    }
    bool portOk = false;
    const uint portNumber = parser.value(port).toUInt(&portOk);
    if (!portOk || portNumber > 65535) {
        err << "sorvel-adserver: bad port " << parser.value(port) << Qt::endl;
        return 2;
    }

    adserver::AdServer server;
    if (parser.isSet(key) && !server.setLocationKeyHex(parser.value(key))) {
        err << "sorvel-adserver: the location key must be 32 hexadecimal digits" << Qt::endl;
        return 2;
    }
    if (parser.isSet(log) && !server.setLogFile(parser.value(log))) {
        err << "sorvel-adserver: " << server.errorString() << Qt::endl;
        return 1;
    }
    if (!server.setServerNames(parser.values(serverName))) {
        err << "sorvel-adserver: " << server.errorString() << Qt::endl;
        return 2;
    }
    server.setRequestFaultsEnabled(parser.isSet(requestFaults));
    server.setLogToken(parser.value(logToken));
    if (!server.start(quint16(portNumber), parser.value(host), parser.value(inventory))) {
        err << "sorvel-adserver: " << server.errorString() << Qt::endl;
        return 1;
    }
    if (!parser.isSet(quiet)) {
        QObject::connect(&server, &adserver::AdServer::requestLogged, &app,
                         [&out](const QJsonObject& entry) {
                             out << QJsonDocument(entry).toJson(QJsonDocument::Compact) << Qt::endl;
                         });
    }
    out << "Listening on " << server.url().toString() << Qt::endl;
    out << "Support script: " << server.scriptUrl().toString() << Qt::endl;
    out << "Default ad unit: " << server.defaultAdUnitID() << Qt::endl;
    out << "Host names: " << server.serverNames().join(QStringLiteral(", ")) << Qt::endl;
    if (server.requestFaultsEnabled()) {
        out << "Requests may switch faults on (--allow-request-faults)" << Qt::endl;
    }

    // Ctrl-C and SIGTERM end the event loop so the log file is flushed and closed; the handler
    // only sets a flag, which a timer polls.
    for (int signalNumber : {SIGINT, SIGTERM}) {
        std::signal(signalNumber, [](int) { stopRequested = 1; });
    }
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, &app, [] {
        if (stopRequested) {
            QCoreApplication::quit();
        }
    });
    poll.start(200);
    return app.exec();
}
