// Reads and writes each JSON document with PXB_RQJSON and with QJsonDocument (through QVariant,
// the comparable object graph) and prints MB/s of document text for each, and our speed as a
// multiple of Qt's. Usage: bench_json [directory] (or SORVEL_JSON_BENCH_DIR); the default is the
// shared bench-data folder next to the source tree.
#include "ads/net/PXB_RQJSON.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonDocument>

#include <algorithm>
#include <cstdio>
#include <functional>

namespace {

// Best of several runs (the machine is shared; the minimum is the least disturbed), repeated
// until about a second has been spent, at least five times.
double bestSeconds(const std::function<void()>& run) {
    double best = 1e30;
    QElapsedTimer total;
    total.start();
    for (int i = 0; i < 5 || total.elapsed() < 1000; ++i) {
        QElapsedTimer timer;
        timer.start();
        run();
        best = std::min(best, static_cast<double>(timer.nsecsElapsed()) / 1e9);
        if (i >= 200) {
            break;
        }
    }
    return best;
}

double megabytesPerSecond(qsizetype bytes, double seconds) {
    return static_cast<double>(bytes) / 1e6 / seconds;
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QString dirPath = QString::fromLocal8Bit(SORVEL_JSON_BENCH_DIR);
    if (qEnvironmentVariableIsSet("SORVEL_JSON_BENCH_DIR")) {
        dirPath = qEnvironmentVariable("SORVEL_JSON_BENCH_DIR");
    }
    if (argc > 1) {
        dirPath = QString::fromLocal8Bit(argv[1]);
    }
    const QDir dir(dirPath);
    const QStringList names = dir.entryList({QStringLiteral("*.json")}, QDir::Files, QDir::Name);
    if (names.isEmpty()) {
        std::fprintf(stderr, "no *.json documents in %s\n", qPrintable(dir.absolutePath()));
        return 1;
    }

    std::printf(
        "MB/s of document text (best of repeated runs); ratio = PXB_RQJSON / Qt.\n"
        "write: compact, from our own graph; write*: compact, from the graph Qt read (doubles);\n"
        "readable: our human-readable layout against Qt's indented one.\n");
    std::printf("%-18s %6s | %7s %7s %5s | %7s %7s %5s | %7s %5s | %8s %9s %5s\n", "document", "MB",
                "read", "Qt read", "ratio", "write", "Qt write", "ratio", "write*", "ratio",
                "readable", "Qt indent", "ratio");
    bool allFaster = true;
    for (const QString& name : names) {
        QFile file(dir.filePath(name));
        if (!file.open(QIODevice::ReadOnly)) {
            std::fprintf(stderr, "cannot read %s\n", qPrintable(file.fileName()));
            return 1;
        }
        const QByteArray text = file.readAll();

        PXB_RQJSON json;
        platform::Error error;
        const QVariant ours = json.objectWithUtf8(text, &error);
        const QVariant theirs = QJsonDocument::fromJson(text).toVariant();
        if (!ours.isValid() || !theirs.isValid()) {
            std::fprintf(stderr, "%s does not read: %s\n", qPrintable(name),
                         qPrintable(error.localizedDescription()));
            return 1;
        }

        // Reading includes building and destroying the graph on both sides; writing ends in
        // UTF-8 bytes on both sides.
        const double read = bestSeconds([&] {
            PXB_RQJSON reader;
            const QVariant value = reader.objectWithUtf8(text);
            Q_UNUSED(value);
        });
        const double qtRead = bestSeconds([&] {
            const QVariant value = QJsonDocument::fromJson(text).toVariant();
            Q_UNUSED(value);
        });
        const double write = bestSeconds([&] {
            PXB_RQJSON writer;
            const QByteArray out = writer.stringWithObject(ours).toUtf8();
            Q_UNUSED(out);
        });
        const double qtWrite = bestSeconds([&] {
            const QByteArray out =
                QJsonDocument::fromVariant(theirs).toJson(QJsonDocument::Compact);
            Q_UNUSED(out);
        });
        // Our writer on Qt's graph, where numbers are doubles to format rather than kept text.
        const double writeQtGraph = bestSeconds([&] {
            PXB_RQJSON writer;
            const QByteArray out = writer.stringWithObject(theirs).toUtf8();
            Q_UNUSED(out);
        });
        const double readable = bestSeconds([&] {
            PXB_RQJSON writer;
            writer.setHumanReadable(true);
            const QByteArray out = writer.stringWithObject(ours).toUtf8();
            Q_UNUSED(out);
        });
        const double qtIndented = bestSeconds([&] {
            const QByteArray out = QJsonDocument::fromVariant(theirs).toJson();
            Q_UNUSED(out);
        });

        const qsizetype n = text.size();
        std::printf(
            "%-18s %6.2f | %7.1f %7.1f %5.2f | %7.1f %7.1f %5.2f | %7.1f %5.2f | %8.1f %9.1f "
            "%5.2f\n",
            qPrintable(name), static_cast<double>(n) / 1e6, megabytesPerSecond(n, read),
            megabytesPerSecond(n, qtRead), qtRead / read, megabytesPerSecond(n, write),
            megabytesPerSecond(n, qtWrite), qtWrite / write, megabytesPerSecond(n, writeQtGraph),
            qtWrite / writeQtGraph, megabytesPerSecond(n, readable),
            megabytesPerSecond(n, qtIndented), qtIndented / readable);
        allFaster = allFaster && read <= qtRead && write <= qtWrite && writeQtGraph <= qtWrite &&
                    readable <= qtIndented;
    }
    std::printf("%s\n", allFaster ? "PXB_RQJSON is at least as fast as Qt on every document"
                                  : "PXB_RQJSON is slower than Qt somewhere");
    return 0;
}
