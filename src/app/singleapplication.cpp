#include "singleapplication.h"

#include "singleapplication_p.h"

#include <QCryptographicHash>
#include <QDataStream>
#include <QLoggingCategory>
#include <QRandomGenerator>
#include <QThread>

#include <cstdlib>
#include <cstring>
#include <pwd.h>
#include <unistd.h>

Q_LOGGING_CATEGORY(lcSingle, "velm.app.single")

namespace {
constexpr int inconsistentBlockLimit = 5000;
constexpr QDataStream::Version streamVersion = QDataStream::Qt_5_6; // 17
static_assert(streamVersion == 17, "the wire format is QDataStream version 17");
} // namespace

SingleApplicationPrivate::SingleApplicationPrivate(SingleApplication *q)
    : QObject(q)
    , q(q)
{ }

SingleApplicationPrivate::~SingleApplicationPrivate()
{
    if (socket) {
        socket->close();
        delete socket;
    }
    if (memory) {
        memory->lock();
        auto *info = static_cast<InstancesInfo *>(memory->data());
        if (server) {
            server->close();
            delete server;
            info->primary = false;
            info->primaryPid = -1;
            info->primaryUser[0] = '\0';
            info->checksum = blockChecksum(info);
        }
        memory->unlock();
        delete memory;
    }
}

QString SingleApplicationPrivate::getUsername()
{
    QString name;
    if (const passwd *entry = getpwuid(geteuid()))
        name = QString::fromLocal8Bit(entry->pw_name);
    if (name.isEmpty())
        name = qEnvironmentVariable("USER");
    return name;
}

void SingleApplicationPrivate::randomSleep()
{
    QThread::msleep(8 + ulong(10 * QRandomGenerator::global()->generateDouble()));
}

quint16 SingleApplicationPrivate::blockChecksum(const InstancesInfo *info)
{
    return qChecksum(reinterpret_cast<const char *>(info), offsetof(InstancesInfo, checksum));
}

void SingleApplicationPrivate::genBlockServerName()
{
    QCryptographicHash hash(QCryptographicHash::Sha256);
    hash.addData("SingleApplication", 17);
    hash.addData(QCoreApplication::applicationName().toUtf8());
    hash.addData(QCoreApplication::organizationName().toUtf8());
    hash.addData(QCoreApplication::organizationDomain().toUtf8());
    if (!appDataList.isEmpty())
        hash.addData(appDataList.join(QString()).toUtf8());
    if (!options.testFlag(SingleApplication::ExcludeAppVersion))
        hash.addData(QCoreApplication::applicationVersion().toUtf8());
    if (!options.testFlag(SingleApplication::ExcludeAppPath))
        hash.addData(QCoreApplication::applicationFilePath().toUtf8());
    if (options.testFlag(SingleApplication::User))
        hash.addData(getUsername().toUtf8());
    blockServerName = QString::fromLatin1(hash.result().toBase64().replace('/', '_'));
}

void SingleApplicationPrivate::initializeMemoryBlock()
{
    auto *info = static_cast<InstancesInfo *>(memory->data());
    info->primary = false;
    info->secondary = 0;
    info->primaryPid = -1;
    info->primaryUser[0] = '\0';
    info->checksum = blockChecksum(info);
}

void SingleApplicationPrivate::fail(const char *text)
{
    qCCritical(lcSingle) << text;
    if (memory)
        qCCritical(lcSingle) << "SingleApplication: " << memory->error() << memory->errorString();
    delete this;
    ::exit(EXIT_FAILURE);
}

