#pragma once

#include "singleapplication.h"

#include <QElapsedTimer>
#include <QHash>
#include <QLocalServer>
#include <QLocalSocket>

#include <cstddef>

// The shared block; its layout is shared between processes and must not change.
struct InstancesInfo
{
    bool primary;
    quint32 secondary;
    qint64 primaryPid;
    char primaryUser[128];
    quint16 checksum;
};
static_assert(offsetof(InstancesInfo, secondary) == 4, "block layout");
static_assert(offsetof(InstancesInfo, primaryPid) == 8, "block layout");
static_assert(offsetof(InstancesInfo, primaryUser) == 16, "block layout");
static_assert(offsetof(InstancesInfo, checksum) == 144, "block layout");
static_assert(sizeof(InstancesInfo) == 152, "block layout");

// The block as a file of the user's private folder, mapped by every instance, with two advisory
// locks beside it: the lock file's exclusive lock guards the block, and each instance holds a
// shared lock on the block file for as long as it is attached, so that a block nobody holds
// (left by a process that died) is known and started afresh. Unlike System V objects, whose
// keys anyone on the computer can compute and claim first, nothing here can be reached by
// another user, and the kernel drops a dead process's locks.
class InstanceBlock
{
public:
    InstanceBlock() = default;
    ~InstanceBlock();
    InstanceBlock(const InstanceBlock &) = delete;
    InstanceBlock &operator=(const InstanceBlock &) = delete;

    // Attaches to the block of that base path (".block" and ".lock" are added), making it when
    // nobody is attached, and returns holding its lock; created() tells which happened.
    bool attach(const QString &basePath);
    bool created() const { return m_created; }
    bool lock();
    bool unlock();
    InstancesInfo *data() const { return m_info; }
    QString errorString() const { return m_error; }

private:
    bool openOwnFile(const QString &path, int *fd);

    int m_lockFd = -1;
    int m_blockFd = -1;
    InstancesInfo *m_info = nullptr;
    bool m_created = false;
    bool m_locked = false;
    QString m_error;
};

struct ConnectionInfo
{
    quint64 msgLen = 0;
    quint32 instanceId = 0;
    quint8 stage = 0;
};

class SingleApplicationPrivate : public QObject
{
    Q_OBJECT
public:
    enum ConnectionType : quint8 {
        InvalidConnection = 0,
        NewInstance = 1,
        SecondaryInstance = 2,
        Reconnect = 3
    };
    enum ConnectionStage : quint8 {
        StageInitHeader = 0,
        StageInitBody = 1,
        StageConnectedHeader = 2,
        StageConnectedBody = 3
    };

    explicit SingleApplicationPrivate(SingleApplication *q);
    ~SingleApplicationPrivate() override;

    static QString getUsername();
    // The folder that holds the socket and the block: $XDG_RUNTIME_DIR when it is this user's
    // alone, else a folder of the temporary one that this user made and owns, mode 0700.
    // Empty, with the reason, when neither can be had.
    static QString privateFolder(QString *error);
    // Whether the process at the other end of a local socket runs as this user.
    static bool peerIsThisUser(const QLocalSocket *socket);
    static void randomSleep();
    static quint16 blockChecksum(const InstancesInfo *info);
    void genBlockServerName();
    void initializeMemoryBlock();
    void startPrimary();
    void startSecondary();
    bool connectToPrimary(int timeout, ConnectionType type);
    bool writeConfirmedMessage(
        int timeout, const QByteArray &message, SingleApplication::SendMode mode);
    bool writeConfirmedFrame(int timeout, const QByteArray &message);
    qint64 primaryPid() const;
    QString primaryUser() const;
    [[noreturn]] void fail(const char *text);

    void slotConnectionEstablished();
    void readInitMessageHeader(QLocalSocket *socket);
    void readInitMessageBody(QLocalSocket *socket);
    void readMessageHeader(QLocalSocket *socket, ConnectionStage nextStage);
    void readMessageBody(QLocalSocket *socket);
    void writeAck(QLocalSocket *socket);

    SingleApplication *q;
    InstanceBlock *memory = nullptr;
    QLocalSocket *socket = nullptr;
    QLocalServer *server = nullptr;
    quint32 instanceNumber = 0;
    QString blockServerName;
    // Where the socket listens, and the block's files begin: the name in the private folder.
    QString basePath;
    SingleApplication::Options options;
    QHash<QLocalSocket *, ConnectionInfo> connectionMap;
    QStringList appDataList;
};
