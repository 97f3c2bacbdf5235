#include "ads/device/PXBNetworkChecker.h"
#include "platform/runloop.h"

#include <QPointer>
#include <QTest>

using namespace Qt::StringLiterals;
using Scope = platform::ReachabilityReading::Scope;

Q_DECLARE_METATYPE(std::optional<quint32>)

// Stands in for the system: the test decides its state and when a change arrives.
class FakeSource : public PXBReachabilitySource {
  public:
    std::optional<quint32> currentFlags() const override { return current; }
    void report(quint32 flags) { emit flagsChanged(flags); }
    std::optional<quint32> current;
};

class TestPXBNetworkChecker : public QObject {
    Q_OBJECT
    QPointer<FakeSource> source_;
    QString hostAsked_;
    int sourcesMade_ = 0;
    bool systemOffersSource_ = true;
    std::optional<quint32> systemState_;

  private slots:
    void init() {
        sourcesMade_ = 0;
        systemOffersSource_ = true;
        systemState_.reset();
        PXBNetworkChecker::setSourceFactory([this](const QString& host) {
            hostAsked_ = host;
            if (!systemOffersSource_)
                return std::unique_ptr<PXBReachabilitySource>();
            ++sourcesMade_;
            auto source = std::make_unique<FakeSource>();
            source->current = systemState_;
            source_ = source.get();
            return std::unique_ptr<PXBReachabilitySource>(std::move(source));
        });
    }

    void flags_data() {
        QTest::addColumn<quint32>("flags");
        QTest::addColumn<quint32>("type");
        QTest::addColumn<QString>("typeString");
        QTest::newRow("WWAN without reachable") << 0x40000u << 1u << QString();
        QTest::newRow("every bit") << 0xffffffffu << 3u << u"ed"_s;
        // The platform monitor's readings, as flags (a local network's are the reachable flag
        // alone).
        auto reading = [](Scope scope, bool cellular) {
            return PXBNetworkChecker::flagsForReading({scope, cellular});
        };
        QTest::newRow("online, cellular") << reading(Scope::Online, true) << 3u << u"ed"_s;
        QTest::newRow("local network") << reading(Scope::Local, false) << 2u << u"wi"_s;
        QTest::newRow("disconnected") << reading(Scope::Disconnected, true) << 1u << QString();
    }
    void flags() {
        QFETCH(quint32, flags);
        QFETCH(quint32, type);
        QFETCH(QString, typeString);
        PXBNetworkChecker checker;
        checker.setNetworkTypeFromFlags(flags);
        QCOMPARE(checker.networkType(), type);
        QCOMPARE(checker.networkTypeString(), typeString);
        QCOMPARE(checker.networkTypeString().isNull(), typeString.isNull());
        checker.setNetworkTypeFromFlags(flags);
        QCOMPARE(checker.changeCount(), 2u);
    }

    void lifecycle() {
        PXBNetworkChecker::setWebHostName(u"ads.example.test"_s);
        PXBNetworkChecker checker;
        checker.setEnabled(true);
        QCOMPARE(hostAsked_, u"ads.example.test"_s);
        source_->report(0x2);
        QCOMPARE(checker.networkTypeString(), u"wi"_s);
        checker.setEnabled(true);  // already on: nothing changes
        QCOMPARE(checker.networkType(), 2u);
        checker.startNetworkChecking();  // already on: only the type is forgotten
        QCOMPARE(checker.networkType(), 0u);
        QCOMPARE(sourcesMade_, 1);
        source_->report(0x40002);
        QCOMPARE(checker.networkTypeString(), u"ed"_s);

        checker.setEnabled(false);
        QVERIFY(source_.isNull());
        QCOMPARE(checker.networkType(), 0u);
        QCOMPARE(checker.changeCount(), 2u);
    }

    // A network that never changes is still reported: its state at the start, one turn later.
    void stateAtTheStart_data() {
        QTest::addColumn<std::optional<quint32>>("state");
        QTest::addColumn<QString>("typeString");
        QTest::addColumn<quint32>("changes");
        QTest::newRow("reachable") << std::optional<quint32>(0x2) << u"wi"_s << 1u;
        QTest::newRow("not reachable") << std::optional<quint32>(0) << QString() << 1u;
        QTest::newRow("system does not know") << std::optional<quint32>() << QString() << 0u;
    }
    void stateAtTheStart() {
        QFETCH(std::optional<quint32>, state);
        QFETCH(QString, typeString);
        QFETCH(quint32, changes);
        systemState_ = state;
        PXBNetworkChecker checker;
        checker.setEnabled(true);
        QCOMPARE(checker.networkType(), 0u);  // the first request right away carries no "net"
        QTRY_COMPARE(platform::pendingPerformRequests(source_.data()), 0);
        QCOMPARE(checker.networkTypeString(), typeString);
        QCOMPARE(checker.changeCount(), changes);

        // Stopped before the turn comes: nothing is reported into the stopped checker.
        checker.setEnabled(false);
        checker.setEnabled(true);
        checker.setEnabled(false);
        QTRY_COMPARE(platform::pendingPerformRequests(source_.data()), 0);
        QCOMPARE(checker.changeCount(), changes);
    }

    void staysOffWithoutSource() {
        systemOffersSource_ = false;
        PXBNetworkChecker checker;
        checker.startNetworkChecking();
        QVERIFY(!checker.isEnabled());
        QVERIFY(checker.networkTypeString().isNull());
    }
};

QTEST_GUILESS_MAIN(TestPXBNetworkChecker)
#include "tst_pxbnetworkchecker.moc"
