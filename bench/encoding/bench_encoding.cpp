// Throughput of the standard base 64 encoder against Qt's own base 64 conversion, on 1 MB and
// 64 KB buffers, one line per figure (bench/figure.h). Rates are megabytes of raw data per
// second, the median of five rounds; the ratio is ours over Qt's, and the bar is to be at least
// as fast as Qt. Build in release mode; run with nothing else busy for stable figures.
#include "ads/device/HLXStringEncoding.h"
#include "bench/figure.h"

#include <QByteArray>
#include <QElapsedTimer>
#include <QRandomGenerator>

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

namespace {

// The rate of each of five rounds; each round repeats the work for at least 0.2 s so that the
// timer's resolution does not matter.
std::vector<double> megabytesPerSecond(qsizetype bytes, const std::function<void()>& work) {
    std::vector<double> rates;
    for (int round = 0; round < 5; ++round) {
        QElapsedTimer timer;
        timer.start();
        qint64 iterations = 0;
        do {
            work();
            ++iterations;
        } while (timer.nsecsElapsed() < 200'000'000);
        const double seconds = static_cast<double>(timer.nsecsElapsed()) / 1e9;
        rates.push_back(static_cast<double>(bytes) * iterations / seconds / 1e6);
    }
    return rates;
}

qsizetype sink = 0;

void row(const char* operation, qsizetype size, const std::vector<double>& ours,
         const std::vector<double>& qt) {
    const std::string name = std::string("base64 ") + operation + " " +
                             std::to_string(size / 1024) + " KB (MB/s; baseline Qt)";
    bench::print(bench::higherIsBetter(name, ours, qt, 1.0));
}

}  // namespace

int main() {
    const auto encoder = PXB_HLXStringEncoding::rfc4648Base64StringEncoding();
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
    std::fprintf(stderr, "(checksum %lld)\n", static_cast<long long>(sink));
    return 0;
}
