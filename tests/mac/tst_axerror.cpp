#include "axerror.h"

#include <QtTest>

namespace {
// What the stream holds after the error alone: the restored stream then adds its usual space
// before whatever comes next, as for any other type.
QString written(AXErrorTag error)
{
    QString text;
    QDebug(&text) << error;
    if (!text.endsWith(QLatin1Char(' ')))
        return QStringLiteral("(no space after it)");
    text.chop(1);
    return text;
}
} // namespace

// The debug output of accessibility error codes.
class TestAXError : public QObject
{
    Q_OBJECT
private slots:
    void cannotComplete();
    void unknownCode();
    void everyKnownCode_data();
    void everyKnownCode();
    void streamSettingsRestored();
};

void TestAXError::cannotComplete()
{
    QCOMPARE(written({ -25204 }),
        QStringLiteral("AXError(value=-25204, name=kAXErrorCannotComplete, description=\"The "
                       "function cannot complete because messaging failed in some way or because "
                       "the application with which the function is communicating is busy or "
                       "unresponsive.\")"));
}

void TestAXError::unknownCode()
{
    QCOMPARE(written({ 7 }),
        QStringLiteral("AXError(value=7, name=<unknown error>, description=\"UNKNOWN ERROR\")"));
}

void TestAXError::everyKnownCode_data()
{
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("name");
    QTest::newRow("success") << 0 << QStringLiteral("kAXErrorSuccess");
    QTest::newRow("-25200") << -25200 << QStringLiteral("kAXErrorFailure");
    QTest::newRow("-25201") << -25201 << QStringLiteral("kAXErrorIllegalArgument");
    QTest::newRow("-25202") << -25202 << QStringLiteral("kAXErrorInvalidUIElement");
    QTest::newRow("-25203") << -25203 << QStringLiteral("kAXErrorInvalidUIElementObserver");
    QTest::newRow("-25204") << -25204 << QStringLiteral("kAXErrorCannotComplete");
    QTest::newRow("-25205") << -25205 << QStringLiteral("kAXErrorAttributeUnsupported");
    QTest::newRow("-25206") << -25206 << QStringLiteral("kAXErrorActionUnsupported");
    QTest::newRow("-25207") << -25207 << QStringLiteral("kAXErrorNotificationUnsupported");
    QTest::newRow("-25208") << -25208 << QStringLiteral("kAXErrorNotImplemented");
    QTest::newRow("-25209") << -25209 << QStringLiteral("kAXErrorNotificationAlreadyRegistered");
    QTest::newRow("-25210") << -25210 << QStringLiteral("kAXErrorNotificationNotRegistered");
    QTest::newRow("-25211") << -25211 << QStringLiteral("kAXErrorAPIDisabled");
    QTest::newRow("-25212") << -25212 << QStringLiteral("kAXErrorNoValue");
    QTest::newRow("-25213") << -25213
                            << QStringLiteral("kAXErrorParameterizedAttributeUnsupported");
    QTest::newRow("-25214") << -25214 << QStringLiteral("kAXErrorNotEnoughPrecision");
    QTest::newRow("-25215") << -25215 << QStringLiteral("<unknown error>");
}

void TestAXError::everyKnownCode()
{
    QFETCH(int, code);
    QFETCH(QString, name);
    QCOMPARE(QString::fromLatin1(AXErrors::name(code)), name);
    QVERIFY(written({ code }).startsWith(
        QStringLiteral("AXError(value=%1, name=%2, description=\"").arg(code).arg(name)));
    QVERIFY(written({ code }).endsWith(QStringLiteral("\")")));
}

void TestAXError::streamSettingsRestored()
{
    // The quotes inside the description stay as they are, and the stream goes on with its
    // own spacing and quoting afterwards.
    QString text;
    QDebug(&text) << AXErrorTag { -25211 } << QStringLiteral("next");
    QVERIFY(text.contains(QStringLiteral("deselects \"Enable access for assistive devices\" in")));
    QVERIFY2(text.endsWith(QStringLiteral("Preferences).\") \"next\" ")), qPrintable(text));
}

QTEST_GUILESS_MAIN(TestAXError)
#include "tst_axerror.moc"
