#include "core.h"
#include "iconthemes.h"
#include "l.h"
#include "linuxplatform.h"
#include "protocolclient.h"
#include "server.h"
#include "serverfixture.h"
#include "testenvironment.h"

#include <QDir>
#include <QFile>
#include <QGuiApplication>
#include <QImage>
#include <QJsonArray>
#include <QSettings>
#include <QTemporaryDir>
#include <QtTest>

namespace {
const QColor red(0xd0, 0x10, 0x10);
const QColor yellow(0xf0, 0xe0, 0x10);
const QColor green(0x10, 0xc0, 0x20);
const QColor blue(0x10, 0x30, 0xe0);

void write(const QString &path, const QByteArray &text)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(text);
}

void paint(const QString &path, const QColor &colour)
{
    QDir().mkpath(QFileInfo(path).path());
    QImage image(48, 48, QImage::Format_ARGB32);
    image.fill(colour);
    QVERIFY(image.save(path, "PNG"));
}

const QByteArray themeIndex = "[Icon Theme]\nName=%1\nInherits=%2\n"
                              "Directories=48x48/apps,48x48/mimetypes\n\n"
                              "[48x48/apps]\nSize=48\nContext=Applications\nType=Fixed\n\n"
                              "[48x48/mimetypes]\nSize=48\nContext=MimeTypes\nType=Fixed\n";
} // namespace

// Application icons on Qt's offscreen platform, which has no platform theme: found in the
// desktop's configured theme, then hicolor, then the pixmaps folder, and the theme's generic
// application icon for an application without one.
class TestIconThemes : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void iconsOverTheWire_data();
    void iconsOverTheWire();
    void drawnWhenNoThemeHasAGenericIcon();

private:
    QColor iconColour(const QString &id);

    QTemporaryDir root;
    Core *core = nullptr;
    ProtocolClient *client = nullptr;
};

void TestIconThemes::initTestCase()
{
    QVERIFY(QIcon::themeName().isEmpty());
    TestEnvironment::setUp();
    QSettings().setValue(QStringLiteral("preventSleep"), false);
    const QString data = root.filePath(QStringLiteral("data"));
    const QString config = root.filePath(QStringLiteral("config"));
    write(data + QStringLiteral("/icons/hicolor/index.theme"),
        QByteArray(themeIndex).replace("%1", "Hicolor").replace("Inherits=%2\n", ""));
    paint(data + QStringLiteral("/icons/hicolor/48x48/apps/velm-red.png"), red);
    paint(data + QStringLiteral("/icons/hicolor/48x48/apps/velm-both.png"), red);
    paint(
        data + QStringLiteral("/icons/hicolor/48x48/mimetypes/application-x-executable.png"), blue);
    // The theme the desktop is set to overrides hicolor where it has the icon.
    write(data + QStringLiteral("/icons/Private/index.theme"),
        QByteArray(themeIndex).replace("%1", "Private").replace("%2", "hicolor"));
    paint(data + QStringLiteral("/icons/Private/48x48/apps/velm-both.png"), yellow);
    paint(data + QStringLiteral("/pixmaps/velm-pixmap.png"), green);
    write(config + QStringLiteral("/gtk-3.0/settings.ini"),
        "[Settings]\ngtk-icon-theme-name=Private\n");
    const QList<QPair<QString, QString>> entries { { QStringLiteral("velm-red"),
                                                       QStringLiteral("Icon=velm-red\n") },
        { QStringLiteral("velm-both"), QStringLiteral("Icon=velm-both\n") },
        { QStringLiteral("velm-pixmap"), QStringLiteral("Icon=velm-pixmap\n") },
        { QStringLiteral("velm-missing"), QStringLiteral("Icon=velm-no-such-icon\n") },
        { QStringLiteral("velm-none"), QString() } };
    for (const auto &[id, icon] : entries) {
        write(data + QStringLiteral("/applications/") + id + QStringLiteral(".desktop"),
            "[Desktop Entry]\nType=Application\nName=" + id.toUtf8() + "\nExec=true\n"
                + icon.toUtf8());
    }
    qputenv("XDG_DATA_DIRS", data.toUtf8());
    qputenv("XDG_DATA_HOME", root.filePath(QStringLiteral("empty")).toUtf8());
    qputenv("XDG_CONFIG_HOME", config.toUtf8());
    qunsetenv("XDG_CURRENT_DESKTOP");

    core = new Core(new LinuxPlatform);
    QCOMPARE(QIcon::themeName(), QStringLiteral("Private"));
    QCOMPARE(QIcon::fallbackThemeName(), QStringLiteral("hicolor"));
    QVERIFY(QIcon::themeSearchPaths().contains(data + QStringLiteral("/icons")));
    QVERIFY(QIcon::fallbackSearchPaths().contains(data + QStringLiteral("/pixmaps")));
    core->start();
    QVERIFY(core->server);
    QTRY_VERIFY(core->server->handler(L::appIcon));
    Pairing::authorize(QStringLiteral("phone"), QStringLiteral("tok"));
    client = new ProtocolClient(QStringLiteral("phone"));
    QVERIFY(Pairing::connectAuthenticated(*client, listeningPort(core->server)));
}

void TestIconThemes::cleanupTestCase()
{
    delete client;
    delete core;
}

QColor TestIconThemes::iconColour(const QString &id)
{
    const int from = client->framesWith(L::appIcon).size();
    client->send(QJsonObject { { L::method, L::appIcon }, { L::id, id }, { L::size, 48 } });
    if (!QTest::qWaitFor([&] { return client->framesWith(L::appIcon).size() > from; }, 5000))
        return QColor();
    const Frame frame = client->framesWith(L::appIcon).at(from);
    QImage icon;
    if (frame.parts.isEmpty() || !icon.loadFromData(frame.parts.first().second, "PNG"))
        return QColor();
    return icon.pixelColor(icon.width() / 2, icon.height() / 2);
}

void TestIconThemes::iconsOverTheWire_data()
{
    QTest::addColumn<QString>("id");
    QTest::addColumn<QColor>("colour");
    QTest::newRow("hicolor") << QStringLiteral("velm-red") << red;
    QTest::newRow("configured theme first") << QStringLiteral("velm-both") << yellow;
    QTest::newRow("pixmaps folder") << QStringLiteral("velm-pixmap") << green;
    QTest::newRow("missing icon: generic") << QStringLiteral("velm-missing") << blue;
    QTest::newRow("no icon: generic") << QStringLiteral("velm-none") << blue;
}

void TestIconThemes::iconsOverTheWire()
{
    QFETCH(QString, id);
    QFETCH(QColor, colour);
    QTRY_VERIFY(core->platform->appforId(id));
    QCOMPARE(iconColour(id), colour);
}

void TestIconThemes::drawnWhenNoThemeHasAGenericIcon()
{
    QIcon::setThemeSearchPaths({ root.filePath(QStringLiteral("empty")) });
    const QIcon generic = IconThemes::genericApplication();
    QVERIFY(!generic.isNull());
    const QImage image = generic.pixmap(48, 48).toImage();
    QCOMPARE(image.size(), QSize(48, 48));
    QVERIFY(image.pixelColor(24, 30).alpha() == 255);
}

QTEST_MAIN(TestIconThemes)
#include "tst_iconthemes.moc"
