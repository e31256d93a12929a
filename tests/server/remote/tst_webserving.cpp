#include "authenticationhandler.h"
#include "l.h"
#include "protocolclient.h"
#include "runningprogram.h"
#include "server.h"
#include "serverfixture.h"
#include "testenvironment.h"
#include "webremote.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QRegularExpression>
#include <QTcpSocket>
#include <QtTest>

namespace {
const QString remoteDir = QStringLiteral(VELM_REMOTE_DIR);

struct Reply
{
    int status = 0;
    QMap<QByteArray, QByteArray> headers; // lower-case names
    QByteArray body;
    bool closed = false;
};

// Sends raw bytes, then reads until the server closes the connection.
Reply exchange(quint16 port, const QByteArray &request)
{
    Reply reply;
    QTcpSocket socket;
    socket.connectToHost(QHostAddress::LocalHost, port);
    if (!socket.waitForConnected(5000))
        return reply;
    socket.write(request);
    QByteArray all;
    reply.closed = QTest::qWaitFor(
        [&] {
            all += socket.readAll();
            return socket.state() == QAbstractSocket::UnconnectedState;
        },
        10000);
    all += socket.readAll();
    const int end = all.indexOf("\r\n\r\n");
    if (end < 0)
        return reply;
    const QList<QByteArray> lines = all.left(end).split('\n');
    reply.status = lines.first().split(' ').value(1).toInt();
    for (int i = 1; i < lines.size(); ++i) {
        const int colon = lines.at(i).indexOf(':');
        reply.headers.insert(
            lines.at(i).left(colon).trimmed().toLower(), lines.at(i).mid(colon + 1).trimmed());
    }
    reply.body = all.mid(end + 4);
    return reply;
}

QByteArray get(const QByteArray &target, const QByteArray &method = "GET",
    const QByteArray &extra = QByteArray())
{
    return method + ' ' + target + " HTTP/1.1\r\nHost: 127.0.0.1\r\n" + extra + "\r\n";
}

// Local ports this process listens on, from the kernel's socket tables.
QSet<quint16> listeningPorts(qint64 pid)
{
    QSet<QByteArray> inodes;
    QDirIterator fds(QStringLiteral("/proc/%1/fd").arg(pid), QDir::System | QDir::NoDotAndDotDot);
    while (fds.hasNext()) {
        const QString target = QFile::symLinkTarget(fds.next());
        if (target.contains(QLatin1String("socket:[")))
            inodes.insert(target.section(QLatin1Char('['), 1).chopped(1).toLatin1());
    }
    QSet<quint16> ports;
    for (const char *table : { "/proc/net/tcp", "/proc/net/tcp6" }) {
        QFile file(QString::fromLatin1(table));
        if (!file.open(QIODevice::ReadOnly))
            continue;
        for (const QByteArray &line : file.readAll().split('\n').mid(1)) {
            const QList<QByteArray> fields = line.simplified().split(' ');
            if (fields.size() < 10 || fields.at(3) != "0A" || !inodes.contains(fields.at(9)))
                continue;
            ports.insert(quint16(fields.at(1).split(':').last().toUInt(nullptr, 16)));
        }
    }
    return ports;
}
} // namespace

// The web remote's files on the WebSocket port: what is served, with which headers, and what
// is refused.
class TestWebServing : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();

    void everyFileIsServedAsItIs();
    void pageHeaders();
    void headHasNoBody();
    void otherPathsAreNotFound_data();
    void otherPathsAreNotFound();
    void otherMethodsAreNotAllowed_data();
    void otherMethodsAreNotAllowed();
    void malformedRequestLine();
    void bareLineFeedIsRefusedAtOnce_data();
    void bareLineFeedIsRefusedAtOnce();
    void twoOriginsAreRefused();
    void unchangedFileIsNotSentAgain();
    void oversizedRequestIsRefused_data();
    void oversizedRequestIsRefused();
    void requestInPieces();
    void answeredConnectionsAreReleased();
    void webSocketStillOnTheSamePort();
    void pageOriginPassesOthersDoNot_data();
    void pageOriginPassesOthersDoNot();
    void programListensOnOnePortAndLogsTheAddress();

private:
    Server *server = nullptr;
    quint16 port = 0;
};

