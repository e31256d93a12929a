#include "json.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QJsonParseError>
#include <QRandomGenerator>
#include <QtTest>

#include <cstring>
#include <functional>
#include <limits>

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
    void compactWritesAsQt_data();
    void compactWritesAsQt();
    void compactWritesRandomObjectsAsQt();
    void fieldsWriteAsTheirObject();
    void fieldsOfEveryKind();
    void appendedStrings();
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

void TestJson::compactWritesAsQt_data()
{
    QTest::addColumn<QJsonObject>("object");
    QTest::newRow("empty") << QJsonObject();
    QTest::newRow("reply") << QJsonObject { { QStringLiteral("_"), QStringLiteral("ai") },
        { QStringLiteral("i"), QStringLiteral("org.kde.dolphin") }, { QStringLiteral("s"), 64 } };
    QTest::newRow("numbers") << QJsonObject { { QStringLiteral("int"), 42 },
        { QStringLiteral("negative"), -7 }, { QStringLiteral("big"), qint64(1) << 60 },
        { QStringLiteral("beyond doubles"), (qint64(1) << 53) + 1 },
        { QStringLiteral("fraction"), 0.1 }, { QStringLiteral("whole double"), 3.0 },
        { QStringLiteral("huge"), 1e300 }, { QStringLiteral("tiny"), 5e-324 },
        { QStringLiteral("minus zero"), -0.0 },
        { QStringLiteral("nan"), std::numeric_limits<double>::quiet_NaN() },
        { QStringLiteral("infinity"), std::numeric_limits<double>::infinity() } };
    QString controls;
    for (ushort c = 0; c < 0x80; ++c)
        controls += QChar(c);
    QTest::newRow("every ASCII character")
        << QJsonObject { { controls, controls }, { QStringLiteral("x"), QStringLiteral("\"\\/") } };
    // Strings with nothing to escape take a shorter way, which must write the same.
    QString printable;
    for (ushort c = 0x20; c < 0x80; ++c) {
        if (c != '"' && c != '\\')
            printable += QChar(c);
    }
    QTest::newRow("plain ASCII") << QJsonObject { { printable, printable },
        { QString(), QString() }, { QStringLiteral("long"), QString(300, QLatin1Char('w')) },
        { QStringLiteral("then beyond"), QString(printable + QStringLiteral("é")) } };
    QTest::newRow("text beyond ASCII") << QJsonObject { { QStringLiteral("é"),
                                                            QStringLiteral("Ünïcødé €") },
        { QStringLiteral("astral"), QString::fromUcs4(U"🎵 𝄞") },
        { QStringLiteral("lone high"), QString(QString(QChar(0xd83c)) + QStringLiteral("x")) },
        { QStringLiteral("lone low"), QString(QChar(0xdfb5)) },
        { QStringLiteral("high at end"), QString(QStringLiteral("a") + QChar(0xd83c)) },
        { QStringLiteral("noncharacters"),
            QString(QString(QChar(0xfffe)) + QChar(0xffff) + QChar(0x7ff) + QChar(0x800)) } };
    QTest::newRow("nested") << QJsonObject { { QStringLiteral("apps"),
        QJsonArray { QJsonObject { { QStringLiteral("i"), QStringLiteral("a") },
                         { QStringLiteral("s"), QStringLiteral("r") } },
            QJsonArray { 1, 2.5, QJsonArray(), QJsonObject(), QJsonValue(), true, false } } } };
    QTest::newRow("parsed") << QJsonDocument::fromJson(
        R"({"n":[0,-1,1.5,1e21,12345678901234567890,1e-7,-0,9007199254740993],"s":"\u0000\ud800"})")
                                   .object();
}

void TestJson::compactWritesAsQt()
{
    QFETCH(QJsonObject, object);
    QCOMPARE(Json::compact(object), QJsonDocument(object).toJson(QJsonDocument::Compact));
}

