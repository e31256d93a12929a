// Round trips on loopback, in one process: a bare QtWebSockets echo against the real Server
// with authenticated, encrypted clients and a trivial handler. Prints latency (p50, p99) with
// one client, throughput with 10 and 100 clients, the ratios of the two, and AES throughput.
// It measures; it never passes or fails.

#include "authenticationhandler.h"
#include "json.h"
#include "l.h"
#include "messagehandler.h"
#include "protocolclient.h"
#include "qaesencryption.h"
#include "server.h"
#include "serverfixture.h"
#include "testenvironment.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QLoggingCategory>
#include <QTimer>
#include <QWebSocket>
#include <QWebSocketServer>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <memory>
#include <vector>

#include <sys/resource.h>

namespace {

const QString benchCode = QStringLiteral("bench");
const QByteArray request = "{\"_\":\"bench\",\"i\":\"com.example.app\",\"s\":64}";

// Replies to every request with a small object.
class BenchHandler : public MessageHandler
{
public:
    BenchHandler(Server *server)
        : MessageHandler(server, benchCode)
    { }
    void handle(const Request &message, QWebSocket *socket) override
    {
        server->sendMessage(socket, name, { { L::id, message.string(L::id) }, { L::value, true } });
    }
};

// One closed-loop client: send, wait for the reply, send again.
struct Driver
{
    std::function<void()> send;
    QElapsedTimer clock;
    qint64 sentAt = 0;
    std::vector<qint64> *latencies = nullptr;
    long long *replies = nullptr;
    bool running = true;

    void start()
    {
        sentAt = clock.nsecsElapsed();
        send();
    }
    void onReply()
    {
        if (latencies)
            latencies->push_back(clock.nsecsElapsed() - sentAt);
        if (replies)
            ++*replies;
        if (running)
            start();
    }
};

void spin(int milliseconds)
{
    QEventLoop loop;
    QTimer::singleShot(milliseconds, &loop, &QEventLoop::quit);
    loop.exec();
}

bool waitUntil(const std::function<bool()> &condition, int milliseconds = 10000)
{
    QElapsedTimer timer;
    timer.start();
    while (!condition()) {
        if (timer.elapsed() > milliseconds)
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    }
    return true;
}

// The system under test: how to make a connected client and how it sends.
struct Setup
{
    virtual ~Setup() = default;
    virtual bool addClient(Driver &driver) = 0;
};

struct EchoSetup : Setup
{
    QWebSocketServer server { QStringLiteral("echo"), QWebSocketServer::NonSecureMode };
    std::vector<std::unique_ptr<QWebSocket>> clients;

    EchoSetup()
    {
        server.listen(QHostAddress::Any, 0);
        QObject::connect(&server, &QWebSocketServer::newConnection, &server, [this] {
            QWebSocket *socket = server.nextPendingConnection();
            QObject::connect(socket, &QWebSocket::binaryMessageReceived, socket,
                [socket](const QByteArray &message) { socket->sendBinaryMessage(message); });
        });
    }

    bool addClient(Driver &driver) override
    {
        auto socket = std::make_unique<QWebSocket>();
        QWebSocket *s = socket.get();
        QObject::connect(s, &QWebSocket::binaryMessageReceived, s,
            [&driver](const QByteArray &) { driver.onReply(); });
        s->open(QUrl(QStringLiteral("ws://127.0.0.1:%1/").arg(server.serverPort())));
        if (!waitUntil([s] { return s->state() == QAbstractSocket::ConnectedState; }))
            return false;
        driver.send = [s] { s->sendBinaryMessage(request); };
        clients.push_back(std::move(socket));
        return true;
    }
};

struct VelmSetup : Setup
{
    Server server;
    std::vector<std::unique_ptr<ProtocolClient>> clients;

    VelmSetup()
    {
        new AuthenticationHandler(&server, L::auth);
        new BenchHandler(&server);
        QCoreApplication::processEvents();
    }

