#include "standardfileservices.h"

#include "fileprobe.h"

#include <QFile>
#include <QIcon>
#include <QImageReader>
#include <QMimeDatabase>
#include <QPainter>

QString StandardFileServices::typeOfFile(const QString &path)
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

QImage StandardFileServices::previewForFile(const QString &path, int width, int height)
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

namespace {
// A plain page, for files whose type has no icon in any installed theme.
QPixmap genericFileIcon(int size)
{
    QPixmap pixmap(size, size);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    const qreal margin = size * 0.15;
    const QRectF page(margin, size * 0.06, size - 2 * margin, size * 0.88);
    painter.setPen(QPen(QColor(0x70, 0x70, 0x70), qMax(1.0, size / 32.0)));
    painter.setBrush(QColor(0xfa, 0xfa, 0xfa));
    painter.drawRoundedRect(page, size * 0.05, size * 0.05);
    painter.setPen(QPen(QColor(0xb0, 0xb0, 0xb0), qMax(1.0, size / 24.0)));
    for (int line = 1; line <= 4; ++line) {
        const qreal y = page.top() + page.height() * (0.2 + 0.15 * line);
        painter.drawLine(QPointF(page.left() + page.width() * 0.18, y),
            QPointF(page.right() - page.width() * 0.18, y));
    }
    return pixmap;
}

QPixmap fitSquare(const QPixmap &pixmap, int size)
{
    if (pixmap.isNull() || pixmap.width() <= size)
        return pixmap;
    return pixmap.scaled(size, size, Qt::KeepAspectRatio, Qt::SmoothTransformation);
}

QPixmap iconForMimeType(const QString &mimeName, int size)
{
    if (mimeName == QLatin1String("inode/directory")) {
        for (const QString &name :
            { QStringLiteral("folder"), QStringLiteral("inode-directory") }) {
            if (QIcon::hasThemeIcon(name))
                return fitSquare(QIcon::fromTheme(name).pixmap(size, size), size);
        }
    }
    const QMimeType mime = QMimeDatabase().mimeTypeForName(mimeName);
    QIcon icon;
    if (mime.isValid()) {
        for (const QString &name : { mime.iconName(), mime.genericIconName() }) {
            if (!name.isEmpty() && QIcon::hasThemeIcon(name)) {
                icon = QIcon::fromTheme(name);
                break;
            }
        }
    }
    if (icon.isNull() && QIcon::hasThemeIcon(QStringLiteral("text-x-generic")))
        icon = QIcon::fromTheme(QStringLiteral("text-x-generic"));
    const QPixmap pixmap = icon.isNull() ? QPixmap() : icon.pixmap(size, size);
    return pixmap.isNull() ? genericFileIcon(size) : fitSquare(pixmap, size);
}

} // namespace

QPixmap iconForFileType(const QString &type, int size)
{
    QMimeDatabase database;
    // A MIME type name ("image/png") or an extension ("png", ".png").
    QMimeType mime = database.mimeTypeForName(type);
    if (!mime.isValid()) {
        QString extension = type;
        if (extension.startsWith(QLatin1Char('.')))
            extension.remove(0, 1);
        mime = database.mimeTypeForFile(
            QStringLiteral("file.") + extension, QMimeDatabase::MatchExtension);
    }
    return iconForMimeType(mime.name(), size);
}
