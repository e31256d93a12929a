#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QSet>
#include <QTemporaryDir>
#include <QTranslator>
#include <QXmlStreamReader>
#include <QtTest>

namespace {
struct Message
{
    QString context;
    QString source;
    QStringList translations;
    bool finished = true;
    bool numerus = false;
};

QList<Message> readTs(const QString &path)
{
    QList<Message> messages;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return messages;
    QXmlStreamReader xml(&file);
    QString context;
    Message current;
    while (!xml.atEnd()) {
        xml.readNext();
        if (xml.isStartElement()) {
            if (xml.name() == QLatin1String("name"))
                context = xml.readElementText();
            else if (xml.name() == QLatin1String("message")) {
                current = Message();
                current.context = context;
                current.numerus
                    = xml.attributes().value(QLatin1String("numerus")) == QLatin1String("yes");
            } else if (xml.name() == QLatin1String("source"))
                current.source = xml.readElementText();
            else if (xml.name() == QLatin1String("translation")) {
                const QStringRef type = xml.attributes().value(QLatin1String("type"));
                current.finished = type.isEmpty();
                if (!current.numerus)
                    current.translations << xml.readElementText();
            } else if (xml.name() == QLatin1String("numerusform"))
                current.translations << xml.readElementText();
        } else if (xml.isEndElement() && xml.name() == QLatin1String("message")) {
            messages << current;
        }
    }
    return messages;
}

QSet<QString> keys(const QList<Message> &messages)
{
    QSet<QString> result;
    for (const Message &message : messages)
        result.insert(message.context + QLatin1Char('|') + message.source);
    return result;
}

QStringList placeholders(const QString &text)
{
    static const QRegularExpression marker(QStringLiteral("%(\\d|n)"));
    QStringList found;
    auto it = marker.globalMatch(text);
    while (it.hasNext())
        found << it.next().captured();
    found.sort();
    found.removeDuplicates();
    return found;
}
} // namespace

// The shipped translations cover every text of the program.
class TestTranslations : public QObject
{
    Q_OBJECT
private slots:
    void italianIsComplete();
    void sourcesMatchTheCode();
    void compiledFilesTranslate();
};

void TestTranslations::italianIsComplete()
{
    const QList<Message> messages = readTs(QStringLiteral(VELM_TS_DIR "/it.ts"));
    QVERIFY(messages.size() > 30);
    for (const Message &message : messages) {
        QVERIFY2(message.finished, qPrintable(message.source));
        QVERIFY2(!message.translations.isEmpty(), qPrintable(message.source));
        for (const QString &translation : message.translations) {
            QVERIFY2(!translation.isEmpty(), qPrintable(message.source));
            // Every placeholder of the source is used (a plural form may spell out the one).
            if (!message.numerus)
                QCOMPARE(placeholders(translation), placeholders(message.source));
        }
        if (message.numerus)
            QCOMPARE(message.translations.size(), 2);
    }
}

void TestTranslations::sourcesMatchTheCode()
{
    // What lupdate finds in the code today is exactly what the translation files hold.
    QTemporaryDir dir;
    const QString fresh = dir.filePath(QStringLiteral("fresh.ts"));
    QProcess lupdate;
    lupdate.setProcessChannelMode(QProcess::MergedChannels);
    lupdate.start(QStringLiteral(VELM_LUPDATE),
        { QStringLiteral("-silent"), QStringLiteral("-locations"), QStringLiteral("none"),
            QStringLiteral(VELM_SOURCE_DIR), QStringLiteral("-ts"), fresh });
    QVERIFY(lupdate.waitForFinished(60000));
    QVERIFY2(lupdate.exitCode() == 0, lupdate.readAll().constData());
    const QSet<QString> code = keys(readTs(fresh));
    QVERIFY(!code.isEmpty());
    for (const char *language : { "it", "en" }) {
        const QSet<QString> shipped = keys(readTs(
            QStringLiteral(VELM_TS_DIR "/") + QLatin1String(language) + QStringLiteral(".ts")));
        QSet<QString> missing = code;
        missing.subtract(shipped);
        QSet<QString> stale = shipped;
        stale.subtract(code);
        QVERIFY2(missing.isEmpty(),
            qPrintable(QStringLiteral("run `make translations`: ")
                + missing.values().join(QStringLiteral(", "))));
        QVERIFY2(stale.isEmpty(), qPrintable(stale.values().join(QStringLiteral(", "))));
    }
}

void TestTranslations::compiledFilesTranslate()
{
    QTranslator italian;
    QVERIFY(italian.load(QLocale(QLocale::Italian, QLocale::Italy), QString(), QString(),
        QStringLiteral(VELM_LOCALE_DIR)));
    QCOMPARE(italian.translate("UI", "%1 would like to connect."),
        QStringLiteral("%1 vorrebbe connettersi."));
    QCOMPARE(italian.translate("UI", "%n client(s) connected", nullptr, 1),
        QStringLiteral("%n client connesso"));
    QCOMPARE(italian.translate("UI", "%n client(s) connected", nullptr, 3),
        QStringLiteral("%n client connessi"));
    QTranslator english;
    QVERIFY(english.load(QLocale(QLocale::English, QLocale::UnitedStates), QString(), QString(),
        QStringLiteral(VELM_LOCALE_DIR)));
    QCOMPARE(english.translate("UI", "%n client(s) connected", nullptr, 1),
        QStringLiteral("%n client connected"));
    QCOMPARE(english.translate("UI", "%n client(s) connected", nullptr, 2),
        QStringLiteral("%n clients connected"));
}

QTEST_GUILESS_MAIN(TestTranslations)
#include "tst_translations.moc"
