#include "singleapplication_p.h"

#include <QFile>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {
QString systemError(const QString &what, int error = errno)
{
    return QStringLiteral("%1: %2").arg(what, QString::fromLocal8Bit(::strerror(error)));
}
} // namespace

namespace {
bool lockFile(int fd, int operation)
{
    int result;
    do
        result = ::flock(fd, operation);
    while (result != 0 && errno == EINTR);
    return result == 0;
}
} // namespace

InstanceBlock::~InstanceBlock()
{
    if (m_info)
        ::munmap(m_info, sizeof(InstancesInfo));
    // Closing drops the attachment and, if held, the lock.
    if (m_blockFd >= 0)
        ::close(m_blockFd);
    if (m_lockFd >= 0)
        ::close(m_lockFd);
}

bool InstanceBlock::openOwnFile(const QString &path, int *fd)
{
    const QByteArray name = QFile::encodeName(path);
    *fd = ::open(name.constData(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (*fd < 0) {
        m_error = systemError(path);
        return false;
    }
    struct stat info;
    if (::fstat(*fd, &info) != 0) {
        m_error = systemError(path);
        return false;
    }
    if (!S_ISREG(info.st_mode) || info.st_uid != ::geteuid()) {
        m_error = QStringLiteral("%1 is not a file of this user's").arg(path);
        return false;
    }
    return true;
}

bool InstanceBlock::attach(const QString &basePath)
{
    if (!openOwnFile(basePath + QStringLiteral(".lock"), &m_lockFd) || !lock())
        return false;
    if (!openOwnFile(basePath + QStringLiteral(".block"), &m_blockFd))
        return false;
    // Nobody attached: whatever the file holds was left by a process that has gone, and the
    // block starts zero-filled, as a new one. The lock keeps any other starter out meanwhile.
    if (lockFile(m_blockFd, LOCK_EX | LOCK_NB)) {
        if (::ftruncate(m_blockFd, 0) != 0) {
            m_error = systemError(basePath + QStringLiteral(".block"));
            return false;
        }
        m_created = true;
    } else if (errno != EWOULDBLOCK) {
        m_error = systemError(basePath + QStringLiteral(".block"));
        return false;
    }
    if (!lockFile(m_blockFd, LOCK_SH)) {
        m_error = systemError(basePath + QStringLiteral(".block"));
        return false;
    }
    struct stat info;
    if (::fstat(m_blockFd, &info) != 0
        || (info.st_size < off_t(sizeof(InstancesInfo))
            && ::ftruncate(m_blockFd, off_t(sizeof(InstancesInfo))) != 0)) {
        m_error = systemError(basePath + QStringLiteral(".block"));
        return false;
    }
    void *mapped
        = ::mmap(nullptr, sizeof(InstancesInfo), PROT_READ | PROT_WRITE, MAP_SHARED, m_blockFd, 0);
    if (mapped == MAP_FAILED) {
        m_error = systemError(basePath + QStringLiteral(".block"));
        return false;
    }
    m_info = static_cast<InstancesInfo *>(mapped);
    return true;
}

bool InstanceBlock::lock()
{
    if (m_locked)
        return true;
    if (m_lockFd < 0 || !lockFile(m_lockFd, LOCK_EX)) {
        m_error = systemError(QStringLiteral("lock"));
        return false;
    }
    m_locked = true;
    return true;
}

bool InstanceBlock::unlock()
{
    if (!m_locked)
        return true;
    m_locked = false;
    if (!lockFile(m_lockFd, LOCK_UN)) {
        m_error = systemError(QStringLiteral("unlock"));
        return false;
    }
    return true;
}
