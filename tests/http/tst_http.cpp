#include "cachedhttp.h"
#include "http.h"
#include "httpfixture.h"
#include "httputils.h"
#include "localcache.h"
#include "logcapture.h"
#include "testenvironment.h"
#include "throttledhttp.h"

#include <QCryptographicHash>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QSettings>
#include <QTemporaryDir>
#include <QtEndian>
#include <QtTest>

namespace {
// What one reply reported, in order.
struct Outcome
{
    QStringList events;
    QByteArray data;
    QString error;
    int finishedStatus = -1;
    int finishedCount = 0;
};

void watch(HttpReply *reply, Outcome *outcome)
{
    QObject::connect(reply, &HttpReply::data, [outcome](const QByteArray &bytes) {
        outcome->events << QStringLiteral("data");
        outcome->data = bytes;
    });
    QObject::connect(reply, &HttpReply::error, [outcome](const QString &message) {
        outcome->events << QStringLiteral("error");
        outcome->error = message;
    });
    QObject::connect(reply, &HttpReply::finished, [outcome](const HttpReply &r) {
        outcome->events << QStringLiteral("finished");
        outcome->finishedStatus = r.statusCode();
        ++outcome->finishedCount;
    });
}

FixtureResponse ok(const QByteArray &body)
{
    FixtureResponse response;
    response.body = body;
    return response;
}

FixtureResponse status(int code, const QByteArray &reason)
{
    FixtureResponse response;
    response.status = code;
    response.reason = reason;
    response.body = reason;
    return response;
}

// Base 36 written out by hand, to check the cache's file layout independently.
QByteArray base36(qint64 value)
{
    const bool negative = value < 0;
    quint64 magnitude = negative ? quint64(-(value + 1)) + 1 : quint64(value);
    QByteArray digits;
    do {
        const int digit = int(magnitude % 36);
        digits.prepend(char(digit < 10 ? '0' + digit : 'a' + digit - 10));
        magnitude /= 36;
    } while (magnitude);
    return negative ? '-' + digits : digits;
}
} // namespace

class TestHttp : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();

    // Plain client
    void retryAfter503();
    void persistent503GivesFiveAttempts();
    void postIsNotRetried();
    void slowTransferIsNotCutOff();
    void timeoutWithoutRetriesFinishesTwice();
    void timeoutRetriesStrictly();
    void requestHeadersStick();
    void formPostKeepsTrailingAmpersand();
    void rangeHeaderForOffset();
    void unknownOperation();

    // Cache
    void hashLayout();
    void secondGetFromDisk();
    void offsetAndBodyUseDifferentFiles();
    void staleCopyWhenNetworkFails();
    void failureWithoutCopyReportsReason();
    void postNeverCached();
    void expiryEveryHundredInserts();
    void expiryTrimsOldestFirst();
    void unwritableCacheStillDelivers();

    // Throttle and shared clients
    void throttleSpacesRequests();
    void sharedClientsIdentifyThemselves();
    void clearCachesGoesBackToNetwork();
    void webServiceAddress();

private:
    QTemporaryDir cacheHome;
    HttpFixture fixture;
};

void TestHttp::initTestCase()
{
    qputenv("XDG_CACHE_HOME", cacheHome.path().toUtf8());
    TestEnvironment::setUp();
}

void TestHttp::retryAfter503()
{
    fixture.script("/retry", { status(503, "Service Unavailable"), ok("fine") });
    Http http;
    Outcome outcome;
    watch(http.get(fixture.url("/retry")), &outcome);
    QTRY_COMPARE(outcome.finishedCount, 1);
    QCOMPARE(outcome.events, (QStringList { QStringLiteral("data"), QStringLiteral("finished") }));
    QCOMPARE(outcome.data, QByteArray("fine"));
    QCOMPARE(outcome.finishedStatus, 200);
    QCOMPARE(fixture.count("/retry"), 2);
}

void TestHttp::persistent503GivesFiveAttempts()
{
    fixture.script("/down", { status(503, "Service Unavailable") });
    Http http;
    Outcome outcome;
    watch(http.get(fixture.url("/down")), &outcome);
    QTRY_COMPARE(outcome.finishedCount, 1);
    QCOMPARE(outcome.events, (QStringList { QStringLiteral("error"), QStringLiteral("finished") }));
    QCOMPARE(outcome.error,
        fixture.url("/down").toString() + QStringLiteral(" 503 Service Unavailable"));
    QCOMPARE(fixture.count("/down"), 5);
}