    bool addClient(Driver &driver) override
    {
        const QString id = QStringLiteral("bench-%1").arg(clients.size());
        Pairing::authorize(id, QStringLiteral("token-") + id);
        auto client = std::make_unique<ProtocolClient>(id);
        ProtocolClient *c = client.get();
        c->setKeepFrames(false);
        c->setToken(QStringLiteral("token-") + id);
        c->open(server.serverPort());
        if (!waitUntil([c] { return c->isAuthenticated(); }))
            return false;
        QObject::connect(c, &ProtocolClient::frameReceived, c, [&driver](const Frame &frame) {
            if (frame.method() == benchCode)
                driver.onReply();
        });
        // The same request as the echo's, written as a client written with the library does.
        const QString app = QStringLiteral("com.example.app");
        driver.send = [c, app] { c->send(benchCode, { { L::id, app }, { L::size, 64 } }); };
        clients.push_back(std::move(client));
        return true;
    }
};

// Velm server, but a client that sends one pre-encrypted body and does not decode replies.
struct RawClientSetup : Setup
{
    VelmSetup velm;
    std::vector<std::unique_ptr<QWebSocket>> raw;
    bool addClient(Driver &driver) override
    {
        Driver dummy;
        if (!velm.addClient(dummy))
            return false;
        ProtocolClient *c = velm.clients.back().get();
        const QByteArray body = ProtocolClient::encryptBody(request, c->key());
        QWebSocket *s = &c->socket();
        QObject::disconnect(s, &QWebSocket::binaryMessageReceived, c, nullptr);
        QObject::connect(s, &QWebSocket::binaryMessageReceived, s,
            [&driver](const QByteArray &) { driver.onReply(); });
        driver.send = [s, body] { s->sendBinaryMessage(body); };
        return true;
    }
};

struct Latency
{
    double p50 = 0;
    double p99 = 0;
};

Latency measureLatency(Setup &setup, int roundTrips)
{
    std::vector<qint64> latencies;
    latencies.reserve(roundTrips);
    Driver driver;
    driver.clock.start();
    if (!setup.addClient(driver))
        return {};
    // Warm up, then measure.
    long long warm = 0;
    driver.replies = &warm;
    driver.start();
    waitUntil([&] { return warm >= 300; });
    driver.running = false;
    waitUntil([&] { return true; });
    spin(20);
    driver.replies = nullptr;
    driver.latencies = &latencies;
    driver.running = true;
    driver.start();
    waitUntil([&] { return int(latencies.size()) >= roundTrips; }, 60000);
    driver.running = false;
    spin(20);
    std::sort(latencies.begin(), latencies.end());
    Latency result;
    result.p50 = latencies[latencies.size() / 2] / 1000.0;
    result.p99 = latencies[latencies.size() * 99 / 100] / 1000.0;
    return result;
}

long minorFaults()
{
    rusage usage {};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_minflt;
}

// With faultsPerMessage, the page faults taken per message while measuring (the allocator
// giving memory back and taking it again shows there).
double measureThroughput(
    Setup &setup, int clients, int milliseconds, double *faultsPerMessage = nullptr)
{
    std::vector<std::unique_ptr<Driver>> drivers;
    long long replies = 0;
    for (int i = 0; i < clients; ++i) {
        drivers.push_back(std::make_unique<Driver>());
        drivers.back()->clock.start();
        if (!setup.addClient(*drivers.back()))
            return 0;
    }
    for (auto &driver : drivers)
        driver->start();
    spin(200); // warm up
    for (auto &driver : drivers)
        driver->replies = &replies;
    QElapsedTimer timer;
    const long faultsBefore = minorFaults();
    timer.start();
    spin(milliseconds);
    const long long counted = replies;
    const double seconds = timer.nsecsElapsed() / 1e9;
    if (faultsPerMessage && counted > 0)
        *faultsPerMessage = double(minorFaults() - faultsBefore) / double(counted);
    for (auto &driver : drivers) {
        driver->running = false;
        driver->replies = nullptr;
    }
    spin(100);
    return counted / seconds;
}

double aesThroughput(bool hardware, int size)
{
    QAESEncryption::setHardwareAccelerationEnabled(hardware);
    QAESEncryption aes(QAESEncryption::AES_128, QAESEncryption::CBC, QAESEncryption::PKCS7);
    const QByteArray key(20, 'k');
    const QByteArray iv(16, 'v');
    const QByteArray plain(size, 'p');
    QElapsedTimer timer;
    timer.start();
    long long bytes = 0;
    int sink = 0;
    while (timer.elapsed() < 300) {
        for (int i = 0; i < 16; ++i) {
            const QByteArray cipher = aes.encode(plain, key, iv);
            sink += aes.removePadding(aes.decode(cipher, key, iv)).size();
            bytes += size;
        }
    }
    const double seconds = timer.nsecsElapsed() / 1e9;
    QAESEncryption::setHardwareAccelerationEnabled(true);
    return sink > 0 ? bytes / seconds / (1024.0 * 1024.0) : 0;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    TestEnvironment::setUp();
    qputenv("AVAHI_COMPAT_NOWARN", "1");
    QLoggingCategory::setFilterRules(QStringLiteral("velm.*.warning=false"));

    // Both sides must carry the same bytes for the comparison to mean anything.
    if (Json::compact(benchCode, { { L::id, QStringLiteral("com.example.app") }, { L::size, 64 } })
        != request) {
        std::fprintf(stderr, "The Velm client's request differs from the echo's\n");
        return 1;
    }
    const int roundTrips = 5000;
    const int window = 1000;

    // "velm" alone runs (b) with 100 clients for a profiler.
    if (argc > 1 && qstrcmp(argv[1], "velm") == 0) {
        VelmSetup velm;
        double faults = 0;
        const double rate = measureThroughput(velm, 100, 5 * window, &faults);
        std::printf("%.0f msg/s, %.3f page faults per message\n", rate, faults);
        return 0;
    }
    // "latecho" and "latvelm" alone print the p50 latency of (a) or (b), one client, in us.
    if (argc > 1 && qstrcmp(argv[1], "latecho") == 0) {
        EchoSetup echo;
        std::printf("%.1f\n", measureLatency(echo, 3000).p50);
        return 0;
    }
    if (argc > 1 && qstrcmp(argv[1], "latvelm") == 0) {
        VelmSetup velm;
        std::printf("%.1f\n", measureLatency(velm, 3000).p50);
        return 0;
    }
    if (argc > 1 && qstrcmp(argv[1], "raw") == 0) {
        RawClientSetup setup;
        std::printf("%.0f msg/s\n", measureThroughput(setup, 100, window));
        return 0;
    }
    if (argc > 1 && qstrcmp(argv[1], "echo") == 0) {
        EchoSetup echo;
        double faults = 0;
        const double rate = measureThroughput(echo, 100, 5 * window, &faults);
        std::printf("%.0f msg/s, %.3f page faults per message\n", rate, faults);
        return 0;
    }

    // The machine's speed drifts over a run (other load, frequency): each case alternates (a)
    // and (b) several times, and the ratio reported is the median of the paired ratios.
    const int rounds = 5;
    std::printf("Round trips on loopback, one process, %d rounds of (a) then (b): %d requests "
                "for latency, %d ms per throughput run; medians\n\n",
        rounds, roundTrips, window);
    auto median = [](std::vector<double> values) {
        std::sort(values.begin(), values.end());
        return values[values.size() / 2];
    };
    struct Row
    {
        std::vector<double> echo, velm, ratio;
    };
    Row p50, p99, tp10, tp100;
    auto add = [](Row &row, double echo, double velm) {
        row.echo.push_back(echo);
        row.velm.push_back(velm);
        row.ratio.push_back(velm / echo);
    };
    for (int round = 0; round < rounds; ++round) {
        Latency echoLatency, velmLatency;
        {
            EchoSetup echo;
            echoLatency = measureLatency(echo, roundTrips);
        }
        {
            VelmSetup velm;
            velmLatency = measureLatency(velm, roundTrips);
        }
        add(p50, echoLatency.p50, velmLatency.p50);
        add(p99, echoLatency.p99, velmLatency.p99);
        for (int clients : { 10, 100 }) {
            double echoRate, velmRate;
            {
                EchoSetup echo;
                echoRate = measureThroughput(echo, clients, window);
            }
            {
                VelmSetup velm;
                velmRate = measureThroughput(velm, clients, window);
            }
            add(clients == 10 ? tp10 : tp100, echoRate, velmRate);
        }
    }

    std::printf("%-34s %14s %14s %8s\n", "", "(a) bare echo", "(b) Velm", "(b)/(a)");
    const struct
    {
        const char *label;
        const Row &row;
        int decimals;
    } rows[] = { { "latency p50, 1 client (us)", p50, 1 }, { "latency p99, 1 client (us)", p99, 1 },
        { "throughput, 10 clients (msg/s)", tp10, 0 },
        { "throughput, 100 clients (msg/s)", tp100, 0 } };
    for (const auto &row : rows) {
        std::printf("%-34s %14.*f %14.*f %8.2f\n", row.label, row.decimals, median(row.row.echo),
            row.decimals, median(row.row.velm), median(row.row.ratio));
    }
    std::printf("\nTargets: p50 ratio <= 1.10, throughput ratio >= 0.90\n\n");

    const bool hardware = QAESEncryption::hardwareAccelerationAvailable();
    std::printf("AES-128-CBC encrypt + decrypt (MiB/s)  %12s %12s\n", "portable",
        hardware ? "hardware" : "(no AES-NI)");
    for (int size : { 64, 64 * 1024 }) {
        const double portable = aesThroughput(false, size);
        const double fast = hardware ? aesThroughput(true, size) : 0;
        std::printf("%-38s %12.1f %12.1f\n", size == 64 ? "  64 B messages" : "  64 KB messages",
            portable, fast);
    }
    return 0;
}