void TestWebServing::initTestCase()
{
    TestEnvironment::setUp();
    TestEnvironment::clearSettings();
    server = new Server;
    new AuthenticationHandler(server, L::auth);
    server->startWebSocketServer();
    port = listeningPort(server);
    QVERIFY(port);
}

void TestWebServing::cleanupTestCase() { delete server; }

void TestWebServing::everyFileIsServedAsItIs()
{
    QStringList expected;
    QDirIterator it(remoteDir, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next().mid(remoteDir.size());
        if (path != QLatin1String("/remote.qrc"))
            expected << path;
    }
    // The page shows the program's own icon, taken from the artwork as it is.
    expected << QStringLiteral("/") << QStringLiteral("/icon.svg");
    expected.sort();
    QCOMPARE(WebRemote::paths(), expected);

    const QMap<QString, QByteArray> types {
        { QStringLiteral("html"), "text/html; charset=utf-8" },
        { QStringLiteral("mjs"), "text/javascript; charset=utf-8" },
        { QStringLiteral("js"), "text/javascript; charset=utf-8" },
        { QStringLiteral("css"), "text/css; charset=utf-8" },
        { QStringLiteral("svg"), "image/svg+xml" },
        { QStringLiteral("txt"), "text/plain; charset=utf-8" },
        { QStringLiteral("webmanifest"), "application/manifest+json" },
    };
    for (const QString &path : qAsConst(expected)) {
        const QString onDisk = path == QLatin1String("/") ? QStringLiteral("/index.html") : path;
        QFile file(path == QLatin1String("/icon.svg") ? QStringLiteral(VELM_ART_ICON)
                                                      : remoteDir + onDisk);
        QVERIFY2(file.open(QIODevice::ReadOnly), qPrintable(onDisk));
        const Reply reply = exchange(port, get(path.toUtf8()));
        QVERIFY2(reply.closed, qPrintable(path));
        QCOMPARE(reply.status, 200);
        QCOMPARE(reply.body, file.readAll());
        QCOMPARE(reply.headers.value("content-length").toInt(), reply.body.size());
        QCOMPARE(
            reply.headers.value("content-type"), types.value(onDisk.section(QLatin1Char('.'), -1)));
        QCOMPARE(reply.headers.value("x-content-type-options"), QByteArray("nosniff"));
    }
}

void TestWebServing::pageHeaders()
{
    for (const QByteArray &target : { QByteArray("/"), QByteArray("/index.html") }) {
        const Reply reply = exchange(port,
            "GET " + target + " HTTP/1.1\r\nHost: 127.0.0.1:" + QByteArray::number(port)
                + "\r\n\r\n");
        QCOMPARE(reply.status, 200);
        QCOMPARE(reply.headers.value("cache-control"), QByteArray("no-store"));
        const QByteArray policy = reply.headers.value("content-security-policy");
        QVERIFY(policy.contains("default-src 'none'"));
        QVERIFY(policy.contains("script-src 'self';"));
        QVERIFY(!policy.contains("unsafe-inline"));
        QVERIFY(!policy.contains("unsafe-eval"));
        QVERIFY(
            policy.contains("connect-src 'self' ws://127.0.0.1:" + QByteArray::number(port) + ';'));
        QCOMPARE(reply.headers.value("x-frame-options"), QByteArray("DENY"));
        // No inline script or style that the policy would have to allow.
        QVERIFY(!reply.body.contains("<script>"));
        QVERIFY(!reply.body.contains(" style="));
        QVERIFY(!reply.body.contains("<style"));
    }
    // A Host that is not a plain host name stays out of the policy.
    const Reply odd = exchange(port, "GET / HTTP/1.1\r\nHost: a b;c\r\n\r\n");
    QCOMPARE(odd.status, 200);
    QVERIFY(odd.headers.value("content-security-policy").contains("connect-src 'self';"));
    // Modules may be kept, but are checked each time.
    QCOMPARE(
        exchange(port, get("/app.mjs")).headers.value("cache-control"), QByteArray("no-cache"));
}

