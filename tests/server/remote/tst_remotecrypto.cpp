#include "authenticationhandler.h"
#include "clientsession.h"
#include "l.h"
#include "protocolclient.h"
#include "server.h"
#include "serverfixture.h"
#include "testenvironment.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QRandomGenerator>
#include <QStandardPaths>
#include <QtTest>

namespace {
// Runs the page's protocol module in Node on the cases; the results in the same order.
QJsonArray runInNode(const QJsonArray &cases)
{
    const QString node = QStandardPaths::findExecutable(QStringLiteral("node"));
    if (node.isEmpty()) {
        qWarning() << "node is not installed (scripts/deps installs it)";
        return QJsonArray();
    }
    QProcess process;
    process.start(node, { QStringLiteral(VELM_CRYPTO_CHECK), QStringLiteral(VELM_REMOTE_DIR) });
    process.write(QJsonDocument(cases).toJson(QJsonDocument::Compact));
    process.closeWriteChannel();
    qRegisterMetaType<QProcess::ExitStatus>();
    QSignalSpy finished(&process, qOverload<int, QProcess::ExitStatus>(&QProcess::finished));
    if (!finished.wait(30000) || process.exitCode() != 0) {
        qWarning() << process.readAllStandardError();
        return QJsonArray();
    }
    return QJsonDocument::fromJson(process.readAllStandardOutput()).array();
}

QString randomText(int length, bool unicode)
{
    static const QString alphabet
        = QStringLiteral("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789");
    static const QString wide = QStringLiteral("éàüß€ł中文ж\"\\\n");
    QString text;
    for (int i = 0; i < length; ++i) {
        const QString &from = unicode && i % 3 == 0 ? wide : alphabet;
        text += from.at(QRandomGenerator::global()->bounded(from.size()));
    }
    return text;
}
} // namespace

// The web remote's AES-128-CBC and SHA-1 (vendored JavaScript) and its framing, against the
// program's own key derivation, encryption and messages.
class TestRemoteCrypto : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { TestEnvironment::setUp(); }
    void pageAndProgramAgree();
    void pageReadsTheProgramsMessages();
    void focusedElementIsDescribedInWords_data();
    void focusedElementIsDescribedInWords();
};

void TestRemoteCrypto::pageAndProgramAgree()
{
    Server server;
    QJsonArray cases;
    QList<QString> plains;
    QList<QByteArray> keys;
    for (int i = 0; i < 60; ++i) {
        QJsonObject c;
        const QString id = i == 0 ? QString() : randomText(1 + i % 20, i % 2);
        const QString token = i % 7 == 0 ? QString() : randomText(32, false);
        // Session tokens whose first byte gives every remainder, and some that start with a
        // byte above 127 (negative as a signed byte: nothing is repeated).
        QString session = randomText(32, false);
        if (i % 5 == 4)
            session.replace(0, 1, QStringLiteral("é"));
        else
            session[0] = QLatin1Char(char(48 + i % 75));
        // Every length around the block size, and longer texts.
        const QString plain = i < 40 ? randomText(i, i % 3 == 0) : randomText(100 + i * 37, true);
        const QByteArray key = Server::computeAESKey(id, token, session);
        QCOMPARE(key, ClientSession::deriveKey(id, token, session));
        c.insert(QStringLiteral("id"), id);
        c.insert(QStringLiteral("token"), token);
        c.insert(QStringLiteral("sessionToken"), session);
        c.insert(QStringLiteral("plain"), plain);
        c.insert(QStringLiteral("programKey"), QString::fromLatin1(key.toHex()));
        c.insert(QStringLiteral("programBody"),
            QString::fromLatin1(server.encrypt(plain.toUtf8(), key).toHex()));
        cases.append(c);
        plains << plain;
        keys << key;
    }
    const QJsonArray results = runInNode(cases);
    QCOMPARE(results.size(), cases.size());
    QSet<QString> bodies;
    for (int i = 0; i < results.size(); ++i) {
        const QJsonObject result = results.at(i).toObject();
        QCOMPARE(result.value(QStringLiteral("key")).toString().toLatin1(), keys.at(i).toHex());
        QCOMPARE(result.value(QStringLiteral("decrypted")).toString(), plains.at(i));
        const QByteArray body
            = QByteArray::fromHex(result.value(QStringLiteral("body")).toString().toLatin1());
        QCOMPARE(body.size() % 16, 0);
        QCOMPARE(body.size(), 16 + (plains.at(i).toUtf8().size() / 16 + 1) * 16);
        QCOMPARE(QString::fromUtf8(server.decrypt(body, keys.at(i))), plains.at(i));
        bool ok = false;
        QCOMPARE(
            QString::fromUtf8(ClientSession::decryptBody(body, keys.at(i), &ok)), plains.at(i));
        QVERIFY(ok);
        // A fresh initialisation vector every time.
        bodies.insert(result.value(QStringLiteral("body")).toString().left(32));
    }
    QCOMPARE(bodies.size(), results.size());
}

