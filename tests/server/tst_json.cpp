#include "json.h"

#include <QJsonObject>
#include <QJsonParseError>
#include <QtTest>

// Text that would make Qt's parser keep memory for good is recognised; everything else parses
// exactly as QJsonDocument does.
class TestJson : public QObject
{
    Q_OBJECT
private slots:
    void repeatedContainerKeys_data();
    void repeatedContainerKeys();
    void refusedAsUnparseable();
    void otherwiseAsQt_data();
    void otherwiseAsQt();
};

void TestJson::repeatedContainerKeys_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<bool>("repeats");
    QTest::newRow("object then value") << QByteArray(R"({"a":{"b":1},"a":2})") << true;
    QTest::newRow("array then value") << QByteArray(R"({"a":[1],"a":2})") << true;
    QTest::newRow("object then object") << QByteArray(R"({"a":{"b":1},"a":{"c":2}})") << true;
    QTest::newRow("empty object then value") << QByteArray(R"({"a":{},"a":1})") << true;
    QTest::newRow("third time") << QByteArray(R"({"a":1,"a":[2],"a":3})") << true;
    QTest::newRow("deep inside an array")
        << QByteArray(R"([1,{"x":[{"a":"x","b":{"a":[3],"a":"y"}}]}])") << true;
    QTest::newRow("escaped spelling") << QByteArray(R"({"ab":[1],"\u0061b":2})") << true;
    QTest::newRow("escaped quote in key") << QByteArray(R"({"a\"":{"x":1},"a\u0022":0})") << true;
    QTest::newRow("empty key") << QByteArray(R"({"":{"x":1},"":0})") << true;
    QTest::newRow("too deep") << QByteArray(2000, '[') << true;
    QTest::newRow("65 levels") << QByteArray(65, '[') + QByteArray(65, ']') << true;

    QTest::newRow("value then object") << QByteArray(R"({"a":1,"a":{"x":1}})") << false;
    QTest::newRow("plain values") << QByteArray(R"({"a":"s","a":"t"})") << false;
    QTest::newRow("same key in different objects")
        << QByteArray(R"({"a":{"a":[1]},"b":{"a":[1]},"c":[{"a":{}},{"a":{}}]})") << false;
    QTest::newRow("braces inside strings")
        << QByteArray(R"({"a":"{\"a\":[1],","b":"]}","a2":[1]})") << false;
    QTest::newRow("key-like string values") << QByteArray(R"(["a",{"a":1},"a"])") << false;
    QTest::newRow("not JSON") << QByteArray("{\"a") << false;
    QTest::newRow("empty") << QByteArray() << false;
    QTest::newRow("deep but allowed") << QByteArray(64, '[') + QByteArray(64, ']') << false;
}

void TestJson::repeatedContainerKeys()
{
    QFETCH(QByteArray, text);
    QFETCH(bool, repeats);
    QCOMPARE(Json::repeatsContainerKey(text), repeats);
}

void TestJson::refusedAsUnparseable()
{
    QJsonParseError error;
    const QJsonDocument document = Json::parse(R"({"_":"v","d":{"x":[1]},"d":""})", &error);
    QVERIFY(document.isNull());
    QCOMPARE(error.error, QJsonParseError::IllegalValue);
    QVERIFY(Json::parse(R"({"d":[1],"d":""})").isNull());
}

void TestJson::otherwiseAsQt_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::newRow("message") << QByteArray(R"({"_":"ks","i":"org.app","k":["Ctrl+c"]})");
    QTest::newRow("plain repeated key") << QByteArray(R"({"_":"a","_":"b"})");
    QTest::newRow("array") << QByteArray(R"([1,"two",{"3":null}])");
    QTest::newRow("broken") << QByteArray(R"({"_":)");
    QTest::newRow("trailing garbage") << QByteArray(R"({"_":"v"} x)");
}

void TestJson::otherwiseAsQt()
{
    QFETCH(QByteArray, text);
    QJsonParseError ours;
    QJsonParseError qt;
    const QJsonDocument parsed = Json::parse(text, &ours);
    QCOMPARE(parsed, QJsonDocument::fromJson(text, &qt));
    QCOMPARE(ours.error, qt.error);
    QCOMPARE(ours.offset, qt.offset);
}

QTEST_GUILESS_MAIN(TestJson)
#include "tst_json.moc"
