#include "testfiles.h"

#include <QFile>
#include <QImage>
#include <QtEndian>

#include <cstring>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>
#include <zlib.h>

namespace TestFiles {

namespace {
void writeChunk(QFile &file, const char type[4], const QByteArray &data)
{
    char length[4];
    qToBigEndian<quint32>(quint32(data.size()), length);
    file.write(length, 4);
    const QByteArray typed = QByteArray(type, 4) + data;
    file.write(typed);
    char crc[4];
    qToBigEndian<quint32>(
        quint32(crc32(0, reinterpret_cast<const Bytef *>(typed.constData()), uInt(typed.size()))),
        crc);
    file.write(crc, 4);
}
} // namespace

bool writePngDeclaring(const QString &path, int width, int height)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    file.write("\x89PNG\r\n\x1a\n", 8);
    QByteArray header(13, '\0');
    qToBigEndian<quint32>(quint32(width), header.data());
    qToBigEndian<quint32>(quint32(height), header.data() + 4);
    header[8] = 8; // bits per sample
    header[9] = 0; // grey
    writeChunk(file, "IHDR", header);

    // Rows of zeros, each behind its filter byte, compressed as they are made.
    z_stream stream;
    std::memset(&stream, 0, sizeof stream);
    if (deflateInit(&stream, Z_BEST_COMPRESSION) != Z_OK)
        return false;
    std::vector<unsigned char> row(size_t(width) + 1, 0);
    std::vector<unsigned char> out(1 << 16);
    QByteArray compressed;
    for (int y = 0; y <= height; ++y) {
        const bool last = y == height;
        stream.next_in = last ? nullptr : row.data();
        stream.avail_in = last ? 0 : uInt(row.size());
        int status;
        do {
            stream.next_out = out.data();
            stream.avail_out = uInt(out.size());
            status = deflate(&stream, last ? Z_FINISH : Z_NO_FLUSH);
            compressed.append(
                reinterpret_cast<const char *>(out.data()), int(out.size() - stream.avail_out));
        } while (stream.avail_out == 0 || (last && status != Z_STREAM_END));
    }
    deflateEnd(&stream);
    for (int at = 0; at < compressed.size(); at += 1 << 20)
        writeChunk(file, "IDAT", compressed.mid(at, 1 << 20));
    writeChunk(file, "IEND", QByteArray());
    return file.error() == QFile::NoError;
}

bool writeTruncatedPng(const QString &path, int width, int height)
{
    QImage image(width, height, QImage::Format_RGB32);
    for (int y = 0; y < height; ++y) {
        auto *line = reinterpret_cast<QRgb *>(image.scanLine(y));
        for (int x = 0; x < width; ++x)
            line[x] = qRgb(x & 0xff, y & 0xff, (x * y) & 0xff);
    }
    if (!image.save(path, "PNG"))
        return false;
    QFile file(path);
    return file.resize(file.size() / 2);
}

bool writeJpeg(const QString &path, int width, int height)
{
    QImage image(width, height, QImage::Format_Grayscale8);
    for (int y = 0; y < height; ++y)
        std::memset(image.scanLine(y), y & 0xff, size_t(width));
    return image.save(path, "JPEG");
}

bool makeFifo(const QString &path)
{
    return mkfifo(QFile::encodeName(path).constData(), 0600) == 0;
}

int bindSocket(const QString &path)
{
    const QByteArray name = QFile::encodeName(path);
    struct sockaddr_un address;
    std::memset(&address, 0, sizeof address);
    if (size_t(name.size()) >= sizeof address.sun_path)
        return -1;
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, name.constData(), size_t(name.size()));
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    if (fd < 0)
        return -1;
    if (bind(fd, reinterpret_cast<const struct sockaddr *>(&address), sizeof address) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

bool fillFolder(const QString &folder, int count)
{
    for (int i = 0; i < count; ++i) {
        const QByteArray name
            = QFile::encodeName(folder) + '/' + QByteArray::number(i).rightJustified(6, '0');
        const int fd = open(name.constData(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
        if (fd < 0)
            return false;
        close(fd);
    }
    return true;
}

} // namespace TestFiles
