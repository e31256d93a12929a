#pragma once

#include "singleapplication.h"

#include <QElapsedTimer>
#include <QHash>
#include <QLocalServer>
#include <QLocalSocket>
#include <QSharedMemory>

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
    QSharedMemory *memory = nullptr;
    QLocalSocket *socket = nullptr;
    QLocalServer *server = nullptr;
    quint32 instanceNumber = 0;
    QString blockServerName;
    SingleApplication::Options options;
    QHash<QLocalSocket *, ConnectionInfo> connectionMap;
    QStringList appDataList;
};
