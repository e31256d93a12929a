#include "fontutils.h"
#include "iconutils.h"

#include <QApplication>
#include <QPalette>
#include <QProcess>
#include <QResource>
#include <QStyle>
#include <QTemporaryDir>
#include <QtTest>

namespace {
void useWindowColor(const QColor &color)
{
    QPalette palette = QApplication::palette();
    palette.setColor(QPalette::Window, color);
    QApplication::setPalette(palette);
}

QImage imageOf(const QString &path) { return QImage(path).convertToFormat(QImage::Format_ARGB32); }
} // namespace

// Finding, tinting and greying the program's icons, and the dialogs' fonts.
class TestIconUtils : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanup();
    void programIconsLoadNoImagePlugin();
    void trayIconHasItsTwin();
    void setFollowsTheWindowColour();
    void darkBackgroundReadsTheDarkSet();
    void iconPathNamesSetSizeAndFile();
    void missingIconIsEmpty();
    void firstIconWithAnImageWins();
    void stateVariantsAreAdded();
    void pixmapUsesTheTwinAtRatioTwo();
    void pixmapWithoutTwinIsPlainAtRatioOne();
    void grayscaleKeepsAlpha();
    void grayscaleWeights();
    void tintedKeepsShapeAndAlpha();
    void tintedIconFillsTheShape();
    void smallFontsAreElevenPixels();
    void fontSizesFollowTheDefault();
    void lightFontFallsBack();
    void artworkIsThere();
};

void TestIconUtils::initTestCase()
{
    // The first look-up registers the compiled-in artwork.
    QVERIFY(!IconUtils::icon("tray").isNull());
}

void TestIconUtils::cleanup()
{
    QApplication::setPalette(QApplication::style()->standardPalette());
}

// First, before anything else reads an image: the artwork is PNG, and reading it must not load
// every image plugin installed (they cost start-up time and memory).
void TestIconUtils::programIconsLoadNoImagePlugin()
{
    QVERIFY(!IconUtils::icon("lock").pixmap(16).isNull());
    QVERIFY(!IconUtils::pixmap(QStringLiteral(":/images/64/app.png"), 2.0).isNull());
#ifdef Q_OS_LINUX
    QFile maps(QStringLiteral("/proc/self/maps"));
    QVERIFY(maps.open(QIODevice::ReadOnly));
    const QByteArray loaded = maps.readAll();
    QVERIFY(loaded.contains("libQt5Gui"));
    QVERIFY2(!loaded.contains("/imageformats/"), "an image plugin was loaded");
#endif
}

void TestIconUtils::trayIconHasItsTwin()
{
    const QList<QSize> sizes = IconUtils::icon("tray").availableSizes();
    QVERIFY(sizes.contains(QSize(16, 16)));
    QVERIFY(sizes.contains(QSize(32, 32)));
    QCOMPARE(IconUtils::icon("tray").pixmap(32).size(), QSize(32, 32));
}

void TestIconUtils::setFollowsTheWindowColour()
{
    QCOMPARE(IconUtils::setFor(QColor(128, 128, 128)), QStringLiteral("dark/"));
    QCOMPARE(IconUtils::setFor(QColor(129, 0, 0)), QStringLiteral("light/"));
    QCOMPARE(IconUtils::setFor(Qt::white), QStringLiteral("light/"));
    QCOMPARE(IconUtils::setFor(Qt::black), QStringLiteral("dark/"));
}

void TestIconUtils::darkBackgroundReadsTheDarkSet()
{
    useWindowColor(QColor(40, 40, 40));
    const QIcon dark = IconUtils::icon("tray");
    QVERIFY(!dark.isNull());
    QCOMPARE(dark.pixmap(16).toImage().convertToFormat(QImage::Format_ARGB32),
        imageOf(QStringLiteral(":/icons/dark/16/tray.png")));
    useWindowColor(QColor(240, 240, 240));
    const QIcon light = IconUtils::icon("tray");
    QCOMPARE(light.pixmap(16).toImage().convertToFormat(QImage::Format_ARGB32),
        imageOf(QStringLiteral(":/icons/light/16/tray.png")));
    // The two sets differ: light shapes for dark backgrounds and the other way round.
    QVERIFY(imageOf(QStringLiteral(":/icons/dark/16/tray.png"))
        != imageOf(QStringLiteral(":/icons/light/16/tray.png")));
}