void TestWebServing::headHasNoBody()
{
    const Reply full = exchange(port, get("/style.css"));
    const Reply head = exchange(port, get("/style.css", "HEAD"));
    QCOMPARE(head.status, 200);
    QVERIFY(head.body.isEmpty());
    QCOMPARE(head.headers.value("content-length").toInt(), full.body.size());
    QCOMPARE(head.headers.value("content-type"), full.headers.value("content-type"));
    const Reply missing = exchange(port, get("/missing", "HEAD"));
    QCOMPARE(missing.status, 404);
    QVERIFY(missing.body.isEmpty());
}

void TestWebServing::otherPathsAreNotFound_data()
{
    QTest::addColumn<QByteArray>("target");
    QTest::newRow("unknown") << QByteArray("/nothing-here");
    QTest::newRow("upwards") << QByteArray("/../server.cpp");
    QTest::newRow("upwards, encoded") << QByteArray("/%2e%2e/%2e%2e/etc/passwd");
    QTest::newRow("another resource") << QByteArray("/../i18n/velm_it.qm");
    QTest::newRow("the resource's own name") << QByteArray("/remote/index.html");
    QTest::newRow("double slash") << QByteArray("//index.html");
    QTest::newRow("trailing slash") << QByteArray("/index.html/");
    QTest::newRow("folder") << QByteArray("/vendor");
    QTest::newRow("folder with slash") << QByteArray("/vendor/");
    QTest::newRow("absolute form") << QByteArray("/http://127.0.0.1/");
    QTest::newRow("the list") << QByteArray("/remote.qrc");
}

void TestWebServing::otherPathsAreNotFound()
{
    QFETCH(QByteArray, target);
    const Reply reply = exchange(port, get(target));
    QCOMPARE(reply.status, 404);
    QVERIFY(reply.closed);
    QCOMPARE(reply.headers.value("x-content-type-options"), QByteArray("nosniff"));
    QCOMPARE(reply.body, QByteArray("Not Found\n"));
}

void TestWebServing::otherMethodsAreNotAllowed_data()
{
    QTest::addColumn<QByteArray>("method");
    QTest::addColumn<QByteArray>("target");
    for (const char *method : { "POST", "PUT", "DELETE", "OPTIONS", "PATCH", "get" })
        QTest::newRow(method) << QByteArray(method) << QByteArray("/index.html");
    QTest::newRow("POST elsewhere") << QByteArray("POST") << QByteArray("/nothing");
}

void TestWebServing::otherMethodsAreNotAllowed()
{
    QFETCH(QByteArray, method);
    QFETCH(QByteArray, target);
    const Reply reply = exchange(port, get(target, method, "Content-Length: 5\r\n") + "hello");
    QCOMPARE(reply.status, 405);
    QCOMPARE(reply.headers.value("allow"), QByteArray("GET, HEAD"));
}

void TestWebServing::malformedRequestLine()
{
    QCOMPARE(exchange(port, "HELLO\r\n\r\n").status, 400);
    QCOMPARE(exchange(port, "GET index.html HTTP/1.1\r\n\r\n").status, 400);
    QCOMPARE(exchange(port, "GET / SMTP/1.0\r\n\r\n").status, 400);
    QCOMPARE(exchange(port, "GET  / HTTP/1.1\r\n\r\n").status, 400);
    // The server goes on serving.
    QCOMPARE(exchange(port, get("/")).status, 200);
}

void TestWebServing::bareLineFeedIsRefusedAtOnce_data()
{
    QTest::addColumn<QByteArray>("request");
    QTest::newRow("every line") << QByteArray("GET / HTTP/1.1\nHost: 127.0.0.1\n\n");
    QTest::newRow("the request line") << QByteArray("GET / HTTP/1.1\nHost: 127.0.0.1\r\n\r\n");
    // Qt's handshake reader would see an Origin the page's check did not.
    QTest::newRow("an Origin behind it")
        << QByteArray("GET /?i=x&v=1 HTTP/1.1\r\nHost: 127.0.0.1\r\nX-A: b\nOrigin: "
                      "https://evil.example\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
                      "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n"
                      "Sec-WebSocket-Version: 13\r\n\r\n");
    // Not whole yet: the answer does not wait for an end that may never come.
    QTest::newRow("unfinished") << QByteArray("GET / HTTP/1.1\nHost: 127.0.0.1\n");
}

