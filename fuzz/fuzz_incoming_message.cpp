// Every byte string a peer can send, on a connection with and without a session key.
// The first input byte chooses the connection's state; the rest is the message.

#include "authenticationhandler.h"
#include "l.h"
#include "server.h"

#include <QCoreApplication>
#include <QLoggingCategory>
#include <QTemporaryDir>
#include <QWebSocket>

#include <cstddef>
#include <cstdint>

namespace {
struct Harness
{
    int argc = 1;
    char name[16] = "fuzz";
    char *argv[2] = { name, nullptr };
    QTemporaryDir settings;
    QCoreApplication *app;
    Server *server;
    QWebSocket *withKey;
    QWebSocket *withoutKey;

    Harness()
    {
        qputenv("XDG_CONFIG_HOME", settings.path().toUtf8());
        qputenv("AVAHI_COMPAT_NOWARN", "1");
        app = new QCoreApplication(argc, argv);
        QCoreApplication::setApplicationName(QStringLiteral("velm-server-fuzz"));
        QLoggingCategory::setFilterRules(QStringLiteral("velm.*=false"));
        server = new Server;
        new AuthenticationHandler(server, L::auth);
        QCoreApplication::processEvents();
        withKey = new QWebSocket;
        withKey->setProperty(Server::idProperty, QStringLiteral("device"));
        withKey->setProperty(
            Server::sessionTokenProperty, QStringLiteral("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdef"));
        withKey->setProperty(Server::aesKeyProperty,
            Server::computeAESKey(QStringLiteral("device"), QStringLiteral("t"),
                QStringLiteral("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdef")));
        withoutKey = new QWebSocket;
    }
};
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static Harness harness;
    if (size == 0)
        return 0;
    QWebSocket *socket = (data[0] & 1) ? harness.withKey : harness.withoutKey;
    harness.server->dispatch(
        socket, QByteArray(reinterpret_cast<const char *>(data + 1), int(size - 1)));
    return 0;
}
