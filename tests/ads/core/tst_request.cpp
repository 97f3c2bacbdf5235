#include "ads/core/PXBConfiguration.h"
#include "ads/core/PXBRequest.h"
#include "ads/core/PXBRequestPrivate.h"
#include "ads/device/PXBIdentifierUtilities.h"
#include "support/testenv.h"

#include <QTest>

class TestRequest : public QObject {
    Q_OBJECT
    // Statistics and user defaults of this suite stay in a folder of its own.
    testsupport::TempHome home_;

  private slots:
    void copyTakesEveryValueButTheCounterAndSharesTheKeywords() {
        auto original = PXBRequestPrivate::create();
        original->setTestDevices({"device-a"});
        original->setTesting(true);
        original->setAdditionalParameters({{"color", "blue"}});
        original->setGender(2);
        original->setBirthdayWithMonth(7, 4, 1990);
        original->addKeyword("sound");
        original->setInterstitialAd(true);
        original->setCounter(12);

        const auto copy = PXBRequestPrivate::createWithRequest(original.get());
        QVERIFY(copy != original);
        QCOMPARE(copy->testDevices(), QStringList{"device-a"});
        QVERIFY(copy->isTesting());
        QCOMPARE(copy->additionalParameters(), (QVariantMap{{"color", "blue"}}));
        QCOMPARE(copy->gender(), 2);
        QCOMPARE(copy->birthday(), original->birthday());
        QVERIFY(copy->isInterstitialAd());
        QCOMPARE(copy->counter(), 0);
        // Shallow: a keyword added to the original's array shows in the copy.
        QCOMPARE(copy->keywords(), original->keywords());
        original->addKeyword("board");
        QCOMPARE(*copy->keywords(), (QStringList{"sound", "board"}));
    }

    void addKeyword_data() {
        QTest::addColumn<QStringList>("added");
        QTest::addColumn<QStringList>("keywords");  // empty: the array stays null
        QTest::newRow("empty string") << QStringList{""} << QStringList{};
        QTest::newRow("duplicates kept") << QStringList{"a", "", "a"} << QStringList{"a", "a"};
    }
    void addKeyword() {
        QFETCH(QStringList, added);
        QFETCH(QStringList, keywords);
        auto request = PXBRequest::create();
        for (const QString& k : added) {
            request->addKeyword(k);
        }
        if (keywords.isEmpty()) {
            QVERIFY(request->keywords() == nullptr);
        } else {
            QCOMPARE(*request->keywords(), keywords);
        }
    }

    void birthdayAndGender_data() {
        QTest::addColumn<QList<int>>("birthday");  // month, day, year; empty: not set
        QTest::addColumn<QString>("age");          // cust_age; null: absent
        QTest::addColumn<int>("gender");
        QTest::addColumn<QString>("genderText");  // cust_gender; null: absent
        using L = QList<int>;
        QTest::newRow("plain") << L{7, 4, 1990} << "19900704" << 1 << "m";
        QTest::newRow("month rolls into next year") << L{13, 1, 1999} << "20000101" << 2 << "f";
        QTest::newRow("day rolls into next month")
            << L{2, 30, 2001} << "20010302" << 0 << QString();
        QTest::newRow("gender out of range") << L{} << QString() << 3 << QString();
    }
    void birthdayAndGender() {
        QFETCH(QList<int>, birthday);
        QFETCH(QString, age);
        QFETCH(int, gender);
        QFETCH(QString, genderText);
        auto request = PXBRequestPrivate::create();
        if (!birthday.isEmpty()) {
            request->setBirthdayWithMonth(birthday[0], birthday[1], birthday[2]);
        }
        request->setGender(gender);
        const QVariantMap parameters = request->parameters();
        QCOMPARE(parameters.value("cust_age").toString(), age);
        QCOMPARE(parameters.contains("cust_age"), !age.isNull());
        QCOMPARE(parameters.value("cust_gender").toString(), genderText);
        QCOMPARE(parameters.contains("cust_gender"), !genderText.isNull());
    }

    // The additional parameters and a location reach the server end to end (every fault switch
    // travels in "extras"; the server reads the place back).
    void requestsOwnParameters_data() {
        QTest::addColumn<QString>("key");
        QTest::addColumn<QVariant>("value");  // null: absent
        QTest::newRow("testing") << "testing" << QVariant("1");
        QTest::newRow("adtest for this device") << "adtest" << QVariant("on");
        QTest::newRow("adtest in test mode") << "adtest" << QVariant("on");
        QTest::newRow("keywords") << "kw" << QVariant(QVariantList{"k", "k"});
        QTest::newRow("no precise location") << "uule" << QVariant();
    }
    void requestsOwnParameters() {
        QFETCH(QString, key);
        QFETCH(QVariant, value);
        PXBIdentifierUtilities::Environment environment =
            PXBIdentifierUtilities::defaultEnvironment();
        environment.uniqueIdentifier = [] { return QString("this-device"); };
        PXBIdentifierUtilities::setEnvironment(environment);
        auto request = PXBRequestPrivate::create();
        const QString row = QTest::currentDataTag();
        if (row == "testing") {
            request->setTesting(true);
            QTest::ignoreMessage(QtInfoMsg,
                                 "<Sorvel> \"testing\" property has been deprecated.  "
                                 "Use \"testDevices\" instead.");
        } else if (row == "adtest for this device") {
            request->setTestDevices({"other", "this-device"});
        } else if (row == "adtest in test mode") {
            PXBConfiguration::setTestMode(true);
        } else if (row == "keywords") {
            request->addKeyword("k");
            request->addKeyword("k");
        } else if (row == "no precise location") {
            request->setLocationWithDescription("somewhere");
            request->setLocationWithLatitude(0, 0, 10);  // replaces it with nothing
        }
        const QVariantMap parameters = request->parameters();
        PXBConfiguration::setTestMode(false);
        PXBIdentifierUtilities::setEnvironment(PXBIdentifierUtilities::defaultEnvironment());
        if (value.isNull()) {
            QVERIFY(!parameters.contains(key));
        } else {
            QCOMPARE(parameters.value(key), value);
        }
        // Each of these only when asked for; "testing" and "adtest" independent of each other.
        for (const char* other : {"testing", "adtest", "extras", "kw"}) {
            QCOMPARE(parameters.contains(other), other == key && !value.isNull());
        }
    }
};

QTEST_GUILESS_MAIN(TestRequest)
#include "tst_request.moc"
