#include "ads/core/PXBRequest.h"
#include "ads/core/PXBRequestPrivate.h"
#include "ads/device/PXBIdentifierUtilities.h"
#include "support/testenv.h"

#include <QTest>

using RequestFactory = std::shared_ptr<PXBRequest> (*)();
Q_DECLARE_METATYPE(RequestFactory)

class TestRequest : public QObject {
    Q_OBJECT
    // Statistics and user defaults of this suite stay in a folder of its own.
    testsupport::TempHome home_;

  private slots:
    void everyRouteYieldsThePrivateClass_data() {
        QTest::addColumn<RequestFactory>("make");
        QTest::newRow("request") << RequestFactory(&PXBRequest::request);
        QTest::newRow("create") << RequestFactory(&PXBRequest::create);
        QTest::newRow("copy") << RequestFactory([] { return PXBRequest::create()->copy(); });
        QTest::newRow("copy of a copy")
            << RequestFactory([] { return PXBRequest::request()->copy()->copy(); });
    }
    void everyRouteYieldsThePrivateClass() {
        QFETCH(RequestFactory, make);
        const std::shared_ptr<PXBRequest> request = make();
        QVERIFY(request != nullptr);
        QVERIFY(dynamic_cast<PXBRequestPrivate*>(request.get()) != nullptr);
    }

    void sdkVersionIsBuiltOnce() {
        QCOMPARE(PXBRequest::sdkVersion(), QString("zelm-sdk-i-v4.1.1"));
        QCOMPARE(&PXBRequest::sdkVersion(), &PXBRequest::sdkVersion());
    }

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

        const auto copy = std::dynamic_pointer_cast<PXBRequestPrivate>(original->copy());
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
        QTest::newRow("null string") << QStringList{QString()} << QStringList{};
        QTest::newRow("first") << QStringList{"a"} << QStringList{"a"};
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

    void birthdayAndGenderStrings_data() {
        QTest::addColumn<int>("month");
        QTest::addColumn<int>("day");
        QTest::addColumn<int>("year");
        QTest::addColumn<QString>("birthday");
        QTest::newRow("plain") << 7 << 4 << 1990 << "19900704";
        QTest::newRow("month rolls into next year") << 13 << 1 << 1999 << "20000101";
        QTest::newRow("day rolls into next month") << 2 << 30 << 2001 << "20010302";
    }
    void birthdayAndGenderStrings() {
        QFETCH(int, month);
        QFETCH(int, day);
        QFETCH(int, year);
        QFETCH(QString, birthday);
        auto request = PXBRequestPrivate::create();
        QVERIFY(request->birthdayString().isNull());
        request->setBirthdayWithMonth(month, day, year);
        QCOMPARE(request->birthdayString(), birthday);
        QCOMPARE(request->parameters().value("cust_age").toString(), birthday);
    }

    void genderString_data() {
        QTest::addColumn<int>("gender");
        QTest::addColumn<QString>("text");
        QTest::newRow("unknown") << 0 << QString();
        QTest::newRow("male") << 1 << "m";
        QTest::newRow("female") << 2 << "f";
        QTest::newRow("out of range") << 3 << QString();
        QTest::newRow("negative") << -1 << QString();
    }
    void genderString() {
        QFETCH(int, gender);
        QFETCH(QString, text);
        auto request = PXBRequestPrivate::create();
        request->setGender(gender);
        QCOMPARE(request->genderString(), text);
        QCOMPARE(request->parameters().contains("cust_gender"), !text.isNull());
    }

    void descriptionNamesWhatIsSet() {
        std::shared_ptr<PXBRequest> request = PXBRequest::request();
        const QString head =
            QStringLiteral("PXBRequest<0x%1>: ").arg(quintptr(request.get()), 0, 16);
        QCOMPARE(request->description(), head);
        request->setGender(3);  // out of range: no gender part
        QCOMPARE(request->description(), head);
        request->setGender(2);
        request->setLocationWithDescription(QStringLiteral("Harbor Street"));
        request->addKeyword(QStringLiteral("coffee"));
        const QString text = request->description();
        QVERIFY2(text.startsWith(head + QStringLiteral("\ngender:Female\nlocation:Harbor Street"
                                                       "\nkeywords:")),
                 qPrintable(text));
        QVERIFY(text.contains(QStringLiteral("coffee")));
        QVERIFY(!text.contains(QStringLiteral("birthday")));
    }

    void requestTypeFromString_data() {
        QTest::addColumn<QString>("type");
        QTest::addColumn<int>("number");
        QTest::newRow("torvin") << "torvin" << 4;
        QTest::newRow("qel") << "qel" << 5;
        QTest::newRow("merrow") << "merrow" << 1;
        QTest::newRow("capitals") << "TORVIN" << 0;
        QTest::newRow("plinth") << "plinth" << 0;
        QTest::newRow("null") << QString() << 0;
    }
    void requestTypeFromString() {
        QFETCH(QString, type);
        QFETCH(int, number);
        QCOMPARE(PXBRequestPrivate::requestTypeFromString(type), number);
    }

    void freshRequestParameters() {
        auto request = PXBRequestPrivate::create();
        request->setCounter(3);
        const QVariantMap device = PXBIdentifierUtilities::sharedInstance()->parameters();
        const QVariantMap parameters = request->parameters();
        for (auto it = device.begin(); it != device.end(); ++it) {
            QVERIFY2(parameters.contains(it.key()), qPrintable(it.key()));
        }
        QCOMPARE(parameters.value("js").toString(), PXBRequest::sdkVersion());
        QCOMPARE(parameters.value("preqs").typeId(), QMetaType::Int);
        QCOMPARE(parameters.value("preqs").toInt(), 3);
        for (const char* key :
             {"testing", "adtest", "extras", "cust_gender", "cust_age", "kw", "uule"}) {
            QVERIFY2(!parameters.contains(key), key);
        }
    }

    void requestsOwnParameters_data() {
        QTest::addColumn<QString>("key");
        QTest::addColumn<QVariant>("value");  // null: absent
        QTest::newRow("testing") << "testing" << QVariant("1");
        QTest::newRow("adtest for this device") << "adtest" << QVariant("on");
        QTest::newRow("keywords") << "kw" << QVariant(QVariantList{"k", "k"});
        QTest::newRow("extras") << "extras" << QVariant(QVariantMap{{"x", 1}});
        QTest::newRow("described location") << "uule" << QVariant("a+");
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
        } else if (row.startsWith("adtest")) {
            request->setTestDevices({"other", "this-device"});
        } else if (row == "keywords") {
            request->addKeyword("k");
            request->addKeyword("k");
        } else if (row == "extras") {
            request->setAdditionalParameters({{"x", 1}});
        } else if (row == "described location") {
            request->setLocationWithDescription("Mountain View, CA");
        } else {
            request->setLocationWithDescription("somewhere");
            request->setLocationWithLatitude(0, 0, 10);  // replaces it with nothing
        }
        const QVariantMap parameters = request->parameters();
        PXBIdentifierUtilities::setEnvironment(PXBIdentifierUtilities::defaultEnvironment());
        if (value.isNull()) {
            QVERIFY(!parameters.contains(key));
        } else if (key == "uule") {
            QVERIFY(parameters.value(key).toString().startsWith(value.toString()));
        } else {
            QCOMPARE(parameters.value(key), value);
        }
        // "testing" and "adtest" are independent of each other.
        QCOMPARE(parameters.contains("testing"), row == "testing");
        QCOMPARE(parameters.contains("adtest"), row.startsWith("adtest"));
    }
};

QTEST_GUILESS_MAIN(TestRequest)
#include "tst_request.moc"
