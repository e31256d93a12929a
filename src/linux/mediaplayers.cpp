#include "mediaplayers.h"

#include "linuxlogging.h"
#include "mprisplayer.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>

Q_LOGGING_CATEGORY(lcLinuxMedia, "velm.linux.media")

namespace {
const QString prefix = QStringLiteral("org.mpris.MediaPlayer2.");
const QString playerPath = QStringLiteral("/org/mpris/MediaPlayer2");
const QString playerInterface = QStringLiteral("org.mpris.MediaPlayer2.Player");
const QString propertiesInterface = QStringLiteral("org.freedesktop.DBus.Properties");
const QString playbackStatus = QStringLiteral("PlaybackStatus");
const QString playing = QStringLiteral("Playing");
} // namespace

MediaPlayers::MediaPlayers(QObject *parent)
    : QObject(parent)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected() || !bus.interface())
        return;
    bus.connect(QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("NameOwnerChanged"), this,
        SLOT(onNameOwnerChanged(QString, QString, QString)));
    // Any sender: players are told apart by their unique names.
    bus.connect(QString(), playerPath, propertiesInterface, QStringLiteral("PropertiesChanged"),
        this, SLOT(onPropertiesChanged(QString, QVariantMap, QStringList, QDBusMessage)));
    const QStringList names = bus.interface()->registeredServiceNames().value();
    for (const QString &name : names) {
        if (name.startsWith(prefix))
            addPlayer(name, bus.interface()->serviceOwner(name).value());
    }
}

void MediaPlayers::addPlayer(const QString &name, const QString &owner)
{
    if (owner.isEmpty())
        return;
    Player &player = players[name];
    player.owner = owner;
    player.activity = ++clock;
    readStatus(name);
    emit playersChanged();
}

void MediaPlayers::readStatus(const QString &name)
{
    QDBusMessage get = QDBusMessage::createMethodCall(
        name, playerPath, propertiesInterface, QStringLiteral("Get"));
    get << playerInterface << playbackStatus;
    auto *watcher = new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(get), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher, name] {
        const QDBusPendingReply<QDBusVariant> reply = *watcher;
        watcher->deleteLater();
        if (!reply.isError())
            setStatus(name, reply.value().variant().toString());
    });
}

void MediaPlayers::setStatus(const QString &name, const QString &status)
{
    auto found = players.find(name);
    if (found == players.end() || found->status == status)
        return;
    // Only a change counts as use: a status read for the first time does not reorder.
    if (!found->status.isEmpty())
        found->activity = ++clock;
    found->status = status;
}

void MediaPlayers::onNameOwnerChanged(
    const QString &name, const QString &oldOwner, const QString &newOwner)
{
    if (!name.startsWith(prefix))
        return;
    Q_UNUSED(oldOwner)
    if (players.remove(name) && newOwner.isEmpty())
        emit playersChanged();
    addPlayer(name, newOwner);
}

void MediaPlayers::onPropertiesChanged(const QString &interface, const QVariantMap &changed,
    const QStringList &invalidated, const QDBusMessage &message)
{
    if (interface != playerInterface)
        return;
    for (auto player = players.cbegin(); player != players.cend(); ++player) {
        if (player->owner != message.service())
            continue;
        if (changed.contains(playbackStatus))
            setStatus(player.key(), changed.value(playbackStatus).toString());
        else if (invalidated.contains(playbackStatus))
            readStatus(player.key());
    }
}

QString MediaPlayers::target() const
{
    QString chosen;
    bool chosenPlays = false;
    quint64 chosenActivity = 0;
    for (auto player = players.cbegin(); player != players.cend(); ++player) {
        const bool plays = player->status == playing;
        if (chosen.isEmpty() || (plays && !chosenPlays)
            || (plays == chosenPlays && player->activity > chosenActivity)) {
            chosen = player.key();
            chosenPlays = plays;
            chosenActivity = player->activity;
        }
    }
    return chosen;
}

bool MediaPlayers::send(Command command, std::function<void()> failed)
{
    const QString name = target();
    if (name.isEmpty())
        return false;
    OrgMprisMediaPlayer2PlayerInterface player(name, playerPath, QDBusConnection::sessionBus());
    QDBusPendingCall call = command == PlayPause ? player.PlayPause()
        : command == Next                        ? player.Next()
                                                 : player.Previous();
    auto *watcher = new QDBusPendingCallWatcher(call, this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [watcher, name, failed] {
        watcher->deleteLater();
        if (!watcher->isError())
            return;
        qCWarning(lcLinuxMedia).noquote()
            << "The media player" << name
            << "did not take the command:" << watcher->error().message();
        failed();
    });
    return true;
}