void SingleApplicationPrivate::startPrimary()
{
    auto *info = static_cast<InstancesInfo *>(memory->data());
    info->primary = true;
    info->primaryPid = QCoreApplication::applicationPid();
    const QByteArray user = getUsername().toUtf8().left(127);
    memcpy(info->primaryUser, user.constData(), size_t(user.size()));
    info->primaryUser[user.size()] = '\0';
    info->checksum = blockChecksum(info);
    instanceNumber = 0;

    QLocalServer::removeServer(blockServerName);
    server = new QLocalServer;
    server->setSocketOptions(options.testFlag(SingleApplication::User)
            ? QLocalServer::UserAccessOption
            : QLocalServer::WorldAccessOption);
    server->listen(blockServerName);
    connect(server, &QLocalServer::newConnection, this,
        &SingleApplicationPrivate::slotConnectionEstablished);
}

void SingleApplicationPrivate::startSecondary()
{
    auto *info = static_cast<InstancesInfo *>(memory->data());
    info->secondary += 1;
    info->checksum = blockChecksum(info);
    instanceNumber = info->secondary;
}

bool SingleApplicationPrivate::connectToPrimary(int timeout, ConnectionType type)
{
    QElapsedTimer time;
    time.start();
    if (!socket)
        socket = new QLocalSocket;
    if (socket->state() == QLocalSocket::ConnectedState)
        return true;
    for (;;) {
        randomSleep();
        if (socket->state() != QLocalSocket::ConnectingState)
            socket->connectToServer(blockServerName, QIODevice::ReadWrite);
        if (socket->state() == QLocalSocket::ConnectingState)
            socket->waitForConnected(int(qMax<qint64>(0, timeout - time.elapsed())));
        if (socket->state() == QLocalSocket::ConnectedState)
            break;
        if (time.elapsed() >= timeout)
            return false;
    }

    QByteArray init;
    QDataStream stream(&init, QIODevice::WriteOnly);
    stream.setVersion(streamVersion);
    stream << blockServerName.toLatin1() << quint8(type) << instanceNumber;
    stream << qChecksum(init.constData(), uint(init.size()));
    return writeConfirmedMessage(
        int(qMax<qint64>(0, timeout - time.elapsed())), init, SingleApplication::NonBlocking);
}

bool SingleApplicationPrivate::writeConfirmedMessage(
    int timeout, const QByteArray &message, SingleApplication::SendMode mode)
{
    QElapsedTimer time;
    time.start();
    QByteArray header;
    QDataStream stream(&header, QIODevice::WriteOnly);
    stream.setVersion(streamVersion);
    stream << quint64(message.size());
    if (!writeConfirmedFrame(timeout, header))
        return false;
    const bool acknowledged
        = writeConfirmedFrame(int(qMax<qint64>(0, timeout - time.elapsed())), message);
    if (mode == SingleApplication::BlockUntilPrimaryExit)
        socket->waitForDisconnected(-1);
    return acknowledged;
}

bool SingleApplicationPrivate::writeConfirmedFrame(int timeout, const QByteArray &message)
{
    socket->write(message);
    socket->flush();
    const bool answered = socket->waitForReadyRead(timeout);
    if (answered)
        socket->read(1);
    return answered;
}

qint64 SingleApplicationPrivate::primaryPid() const
{
    memory->lock();
    const qint64 pid = static_cast<const InstancesInfo *>(memory->constData())->primaryPid;
    memory->unlock();
    return pid;
}

QString SingleApplicationPrivate::primaryUser() const
{
    memory->lock();
    const QByteArray user(static_cast<const InstancesInfo *>(memory->constData())->primaryUser);
    memory->unlock();
    return QString::fromUtf8(user);
}

void SingleApplicationPrivate::slotConnectionEstablished()
{
    QLocalSocket *next = server->nextPendingConnection();
    if (!next)
        return;
    connectionMap.insert(next, ConnectionInfo());
    // Whatever arrived just before the close is still read.
    connect(next, &QLocalSocket::aboutToClose, this, [next] {
        if (next->bytesAvailable() > 0)
            emit next->readyRead();
    });
    connect(next, &QLocalSocket::disconnected, next, &QLocalSocket::deleteLater);
    connect(next, &QObject::destroyed, this, [this, next] { connectionMap.remove(next); });
    connect(next, &QLocalSocket::readyRead, this, [this, next] {
        switch (connectionMap.value(next).stage) {
        case StageInitHeader:
            readInitMessageHeader(next);
            break;
        case StageInitBody:
            readInitMessageBody(next);
            break;
        case StageConnectedHeader:
            readMessageHeader(next, StageConnectedBody);
            break;
        case StageConnectedBody:
            readMessageBody(next);
            break;
        }
    });
}