void TestWebServing::bareLineFeedIsRefusedAtOnce()
{
    QFETCH(QByteArray, request);
    const Reply reply = exchange(port, request);
    QVERIFY(reply.closed);
    QCOMPARE(reply.status, 400);
    QTRY_VERIFY(server->getConnections().isEmpty());
    QCOMPARE(exchange(port, get("/")).status, 200);
}

void TestWebServing::twoOriginsAreRefused()
{
    const QByteArray upgrade = "GET /?i=two-origins&v=1 HTTP/1.1\r\nHost: 127.0.0.1\r\n"
                               "Origin: http://127.0.0.1:"
        + QByteArray::number(port)
        + "\r\nOrigin: https://evil.example\r\nUpgrade: websocket\r\n"
          "Connection: Upgrade\r\nSec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n"
          "Sec-WebSocket-Version: 13\r\n\r\n";
    QSignalSpy asked(server, &Server::needUserAuthorization);
    const Reply reply = exchange(port, upgrade);
    QCOMPARE(reply.status, 400);
    QVERIFY(asked.isEmpty());
    QTRY_VERIFY(server->getConnections().isEmpty());
    // One Origin, of the page's own, still passes.
    QByteArray one = upgrade;
    one.replace("Origin: https://evil.example\r\n", "");
    QTcpSocket socket;
    socket.connectToHost(QHostAddress::LocalHost, port);
    QVERIFY(socket.waitForConnected(5000));
    socket.write(one);
    QTRY_VERIFY(socket.bytesAvailable() > 0 || socket.waitForReadyRead(100));
    QVERIFY2(socket.readLine().startsWith("HTTP/1.1 101"), "the upgrade was refused");
}

void TestWebServing::unchangedFileIsNotSentAgain()
{
    const Reply first = exchange(port, get("/protocol.mjs"));
    const QByteArray tag = first.headers.value("etag");
    QVERIFY(!tag.isEmpty());
    const Reply again
        = exchange(port, get("/protocol.mjs", "GET", "If-None-Match: " + tag + "\r\n"));
    QCOMPARE(again.status, 304);
    QVERIFY(again.body.isEmpty());
    const Reply other = exchange(port, get("/app.mjs", "GET", "If-None-Match: " + tag + "\r\n"));
    QCOMPARE(other.status, 200);
}

void TestWebServing::oversizedRequestIsRefused_data()
{
    QTest::addColumn<QByteArray>("request");
    QTest::newRow("request line") << "GET /" + QByteArray(8300, 'a') + " HTTP/1.1\r\n\r\n";
    QTest::newRow("one header") << "GET / HTTP/1.1\r\nX-Long: " + QByteArray(8300, 'b')
            + "\r\n\r\n";
    QByteArray many = "GET / HTTP/1.1\r\n";
    for (int i = 0; i < 400; ++i)
        many += "X-Header-" + QByteArray::number(i) + ": value\r\n";
    QTest::newRow("many headers") << many + "\r\n";
    QTest::newRow("never ends") << "GET / HTTP/1.1\r\nX-Long: " + QByteArray(9000, 'c');
}

void TestWebServing::oversizedRequestIsRefused()
{
    QFETCH(QByteArray, request);
    const Reply reply = exchange(port, request);
    QVERIFY(reply.closed);
    QCOMPARE(reply.status, 431);
    QVERIFY(server->getConnections().isEmpty());
    // Just under the limit is read.
    const QByteArray fits = "GET / HTTP/1.1\r\nX-Long: " + QByteArray(8000, 'd') + "\r\n\r\n";
    QVERIFY(fits.size() < 8192);
    QCOMPARE(exchange(port, fits).status, 200);
}

void TestWebServing::requestInPieces()
{
    QTcpSocket socket;
    socket.connectToHost(QHostAddress::LocalHost, port);
    QVERIFY(socket.waitForConnected(5000));
    // A byte at a time: nothing is answered before the head is whole.
    const QByteArray request = get("/index.html");
    for (char byte : request) {
        QVERIFY(socket.bytesAvailable() == 0);
        socket.write(&byte, 1);
        QVERIFY(socket.waitForBytesWritten(1000));
        QTest::qWait(2);
    }
    QByteArray all;
    QTRY_VERIFY((all += socket.readAll(), socket.state() == QAbstractSocket::UnconnectedState));
    all += socket.readAll();
    QVERIFY(all.startsWith("HTTP/1.1 200 OK\r\n"));
    QVERIFY(all.trimmed().endsWith("</html>"));
}