void TestHttp::postIsNotRetried()
{
    fixture.script("/post500", { status(500, "Internal Server Error") });
    Http http;
    Outcome outcome;
    watch(http.post(fixture.url("/post500"), "x", "text/plain"), &outcome);
    QTRY_COMPARE(outcome.finishedCount, 1);
    QCOMPARE(outcome.events, (QStringList { QStringLiteral("error"), QStringLiteral("finished") }));
    QCOMPARE(fixture.count("/post500"), 1);
}

void TestHttp::slowTransferIsNotCutOff()
{
    FixtureResponse slow = ok(QByteArray(4000, 's'));
    slow.firstByteDelay = 100;
    slow.chunkDelay = 700;
    fixture.script("/slow", { slow });
    Http http;
    http.setReadTimeout(400);
    Outcome outcome;
    QElapsedTimer timer;
    timer.start();
    watch(http.get(fixture.url("/slow")), &outcome);
    QTRY_COMPARE_WITH_TIMEOUT(outcome.finishedCount, 1, 5000);
    QVERIFY(timer.elapsed() > 400);
    QCOMPARE(outcome.events, (QStringList { QStringLiteral("data"), QStringLiteral("finished") }));
    QCOMPARE(outcome.data.size(), 4000);
    QCOMPARE(fixture.count("/slow"), 1);
}

void TestHttp::timeoutWithoutRetriesFinishesTwice()
{
    FixtureResponse late = ok("late");
    late.firstByteDelay = 2000;
    fixture.script("/late", { late });
    Http http;
    http.setReadTimeout(200);
    http.setMaxRetries(0);
    Outcome outcome;
    watch(http.get(fixture.url("/late")), &outcome);
    QTRY_COMPARE(outcome.finishedCount, 2);
    QCOMPARE(outcome.events,
        (QStringList {
            QStringLiteral("error"), QStringLiteral("finished"), QStringLiteral("finished") }));
    QCOMPARE(outcome.error, fixture.url("/late").toString() + QStringLiteral(" 0 "));
    QCOMPARE(fixture.count("/late"), 1);
}

void TestHttp::timeoutRetriesStrictly()
{
    FixtureResponse late = ok("late");
    late.firstByteDelay = 3000;
    fixture.script("/later", { late });
    Http http;
    http.setReadTimeout(150);
    Outcome outcome;
    watch(http.get(fixture.url("/later")), &outcome);
    QTRY_COMPARE_WITH_TIMEOUT(outcome.finishedCount, 2, 5000);
    // Three retries after the first attempt: four in all (a 5xx would allow five).
    QCOMPARE(fixture.count("/later"), 4);
}

void TestHttp::requestHeadersStick()
{
    fixture.script("/headers", { ok("h") });
    Http http;
    Outcome first;
    HttpRequest req;
    req.url = fixture.url("/headers");
    req.headers = { { "X-Special", "yes" } };
    watch(http.request(req), &first);
    QTRY_COMPARE(first.finishedCount, 1);
    Outcome second;
    watch(http.get(fixture.url("/headers")), &second);
    QTRY_COMPARE(second.finishedCount, 1);
    const QList<FixtureRequest> seen = fixture.requests;
    int withHeader = 0;
    for (const FixtureRequest &request : seen) {
        if (request.target == "/headers" && request.headers.value("x-special") == "yes")
            ++withHeader;
    }
    QCOMPARE(withHeader, 2);
    QCOMPARE(http.getRequestHeaders().value("X-Special"), QByteArray("yes"));
    QVERIFY(!http.getRequestHeaders().contains("Accept-Charset"));
}

