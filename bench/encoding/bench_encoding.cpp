// Throughput of the standard base 64 encoder against Qt's own base 64 conversion, on 1 MB and
// 64 KB buffers. Rates are megabytes of raw data per second; the ratio is ours over Qt's (above
// 1 means faster). Build in release mode; run with nothing else busy for stable figures.
#include "ads/device/HLXStringEncoding.h"

#include <QByteArray>
#include <QElapsedTimer>
#include <QRandomGenerator>

#include <cstdio>
#include <functional>

namespace {

// Best rate over several rounds; each round repeats the work for at least 0.2 s so that the
// timer's resolution does not matter.
double megabytesPerSecond(qsizetype bytes, const std::function<void()>& work) {
    double best = 0;
    for (int round = 0; round < 5; ++round) {
        QElapsedTimer timer;
        timer.start();
        qint64 iterations = 0;
        do {
            work();
            ++iterations;
        } while (timer.nsecsElapsed() < 200'000'000);
        const double seconds = static_cast<double>(timer.nsecsElapsed()) / 1e9;
        best = std::max(best, static_cast<double>(bytes) * iterations / seconds / 1e6);
    }
    return best;
}

qsizetype sink = 0;

void row(const char* operation, qsizetype size, double ours, double qt) {
    std::printf("| %-22s | %7lld KB | %10.0f | %10.0f | %5.2f |\n", operation,
                static_cast<long long>(size / 1024), ours, qt, ours / qt);
}

}  // namespace

int main() {
    const auto encoder = PXB_HLXStringEncoding::rfc4648Base64StringEncoding();
    std::printf("| %-22s | %10s | %10s | %10s | %5s |\n", "operation", "size", "ours MB/s",
                "Qt MB/s", "ratio");
    std::printf("|------------------------|------------|------------|------------|-------|\n");
    for (const qsizetype size : {qsizetype(1024 * 1024), qsizetype(64 * 1024)}) {
        QByteArray data(size, Qt::Uninitialized);
        QRandomGenerator rng(7);
        for (char& c : data) {
            c = static_cast<char>(rng.bounded(256));
        }
        const QByteArray qtText = data.toBase64();
        const QString ourText = encoder.encode(data);
        if (ourText != QString::fromLatin1(qtText) || encoder.decode(ourText) != data) {
            std::fprintf(stderr, "results differ from Qt's\n");
            return 1;
        }

        row("encode", size, megabytesPerSecond(size, [&] { sink += encoder.encode(data).size(); }),
            megabytesPerSecond(size, [&] { sink += data.toBase64().size(); }));
        // Ours yields a QString; this is what Qt costs for the same result.
        row("encode to QString", size,
            megabytesPerSecond(size, [&] { sink += encoder.encode(data).size(); }),
            megabytesPerSecond(size, [&] { sink += QString::fromLatin1(data.toBase64()).size(); }));
        row("decode", size,
            megabytesPerSecond(size, [&] { sink += encoder.decode(ourText)->size(); }),
            megabytesPerSecond(size, [&] { sink += QByteArray::fromBase64(qtText).size(); }));
    }
    std::printf("(checksum %lld)\n", static_cast<long long>(sink));
    return 0;
}
