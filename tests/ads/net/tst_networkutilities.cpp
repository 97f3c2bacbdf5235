#include "ads/net/PXBNetworkUtilities.h"
#include "ads/net/PXBNumberUtilities.h"

#include <QTest>

class TestNetworkUtilities : public QObject {
    Q_OBJECT
  private slots:
    void dictionaryFromQueryString_data() {
        QTest::addColumn<QString>("query");
        QTest::addColumn<QVariantMap>("expected");
        const QVariantMap abc{{"a", "1"}, {"b", "2"}, {"c", "3"}};
        QTest::newRow("null") << QString() << QVariantMap();
        QTest::newRow("separator runs, keys lower-cased") << "A=1&&b=2;c=3" << abc;
        QTest::newRow("two equals signs or none drop the pair") << "x=1=2&y" << QVariantMap();
        QTest::newRow("malformed escape drops the pair") << "k=%ZZ&j=2" << QVariantMap{{"j", "2"}};
        QTest::newRow("escape that is not UTF-8") << "k=%FF&j=%C3%A9" << QVariantMap{{"j", "é"}};
        QTest::newRow("plus stays") << "q=a+b%20c" << QVariantMap{{"q", "a+b c"}};
        QTest::newRow("escaped key, empty value") << "K%C3%89Y=" << QVariantMap{{"kéy", ""}};
        QTest::newRow("later key wins") << "k=1&K=2" << QVariantMap{{"k", "2"}};
    }
    void dictionaryFromQueryString() {
        QFETCH(QString, query);
        QFETCH(QVariantMap, expected);
        QCOMPARE(PXBNetworkUtilities::dictionaryFromQueryString(query), expected);
    }

    void appendQueryParameters_data() {
        QTest::addColumn<QString>("url");
        QTest::addColumn<QVariantMap>("parameters");
        QTest::addColumn<QString>("expected");
        QTest::newRow("nil value, no query")
            << "http://h/p" << QVariantMap{{"key", QVariant()}} << "http://h/p?key";
        QTest::newRow("existing query")
            << "http://h/p?a=1" << QVariantMap{{"b", 2}} << "http://h/p?a=1&b=2";
        QTest::newRow("bare question mark")
            << "http://h/p?" << QVariantMap{{"b", "x"}} << "http://h/p??b=x";
        // Values are escaped as Qt's toPercentEncoding does (all but the unreserved characters).
        QTest::newRow("value escaped, key not")
            << "http://h/" << QVariantMap{{"k[]", "a b&c"}} << "http://h/?k[]=a%20b%26c";
        QTest::newRow("map order, bool and float descriptions")
            << "http://h/" << QVariantMap{{"z", true}, {"a", 1.5}, {"m", ""}}
            << "http://h/?a=1.5&m&z=1";
        QTest::newRow("escapes stay as written")
            << "http://h/p?s=%7e%2f" << QVariantMap{{"b", "x"}} << "http://h/p?s=%7e%2f&b=x";
    }
    void appendQueryParameters() {
        QFETCH(QString, url);
        QFETCH(QVariantMap, parameters);
        QFETCH(QString, expected);
        const QString result = PXBNetworkUtilities::appendQueryParameters(parameters, url);
        QCOMPARE(result, expected);
        if (parameters.size() == 1) {
            QCOMPARE(
                PXBNetworkUtilities::appendQueryKey(parameters.firstKey(), parameters.first(), url),
                result);
        }
    }

    void parameterValueForKey_data() {
        QTest::addColumn<QString>("url");
        QTest::addColumn<QString>("key");
        QTest::addColumn<QString>("expected");
        // clang-format off
        QTest::newRow("case-sensitive") << "http://h/?id=5" << "Id" << QString();
        QTest::newRow("text between two equals") << "http://h/?k=a=b" << "k" << QString("a");
        QTest::newRow("escaped unreserved stay as written") << "http://h/?q=%7E%41&r=%2f" << "q" << QString("%7E%41");
        QTest::newRow("hex digits keep their case") << "http://h/?r=%2f" << "r" << QString("%2f");
        QTest::newRow("first piece wins") << "http://h/?k=1&k=2" << "k" << QString("1");
        QTest::newRow("bare key") << "http://h/?k&k=" << "k" << QString("");
        QTest::newRow("no query") << "http://h/k=1" << "k" << QString();
        QTest::newRow("not in the fragment") << "http://h/p#x?k=1" << "k" << QString();
        // clang-format on
    }
    void parameterValueForKey() {
        QFETCH(QString, url);
        QFETCH(QString, key);
        QFETCH(QString, expected);
        const QString value = PXBNetworkUtilities::parameterValueForKey(key, url);
        QCOMPARE(value, expected);
        QCOMPARE(value.isNull(), expected.isNull());
    }

    void stringWithFloat_data() {
        QTest::addColumn<float>("value");
        QTest::addColumn<QString>("expected");
        QTest::newRow("2.0") << 2.0f << "2";
        QTest::newRow("1.5") << 1.5f << "1.5";
        QTest::newRow("seventh digit lost") << 0.0000001f << "0";
    }
    void stringWithFloat() {
        QFETCH(float, value);
        QFETCH(QString, expected);
        QCOMPARE(PXBNumberUtilities::stringWithFloat(value), expected);
    }
};

QTEST_GUILESS_MAIN(TestNetworkUtilities)
#include "tst_networkutilities.moc"