void TestHttp::formPostKeepsTrailingAmpersand()
{
    fixture.script("/form", { ok("posted") });
    Http http;
    Outcome outcome;
    watch(http.post(fixture.url("/form"),
              QMap<QString, QString> { { QStringLiteral("a"), QStringLiteral("x y") },
                  { QStringLiteral("b"), QStringLiteral("1") } }),
        &outcome);
    QTRY_COMPARE(outcome.finishedCount, 1);
    const FixtureRequest request = fixture.requests.last();
    QCOMPARE(request.method, QByteArray("POST"));
    QCOMPARE(request.body, QByteArray("a=x%20y&b=1&"));
    QCOMPARE(
        request.headers.value("content-type"), QByteArray("application/x-www-form-urlencoded"));
    QCOMPARE(request.headers.value("accept-charset"), QByteArray("utf-8"));
}

void TestHttp::rangeHeaderForOffset()
{
    fixture.script("/range", { ok("r") });
    Http http;
    Outcome outcome;
    watch(http.request(
              fixture.url("/range"), QNetworkAccessManager::GetOperation, QByteArray(), 1234),
        &outcome);
    QTRY_COMPARE(outcome.finishedCount, 1);
    QCOMPARE(fixture.requests.last().headers.value("range"), QByteArray("bytes=1234-"));
}

void TestHttp::unknownOperation()
{
    Http http;
    LogCapture log;
    HttpRequest req;
    req.url = fixture.url("/nothing");
    req.operation = 99;
    Outcome outcome;
    watch(http.request(req), &outcome);
    QCOMPARE(log.count(QStringLiteral("Unknown operation: 99")), 1);
    QTRY_COMPARE(outcome.finishedCount, 1);
    QCOMPARE(outcome.events.first(), QStringLiteral("error"));
    QCOMPARE(fixture.count("/nothing"), 0);
}

void TestHttp::hashLayout()
{
    for (const char *text :
        { "", "a", "http://example.org/x|0", "velm", "b", "c", "d", "e", "f" }) {
        const QByteArray digest
            = QCryptographicHash::hash(QByteArray(text), QCryptographicHash::Sha1);
        const QByteArray number = base36(qFromLittleEndian<qint64>(digest.constData()));
        const QByteArray expected = number.left(1) + '/' + number.mid(1, 1) + '/' + number.mid(2);
        QCOMPARE(LocalCache::hash(QByteArray(text)), expected);
    }
    // Some key lands under "-": negative numbers keep their sign as a directory.
    bool sawNegative = false;
    for (int i = 0; i < 64 && !sawNegative; ++i)
        sawNegative = LocalCache::hash(QByteArray::number(i)).startsWith("-/");
    QVERIFY(sawNegative);
}

void TestHttp::secondGetFromDisk()
{
    fixture.script("/cached", { ok("payload") });
    Http plain;
    CachedHttp cached(plain, "test-second");
    Outcome first;
    watch(cached.get(fixture.url("/cached")), &first);
    QTRY_COMPARE(first.finishedCount, 1);
    QCOMPARE(fixture.count("/cached"), 1);
    HttpReply *reply = cached.get(fixture.url("/cached"));
    Outcome second;
    // Connected after the call returned: the signals still arrive.
    watch(reply, &second);
    QTRY_COMPARE(second.finishedCount, 1);
    QCOMPARE(second.events, (QStringList { QStringLiteral("data"), QStringLiteral("finished") }));
    QCOMPARE(second.data, QByteArray("payload"));
    QCOMPARE(second.finishedStatus, 200);
    QCOMPARE(fixture.count("/cached"), 1);
}

void TestHttp::offsetAndBodyUseDifferentFiles()
{
    Http plain;
    CachedHttp cached(plain, "test-keys");
    HttpRequest a;
    a.url = fixture.url("/k");
    HttpRequest b = a;
    b.offset = 10;
    HttpRequest c = a;
    c.body = "body";
    HttpRequest d = a;
    d.operation = QNetworkAccessManager::PostOperation;
    const QSet<QByteArray> keys { cached.requestHash(a), cached.requestHash(b),
        cached.requestHash(c), cached.requestHash(d) };
    QCOMPARE(keys.size(), 4);
    QCOMPARE(cached.requestHash(a), LocalCache::hash(fixture.url("/k").toEncoded() + "||0"));
    QCOMPARE(cached.requestHash(d), LocalCache::hash(fixture.url("/k").toEncoded() + "||0|POST"));
    fixture.script("/k", { ok("k") });
    Outcome one, two;
    watch(cached.request(a), &one);
    QTRY_COMPARE(one.finishedCount, 1);
    watch(cached.request(b), &two);
    QTRY_COMPARE(two.finishedCount, 1);
    QCOMPARE(fixture.count("/k"), 2);
}