void TestRemoteCrypto::pageReadsTheProgramsMessages()
{
    TestEnvironment::clearSettings();
    Server server;
    new AuthenticationHandler(&server, L::auth);
    server.startWebSocketServer();
    const quint16 port = listeningPort(&server);
    QVERIFY(port);
    Pairing::authorize(QStringLiteral("web"), QStringLiteral("web-token"));
    ProtocolClient client(QStringLiteral("web"));
    QVERIFY(Pairing::connectAuthenticated(client, port));
    QWebSocket *socket = server.getClients().value(0);
    QVERIFY(socket);

    const QByteArray png("\x89PNG\r\n\x1a\n\x00\x01", 10);
    const QByteArray tree("[{\"i\":\"1\",\"n\":\"Fichier é\"}]");
    const int from = client.rawMessages.size();
    server.sendMessage(socket,
        QJsonObject { { L::method, L::appMenu }, { L::id, QStringLiteral("ü") } },
        QVector<Server::MessagePart> {
            { Server::Json, tree }, { Server::Png, png }, { Server::Png, QByteArray() } });
    server.sendMessage(socket, L::volume, QJsonObject { { L::value, 42 } });
    QTRY_COMPARE(client.rawMessages.size(), from + 2);

    QJsonArray cases;
    for (int i = 0; i < 2; ++i) {
        cases.append(QJsonObject { { QStringLiteral("id"), QStringLiteral("web") },
            { QStringLiteral("token"), QStringLiteral("web-token") },
            { QStringLiteral("sessionToken"), client.sessionToken() },
            { QStringLiteral("plain"), QString() },
            { QStringLiteral("programKey"), QString::fromLatin1(client.key().toHex()) },
            { QStringLiteral("programBody"),
                QString::fromLatin1(server.encrypt("{}", client.key()).toHex()) },
            { QStringLiteral("programFrame"),
                QString::fromLatin1(client.rawMessages.at(from + i).toHex()) } });
    }
    const QJsonArray results = runInNode(cases);
    QCOMPARE(results.size(), 2);
    QCOMPARE(results.at(0).toObject().value(QStringLiteral("key")).toString().toLatin1(),
        client.key().toHex());
    const QJsonObject menu = results.at(0).toObject().value(QStringLiteral("frame")).toObject();
    QCOMPARE(menu.value(QStringLiteral("object")).toObject(),
        (QJsonObject { { L::method, L::appMenu }, { L::id, QStringLiteral("ü") } }));
    const QJsonArray parts = menu.value(QStringLiteral("parts")).toArray();
    QCOMPARE(parts.size(), 3);
    QCOMPARE(parts.at(0).toObject().value(QStringLiteral("type")).toInt(), 0);
    QCOMPARE(
        parts.at(0).toObject().value(QStringLiteral("data")).toString().toLatin1(), tree.toHex());
    QCOMPARE(parts.at(1).toObject().value(QStringLiteral("type")).toInt(), 1);
    QCOMPARE(
        parts.at(1).toObject().value(QStringLiteral("data")).toString().toLatin1(), png.toHex());
    QCOMPARE(parts.at(2).toObject().value(QStringLiteral("data")).toString(), QString());
    const QJsonObject volume = results.at(1).toObject().value(QStringLiteral("frame")).toObject();
    QCOMPARE(volume.value(QStringLiteral("object")).toObject(),
        (QJsonObject { { L::method, L::volume }, { L::value, 42 } }));
    QVERIFY(volume.value(QStringLiteral("parts")).toArray().isEmpty());
}

