#pragma once

#include <QColor>
#include <QIcon>
#include <QImage>
#include <QPainter>
#include <QPixmap>
#include <QSize>
#include <QString>
#include <QVector>

// The program's own icons from its resources, in a light and a dark set with high-resolution
// twins, and ways to tint or grey them.
class IconUtils
{
public:
    // The theme's "-symbolic" variant when there is one, else the plain theme icon.
    static QIcon fromTheme(const QString &name);
    static QIcon fromResources(const char *name);
    static QIcon icon(const char *name);
    // The first of the names with an image, else the last one's icon.
    static QIcon icon(const QVector<const char *> &names);
    static QString iconPath(const char *name, int size, const QColor &background);
    static QPixmap iconPixmap(
        const char *name, int size, const QColor &background, qreal pixelRatio);
    // The "@2x" twin at that ratio when there is one, else the plain image at ratio 1.
    static QPixmap pixmap(const QString &path, qreal pixelRatio);
    static QIcon tintedIcon(const char *name, const QColor &color, const QVector<QSize> &sizes);
    static QIcon tintedIcon(const char *name, const QColor &color, const QSize &size);
    static void tint(QPixmap &pixmap, const QColor &color, QPainter::CompositionMode mode);
    static QImage grayscaled(const QImage &image);
    static QImage tinted(const QImage &image, const QColor &color, QPainter::CompositionMode mode);

    // "dark/" for a dark background, "light/" otherwise.
    static QString setFor(const QColor &background);
};