void TestHttp::staleCopyWhenNetworkFails()
{
    fixture.script("/stale", { ok("old copy"), status(404, "Not Found") });
    Http plain;
    CachedHttp cached(plain, "test-stale");
    cached.setMaxSeconds(1);
    Outcome first;
    watch(cached.get(fixture.url("/stale")), &first);
    QTRY_COMPARE(first.finishedCount, 1);
    const QByteArray key = cached.requestHash([&] {
        HttpRequest req;
        req.url = fixture.url("/stale");
        return req;
    }());
    QCOMPARE(cached.getCache()->value(key), QByteArray("old copy"));
    QTRY_VERIFY_WITH_TIMEOUT(cached.getCache()->value(key).isNull(), 5000);
    QCOMPARE(cached.getCache()->possiblyStaleValue(key), QByteArray("old copy"));
    Outcome second;
    watch(cached.get(fixture.url("/stale")), &second);
    QTRY_COMPARE(second.finishedCount, 1);
    QCOMPARE(second.events, (QStringList { QStringLiteral("data"), QStringLiteral("finished") }));
    QCOMPARE(second.data, QByteArray("old copy"));
    QCOMPARE(second.finishedStatus, 200);
    QCOMPARE(fixture.count("/stale"), 2);
}

void TestHttp::failureWithoutCopyReportsReason()
{
    fixture.script("/missing", { status(404, "Not Found") });
    Http plain;
    CachedHttp cached(plain, "test-missing");
    Outcome outcome;
    watch(cached.get(fixture.url("/missing")), &outcome);
    QTRY_COMPARE(outcome.finishedCount, 1);
    QCOMPARE(outcome.events, (QStringList { QStringLiteral("error"), QStringLiteral("finished") }));
    QCOMPARE(outcome.error, QStringLiteral("Not Found"));
}

void TestHttp::postNeverCached()
{
    fixture.script("/postcache", { ok("p") });
    Http plain;
    CachedHttp cached(plain, "test-post");
    for (int i = 0; i < 2; ++i) {
        Outcome outcome;
        watch(cached.post(fixture.url("/postcache"), "body", "text/plain"), &outcome);
        QTRY_COMPARE(outcome.finishedCount, 1);
    }
    QCOMPARE(fixture.count("/postcache"), 2);
    QVERIFY(!QDir(cached.getCache()->getDirectory()).exists());
}

void TestHttp::expiryEveryHundredInserts()
{
    LocalCache *cache = LocalCache::instance("test-expiry");
    for (int i = 1; i <= 99; ++i)
        cache->insert(LocalCache::hash(QByteArray::number(i)), "v");
    QCOMPARE(cache->knownSize(), qint64(0));
    cache->insert(LocalCache::hash("100"), "v");
    QVERIFY(cache->knownSize() > 0);
    const qint64 known = cache->knownSize();
    // Known and within bounds: later inserts only add up.
    cache->insert(LocalCache::hash("101"), "12345");
    QCOMPARE(cache->knownSize(), known + 5);
}

void TestHttp::expiryTrimsOldestFirst()
{
    LocalCache *cache = LocalCache::instance("test-trim");
    cache->setMaxSize(10 * 1000);
    for (int i = 0; i < 30; ++i)
        cache->insert(LocalCache::hash("trim" + QByteArray::number(i)), QByteArray(1000, 'x'));
    cache->expire();
    QVERIFY(cache->knownSize() < 9 * 1000);
    int left = 0;
    for (int i = 0; i < 30; ++i)
        left += cache->possiblyStaleValue(LocalCache::hash("trim" + QByteArray::number(i))).isNull()
            ? 0
            : 1;
    QVERIFY(left > 0 && left < 30);
    // The newest entry survives.
    QVERIFY(!cache->possiblyStaleValue(LocalCache::hash("trim29")).isNull());
}

