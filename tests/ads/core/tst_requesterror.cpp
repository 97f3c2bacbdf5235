#include "ads/core/PXBRequest.h"
#include "ads/core/PXBRequestError.h"
#include "ads/core/PXBRequestPrivate.h"
#include "ads/device/PXBIdentifierUtilities.h"

#include <QTest>

namespace {
// Poses as a system of the given version.
void setSystemVersion(const QString& version) {
    PXBIdentifierUtilities::Environment environment = PXBIdentifierUtilities::defaultEnvironment();
    environment.systemVersion = [version] { return version; };
    PXBIdentifierUtilities::setEnvironment(environment);
}
}  // namespace

class TestRequestError : public QObject {
    Q_OBJECT
  private slots:
    void cleanup() {
        PXBIdentifierUtilities::setEnvironment(PXBIdentifierUtilities::defaultEnvironment());
    }

    // The texts that are only the table's own are not repeated here: the one that names the
    // system's version, and an unknown code's fallback.
    void messages_data() {
        QTest::addColumn<qint64>("code");
        QTest::addColumn<QString>("text");
        const QString invalid =
            "Request Error: Invalid ad request parameter(s).  Check the Xcode "
            "console for details.";
        QTest::newRow("4") << qint64(4)
                           << "Request Error: This device's OS is 2.2.1.  It is below the "
                              "minimum of 3.0.";
        QTest::newRow("-1") << qint64(-1) << invalid;
    }
    void messages() {
        QFETCH(qint64, code);
        QFETCH(QString, text);
        setSystemVersion("2.2.1");
        QCOMPARE(PXBRequestError::localizedStringForErrorCode(code), text);

        const PXBRequestError error = PXBRequestError::errorWithCode(code, nullptr);
        QCOMPARE(error.domain(), QString("com.sorvel.ads"));
        QCOMPARE(error.code(), code);
        QCOMPARE(error.localizedDescription(), text);
        QCOMPARE(error.userInfo().value("NSLocalizedFailureReason").toString(), text);
    }

    // The minor version counts only within the same major one. (A system below the minimum
    // sends nothing, and one far above it requests as usual: both end to end.)
    void minimumVersionCheck() {
        setSystemVersion("3.0.1");
        QVERIFY(PXBRequestPrivate::deviceAtLeastMinimumOSMajorVersion(3, 0));
        QVERIFY(!PXBRequestPrivate::deviceAtLeastMinimumOSMajorVersion(3, 1));
        QVERIFY(PXBRequestPrivate::deviceAtLeastMinimumOSMajorVersion(2, 9));
    }

    void onlyAnInvalidRequestCarriesTheParameters_data() {
        QTest::addColumn<qint64>("code");
        QTest::newRow("invalid request") << qint64(0);
        QTest::newRow("no fill") << qint64(1);
    }
    void onlyAnInvalidRequestCarriesTheParameters() {
        QFETCH(qint64, code);
        auto request = PXBRequest::create();
        request->setGender(1);
        request->addKeyword("drums");
        request->setBirthdayWithMonth(1, 2, 2003);
        const QVariantMap parameters = dynamic_cast<PXBRequestPrivate&>(*request).parameters();

        const PXBRequestError error(code, request.get());
        const QVariantMap info = error.userInfo();
        if (code == 0) {
            QCOMPARE(info.size(), parameters.size() + 2);
            for (auto it = parameters.begin(); it != parameters.end(); ++it) {
                QCOMPARE(info.value(it.key()), it.value());
            }
        } else {
            QCOMPARE(info.keys(),
                     (QStringList{"NSLocalizedDescription", "NSLocalizedFailureReason"}));
        }
    }
};

QTEST_GUILESS_MAIN(TestRequestError)
#include "tst_requesterror.moc"
