#include "json.h"
#include "l.h"
#include "request.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QJsonParseError>
#include <QRandomGenerator>
#include <QtTest>

// A request reads as what Json::parse makes of its text, whichever way it is read: accepted or
// refused alike, every member the same value of the same kind.
class TestRequest : public QObject
{
    Q_OBJECT
private slots:
    void readsAsQt_data();
    void readsAsQt();
    void randomMessagesReadAsQt();
    void emptyRequest();
    void fromObject();

private:
    static void compareWithQt(const QByteArray &text);
};

void TestRequest::compareWithQt(const QByteArray &text)
{
    QJsonParseError qtError;
    const QJsonDocument document = Json::parse(text, &qtError);
    Request request;
    QJsonParseError error;
    const bool ok = request.read(text, &error);
    QCOMPARE(ok, !document.isNull());
    if (!ok) {
        QCOMPARE(error.error, qtError.error);
        QCOMPARE(error.offset, qtError.offset);
        return;
    }
    QCOMPARE(error.error, QJsonParseError::NoError);
    const QJsonObject expected = document.object();
    QCOMPARE(request.toObject(), expected);
    QCOMPARE(request.size(), expected.size());
    QCOMPARE(request.isEmpty(), expected.isEmpty());
    QCOMPARE(request.method(), expected.value(L::method).toString());
    for (auto it = expected.constBegin(); it != expected.constEnd(); ++it) {
        QVERIFY(request.contains(it.key()));
        const QJsonValue value = request.value(it.key());
        QCOMPARE(value, it.value());
        QCOMPARE(value.type(), it.value().type());
        // Whole numbers stay whole numbers, as they do in Qt's object.
        QCOMPARE(value.toVariant().userType(), it.value().toVariant().userType());
        QCOMPARE(value.toVariant(), it.value().toVariant());
        QCOMPARE(request.string(it.key()), it.value().toString());
    }
    for (const QString &missing :
        { QStringLiteral("missing"), QStringLiteral("é"), QString(), QStringLiteral("_x") }) {
        QCOMPARE(request.contains(missing), expected.contains(missing));
        QCOMPARE(request.value(missing), expected.value(missing));
        QCOMPARE(request.value(missing).isUndefined(), !expected.contains(missing));
        QCOMPARE(request.string(missing), expected.value(missing).toString());
    }
}

void TestRequest::readsAsQt_data()
{
    QTest::addColumn<QByteArray>("text");
    // Whether the one-pass reading takes it: every everyday request should.
    QTest::addColumn<bool>("flat");
    auto row = [](const char *name, const QByteArray &text, bool flat) {
        QTest::newRow(name) << text << flat;
    };
    row("key sequence", R"({"_":"ks","i":"org.kde.dolphin","k":"Ctrl+C"})", true);
    row("volume", R"({"_":"sv","v":35})", true);
    row("negative", R"({"_":"sc","x":-120,"y":0})", true);
    row("literals", R"({"_":"m","v":true,"w":false,"n":null})", true);
    row("empty object", "{}", true);
    row("spaces everywhere", " \t\r\n{ \"_\" : \"v\" ,\n\"s\" :\t64 } \n", true);
    row("empty key and value", R"({"":""})", true);
    row("fifteen digits", R"({"n":999999999999999,"m":-999999999999999})", true);
    row("no method", R"({"i":"x"})", true);
    row("method not a string", R"({"_":5})", true);
    row("printable ASCII", R"({"k":" !#$%&'()*+,-./0123456789:;<=>?@AZ[]^_`az{|}~"})", true);

    row("sixteen digits", R"({"n":1234567890123456})", false);
    row("beyond 64 bits", R"({"n":123456789012345678901234567890})", false);
    row("minus zero", R"({"n":-0})", false);
    row("leading zero", R"({"n":012})", false);
    row("fraction", R"({"n":1.5})", false);
    row("whole fraction", R"({"n":2.0})", false);
    row("exponent", R"({"n":1e3})", false);
    row("capital exponent", R"({"n":1E3})", false);
    row("bare minus", R"({"n":-})", false);
    row("minus then letter", R"({"n":-a})", false);
    row("plus", R"({"n":+1})", false);
    row("escaped quote", R"({"k":"a\"b"})", false);
    row("escaped unit", R"({"k":"\u00e9"})", false);
    row("escaped key", R"({"\u005f":"v"})", false);
    row("lone surrogate escape", R"({"k":"\ud800"})", false);
    row("bad escape", R"({"k":"\x"})", false);
    row("UTF-8", "{\"k\":\"\xc3\xa9t\xc3\xa9\"}", false);
    row("bad UTF-8", "{\"k\":\"\xc3\"}", false);
    row("overlong UTF-8", "{\"k\":\"\xc0\xaf\"}", false);
    row("UTF-8 key", "{\"\xc3\xa9\":1}", false);
    row("tab inside string", "{\"k\":\"a\tb\"}", false);
    row("control inside string", "{\"k\":\"a\x01\"}", false);
    row("delete inside string", "{\"k\":\"a\x7f\"}", false);
    row("NUL inside string", QByteArray("{\"k\":\"a\0b\"}", 10), false);
    row("NUL after", QByteArray("{\"k\":1}\0", 8), false);
    row("repeated plain key", R"({"_":"a","_":"b"})", false);
    row("repeated key, other values", R"({"v":1,"w":2,"v":true})", false);
    row("repeated container key", R"({"d":[1],"d":""})", false);
    row("nested object", R"({"_":"x","o":{"a":1}})", false);
    row("array value", R"({"_":"ks","k":["Ctrl+c","Ctrl+v"]})", false);
    row("top-level array", R"([1,2])", false);
    row("top-level string", R"("x")", false);
    row("top-level number", "5", false);
    row("BOM", "\xef\xbb\xbf{\"k\":1}", false);
    row("trailing comma", R"({"k":1,})", false);
    row("leading comma", R"({,"k":1})", false);
    row("missing colon", R"({"k" 1})", false);
    row("missing value", R"({"k":})", false);
    row("missing comma", R"({"k":1 "j":2})", false);
    row("unquoted key", R"({k:1})", false);
    row("single quotes", R"({'k':1})", false);
    row("unterminated string", R"({"k":"abc)", false);
    row("unterminated object", R"({"k":1)", false);
    row("two objects", R"({"k":1}{"j":2})", false);
    row("trailing garbage", R"({"k":1} x)", false);
    row("truncated true", R"({"k":tru})", false);
    row("true with tail", R"({"k":truex})", false);
    row("capital literal", R"({"k":True})", false);
    row("NaN", R"({"k":NaN})", false);
    row("form feed", "{\"k\":1\f}", false);
    row("empty", "", false);
    row("only spaces", "   ", false);
    row("close only", "}", false);
    QByteArray many = "{";
    for (int i = 0; i < 40; ++i)
        many += QByteArray(i ? "," : "") + "\"k" + QByteArray::number(i)
            + "\":" + QByteArray::number(i);
    many += '}';
    row("forty members", many, false);
    QByteArray thirtyTwo = "{";
    for (int i = 0; i < 32; ++i)
        thirtyTwo += QByteArray(i ? "," : "") + "\"k" + QByteArray::number(i) + "\":\"v\"";
    thirtyTwo += '}';
    row("thirty-two members", thirtyTwo, true);
}