void TestHttp::unwritableCacheStillDelivers()
{
    LocalCache *cache = LocalCache::instance("test-readonly");
    QDir().mkpath(cache->getDirectory());
    // A file where the first-level directory should be.
    const QByteArray key = LocalCache::hash("blocked");
    QFile blocker(cache->getDirectory() + QString::fromLatin1(key.left(1)));
    QVERIFY(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    LogCapture log;
    cache->insert(key, "value");
    QCOMPARE(log.count(QStringLiteral("Cannot create")), 1);
    QVERIFY(cache->value(key).isNull());
}

void TestHttp::throttleSpacesRequests()
{
    fixture.script("/t1", { ok("1") });
    fixture.script("/t2", { ok("2") });
    QList<qint64> arrivals;
    QElapsedTimer clock;
    clock.start();
    auto connection = connect(&fixture, &HttpFixture::requestReceived, this,
        [&](const FixtureRequest &) { arrivals << clock.elapsed(); });
    Http plain;
    ThrottledHttp throttled(plain);
    throttled.setMilliseconds(300);
    Outcome one, two;
    watch(throttled.get(fixture.url("/t1")), &one);
    watch(throttled.get(fixture.url("/t2")), &two);
    QTRY_COMPARE(one.finishedCount + two.finishedCount, 2);
    disconnect(connection);
    QCOMPARE(arrivals.size(), 2);
    // Not even the first leaves at once: the object was just made.
    QVERIFY2(arrivals.at(0) >= 250, qPrintable(QString::number(arrivals.at(0))));
    QVERIFY2(arrivals.at(1) - arrivals.at(0) >= 250,
        qPrintable(QString::number(arrivals.at(1) - arrivals.at(0))));
    QCOMPARE(one.data + two.data, QByteArray("12"));
}

void TestHttp::sharedClientsIdentifyThemselves()
{
    QCOMPARE(HttpUtils::userAgent(), QByteArray("Velm Server/1.5 ( https://velm.app )"));
    fixture.script("/agent", { ok("a") });
    Outcome outcome;
    watch(HttpUtils::notCached().get(fixture.url("/agent")), &outcome);
    QTRY_COMPARE(outcome.finishedCount, 1);
    QCOMPARE(fixture.requests.last().headers.value("user-agent"), HttpUtils::userAgent());
    QCOMPARE(HttpUtils::notCached().getReadTimeout(), 10000);
    QCOMPARE(HttpUtils::notCached().getMaxRetries(), 3);
}

void TestHttp::clearCachesGoesBackToNetwork()
{
    fixture.script("/shared", { ok("s") });
    for (int i = 0; i < 2; ++i) {
        Outcome outcome;
        watch(HttpUtils::cached().get(fixture.url("/shared")), &outcome);
        QTRY_COMPARE(outcome.finishedCount, 1);
    }
    QCOMPARE(fixture.count("/shared"), 1);
    const QString directory = LocalCache::instance("http")->getDirectory();
    QVERIFY(directory.startsWith(cacheHome.path()));
    QVERIFY(QDir(directory).exists());
    HttpUtils::clearCaches();
    QVERIFY(!QDir(directory).exists());
    Outcome again;
    watch(HttpUtils::cached().get(fixture.url("/shared")), &again);
    QTRY_COMPARE(again.finishedCount, 1);
    QCOMPARE(fixture.count("/shared"), 2);
}

void TestHttp::webServiceAddress()
{
    const QByteArray saved = qgetenv("VELM_WS_BASE");
    qunsetenv("VELM_WS_BASE");
    QSettings().remove(QStringLiteral("webService"));
    QCOMPARE(HttpUtils::wsBase(), QByteArray());
    QSettings().setValue(QStringLiteral("webService"), QStringLiteral("https://commands.example/"));
    QCOMPARE(HttpUtils::wsBase(), QByteArray("https://commands.example/velm-ws"));
    qputenv("VELM_WS_BASE", "http://127.0.0.1:1/base");
    QCOMPARE(HttpUtils::wsBase(), QByteArray("http://127.0.0.1:1/base"));
    QSettings().remove(QStringLiteral("webService"));
    if (saved.isEmpty())
        qunsetenv("VELM_WS_BASE");
    else
        qputenv("VELM_WS_BASE", saved);
}

QTEST_GUILESS_MAIN(TestHttp)
#include "tst_http.moc"
