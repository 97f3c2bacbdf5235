// Reads and writes each JSON document with PXB_RQJSON and with QJsonDocument (through QVariant,
// the comparable object graph) and prints one line per document and operation (bench/figure.h):
// the median MB/s of document text, Qt's as the baseline, and our speed as a multiple of Qt's,
// where the bar is to be at least as fast. Usage: bench_json [directory] (or
// SORVEL_JSON_BENCH_DIR); the default is the shared bench-data folder next to the source tree.
#include "ads/net/PXB_RQJSON.h"
#include "bench/figure.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonDocument>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

namespace {

// The speed of each of several runs, repeated until about a second has been spent, at least five
// times and at most 200.
std::vector<double> megabytesPerSecond(qsizetype bytes, const std::function<void()>& run) {
    std::vector<double> rates;
    QElapsedTimer total;
    total.start();
    for (int i = 0; i < 5 || total.elapsed() < 1000; ++i) {
        QElapsedTimer timer;
        timer.start();
        run();
        const double seconds = static_cast<double>(timer.nsecsElapsed()) / 1e9;
        rates.push_back(static_cast<double>(bytes) / 1e6 / seconds);
        if (i >= 200) {
            break;
        }
    }
    return rates;
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

    // write: compact, from our own graph; write*: compact, from the graph Qt read (numbers are
    // doubles there); readable: our human-readable layout against Qt's indented one.
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
        const std::vector<double> read = megabytesPerSecond(text.size(), [&] {
            PXB_RQJSON reader;
            const QVariant value = reader.objectWithUtf8(text);
            Q_UNUSED(value);
        });
        const std::vector<double> qtRead = megabytesPerSecond(text.size(), [&] {
            const QVariant value = QJsonDocument::fromJson(text).toVariant();
            Q_UNUSED(value);
        });
        const std::vector<double> write = megabytesPerSecond(text.size(), [&] {
            PXB_RQJSON writer;
            const QByteArray out = writer.stringWithObject(ours).toUtf8();
            Q_UNUSED(out);
        });
        const std::vector<double> qtWrite = megabytesPerSecond(text.size(), [&] {
            const QByteArray out =
                QJsonDocument::fromVariant(theirs).toJson(QJsonDocument::Compact);
            Q_UNUSED(out);
        });
        // Our writer on Qt's graph, where numbers are doubles to format rather than kept text.
        const std::vector<double> writeQtGraph = megabytesPerSecond(text.size(), [&] {
            PXB_RQJSON writer;
            const QByteArray out = writer.stringWithObject(theirs).toUtf8();
            Q_UNUSED(out);
        });
        const std::vector<double> readable = megabytesPerSecond(text.size(), [&] {
            PXB_RQJSON writer;
            writer.setHumanReadable(true);
            const QByteArray out = writer.stringWithObject(ours).toUtf8();
            Q_UNUSED(out);
        });
        const std::vector<double> qtIndented = megabytesPerSecond(text.size(), [&] {
            const QByteArray out = QJsonDocument::fromVariant(theirs).toJson();
            Q_UNUSED(out);
        });

        const std::string doc = name.toStdString();
        const auto figure = [&](const char* operation, const std::vector<double>& speed,
                                const std::vector<double>& qtSpeed) {
            const bench::Figure f = bench::higherIsBetter(
                "json " + std::string(operation) + " " + doc + " (MB/s; baseline Qt)", speed,
                qtSpeed, 1.0);
            bench::print(f);
            allFaster = allFaster && f.pass;
        };
        figure("read", read, qtRead);
        figure("write", write, qtWrite);
        figure("write*", writeQtGraph, qtWrite);
        figure("readable", readable, qtIndented);
    }
    std::fprintf(stderr, "%s\n",
                 allFaster ? "PXB_RQJSON is at least as fast as Qt on every document"
                           : "PXB_RQJSON is slower than Qt somewhere");
    return 0;
}