void TestRemoteCrypto::focusedElementIsDescribedInWords_data()
{
    QTest::addColumn<QString>("language");
    QTest::addColumn<QStringList>("expected");
    QTest::newRow("English") << QStringLiteral("en-GB")
                             << QStringList { QStringLiteral("Nothing is focused."),
                                    QStringLiteral("Nothing is focused."),
                                    QStringLiteral("Text field"),
                                    QStringLiteral("Text area · Notes"), QStringLiteral("Window"),
                                    QStringLiteral("List"), QStringLiteral("Table"),
                                    QStringLiteral("Button · OK"),
                                    QStringLiteral("Focused element") };
    QTest::newRow("Italian") << QStringLiteral("it-IT")
                             << QStringList { QStringLiteral("Nessun campo attivo."),
                                    QStringLiteral("Nessun campo attivo."),
                                    QStringLiteral("Campo di testo"),
                                    QStringLiteral("Area di testo · Notes"),
                                    QStringLiteral("Finestra"), QStringLiteral("Elenco"),
                                    QStringLiteral("Tabella"), QStringLiteral("Pulsante · OK"),
                                    QStringLiteral("Elemento attivo") };
}

void TestRemoteCrypto::focusedElementIsDescribedInWords()
{
    QFETCH(QString, language);
    QFETCH(QStringList, expected);
    // The roles the program sends ("Null" when nothing has the focus, with a name or none), and
    // one a newer program might add.
    const QJsonArray cases { QJsonArray { QStringLiteral("Null"), QString() },
        QJsonArray { QStringLiteral("Null"), QStringLiteral("stale") },
        QJsonArray { QStringLiteral("Text"), QString() },
        QJsonArray { QStringLiteral("TextArea"), QStringLiteral("Notes") },
        QJsonArray { QStringLiteral("Window"), QString() },
        QJsonArray { QStringLiteral("List"), QString() },
        QJsonArray { QStringLiteral("Table"), QString() },
        QJsonArray { QStringLiteral("Button"), QStringLiteral("OK") },
        QJsonArray { QStringLiteral("Gizmo"), QString() } };
    const QString node = QStandardPaths::findExecutable(QStringLiteral("node"));
    QVERIFY2(!node.isEmpty(), "node is not installed (scripts/deps installs it)");
    QProcess process;
    process.start(
        node, { QStringLiteral(VELM_TEXTS_CHECK), QStringLiteral(VELM_REMOTE_DIR), language });
    process.write(QJsonDocument(cases).toJson(QJsonDocument::Compact));
    process.closeWriteChannel();
    QSignalSpy finished(&process, qOverload<int, QProcess::ExitStatus>(&QProcess::finished));
    QVERIFY(finished.wait(30000));
    QVERIFY2(process.exitCode() == 0, process.readAllStandardError().constData());
    QStringList labels;
    for (const QJsonValue &label : QJsonDocument::fromJson(process.readAllStandardOutput()).array())
        labels << label.toString();
    QCOMPARE(labels, expected);
}

QTEST_GUILESS_MAIN(TestRemoteCrypto)
#include "tst_remotecrypto.moc"
