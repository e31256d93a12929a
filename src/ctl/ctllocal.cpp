#include "ctl.h"

#include "l.h"

#include <QCoreApplication>
#include <QJsonObject>

namespace {

void pairWith(Ctl &ctl, const QString &host, quint16 port);

void pair(Ctl &ctl)
{
    QString host = ctl.options().host;
    quint16 port = ctl.options().port;
    const QString target = ctl.options().arguments.value(0);
    if (!target.isEmpty()) {
        // HOST, HOST:PORT, [IPv6] or [IPv6]:PORT; a bare IPv6 address has no port.
        QString portText;
        if (target.startsWith(QLatin1Char('['))) {
            const int close = target.indexOf(QLatin1Char(']'));
            host = target.mid(1, close - 1);
            if (close > 0 && target.mid(close + 1).startsWith(QLatin1Char(':')))
                portText = target.mid(close + 2);
        } else if (target.count(QLatin1Char(':')) == 1) {
            host = target.section(QLatin1Char(':'), 0, 0);
            portText = target.section(QLatin1Char(':'), 1);
        } else {
            host = target;
        }
        if (!portText.isNull()) {
            bool ok = false;
            const uint given = portText.toUInt(&ok);
            if (!ok || given == 0 || given > 65535) {
                ctl.finish(Exit::Usage, QStringLiteral("%1 is not HOST:PORT").arg(target));
                return;
            }
            port = quint16(given);
        }
    }
    if (host.isEmpty() || !port) {
        // The computer's name (or nothing, when there is one) is enough where DNS-SD works.
        ctl.discoverOne(host, [&ctl](const FoundServer &server) {
            ctl.err << "Found " << server.name << " at " << server.address() << ':' << server.port
                    << '.' << Qt::endl;
            pairWith(ctl, server.address(), server.port);
        });
        return;
    }
    pairWith(ctl, host, port);
}

void pairWith(Ctl &ctl, const QString &host, quint16 port)
{
    CtlConfig config = CtlConfig::load();
    if (!qEnvironmentVariableIsSet("VELM_DEVICE_ID"))
        config.deviceId = CtlConfig::newDeviceId();
    config.host = host;
    config.port = port;
    ctl.connectTo(host, port, config.deviceId, QString());
    const QString deviceId = config.deviceId;
    QObject::connect(ctl.session(), &ClientSession::waitingForUser, &ctl, [&ctl, deviceId] {
        ctl.err << "Waiting for approval: accept this device in Velm Server's prompt on that "
                   "computer, or run `velm-server --approve "
                << deviceId << "` there." << Qt::endl;
    });
    QObject::connect(ctl.session(), &ClientSession::tokenReceived, &ctl,
        [&ctl, config](const QString &token) mutable {
            config.token = token;
            QString error;
            if (!config.save(&error)) {
                ctl.finish(Exit::Failed, error);
                return;
            }
            ctl.print(QJsonObject { { L::method, L::auth }, { L::id, config.deviceId },
                          { QStringLiteral("host"), config.host },
                          { QStringLiteral("port"), int(config.port) } },
                QStringLiteral("Paired with %1:%2").arg(config.host).arg(config.port));
            ctl.finish(Exit::Done);
        });
}

void discover(Ctl &ctl)
{
    // Everything that answers within the time (3 s unless --timeout says otherwise).
    const int window = ctl.options().timeoutMs == 10000 ? 3000 : ctl.options().timeoutMs;
    ctl.discover(window, [&ctl](const QVector<FoundServer> &servers) {
        for (const FoundServer &server : servers) {
            QJsonObject txt;
            for (auto it = server.txt.cbegin(); it != server.txt.cend(); ++it)
                txt.insert(it.key(), it.value());
            QStringList entries;
            for (auto it = server.txt.cbegin(); it != server.txt.cend(); ++it)
                entries.append(it.key() + QLatin1Char('=') + it.value());
            ctl.print(
                QJsonObject { { QStringLiteral("name"), server.name },
                    { QStringLiteral("host"), server.host },
                    { QStringLiteral("address"), server.address() },
                    { QStringLiteral("port"), int(server.port) }, { QStringLiteral("txt"), txt } },
                QStringLiteral("%1\t%2:%3\t%4 %5")
                    .arg(server.name, server.address())
                    .arg(server.port)
                    .arg(server.host, entries.join(QLatin1Char(' '))));
        }
        if (servers.isEmpty())
            ctl.finish(Exit::NoServer,
                QStringLiteral("no computer running Velm Server was found on the network"));
        else
            ctl.finish(Exit::Done);
    });
}

void forget(Ctl &ctl)
{
    QString error;
    if (!CtlConfig::forget(&error)) {
        ctl.finish(Exit::Failed, error);
        return;
    }
    ctl.print(QJsonObject { { QStringLiteral("forgotten"), true } },
        QStringLiteral("Forgot the pairing. The computer still lists this device until you remove "
                       "it in Velm Server's preferences there."));
    ctl.finish(Exit::Done);
}

void help(Ctl &ctl)
{
    ctl.out << usageText();
    ctl.out.flush();
    ctl.finish(Exit::Done);
}

} // namespace

QString usageText()
{
    QString text = QStringLiteral(
        "Usage: velmctl [--host HOST] [--port PORT] [--json] [--timeout SECONDS] COMMAND [ARGS]\n"
        "\nControls a computer running Velm Server, as the Velm app does.\n\nCommands:\n");
    for (const CtlCommand &command : ctlCommands())
        text += QStringLiteral("  %1\n      %2\n").arg(command.usage, command.summary);
    text += QStringLiteral(
        "\nAPP is an application's id or name; without it, the application in front.\n"
        "Exit codes: 0 done, 1 failed, 2 usage, 3 not paired or refused, 4 no server found or "
        "connection lost, 5 timed out, 6 unsupported on that computer.\n"
        "The pairing is kept in $XDG_CONFIG_HOME/velmctl/velmctl.conf; VELM_DEVICE_ID and "
        "VELM_TOKEN override it.\n");
    return text;
}

QVector<CtlCommand> localCommands()
{
    return {
        { QStringLiteral("discover"), QStringLiteral("discover"),
            QStringLiteral("the computers running Velm Server on the network"), discover, true },
        { QStringLiteral("pair"), QStringLiteral("pair [HOST[:PORT]]"),
            QStringLiteral("asks the computer to approve this device, and keeps its token"), pair,
            true },
        { QStringLiteral("forget"), QStringLiteral("forget"), QStringLiteral("forgets the pairing"),
            forget, true },
        { QStringLiteral("help"), QStringLiteral("help"), QStringLiteral("this text"), help, true },
    };
}