void SingleApplicationPrivate::readMessageHeader(QLocalSocket *sock, ConnectionStage nextStage)
{
    if (!connectionMap.contains(sock) || sock->bytesAvailable() < qint64(sizeof(quint64)))
        return;
    QDataStream header(sock);
    header.setVersion(streamVersion);
    quint64 length = 0;
    header >> length;
    ConnectionInfo &info = connectionMap[sock];
    info.stage = nextStage;
    info.msgLen = length;
    writeAck(sock);
    if (sock->bytesAvailable() > 0)
        emit sock->readyRead();
}

void SingleApplicationPrivate::readInitMessageHeader(QLocalSocket *sock)
{
    readMessageHeader(sock, StageInitBody);
}

void SingleApplicationPrivate::readInitMessageBody(QLocalSocket *sock)
{
    if (!connectionMap.contains(sock))
        return;
    ConnectionInfo &info = connectionMap[sock];
    if (quint64(sock->bytesAvailable()) < info.msgLen)
        return;
    const QByteArray body = sock->read(qint64(info.msgLen));
    QDataStream stream(body);
    stream.setVersion(streamVersion);
    QByteArray name;
    quint8 type = InvalidConnection;
    quint32 instanceId = 0;
    quint16 checksum = 0;
    stream >> name >> type >> instanceId >> checksum;
    const quint16 actual
        = body.size() >= 2 ? qChecksum(body.constData(), uint(body.size() - 2)) : 0;
    if (stream.status() != QDataStream::Ok || QString::fromLatin1(name) != blockServerName
        || checksum != actual) {
        sock->close();
        return;
    }
    info.instanceId = instanceId;
    info.stage = StageConnectedHeader;
    if (type == NewInstance
        || (type == SecondaryInstance
            && options.testFlag(SingleApplication::SecondaryNotification)))
        emit q->instanceStarted();
    writeAck(sock);
}

void SingleApplicationPrivate::readMessageBody(QLocalSocket *sock)
{
    if (!connectionMap.contains(sock))
        return;
    ConnectionInfo &info = connectionMap[sock];
    if (quint64(sock->bytesAvailable()) < info.msgLen)
        return;
    const QByteArray message = sock->readAll();
    writeAck(sock);
    info.stage = StageConnectedHeader;
    emit q->receivedMessage(info.instanceId, message);
}

void SingleApplicationPrivate::writeAck(QLocalSocket *sock) { sock->putChar('\n'); }

