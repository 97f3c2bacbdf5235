// The device facts as the running application gives them: the phone window and its status bar.
#include "ads/device/PXBIdentifierUtilities.h"
#include "platform/ui/application.h"
#include "platform/ui/screen.h"
#include "platform/ui/uitestmain.h"

using namespace Qt::StringLiterals;

class TestDeviceEnvironment : public QObject {
    Q_OBJECT
  private slots:
    void screenFollowsPhoneWindow_data() {
        QTest::addColumn<int>("orientation");
        QTest::addColumn<bool>("statusBarHidden");
        QTest::addColumn<QSizeF>("size");
        QTest::addColumn<QString>("orientationParameter");
        QTest::newRow("portrait") << 1 << false << QSizeF(320, 480) << u"p"_s;
        QTest::newRow("portrait, no status bar") << 1 << true << QSizeF(320, 480) << u"p"_s;
        QTest::newRow("landscape right") << 3 << false << QSizeF(480, 320) << u"l"_s;
        QTest::newRow("landscape left") << 4 << false << QSizeF(480, 320) << u"l"_s;
    }
    void screenFollowsPhoneWindow() {
        QFETCH(int, orientation);
        QFETCH(bool, statusBarHidden);
        QFETCH(QSizeF, size);
        QFETCH(QString, orientationParameter);
        platform::Application* app = platform::Application::sharedApplication();
        app->setStatusBarOrientation(orientation);
        app->setStatusBarHidden(statusBarHidden);
        PXBIdentifierUtilities utilities;
        QCOMPARE(utilities.screenSize(), size);
        const QVariantMap parameters = utilities.parameters();
        QCOMPARE(parameters.value(kPXBParameterScreenOrientation), orientationParameter);
        QCOMPARE(parameters.value(kPXBParameterScreenWidth).toDouble(), size.width());
        QCOMPARE(parameters.value(kPXBParameterScreenHeight).toDouble(), size.height());
        QCOMPARE(utilities.screenDensity(), float(platform::Screen::scale()));
    }
};

SORVEL_UI_TEST_MAIN(TestDeviceEnvironment)
#include "tst_deviceenvironment.moc"
