#include "ctl.h"

#include "l.h"

#include <QFile>
#include <QJsonDocument>

Ctl::Ctl(const CtlOptions &options, QTextStream &out, QTextStream &err, QObject *parent)
    : QObject(parent)
    , out(out)
    , err(err)
    , opts(options)
{
    timer.setSingleShot(true);
    connect(&timer, &QTimer::timeout, this, [this] {
        finish(Exit::TimedOut,
            timeoutMessage.isEmpty() ? QStringLiteral(
                "no answer from the computer within %1 s (--timeout sets the time)")
                                           .arg(opts.timeoutMs / 1000.0)
                                     : timeoutMessage);
    });
}

void Ctl::start()
{
    command = findCommand(opts.command);
    if (command->local) {
        command->run(*this);
        return;
    }
    config = CtlConfig::load();
    if (config.deviceId.isEmpty() || config.token.isEmpty()) {
        finish(Exit::NotPaired,
            QStringLiteral("this device is not paired with a computer: run `velmctl pair HOST`"));
        return;
    }
    if (!opts.port && !config.badPort.isEmpty()) {
        finish(Exit::Usage,
            QStringLiteral("the stored port \"%1\" in %2 is not a number from 1 to 65535: give "
                           "--port, or pair again")
                .arg(config.badPort, CtlConfig::path()));
        return;
    }
    const QString host = opts.host.isEmpty() ? config.host : opts.host;
    const quint16 port = opts.port ? opts.port : config.port;
    if (!host.isEmpty() && port) {
        connectTo(host, port, config.deviceId, config.token);
        return;
    }
    discoverOne(host, [this](const FoundServer &server) {
        connectTo(server.address(), server.port, config.deviceId, config.token);
    });
}

void Ctl::discover(int windowMs, std::function<void(const QVector<FoundServer> &)> then)
{
    browser = std::make_unique<ServiceBrowser>();
    QString error;
    if (!browser->start(&error)) {
        finish(
            Exit::NoServer, error + QStringLiteral("; name the computer with --host and --port"));
        return;
    }
    // Every computer that answers within the window: several may.
    QTimer::singleShot(windowMs, this, [this, then] {
        if (!done)
            then(browser->servers());
    });
}

void Ctl::discoverOne(const QString &wanted, std::function<void(const FoundServer &)> then)
{
    const auto matches = [wanted](const FoundServer &server) {
        return wanted.isEmpty() || server.host.compare(wanted, Qt::CaseInsensitive) == 0
            || server.address() == wanted || server.name.compare(wanted, Qt::CaseInsensitive) == 0
            || server.host.section(QLatin1Char('.'), 0, 0).compare(wanted, Qt::CaseInsensitive)
            == 0;
    };
    discover(3000, [this, wanted, matches, then](const QVector<FoundServer> &servers) {
        QVector<FoundServer> candidates;
        for (const FoundServer &server : servers) {
            if (matches(server))
                candidates.append(server);
        }
        if (candidates.size() == 1) {
            then(candidates.first());
            return;
        }
        if (candidates.isEmpty()) {
            finish(Exit::NoServer,
                wanted.isEmpty()
                    ? QStringLiteral("no computer running Velm Server was found on the network; "
                                     "name it with --host and --port")
                    : QStringLiteral("%1 was not found on the network; give its port too")
                          .arg(wanted));
            return;
        }
        QStringList names;
        for (const FoundServer &server : candidates)
            names.append(
                QStringLiteral("%1 (%2:%3)").arg(server.name, server.address()).arg(server.port));
        finish(Exit::NoServer,
            QStringLiteral("several computers answer: %1; choose one with --host and --port")
                .arg(names.join(QStringLiteral(", "))));
    });
}

void Ctl::connectTo(const QString &host, quint16 port, const QString &id, const QString &token)
{
    client = std::make_unique<ClientSession>(id);
    client->setToken(token);
    pairing = token.isEmpty();
    connect(client.get(), &ClientSession::frameReceived, this, &Ctl::onFrame);
    connect(client.get(), &ClientSession::closed, this, &Ctl::onClosed);
    connect(&client->socket(), &QWebSocket::connected, this, [this] { reached = true; });
    target = QStringLiteral("%1:%2").arg(host).arg(port);
    connect(client.get(), &ClientSession::waitingForUser, this, [this] {
        if (pairing)
            return;
        finish(Exit::NotPaired,
            QStringLiteral("the computer does not know this device (any more): pair again with "
                           "`velmctl pair`"));
    });
    if (!pairing) {
        connect(client.get(), &ClientSession::authenticated, this, [this] {
            resetTimer();
            command->run(*this);
        });
    }
    resetTimer();
    client->open(ClientSession::serverUrl(host, port, id));
}