SingleApplication::SingleApplication(int &argc, char **argv, bool allowSecondary, Options options,
    int timeout, const QString &userData)
    : QApplication(argc, argv)
    , d(new SingleApplicationPrivate(this))
{
    d->options = options;
    if (!userData.isEmpty())
        d->appDataList << userData;
    d->genBlockServerName();
    SingleApplicationPrivate::randomSleep();

    // A block left by a crashed process goes away when its last attachment does.
    {
        QSharedMemory stale(d->blockServerName);
        if (stale.attach())
            stale.detach();
    }
    d->memory = new QSharedMemory(d->blockServerName);
    if (d->memory->create(sizeof(InstancesInfo))) {
        if (!d->memory->lock())
            d->fail("SingleApplication: Unable to lock memory block after create.");
        d->initializeMemoryBlock();
    } else {
        if (d->memory->error() != QSharedMemory::AlreadyExists)
            d->fail("SingleApplication: Unable to create block.");
        if (!d->memory->attach())
            d->fail("SingleApplication: Unable to attach to shared memory block.");
        if (!d->memory->lock())
            d->fail("SingleApplication: Unable to lock memory block after attach.");
    }

    auto *info = static_cast<InstancesInfo *>(d->memory->data());
    QElapsedTimer time;
    time.start();
    for (;;) {
        if (SingleApplicationPrivate::blockChecksum(info) == info->checksum) {
            if (info->primary) {
                if (!allowSecondary) {
                    d->memory->unlock();
                    d->connectToPrimary(timeout, SingleApplicationPrivate::NewInstance);
                    delete d;
                    ::exit(EXIT_SUCCESS);
                }
                d->startSecondary();
                if (options.testFlag(SecondaryNotification))
                    d->connectToPrimary(timeout, SingleApplicationPrivate::SecondaryInstance);
            } else {
                d->startPrimary();
            }
            d->memory->unlock();
            return;
        }
        if (time.elapsed() > inconsistentBlockLimit) {
            qCWarning(lcSingle)
                << "SingleApplication: Shared memory block has been in an inconsistent "
                   "state from more than 5s. Assuming primary instance failure.";
            d->initializeMemoryBlock();
        }
        d->memory->unlock();
        SingleApplicationPrivate::randomSleep();
        if (!d->memory->lock())
            d->fail("SingleApplication: Unable to lock memory after random wait.");
    }
}

SingleApplication::~SingleApplication() { delete d; }

bool SingleApplication::isPrimary() const { return d->server != nullptr; }

bool SingleApplication::isSecondary() const { return d->server == nullptr; }

quint32 SingleApplication::instanceId() const { return d->instanceNumber; }

qint64 SingleApplication::primaryPid() const { return d->primaryPid(); }

QString SingleApplication::primaryUser() const { return d->primaryUser(); }

QString SingleApplication::currentUser() const { return SingleApplicationPrivate::getUsername(); }

QStringList SingleApplication::userData() const { return d->appDataList; }

bool SingleApplication::sendMessage(const QByteArray &message, int timeout, SendMode mode)
{
    if (isPrimary())
        return false;
    if (!d->connectToPrimary(timeout, SingleApplicationPrivate::Reconnect))
        return false;
    return d->writeConfirmedMessage(timeout, message, mode);
}

QByteArray SingleApplication::request(const QByteArray &message, int timeout, bool *ok)
{
    *ok = false;
    if (!sendMessage(message, timeout))
        return QByteArray();
    // The answer: its length, then the bytes.
    QElapsedTimer time;
    time.start();
    const auto waitFor = [this, &time, timeout](qint64 bytes) {
        while (d->socket->bytesAvailable() < bytes) {
            const qint64 left = timeout - time.elapsed();
            if (left <= 0 || !d->socket->waitForReadyRead(int(left)))
                return false;
        }
        return true;
    };
    if (!waitFor(qint64(sizeof(quint64))))
        return QByteArray();
    QDataStream header(d->socket);
    header.setVersion(streamVersion);
    quint64 length = 0;
    header >> length;
    // An answer is a few lines of text.
    if (length > 1024 * 1024 || !waitFor(qint64(length)))
        return QByteArray();
    *ok = true;
    return d->socket->read(qint64(length));
}

bool SingleApplication::answer(quint32 instanceId, const QByteArray &reply)
{
    for (auto it = d->connectionMap.cbegin(); it != d->connectionMap.cend(); ++it) {
        if (it.value().instanceId != instanceId)
            continue;
        QByteArray frame;
        QDataStream stream(&frame, QIODevice::WriteOnly);
        stream.setVersion(streamVersion);
        stream << quint64(reply.size());
        frame += reply;
        it.key()->write(frame);
        it.key()->flush();
        return true;
    }
    return false;
}

QString SingleApplication::blockServerName() const { return d->blockServerName; }