void TestIconUtils::iconPathNamesSetSizeAndFile()
{
    QCOMPARE(
        IconUtils::iconPath("lock", 16, Qt::black), QStringLiteral(":/icons/dark/16/lock.png"));
    QCOMPARE(
        IconUtils::iconPath("lock", 32, Qt::white), QStringLiteral(":/icons/light/32/lock.png"));
    const QPixmap pixmap = IconUtils::iconPixmap("lock", 16, Qt::white, 2.0);
    QCOMPARE(pixmap.devicePixelRatio(), 2.0);
    QCOMPARE(pixmap.size(), QSize(32, 32));
}

void TestIconUtils::missingIconIsEmpty()
{
    QVERIFY(IconUtils::fromResources("no-such-icon").isNull());
    QVERIFY(IconUtils::fromResources("no-such-icon").availableSizes().isEmpty());
}

void TestIconUtils::firstIconWithAnImageWins()
{
    const QIcon icon = IconUtils::icon(QVector<const char *> { "missing", "lock", "tray" });
    QCOMPARE(icon.pixmap(16).toImage(), IconUtils::icon("lock").pixmap(16).toImage());
    // None has an image: the last name's (empty) icon.
    QVERIFY(IconUtils::icon(QVector<const char *> { "missing", "gone" }).isNull());
}

void TestIconUtils::stateVariantsAreAdded()
{
    // A private resource tree with every variant of one icon.
    QTemporaryDir dir;
    const QString base = dir.filePath(QStringLiteral("icons/light/16/"));
    QVERIFY(QDir().mkpath(base));
    const struct
    {
        const char *file;
        QColor color;
    } files[] = { { "probe.png", Qt::red }, { "probe_active.png", Qt::green },
        { "probe_selected.png", Qt::blue }, { "probe_disabled.png", Qt::gray },
        { "probe_checked.png", Qt::yellow } };
    for (const auto &file : files) {
        QImage image(16, 16, QImage::Format_ARGB32);
        image.fill(file.color);
        QVERIFY(image.save(base + QLatin1String(file.file)));
    }
    // Icons are looked up in the resources only: the variants come in as a binary resource
    // compiled from these files.
    const QString rcc = dir.filePath(QStringLiteral("probe.qrc"));
    QFile qrc(rcc);
    QVERIFY(qrc.open(QIODevice::WriteOnly));
    qrc.write("<RCC><qresource prefix=\"/\">");
    for (const auto &file : files)
        qrc.write("<file>icons/light/16/" + QByteArray(file.file) + "</file>");
    qrc.write("</qresource></RCC>");
    qrc.close();
    QProcess compiler;
    compiler.setWorkingDirectory(dir.path());
    compiler.start(QStringLiteral(VELM_RCC),
        { QStringLiteral("-binary"), rcc, QStringLiteral("-o"),
            dir.filePath(QStringLiteral("probe.rcc")) });
    QVERIFY(compiler.waitForFinished(30000));
    QCOMPARE(compiler.exitCode(), 0);
    QVERIFY(QResource::registerResource(dir.filePath(QStringLiteral("probe.rcc"))));
    useWindowColor(Qt::white);
    const QIcon icon = IconUtils::fromResources("probe");
    auto colorOf = [&icon](QIcon::Mode mode, QIcon::State state) {
        return QColor(icon.pixmap(QSize(16, 16), mode, state).toImage().pixel(8, 8));
    };
    QCOMPARE(colorOf(QIcon::Normal, QIcon::Off), QColor(Qt::red));
    QCOMPARE(colorOf(QIcon::Active, QIcon::Off), QColor(Qt::green));
    QCOMPARE(colorOf(QIcon::Selected, QIcon::Off), QColor(Qt::blue));
    QCOMPARE(colorOf(QIcon::Disabled, QIcon::Off), QColor(Qt::gray));
    QCOMPARE(colorOf(QIcon::Normal, QIcon::On), QColor(Qt::yellow));
    QVERIFY(QResource::unregisterResource(dir.filePath(QStringLiteral("probe.rcc"))));
}