void TestWebServing::answeredConnectionsAreReleased()
{
    // Nothing stays behind for a connection that was answered, refused or went quiet.
    const int before = server->findChildren<QTcpSocket *>().size();
    for (int i = 0; i < 40; ++i)
        QCOMPARE(exchange(port, get(i % 2 ? "/" : "/missing")).status, i % 2 ? 200 : 404);
    for (int i = 0; i < 5; ++i)
        QCOMPARE(exchange(port, "GET / HTTP/1.1\r\nX: " + QByteArray(9000, 'x')).status, 431);
    QTcpSocket quiet;
    quiet.connectToHost(QHostAddress::LocalHost, port);
    QVERIFY(quiet.waitForConnected(5000));
    quiet.write("GET / HT");
    // The head must be whole within the handshake's time.
    QTRY_VERIFY_WITH_TIMEOUT(quiet.state() == QAbstractSocket::UnconnectedState, 15000);
    QTRY_COMPARE(server->findChildren<QTcpSocket *>().size(), before);
}

void TestWebServing::webSocketStillOnTheSamePort()
{
    QCOMPARE(exchange(port, get("/")).status, 200);
    Pairing::authorize(QStringLiteral("phone"), QStringLiteral("phone-token"));
    ProtocolClient client(QStringLiteral("phone"));
    QVERIFY(Pairing::connectAuthenticated(client, port));
    QCOMPARE(server->getClients().size(), 1);
    client.close();
    QTRY_VERIFY(server->getClients().isEmpty());
}

void TestWebServing::pageOriginPassesOthersDoNot_data()
{
    QTest::addColumn<QString>("origin");
    QTest::addColumn<bool>("allowed");
    const QUrl page(server->webRemoteAddress());
    QTest::newRow("the page's own address")
        << QStringLiteral("http://%1:%2").arg(page.host()).arg(page.port()) << true;
    QTest::newRow("loopback") << QStringLiteral("http://127.0.0.1:%1").arg(port) << true;
    QTest::newRow("another site") << QStringLiteral("https://evil.example") << false;
    QTest::newRow("another port") << QStringLiteral("http://127.0.0.1:%1").arg(port + 1) << false;
}

void TestWebServing::pageOriginPassesOthersDoNot()
{
    QFETCH(QString, origin);
    QFETCH(bool, allowed);
    QWebSocket socket(origin);
    QSignalSpy connected(&socket, &QWebSocket::connected);
    QSignalSpy disconnected(&socket, &QWebSocket::disconnected);
    socket.open(QUrl(QStringLiteral("ws://127.0.0.1:%1/?i=page-%2&v=1")
                         .arg(port)
                         .arg(QString::number(qHash(origin)))));
    QTRY_VERIFY(!connected.isEmpty() || !disconnected.isEmpty());
    QCOMPARE(!connected.isEmpty(), allowed);
    socket.abort();
    QTRY_VERIFY(server->getPendingSocket() == nullptr);
}

void TestWebServing::programListensOnOnePortAndLogsTheAddress()
{
    RunningProgram program(QStringLiteral(VELM_SERVER_EXECUTABLE));
    const quint16 programPort = program.port();
    QVERIFY2(programPort, program.output.constData());
    QVERIFY(program.waitForLog("The web remote is at http://"));
    const QRegularExpression line(
        QStringLiteral("The web remote is at (http://[^ \\n]+:(\\d+)/)\\n"));
    const QRegularExpressionMatch match = line.match(QString::fromUtf8(program.output));
    QVERIFY2(match.hasMatch(), program.output.constData());
    QCOMPARE(match.captured(2).toUInt(), uint(programPort));
    QCOMPARE(listeningPorts(program.pid()), QSet<quint16> { programPort });
    // What the log names is what is served.
    const Reply page = exchange(programPort, get("/"));
    QCOMPARE(page.status, 200);
    QVERIFY(page.body.contains("<html"));
}

QTEST_GUILESS_MAIN(TestWebServing)
#include "tst_webserving.moc"
