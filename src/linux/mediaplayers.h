#pragma once

#include <QHash>
#include <QObject>
#include <QString>
#include <QVariantMap>

#include <functional>

class QDBusMessage;

// The media players of the desktop session (MPRIS): which are there, which plays, which was
// used last. Commands go to the player that plays, else to the one active most recently.
class MediaPlayers : public QObject
{
    Q_OBJECT
public:
    enum Command { PlayPause, Next, Previous };

    explicit MediaPlayers(QObject *parent = nullptr);

    bool isEmpty() const { return players.isEmpty(); }
    // The bus name a command would go to now; empty when there is no player.
    QString target() const;
    // "Playing", "Paused" or "Stopped" as last seen; empty for an unknown player.
    QString statusOf(const QString &name) const { return players.value(name).status; }
    // False when there is no player. `failed` runs when the chosen player does not take it.
    bool send(Command command, std::function<void()> failed);

signals:
    void playersChanged();

private slots:
    void onNameOwnerChanged(const QString &name, const QString &oldOwner, const QString &newOwner);
    void onPropertiesChanged(const QString &interface, const QVariantMap &changed,
        const QStringList &invalidated, const QDBusMessage &message);

private:
    struct Player
    {
        QString owner;
        QString status;
        // Larger is more recent: when it appeared or its playback status last changed.
        quint64 activity = 0;
    };
    void addPlayer(const QString &name, const QString &owner);
    void readStatus(const QString &name);
    void setStatus(const QString &name, const QString &status);

    QHash<QString, Player> players;
    quint64 clock = 0;
};