void TestIconUtils::pixmapUsesTheTwinAtRatioTwo()
{
    const QPixmap pixmap = IconUtils::pixmap(QStringLiteral(":/images/64/app.png"), 2.0);
    QCOMPARE(pixmap.size(), QSize(128, 128));
    QCOMPARE(pixmap.devicePixelRatio(), 2.0);
    const QPixmap plain = IconUtils::pixmap(QStringLiteral(":/images/64/app.png"), 1.0);
    QCOMPARE(plain.size(), QSize(64, 64));
    QCOMPARE(plain.devicePixelRatio(), 1.0);
}

void TestIconUtils::pixmapWithoutTwinIsPlainAtRatioOne()
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("single.png"));
    QImage image(10, 10, QImage::Format_ARGB32);
    image.fill(Qt::red);
    QVERIFY(image.save(path));
    const QPixmap pixmap = IconUtils::pixmap(path, 2.0);
    QCOMPARE(pixmap.size(), QSize(10, 10));
    QCOMPARE(pixmap.devicePixelRatio(), 1.0);
}

void TestIconUtils::grayscaleKeepsAlpha()
{
    QImage image(1, 1, QImage::Format_ARGB32);
    image.setPixel(0, 0, qRgba(255, 255, 255, 128));
    const QRgb pixel = IconUtils::grayscaled(image).pixel(0, 0);
    QCOMPARE(qAlpha(pixel), 128);
    QCOMPARE(qRed(pixel), 255);
    QCOMPARE(qGreen(pixel), 255);
    QCOMPARE(qBlue(pixel), 255);
}

void TestIconUtils::grayscaleWeights()
{
    QImage image(3, 1, QImage::Format_ARGB32);
    image.setPixel(0, 0, qRgba(255, 0, 0, 255));
    image.setPixel(1, 0, qRgba(0, 255, 0, 255));
    image.setPixel(2, 0, qRgba(10, 20, 30, 7));
    const QImage gray = IconUtils::grayscaled(image);
    QCOMPARE(gray.pixel(0, 0), qRgba(87, 87, 87, 255)); // 11 * 255 / 32
    QCOMPARE(gray.pixel(1, 0), qRgba(127, 127, 127, 255)); // 16 * 255 / 32
    const int expected = (11 * 10 + 16 * 20 + 5 * 30) / 32;
    QCOMPARE(gray.pixel(2, 0), qRgba(expected, expected, expected, 7));
}

void TestIconUtils::tintedKeepsShapeAndAlpha()
{
    const QImage source = imageOf(QStringLiteral(":/icons/light/16/tray.png"));
    const QImage tinted = IconUtils::tinted(source, Qt::red, QPainter::CompositionMode_SourceIn);
    QCOMPARE(tinted.size(), source.size());
    int shaped = 0;
    for (int y = 0; y < source.height(); ++y) {
        for (int x = 0; x < source.width(); ++x) {
            const QRgb before = source.pixel(x, y);
            const QRgb after = tinted.pixel(x, y);
            QCOMPARE(qAlpha(after), qAlpha(before));
            if (qAlpha(before) == 255) {
                ++shaped;
                QCOMPARE(QColor(after), QColor(Qt::red));
            }
        }
    }
    QVERIFY(shaped > 10);
}