void TestRequest::readsAsQt()
{
    QFETCH(QByteArray, text);
    QFETCH(bool, flat);
    compareWithQt(text);
    Request request;
    request.read(text);
    QCOMPARE(request.isFlat(), flat);
}

void TestRequest::randomMessagesReadAsQt()
{
    // Flat-looking messages with now and then a piece that only Qt may read.
    QRandomGenerator random(20261124);
    const QList<QByteArray> keys { "_", "i", "k", "v", "", "é", "\\u0069", "x y", "_" };
    const QList<QByteArray> values { "\"ks\"", "\"\"", "0", "7", "-3", "123456789012345",
        "1234567890123456", "-0", "0.5", "1e2", "true", "false", "null", "\"a\\nb\"",
        "\"\xc3\xa9\"", "[1]", "{\"a\":1}", "{}", "[]", "tru", "\"x", "01" };
    const QList<QByteArray> spaces { "", "", "", " ", "\n", "\t ", "\r" };
    for (int round = 0; round < 5000; ++round) {
        auto space = [&] { return spaces.at(random.bounded(spaces.size())); };
        QByteArray text = space() + "{";
        const int count = random.bounded(6);
        for (int i = 0; i < count; ++i) {
            if (i)
                text += space() + "," + space();
            text += "\"" + keys.at(random.bounded(keys.size())) + "\"" + space() + ":" + space()
                + values.at(random.bounded(values.size()));
        }
        text += space() + "}" + space();
        // Now and then a cut or a stray byte.
        if (random.bounded(10) == 0)
            text.truncate(random.bounded(text.size() + 1));
        if (random.bounded(10) == 0)
            text.insert(random.bounded(text.size() + 1), char(random.bounded(256)));
        compareWithQt(text);
        if (QTest::currentTestFailed()) {
            qWarning() << "Text:" << text;
            return;
        }
    }
}

void TestRequest::emptyRequest()
{
    const Request request;
    QVERIFY(request.isEmpty());
    QCOMPARE(request.size(), 0);
    QVERIFY(request.method().isEmpty());
    QVERIFY(request.value(L::id).isUndefined());
    QVERIFY(!request.contains(L::id));
    QCOMPARE(request.toObject(), QJsonObject());
}

void TestRequest::fromObject()
{
    const QJsonObject object { { L::method, QStringLiteral("ks") },
        { L::keys, QJsonArray { QStringLiteral("Ctrl+c") } } };
    const Request request(object);
    QCOMPARE(request.method(), QStringLiteral("ks"));
    QCOMPARE(request.value(L::keys), object.value(L::keys));
    QCOMPARE(request.toObject(), object);
    QCOMPARE(request.size(), 2);

    // A request read again forgets what it held.
    Request reused(object);
    QVERIFY(reused.read(R"({"_":"v"})"));
    QCOMPARE(reused.toObject(), (QJsonObject { { L::method, QStringLiteral("v") } }));
    QVERIFY(reused.read(R"({"_":"w","k":[1]})"));
    QCOMPARE(reused.size(), 2);
    QVERIFY(!reused.read("{"));
}

QTEST_GUILESS_MAIN(TestRequest)
#include "tst_request.moc"
