#include "fileprobe.h"

#include <QFile>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace FileProbe {

namespace {
Kind kindOfMode(mode_t mode)
{
    if (S_ISDIR(mode))
        return Kind::Directory;
    if (S_ISREG(mode))
        return Kind::Regular;
    if (S_ISFIFO(mode))
        return Kind::Fifo;
    if (S_ISSOCK(mode))
        return Kind::Socket;
    if (S_ISCHR(mode))
        return Kind::CharacterDevice;
    if (S_ISBLK(mode))
        return Kind::BlockDevice;
    return Kind::Missing;
}
} // namespace

Kind kindOf(const QString &path)
{
    struct stat info;
    if (path.isEmpty() || ::stat(QFile::encodeName(path).constData(), &info) != 0)
        return Kind::Missing;
    return kindOfMode(info.st_mode);
}

QString inodeType(Kind kind)
{
    switch (kind) {
    case Kind::Directory:
        return QStringLiteral("inode/directory");
    case Kind::Fifo:
        return QStringLiteral("inode/fifo");
    case Kind::Socket:
        return QStringLiteral("inode/socket");
    case Kind::CharacterDevice:
        return QStringLiteral("inode/chardevice");
    case Kind::BlockDevice:
        return QStringLiteral("inode/blockdevice");
    case Kind::Regular:
    case Kind::Missing:
        break;
    }
    return QString();
}

bool openRegular(const QString &path, QFile &file)
{
    // Without O_NONBLOCK, opening a named pipe waits for a writer; the type is then checked on
    // what was opened, so that nothing can be swapped in between.
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return false;
    struct stat info;
    if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
        ::close(fd);
        return false;
    }
    // Regular files ignore O_NONBLOCK, but reads should block as usual: clear it.
    ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK);
    if (!file.open(fd, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle)) {
        ::close(fd);
        return false;
    }
    return true;
}

} // namespace FileProbe