void TestIconUtils::tintedIconFillsTheShape()
{
    useWindowColor(Qt::white);
    const QIcon icon = IconUtils::tintedIcon("lock", QColor(0, 128, 255), QSize(16, 16));
    const QImage image = icon.pixmap(16).toImage().convertToFormat(QImage::Format_ARGB32);
    const QImage source = imageOf(QStringLiteral(":/icons/light/16/lock.png"));
    for (int y = 0; y < 16; ++y) {
        for (int x = 0; x < 16; ++x) {
            QCOMPARE(qAlpha(image.pixel(x, y)), qAlpha(source.pixel(x, y)));
            if (qAlpha(source.pixel(x, y)) == 255)
                QCOMPARE(QColor(image.pixel(x, y)), QColor(0, 128, 255));
        }
    }
    // Two sizes give two pixmaps.
    const QIcon two
        = IconUtils::tintedIcon("lock", Qt::red, QVector<QSize> { QSize(8, 8), QSize(16, 16) });
    QCOMPARE(two.availableSizes(), (QList<QSize> { QSize(8, 8), QSize(16, 16) }));
    QPixmap pixmap(4, 4);
    pixmap.fill(Qt::white);
    IconUtils::tint(pixmap, Qt::blue, QPainter::CompositionMode_SourceOver);
    QCOMPARE(QColor(pixmap.toImage().pixel(1, 1)), QColor(Qt::blue));
}

void TestIconUtils::smallFontsAreElevenPixels()
{
    QCOMPARE(FontUtils::small().pixelSize(), 11);
    QCOMPARE(FontUtils::smallBold().pixelSize(), 11);
    QCOMPARE(FontUtils::smallBold().weight(), int(QFont::Bold));
    QCOMPARE(FontUtils::small().weight(), int(QFont::Normal));
    // Made once.
    QCOMPARE(&FontUtils::small(), &FontUtils::small());
}

void TestIconUtils::fontSizesFollowTheDefault()
{
    const qreal base = QApplication::font().pointSizeF();
    QCOMPARE(FontUtils::medium().pointSize(), int(base * 1.1));
    QCOMPARE(FontUtils::mediumBold().pointSize(), int(base * 1.1));
    QCOMPARE(FontUtils::mediumBold().weight(), int(QFont::Bold));
    QCOMPARE(FontUtils::big().pointSize(), int(base * 1.5));
    QCOMPARE(FontUtils::bigBold().pointSize(), int(base * 1.5));
    QCOMPARE(FontUtils::big().weight(), int(QFont::Normal));
}

void TestIconUtils::lightFontFallsBack()
{
    // Linux has no thin system face: the default font made light.
    const QFont font = FontUtils::light(30);
    QCOMPARE(font.pointSize(), 30);
    QCOMPARE(font.weight(), int(QFont::Light));
    QCOMPARE(font.styleName(), QStringLiteral("Light"));
    QCOMPARE(font.family(), QApplication::font().family());
}

void TestIconUtils::artworkIsThere()
{
    for (const char *set : { "light", "dark" }) {
        for (const char *name : { "tray", "tray-color", "lock" }) {
            const QString path
                = QStringLiteral(":/icons/%1/16/%2").arg(QLatin1String(set), QLatin1String(name));
            QCOMPARE(QImage(path + QStringLiteral(".png")).size(), QSize(16, 16));
            QCOMPARE(QImage(path + QStringLiteral("@2x.png")).size(), QSize(32, 32));
        }
    }
    for (int size : { 64, 128 }) {
        const QString path = QStringLiteral(":/images/%1/app").arg(size);
        QCOMPARE(QImage(path + QStringLiteral(".png")).size(), QSize(size, size));
        QCOMPARE(QImage(path + QStringLiteral("@2x.png")).size(), QSize(2 * size, 2 * size));
    }
}

QTEST_MAIN(TestIconUtils)
#include "tst_iconutils.moc"
