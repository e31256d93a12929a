#include "corefixture.h"

#include "l.h"
#include "serverfixture.h"
#include "testenvironment.h"

#include <QSettings>
#include <QSignalSpy>
#include <QTest>

CoreFixture::CoreFixture(bool keepSleepSetting)
{
    TestEnvironment::clearSettings();
    if (!keepSleepSetting)
        QSettings().setValue(QStringLiteral("preventSleep"), false);
    platform = new FakePlatform;
    core = new Core(platform);
}

CoreFixture::~CoreFixture()
{
    qDeleteAll(clients);
    delete core;
}

bool CoreFixture::start()
{
    core->start();
    if (!core->server)
        return false;
    // Handlers register on the next turn of the event loop.
    QTest::qWait(0);
    return QTest::qWaitFor(
        [this] { return core->server->handler(L::unsupported) != nullptr; }, 5000);
}

ProtocolClient *CoreFixture::connectClient(const QString &id)
{
    Pairing::authorize(id, QStringLiteral("token-") + id);
    auto *client = new ProtocolClient(id);
    clients.append(client);
    if (!Pairing::connectAuthenticated(*client, listeningPort(core->server)))
        return nullptr;
    return client;
}

ProtocolClient *CoreFixture::connectStranger(const QString &id)
{
    auto *client = new ProtocolClient(id);
    clients.append(client);
    client->open(listeningPort(core->server));
    if (!QTest::qWaitFor(
            [client] { return !client->framesWith(L::waitingForAuth).isEmpty(); }, 5000))
        return nullptr;
    return client;
}

std::optional<Frame> CoreFixture::request(
    ProtocolClient *client, const QJsonObject &message, const QString &replyCode)
{
    const int before = client->framesWith(replyCode).size();
    client->send(message);
    if (!QTest::qWaitFor([&] { return client->framesWith(replyCode).size() > before; }, 5000))
        return std::nullopt;
    return client->framesWith(replyCode).at(before);
}

bool CoreFixture::requestAndSettle(ProtocolClient *client, const QJsonObject &message)
{
    return client->sendAndSync(message);
}
