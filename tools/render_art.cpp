// Renders one SVG of the artwork to a PNG at a given pixel size, optionally filled with one
// colour (the SVG's shape and alpha kept), for the build.
//   usage: render_art SOURCE.svg OUTPUT.png SIZE [#RRGGBB]
#include <QColor>
#include <QCoreApplication>
#include <QImage>
#include <QPainter>
#include <QSvgRenderer>
#include <cstdio>

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList args = QCoreApplication::arguments();
    if (args.size() != 4 && args.size() != 5) {
        std::fprintf(stderr, "usage: render_art SOURCE.svg OUTPUT.png SIZE [#RRGGBB]\n");
        return 2;
    }
    QSvgRenderer renderer(args.at(1));
    if (!renderer.isValid()) {
        std::fprintf(stderr, "render_art: cannot read %s\n", qPrintable(args.at(1)));
        return 1;
    }
    bool ok = false;
    const int size = args.at(3).toInt(&ok);
    if (!ok || size <= 0 || size > 4096) {
        std::fprintf(stderr, "render_art: bad size %s\n", qPrintable(args.at(3)));
        return 2;
    }
    QImage image(size, size, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    renderer.render(&painter, QRectF(0, 0, size, size));
    if (args.size() == 5) {
        const QColor color(args.at(4));
        if (!color.isValid()) {
            std::fprintf(stderr, "render_art: bad colour %s\n", qPrintable(args.at(4)));
            return 2;
        }
        painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
        painter.fillRect(image.rect(), color);
    }
    painter.end();
    if (!image.convertToFormat(QImage::Format_ARGB32).save(args.at(2), "PNG")) {
        std::fprintf(stderr, "render_art: cannot write %s\n", qPrintable(args.at(2)));
        return 1;
    }
    return 0;
}