void TestJson::compactWritesRandomObjectsAsQt()
{
    QRandomGenerator random(20261123);
    std::function<QJsonValue(int)> value = [&](int depth) -> QJsonValue {
        switch (random.bounded(depth > 3 ? 6 : 8)) {
        case 0:
            return QJsonValue(int(random.generate()));
        case 1:
            return QJsonValue(qint64(random.generate64()) >> random.bounded(64));
        case 2: {
            double number;
            const quint64 bits = random.generate64();
            memcpy(&number, &bits, sizeof number);
            return random.bounded(2) ? QJsonValue(number)
                                     : QJsonValue(random.generateDouble() * 1000);
        }
        case 3: {
            QString text;
            for (int i = random.bounded(12); i > 0; --i)
                text += QChar(
                    ushort(random.bounded(3) ? random.bounded(0x80) : random.bounded(0x10000)));
            return text;
        }
        case 4:
            return QJsonValue(bool(random.bounded(2)));
        case 5:
            return QJsonValue();
        case 6: {
            QJsonArray array;
            for (int i = random.bounded(5); i > 0; --i)
                array.append(value(depth + 1));
            return array;
        }
        default: {
            QJsonObject object;
            for (int i = random.bounded(5); i > 0; --i)
                object.insert(value(9).toString() + QString::number(i), value(depth + 1));
            return object;
        }
        }
    };
    for (int round = 0; round < 3000; ++round) {
        QJsonObject object;
        for (int i = random.bounded(6); i > 0; --i)
            object.insert(QStringLiteral("k%1").arg(random.bounded(100)), value(0));
        const QByteArray expected = QJsonDocument(object).toJson(QJsonDocument::Compact);
        QCOMPARE(Json::compact(object), expected);
        // With a method put in as a reply's "_", among keys before and after it in Qt's order
        // and in place of one that is there.
        QJsonObject reply = object;
        for (const QString &key : { QStringLiteral("A"), QStringLiteral("^"), QStringLiteral("`"),
                 QStringLiteral("_a"), QStringLiteral("é") }) {
            if (random.bounded(2))
                reply.insert(key, value(2));
        }
        if (random.bounded(3) == 0)
            reply.insert(QStringLiteral("_"), value(2));
        const QString method = value(9).toString();
        const QJsonObject before = reply;
        const QByteArray written = Json::compact(reply, method);
        QCOMPARE(reply, before);
        reply.insert(QStringLiteral("_"), method);
        QCOMPARE(written, QJsonDocument(reply).toJson(QJsonDocument::Compact));
        // And after a trip through the parser, as requests arrive.
        const QJsonObject parsed = QJsonDocument::fromJson(expected).object();
        QCOMPARE(Json::compact(parsed), QJsonDocument(parsed).toJson(QJsonDocument::Compact));
    }
}

namespace {
// Fields are given as a braced list, so a list of any length is spelled out here.
QByteArray compactFields(const QString &method, const QVector<Json::Field> &f)
{
    switch (f.size()) {
    case 0:
        return Json::compact(method, {});
    case 1:
        return Json::compact(method, { f[0] });
    case 2:
        return Json::compact(method, { f[0], f[1] });
    case 3:
        return Json::compact(method, { f[0], f[1], f[2] });
    case 4:
        return Json::compact(method, { f[0], f[1], f[2], f[3] });
    case 5:
        return Json::compact(method, { f[0], f[1], f[2], f[3], f[4] });
    default:
        return Json::compact(method, { f[0], f[1], f[2], f[3], f[4], f[5] });
    }
}
} // namespace

