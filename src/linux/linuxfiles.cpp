#include "linuxfiles.h"

#include "fileprobe.h"

#include <QFile>
#include <QImageReader>
#include <QMimeDatabase>

QString LinuxFileServices::typeOfFile(const QString &path)
{
    const FileProbe::Kind kind = FileProbe::kindOf(path);
    if (kind == FileProbe::Kind::Missing)
        return QString();
    const QString inode = FileProbe::inodeType(kind);
    if (!inode.isEmpty())
        return inode;
    QMimeDatabase database;
    QFile file;
    if (FileProbe::openRegular(path, file))
        return database.mimeTypeForFileNameAndData(path, &file).name();
    // Unreadable (or replaced since): its name is all there is to go by.
    return database.mimeTypeForFile(path, QMimeDatabase::MatchExtension).name();
}

QImage LinuxFileServices::previewForFile(const QString &path, int width, int height)
{
    static const QStringList direct { QStringLiteral("png"), QStringLiteral("jpg"),
        QStringLiteral("jpeg"), QStringLiteral("gif"), QStringLiteral("bmp"),
        QStringLiteral("tiff"), QStringLiteral("icns"), QStringLiteral("tga"),
        QStringLiteral("webp") };
    // Anything is wider than nothing: a preview fitting no room is no preview.
    if (width <= 0 || height <= 0)
        return QImage();
    const int slash = path.lastIndexOf(QLatin1Char('/'));
    const int dot = path.lastIndexOf(QLatin1Char('.'));
    const QString extension = dot <= slash ? QString() : path.mid(dot + 1).toLower();
    if (extension.isEmpty() || !direct.contains(extension))
        return QImage();
    QFile file;
    if (!FileProbe::openRegular(path, file))
        return QImage();
    QImageReader reader(&file);
    reader.setAutoTransform(true);
    const QSize full = reader.size();
    if (!full.isValid())
        return QImage();
    // Decode no more pixels than the answer needs. Only the JPEG decoder scales while it
    // decodes (by up to 8 each way); the others hold the whole picture first.
    const QSize wanted(qMin(width, 32768) * 2, qMin(height, 32768) * 2);
    int shrink = 1;
    if (full.width() > wanted.width() || full.height() > wanted.height()) {
        const QSize target = full.scaled(wanted, Qt::KeepAspectRatio).expandedTo(QSize(1, 1));
        reader.setScaledSize(target);
        if (reader.format() == "jpeg") {
            const int ratio = qMin(full.width() / target.width(), full.height() / target.height());
            while (shrink < 8 && shrink * 2 <= ratio)
                shrink *= 2;
        }
    }
    const qint64 decoded = qint64(full.width() / shrink + 1) * (full.height() / shrink + 1);
    if (decoded > maxDecodedPixels)
        return QImage();
    QImage image = reader.read();
    if (image.isNull())
        return image;
    if (image.width() > width || image.height() > height)
        image = image.scaled(width, height, Qt::KeepAspectRatio, Qt::SmoothTransformation);
    return image;
}
