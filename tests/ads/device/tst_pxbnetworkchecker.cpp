#include "ads/device/PXBNetworkChecker.h"

#include <QPointer>
#include <QTest>

using namespace Qt::StringLiterals;
using R = QNetworkInformation::Reachability;
using T = QNetworkInformation::TransportMedium;

// Stands in for the system: the test decides when a reachability change arrives.
class FakeSource : public PXBReachabilitySource {
  public:
    void report(quint32 flags) { emit flagsChanged(flags); }
};

class TestPXBNetworkChecker : public QObject {
    Q_OBJECT
    QPointer<FakeSource> source_;
    QString hostAsked_;
    int sourcesMade_ = 0;
    bool systemOffersSource_ = true;

  private slots:
    void init() {
        sourcesMade_ = 0;
        systemOffersSource_ = true;
        PXBNetworkChecker::setSourceFactory([this](const QString& host) {
            hostAsked_ = host;
            if (!systemOffersSource_)
                return std::unique_ptr<PXBReachabilitySource>();
            ++sourcesMade_;
            auto source = std::make_unique<FakeSource>();
            source_ = source.get();
            return std::unique_ptr<PXBReachabilitySource>(std::move(source));
        });
    }

    void flags_data() {
        QTest::addColumn<quint32>("flags");
        QTest::addColumn<quint32>("type");
        QTest::addColumn<QString>("typeString");
        QTest::newRow("nothing") << 0u << 1u << QString();
        QTest::newRow("WWAN without reachable") << 0x40000u << 1u << QString();
        QTest::newRow("reachable") << 0x2u << 2u << u"wi"_s;
        QTest::newRow("reachable, other flags") << (0x2u | 0x1u | 0x4u | 0x20u) << 2u << u"wi"_s;
        QTest::newRow("reachable over WWAN") << 0x40002u << 3u << u"ed"_s;
        QTest::newRow("every bit") << 0xffffffffu << 3u << u"ed"_s;
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
        QVERIFY(!checker.isEnabled());
        checker.setEnabled(true);
        QVERIFY(checker.isEnabled());
        QCOMPARE(hostAsked_, u"ads.example.test"_s);
        // No reading before the first change: the first request carries no "net".
        QCOMPARE(checker.networkType(), 0u);
        QVERIFY(checker.networkTypeString().isNull());

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
        QVERIFY(!checker.isEnabled());
        QVERIFY(source_.isNull());
        QCOMPARE(checker.networkType(), 0u);
        QCOMPARE(checker.changeCount(), 2u);
    }

    void staysOffWithoutSource() {
        systemOffersSource_ = false;
        PXBNetworkChecker checker;
        checker.startNetworkChecking();
        QVERIFY(!checker.isEnabled());
        QVERIFY(checker.networkTypeString().isNull());
    }

    void sharedCheckerIsOnFromTheStart() {
        PXBNetworkChecker* shared = PXBNetworkChecker::sharedChecker();
        QCOMPARE(PXBNetworkChecker::sharedChecker(), shared);
        QVERIFY(shared->isEnabled());
    }

    void qtReadings_data() {
        QTest::addColumn<R>("reachability");
        QTest::addColumn<T>("medium");
        QTest::addColumn<QString>("typeString");
        QTest::newRow("online, ethernet") << R::Online << T::Ethernet << u"wi"_s;
        QTest::newRow("online, wifi") << R::Online << T::WiFi << u"wi"_s;
        QTest::newRow("online, cellular") << R::Online << T::Cellular << u"ed"_s;
        QTest::newRow("local network") << R::Local << T::Ethernet << u"wi"_s;
        QTest::newRow("site, unknown medium") << R::Site << T::Unknown << u"wi"_s;
        QTest::newRow("disconnected") << R::Disconnected << T::Cellular << QString();
    }
    void qtReadings() {
        QFETCH(R, reachability);
        QFETCH(T, medium);
        QFETCH(QString, typeString);
        PXBNetworkChecker checker;
        checker.setNetworkTypeFromFlags(
            PXBNetworkChecker::flagsForNetworkInformation(reachability, medium));
        QCOMPARE(checker.networkTypeString(), typeString);
    }
};

QTEST_GUILESS_MAIN(TestPXBNetworkChecker)
#include "tst_pxbnetworkchecker.moc"