void TestJson::fieldsWriteAsTheirObject()
{
    QRandomGenerator random(20261124);
    // Keys before, at and after "_" in Qt's order, and repeated ones.
    const QStringList keys { QStringLiteral("_"), QStringLiteral("a"), QStringLiteral("i"),
        QStringLiteral("Z"), QStringLiteral("~"), QString(), QStringLiteral("_a"),
        QStringLiteral("é"), QStringLiteral("\u00ff"), QString::fromUcs4(U"𝄞") };
    const QVector<QJsonValue> values { QJsonValue(QJsonValue::Undefined), QJsonValue(),
        QJsonValue(true), QJsonValue(false), QJsonValue(0), QJsonValue(-12), QJsonValue(2.5),
        QJsonValue(3.0), QJsonValue(qint64(1) << 60), QJsonValue(1e300),
        QJsonValue(QStringLiteral("text")), QJsonValue(QStringLiteral("\"é\n")),
        QJsonValue(QJsonArray { 1, QStringLiteral("x") }),
        QJsonValue(QJsonObject { { QStringLiteral("b"), 1 } }) };
    const QStringList strings { QString(), QStringLiteral("ks"), QStringLiteral("Ünï\tcødé"),
        QString(QChar(0xd800)) };
    for (int round = 0; round < 3000; ++round) {
        const int count = random.bounded(7);
        QVector<QString> fieldKeys;
        QVector<QString> fieldStrings;
        QVector<QJsonValue> fieldValues;
        QVector<bool> isString;
        for (int i = 0; i < count; ++i) {
            fieldKeys.append(keys.at(random.bounded(keys.size())));
            isString.append(random.bounded(3) == 0);
            fieldStrings.append(strings.at(random.bounded(strings.size())));
            fieldValues.append(values.at(random.bounded(values.size())));
        }
        QJsonObject object;
        QVector<Json::Field> fields;
        for (int i = 0; i < count; ++i) {
            if (isString[i]) {
                object.insert(fieldKeys[i], fieldStrings[i]);
                fields.append(Json::Field(fieldKeys[i], fieldStrings[i]));
            } else {
                object.insert(fieldKeys[i], fieldValues[i]);
                fields.append(Json::Field(fieldKeys[i], fieldValues[i]));
            }
        }
        const QString method = strings.at(random.bounded(strings.size()));
        object.insert(QStringLiteral("_"), method);
        const QByteArray written = compactFields(method, fields);
        QCOMPARE(written, QJsonDocument(object).toJson(QJsonDocument::Compact));
    }
}

void TestJson::fieldsOfEveryKind()
{
    // As handlers write them: values converted where they are given.
    const QString id = QStringLiteral("org.kde.dolphin");
    const QByteArray written = Json::compact(QStringLiteral("fv"),
        { { QStringLiteral("v"), 42 }, { QStringLiteral("b"), true }, { QStringLiteral("i"), id },
            { QStringLiteral("d"), 0.25 },
            { QStringLiteral("l"), QJsonArray::fromStringList({ QStringLiteral("x") }) },
            { QStringLiteral("t"), QStringLiteral("made here") } });
    const QJsonObject object { { QStringLiteral("v"), 42 }, { QStringLiteral("b"), true },
        { QStringLiteral("i"), id }, { QStringLiteral("d"), 0.25 },
        { QStringLiteral("l"), QJsonArray::fromStringList({ QStringLiteral("x") }) },
        { QStringLiteral("t"), QStringLiteral("made here") },
        { QStringLiteral("_"), QStringLiteral("fv") } };
    QCOMPARE(written, QJsonDocument(object).toJson(QJsonDocument::Compact));
    QCOMPARE(written,
        QByteArray(R"({"_":"fv","b":true,"d":0.25,"i":"org.kde.dolphin","l":["x"],)"
                   R"("t":"made here","v":42})"));
}

void TestJson::appendedStrings()
{
    // Onto text that is shared with another array, which keeps what it had.
    const QByteArray before = "[";
    QByteArray out = before;
    const QStringList texts { QStringLiteral("org.kde.dolphin"), QString(),
        QStringLiteral("plain, then \"é\"\n"), QString(200, QLatin1Char('x')) };
    QJsonArray array;
    for (const QString &text : texts) {
        if (out.size() > 1)
            out += ',';
        Json::appendString(out, text);
        array.append(text);
    }
    out += ']';
    QCOMPARE(before, QByteArray("["));
    QCOMPARE(out, QJsonDocument(array).toJson(QJsonDocument::Compact));
}

QTEST_GUILESS_MAIN(TestJson)
#include "tst_json.moc"
