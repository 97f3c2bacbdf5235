#include "ads/inspect/PXBInspector.h"

#include <QApplication>
#include <QTest>
#include <QTreeWidget>

#include "platform/ui/uitestmain.h"

using Kind = PXBInspection::Kind;

class TestInspector : public QObject {
    Q_OBJECT
  private slots:
    // Records turn into the window's rows: a tracker's outcome lands on the row it was sent on,
    // the refresh counts down, a gone ad says so, and nothing is recorded once it is closed.
    void recordsBecomeRowsWhileTheInspectorIsOpen() {
        QPointer<PXBInspector> inspector = PXBInspector::showInspector();
        QVERIFY(PXBInspection::isOn());
        auto ad = std::make_unique<QObject>();
        const QString unit = QStringLiteral("unit-1");
        PXBInspection::record(ad.get(), unit, Kind::State, QStringLiteral("shown"));
        PXBInspection::record(ad.get(), unit, Kind::Tracker, QStringLiteral("http://t/1"),
                              {{"id", "a"}, {"status", "sent"}});
        PXBInspection::record(ad.get(), unit, Kind::Tracker, QStringLiteral("http://t/2"),
                              {{"id", "b"}, {"status", "sent"}});
        PXBInspection::record(ad.get(), unit, Kind::Tracker, QStringLiteral("http://t/1"),
                              {{"id", "a"}, {"status", "failed: HTTP 503"}});
        PXBInspection::record(ad.get(), unit, Kind::Refresh, QStringLiteral("every 30 s"),
                              {{"seconds", 30.0}});
        PXBInspection::record(ad.get(), unit, Kind::Error, QStringLiteral("No ad to show."));

        QTreeWidgetItem* trackers = inspector->section(unit, QStringLiteral("Trackers"));
        QCOMPARE(trackers->childCount(), 2);
        QVERIFY(trackers->child(0)->text(1).startsWith(QStringLiteral("failed: HTTP 503 after ")));
        QCOMPARE(trackers->child(1)->text(1), QStringLiteral("sent"));
        QVERIFY(inspector->section(unit, QStringLiteral("Refresh"))
                    ->text(1)
                    .startsWith(QStringLiteral("next in ")));
        QCOMPARE(inspector->section(unit, QStringLiteral("Last error"))->text(1),
                 QStringLiteral("No ad to show."));
        QCOMPARE(inspector->tree()->topLevelItem(0)->text(1), QStringLiteral("shown"));

        ad.reset();
        QCOMPARE(inspector->tree()->topLevelItem(0)->text(1), QStringLiteral("gone"));
        delete inspector.data();
        QVERIFY(!PXBInspection::isOn());
    }
};

SORVEL_UI_TEST_MAIN(TestInspector)
#include "tst_inspector.moc"
