// Every byte string a peer can send, on a connection with and without a session key.
// The first input byte chooses the connection's state; the rest is the message.

#include "authenticationhandler.h"
#include "l.h"
#include "server.h"

#include <QCoreApplication>
#include <QLoggingCategory>
#include <QSettings>
#include <QTemporaryDir>
#include <QWebSocket>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

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
        // A paired device's connection that proved its key: its messages are decrypted with a
        // session key of the server's own making, as on a real connection.
        QSettings pairings;
        pairings.beginGroup(L::auth);
        pairings.setValue(QStringLiteral("device"), QStringLiteral("t"));
        withKey = new QWebSocket;
        server->startAuthentication(QStringLiteral("device"), withKey);
        server->setAuthentication(withKey, true);
        withoutKey = new QWebSocket;
        // The harness itself is checked: a message encrypted under that key must arrive.
        const QByteArray key = Server::computeAESKey(QStringLiteral("device"), QStringLiteral("t"),
            withKey->property(Server::sessionTokenProperty).toString());
        QString arrived;
        QObject::connect(server, &Server::unhandledMessage,
            [&arrived](const QString &method) { arrived = method; });
        server->dispatch(withKey, server->encrypt(R"({"_":"harness"})", key));
        QObject::disconnect(server, &Server::unhandledMessage, nullptr, nullptr);
        if (arrived != QLatin1String("harness"))
            abort();
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
