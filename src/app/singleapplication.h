#pragma once

#include <QApplication>
#include <QByteArray>
#include <QString>
#include <QStringList>

class SingleApplicationPrivate;

// The application object, and the guarantee that one instance runs per user. The first
// instance is the primary; a later one announces itself to it over a local socket and, unless
// secondaries are allowed, ends inside the constructor with status 0. The socket and the
// instances' shared block live in the user's private runtime folder, where no other user of the
// computer can reach, claim or forge them; for that reason System mode, which would need a
// place every user can write, counts as User mode.
class SingleApplication : public QApplication
{
    Q_OBJECT
public:
    enum Mode {
        User = 1 << 0,
        System = 1 << 1,
        SecondaryNotification = 1 << 2,
        ExcludeAppVersion = 1 << 3,
        ExcludeAppPath = 1 << 4,
    };
    Q_DECLARE_FLAGS(Options, Mode)

    enum SendMode { NonBlocking = 0, BlockUntilPrimaryExit = 1 };

    SingleApplication(int &argc, char **argv, bool allowSecondary = false,
        Options options = Mode::User, int timeout = 1000, const QString &userData = QString());
    ~SingleApplication() override;

    bool isPrimary() const;
    bool isSecondary() const;
    quint32 instanceId() const;
    qint64 primaryPid() const;
    QString primaryUser() const;
    QString currentUser() const;
    QStringList userData() const;
    bool sendMessage(const QByteArray &message, int timeout = 100, SendMode mode = NonBlocking);
    // From a secondary: sends the message and waits for the primary's answer (see answer());
    // ok is false when none came within the time.
    QByteArray request(const QByteArray &message, int timeout, bool *ok);
    // In the primary: answers the instance's message, as request() waits for.
    bool answer(quint32 instanceId, const QByteArray &reply);

    // The name of the shared block and of the local server, as this process computes it.
    QString blockServerName() const;

signals:
    void instanceStarted();
    void receivedMessage(quint32 instanceId, QByteArray message);

private:
    friend class SingleApplicationPrivate;
    SingleApplicationPrivate *d;
};

Q_DECLARE_OPERATORS_FOR_FLAGS(SingleApplication::Options)