void Ctl::resetTimer()
{
    if (opts.timeoutMs > 0)
        timer.start(opts.timeoutMs);
}

void Ctl::finish(int code, const QString &message)
{
    if (done)
        return;
    done = true;
    timer.stop();
    handler = nullptr;
    if (!message.isEmpty())
        err << "velmctl: " << message << Qt::endl;
    out.flush();
    if (client) {
        client->disconnect(this);
        client->socket().disconnect(this);
        client->close();
    }
    emit finished(code);
}

void Ctl::onFrame(const Frame &frame)
{
    // Pairing and the proof are the session's business, not the command's.
    if (done || !handler || frame.method() == L::auth)
        return;
    // A handler may put the next one in place while it runs.
    auto current = std::move(handler);
    handler = nullptr;
    const bool finishedWithIt = current(frame);
    if (!finishedWithIt && !handler)
        handler = std::move(current);
}

void Ctl::onClosed()
{
    if (done)
        return;
    if (!client->failure().isEmpty()) {
        finish(Exit::NoServer, client->failure() + QStringLiteral("; the connection was dropped"));
    } else if (!reached) {
        finish(Exit::NoServer,
            QStringLiteral("cannot reach %1 (%2); is Velm Server running there?")
                .arg(target, client->socket().errorString()));
    } else if (pairing) {
        finish(Exit::NotPaired, QStringLiteral("the computer did not approve this device"));
    } else if (!client->isAuthenticated()) {
        finish(Exit::NotPaired,
            QStringLiteral("the computer refused this device's token: pair again with "
                           "`velmctl pair`"));
    } else {
        finish(Exit::NoServer, QStringLiteral("the connection to the computer was lost"));
    }
}

void Ctl::request(const QJsonObject &message, std::function<bool(const Frame &)> handle)
{
    handler = std::move(handle);
    resetTimer();
    if (!message.isEmpty())
        client->send(message);
}

void Ctl::keepWaiting()
{
    opts.timeoutMs = 0;
    timer.stop();
}

void Ctl::sendAndSettle(const QJsonObject &message, std::function<void()> then)
{
    client->send(message);
    // Requests are dealt with in order: the answer to the next one says this one is done.
    request(QJsonObject { { L::method, L::unsupported } }, [then](const Frame &frame) {
        if (frame.method() != L::unsupported)
            return false;
        then();
        return true;
    });
}

void Ctl::requireSupported(const QString &code, std::function<void()> then)
{
    request(QJsonObject { { L::method, L::unsupported } }, [this, code, then](const Frame &frame) {
        if (frame.method() != L::unsupported)
            return false;
        const QJsonArray unsupported = frame.object().value(L::value).toArray();
        if (unsupported.contains(code)) {
            finish(Exit::Unsupported,
                QStringLiteral("that computer cannot do this (\"%1\" is in its unsupported list)")
                    .arg(code));
        } else {
            then();
        }
        return true;
    });
}

void Ctl::resolveApp(
    const QString &code, const QString &name, std::function<void(const QString &)> then)
{
    requireSupported(code, [this, name, then] { resolveSupportedApp(name, then); });
}

void Ctl::resolveSupportedApp(const QString &name, std::function<void(const QString &)> then)
{
    if (name.isEmpty()) {
        request(QJsonObject { { L::method, L::currentApp } }, [this, then](const Frame &frame) {
            if (frame.method() != L::currentApp)
                return false;
            const QString id = frame.object().value(L::id).toString();
            if (id.isEmpty())
                finish(Exit::Failed, QStringLiteral("no application is in front; name one"));
            else
                then(id);
            return true;
        });
        return;
    }
    request(
        QJsonObject { { L::method, L::installedApps } }, [this, name, then](const Frame &frame) {
            if (frame.method() != L::installedApps)
                return false;
            const QJsonArray apps = frame.object().value(L::apps).toArray();
            QString byName;
            for (const QJsonValue &value : apps) {
                const QJsonObject app = value.toObject();
                const QString id = app.value(L::id).toString();
                if (id == name) {
                    then(id);
                    return true;
                }
                if (byName.isEmpty()
                    && app.value(L::name).toString().compare(name, Qt::CaseInsensitive) == 0)
                    byName = id;
            }
            if (byName.isEmpty())
                finish(Exit::Failed,
                    QStringLiteral("no application \"%1\" (`velmctl apps` lists them)").arg(name));
            else
                then(byName);
            return true;
        });
}

void Ctl::print(const QJsonObject &json, const QString &text)
{
    if (opts.json)
        out << QJsonDocument(json).toJson(QJsonDocument::Compact) << '\n';
    else if (!text.isNull())
        out << text << '\n';
    out.flush();
}
