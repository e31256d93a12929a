#include "singleapplication.h"

#include "singleapplication_p.h"

#include <QCryptographicHash>
#include <QDataStream>
#include <QDir>
#include <QFile>
#include <QLoggingCategory>
#include <QRandomGenerator>
#include <QThread>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

Q_LOGGING_CATEGORY(lcSingle, "velm.app.single")

namespace {
constexpr int inconsistentBlockLimit = 5000;
constexpr QDataStream::Version streamVersion = QDataStream::Qt_5_6; // 17
static_assert(streamVersion == 17, "the wire format is QDataStream version 17");
} // namespace

namespace {
QString systemError(const QString &what, int error = errno)
{
    return QStringLiteral("%1: %2").arg(what, QString::fromLocal8Bit(::strerror(error)));
}

// A folder only this user can enter, and that is no link to somewhere else.
bool isPrivateFolder(const QByteArray &path, QString *why)
{
    struct stat info;
    if (::lstat(path.constData(), &info) != 0) {
        *why = systemError(QString::fromLocal8Bit(path));
        return false;
    }
    if (!S_ISDIR(info.st_mode)) {
        *why = QStringLiteral("%1 is not a folder").arg(QString::fromLocal8Bit(path));
        return false;
    }
    if (info.st_uid != ::geteuid()) {
        *why = QStringLiteral("%1 belongs to another user").arg(QString::fromLocal8Bit(path));
        return false;
    }
    if ((info.st_mode & 077) != 0) {
        *why = QStringLiteral("%1 can be reached by other users (mode %2)")
                   .arg(QString::fromLocal8Bit(path))
                   .arg(info.st_mode & 0777, 3, 8, QLatin1Char('0'));
        return false;
    }
    return true;
}

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
    if (memory && memory->data()) {
        memory->lock();
        auto *info = memory->data();
        if (server) {
            server->close();
            delete server;
            info->primary = false;
            info->primaryPid = -1;
            info->primaryUser[0] = '\0';
            info->checksum = blockChecksum(info);
        }
        memory->unlock();
    }
    delete memory;
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

QString SingleApplicationPrivate::privateFolder(QString *error)
{
    QString why;
    const QByteArray runtime = qgetenv("XDG_RUNTIME_DIR");
    if (!runtime.isEmpty()) {
        if (isPrivateFolder(runtime, &why))
            return QFile::decodeName(runtime);
        qCWarning(lcSingle).noquote() << "Not using XDG_RUNTIME_DIR:" << why;
    }
    // The name is known to everyone, so whoever made it first must have been this user.
    const QString fallback = QDir::tempPath() + QLatin1Char('/')
        + QCoreApplication::applicationName() + QLatin1Char('-') + QString::number(::geteuid());
    const QByteArray path = QFile::encodeName(fallback);
    if (::mkdir(path.constData(), 0700) != 0 && errno != EEXIST) {
        *error = systemError(fallback);
        return QString();
    }
    if (!isPrivateFolder(path, &why)) {
        *error = why;
        return QString();
    }
    return fallback;
}

bool SingleApplicationPrivate::peerIsThisUser(const QLocalSocket *socket)
{
    const int fd = int(socket->socketDescriptor());
    if (fd < 0)
        return false;
#ifdef SO_PEERCRED
    struct ucred credentials;
    socklen_t size = sizeof credentials;
    if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0)
        return false;
    return credentials.uid == ::geteuid();
#else
    uid_t uid;
    gid_t gid;
    if (::getpeereid(fd, &uid, &gid) != 0)
        return false;
    return uid == ::geteuid();
#endif
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
    auto *info = memory->data();
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
        qCCritical(lcSingle).noquote() << "SingleApplication:" << memory->errorString();
    delete this;
    ::exit(EXIT_FAILURE);
}

void SingleApplicationPrivate::startPrimary()
{
    auto *info = memory->data();
    info->primary = true;
    info->primaryPid = QCoreApplication::applicationPid();
    const QByteArray user = getUsername().toUtf8().left(127);
    memcpy(info->primaryUser, user.constData(), size_t(user.size()));
    info->primaryUser[user.size()] = '\0';
    info->checksum = blockChecksum(info);
    instanceNumber = 0;

    // The folder is this user's alone, so whatever has the name was left by one of ours.
    QLocalServer::removeServer(basePath);
    server = new QLocalServer;
    server->setSocketOptions(QLocalServer::UserAccessOption);
    // Without the channel the program still runs; only a second start and the terminal's
    // requests cannot reach it, and the log says why.
    if (!server->listen(basePath))
        qCCritical(lcSingle).noquote()
            << "SingleApplication: Unable to listen on" << basePath << "-" << server->errorString();
    connect(server, &QLocalServer::newConnection, this,
        &SingleApplicationPrivate::slotConnectionEstablished);
}

void SingleApplicationPrivate::startSecondary()
{
    auto *info = memory->data();
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
            socket->connectToServer(basePath, QIODevice::ReadWrite);
        if (socket->state() == QLocalSocket::ConnectingState)
            socket->waitForConnected(int(qMax<qint64>(0, timeout - time.elapsed())));
        if (socket->state() == QLocalSocket::ConnectedState) {
            if (peerIsThisUser(socket))
                break;
            qCCritical(lcSingle).noquote()
                << "SingleApplication: The instance at" << basePath << "runs as another user";
            socket->abort();
            return false;
        }
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
    const qint64 pid = memory->data()->primaryPid;
    memory->unlock();
    return pid;
}

QString SingleApplicationPrivate::primaryUser() const
{
    memory->lock();
    const InstancesInfo *info = memory->data();
    const QByteArray user(
        info->primaryUser, int(qstrnlen(info->primaryUser, sizeof info->primaryUser)));
    memory->unlock();
    return QString::fromUtf8(user);
}

void SingleApplicationPrivate::slotConnectionEstablished()
{
    QLocalSocket *next = server->nextPendingConnection();
    if (!next)
        return;
    if (!peerIsThisUser(next)) {
        qCWarning(lcSingle) << "SingleApplication: Refused a connection from another user";
        next->abort();
        next->deleteLater();
        return;
    }
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

    QString why;
    const QString folder = SingleApplicationPrivate::privateFolder(&why);
    if (folder.isEmpty()) {
        qCCritical(lcSingle).noquote() << "SingleApplication: No private folder:" << why;
        d->fail("SingleApplication: Unable to create block.");
    }
    d->basePath = folder + QLatin1Char('/') + d->blockServerName;
    d->memory = new InstanceBlock;
    if (!d->memory->attach(d->basePath))
        d->fail("SingleApplication: Unable to attach to shared memory block.");
    if (d->memory->created())
        d->initializeMemoryBlock();

    auto *info = d->memory->data();
    QElapsedTimer time;
    time.start();
    for (;;) {
        if (SingleApplicationPrivate::blockChecksum(info) == info->checksum) {
            if (info->primary) {
                if (!allowSecondary) {
                    d->memory->unlock();
                    if (!d->connectToPrimary(timeout, SingleApplicationPrivate::NewInstance))
                        qCWarning(lcSingle).noquote()
                            << "SingleApplication: The running instance did not answer at"
                            << d->basePath;
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
