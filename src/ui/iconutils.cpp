#include "iconutils.h"

#include <QFile>
#include <QGuiApplication>
#include <QImageReader>
#include <QPalette>

// The artwork is compiled into this static library and nothing refers to it by symbol, so it
// is registered by hand (outside any namespace, as the macro requires).
static void ensureResources()
{
    static const bool done = [] {
        Q_INIT_RESOURCE(velm_art);
        return true;
    }();
    Q_UNUSED(done)
}

namespace {
QColor windowColor() { return QGuiApplication::palette().color(QPalette::Window); }

// The artwork is all PNG. Told so, the reader decodes it itself; left to guess, it would first
// load every image plugin installed (TIFF, WebP, JPEG and what they link) to ask each whether it
// reads PNG, which at start-up costs the tray icon more time and memory than everything else.
QPixmap readPng(const QString &path)
{
    QImageReader reader(path, "png");
    reader.setAutoDetectImageFormat(false);
    return QPixmap::fromImage(reader.read());
}

void addPng(QIcon &icon, const QString &path, QIcon::Mode mode, QIcon::State state)
{
    icon.addPixmap(readPng(path), mode, state);
    // The "@2x" twin joins as the larger size, which a high-resolution screen picks.
    const QString twin = path.chopped(4) + QStringLiteral("@2x.png");
    if (QFile::exists(twin))
        icon.addPixmap(readPng(twin), mode, state);
}
} // namespace

QString IconUtils::setFor(const QColor &background)
{
    return background.value() < 129 ? QStringLiteral("dark/") : QStringLiteral("light/");
}

QIcon IconUtils::fromTheme(const QString &name)
{
    if (!name.endsWith(QLatin1String("-symbolic"))) {
        const QString symbolic = name + QStringLiteral("-symbolic");
        if (QIcon::hasThemeIcon(symbolic))
            return QIcon::fromTheme(symbolic);
    }
    return QIcon::fromTheme(name);
}

QIcon IconUtils::fromResources(const char *name)
{
    ensureResources();
    const QString base = QStringLiteral(":/icons/") + setFor(windowColor()) + QStringLiteral("16/")
        + QLatin1String(name);
    const QString png = QStringLiteral(".png");
    QIcon result;
    if (!QFile::exists(base + png))
        return result;
    addPng(result, base + png, QIcon::Normal, QIcon::Off);
    const struct
    {
        const char *suffix;
        QIcon::Mode mode;
        QIcon::State state;
    } variants[] = {
        { "_active", QIcon::Active, QIcon::Off },
        { "_selected", QIcon::Selected, QIcon::Off },
        { "_disabled", QIcon::Disabled, QIcon::Off },
        { "_checked", QIcon::Normal, QIcon::On },
    };
    for (const auto &variant : variants) {
        const QString path = base + QLatin1String(variant.suffix) + png;
        if (QFile::exists(path))
            addPng(result, path, variant.mode, variant.state);
    }
    return result;
}

QIcon IconUtils::icon(const char *name) { return fromResources(name); }

QIcon IconUtils::icon(const QVector<const char *> &names)
{
    QIcon result;
    for (const char *name : names) {
        result = fromResources(name);
        if (!result.availableSizes().isEmpty())
            return result;
    }
    return result;
}

QString IconUtils::iconPath(const char *name, int size, const QColor &background)
{
    return QStringLiteral(":/icons/") + setFor(background) + QString::number(size)
        + QLatin1Char('/') + QLatin1String(name) + QStringLiteral(".png");
}

QPixmap IconUtils::iconPixmap(
    const char *name, int size, const QColor &background, qreal pixelRatio)
{
    return pixmap(iconPath(name, size, background), pixelRatio);
}

QPixmap IconUtils::pixmap(const QString &path, qreal pixelRatio)
{
    ensureResources();
    const int dot = path.lastIndexOf(QLatin1Char('.'));
    if (pixelRatio > 1.0 && dot >= 0) {
        const QString twin = path.left(dot) + QStringLiteral("@2x") + path.mid(dot);
        if (QFile::exists(twin)) {
            QPixmap result = readPng(twin);
            result.setDevicePixelRatio(pixelRatio);
            return result;
        }
    }
    return readPng(path);
}

QIcon IconUtils::tintedIcon(const char *name, const QColor &color, const QVector<QSize> &sizes)
{
    const QIcon source = fromResources(name);
    QIcon result;
    for (const QSize &size : sizes) {
        QPixmap pixmap = source.pixmap(size, QIcon::Normal, QIcon::Off);
        tint(pixmap, color, QPainter::CompositionMode_SourceIn);
        result.addPixmap(pixmap, QIcon::Normal, QIcon::Off);
    }
    return result;
}

QIcon IconUtils::tintedIcon(const char *name, const QColor &color, const QSize &size)
{
    return tintedIcon(name, color, QVector<QSize> { size });
}

void IconUtils::tint(QPixmap &pixmap, const QColor &color, QPainter::CompositionMode mode)
{
    if (pixmap.isNull())
        return;
    QPainter painter(&pixmap);
    painter.setCompositionMode(mode);
    painter.fillRect(pixmap.rect(), color);
}

QImage IconUtils::grayscaled(const QImage &image)
{
    QImage result = image.convertToFormat(QImage::Format_ARGB32);
    for (int y = 0; y < result.height(); ++y) {
        auto *line = reinterpret_cast<QRgb *>(result.scanLine(y));
        for (int x = 0; x < result.width(); ++x) {
            const QRgb pixel = line[x];
            const int gray = (11 * qRed(pixel) + 16 * qGreen(pixel) + 5 * qBlue(pixel)) / 32;
            line[x] = qRgba(gray, gray, gray, qAlpha(pixel));
        }
    }
    return result;
}

QImage IconUtils::tinted(const QImage &image, const QColor &color, QPainter::CompositionMode mode)
{
    QImage result = grayscaled(image);
    {
        QPainter painter(&result);
        painter.setCompositionMode(mode);
        painter.fillRect(result.rect(), color);
    }
    // setAlphaChannel would multiply with the alpha the painting left; the original's is put
    // back as it was instead.
    result = result.convertToFormat(QImage::Format_ARGB32);
    const QImage original = image.convertToFormat(QImage::Format_ARGB32);
    for (int y = 0; y < result.height(); ++y) {
        auto *line = reinterpret_cast<QRgb *>(result.scanLine(y));
        const auto *alpha = reinterpret_cast<const QRgb *>(original.constScanLine(y));
        for (int x = 0; x < result.width(); ++x)
            line[x] = qRgba(qRed(line[x]), qGreen(line[x]), qBlue(line[x]), qAlpha(alpha[x]));
    }
    return result;
}
