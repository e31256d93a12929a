#pragma once

#include "core.h"
#include "fakeplatform.h"
#include "protocolclient.h"
#include "server.h"

#include <QList>

#include <optional>

// A running coordinator over the fake platform, with its real server and handlers, and
// clients that talk to it over loopback.
class CoreFixture
{
public:
    // Settings are emptied first; "preventSleep" is switched off unless keepSleepSetting.
    explicit CoreFixture(bool keepSleepSetting = false);
    ~CoreFixture();

    // Starts the coordinator and waits until every handler is registered.
    bool start();
    // A paired, authenticated, encrypted client.
    ProtocolClient *connectClient(const QString &id);
    // A new device, waiting for the user's approval.
    ProtocolClient *connectStranger(const QString &id);
    // Sends a request and waits for the first reply with that code; null on time-out.
    std::optional<Frame> request(
        ProtocolClient *client, const QJsonObject &message, const QString &replyCode);
    // Sends a request, then a marker request whose answer proves the first was dealt with.
    bool requestAndSettle(ProtocolClient *client, const QJsonObject &message);

    FakePlatform *platform = nullptr;
    Core *core = nullptr;
    QList<ProtocolClient *> clients;
};
