// Renders every window of the interface on the rig's X display and saves what the screen shows
// (window manager frame included) as PNG files, for the README.
//   usage: shoot_windows OUTPUT_DIR
#include "aboutbox.h"
#include "corefixture.h"
#include "feedupdater.h"
#include "preferences.h"
#include "testenvironment.h"
#include "ui.h"
#include "updater.h"
#include "webremotedialog.h"
#include "welcomeview.h"

#include <QApplication>
#include <QDir>
#include <QMenu>
#include <QMessageBox>
#include <QScreen>
#include <QSettings>
#include <QSystemTrayIcon>
#include <QTest>
#include <QTranslator>
#include <QWindow>
#include <cstdio>

namespace {
QString outputDir;
int failures = 0;

void save(const QString &name, const QRect &area)
{
    QTest::qWait(300); // let the window manager draw its frame; nothing to wait on for that
    const QPixmap shot = QGuiApplication::primaryScreen()->grabWindow(
        0, area.x(), area.y(), area.width(), area.height());
    const QString path = outputDir + QLatin1Char('/') + name + QStringLiteral(".png");
    if (shot.isNull() || !shot.save(path)) {
        std::fprintf(stderr, "cannot save %s\n", qPrintable(path));
        ++failures;
        return;
    }
    std::printf("%s\n", qPrintable(path));
}

// The window as it stands on screen, with its frame.
void shootWindow(const QString &name, QWidget *window)
{
    window->show();
    window->raise();
    if (!QTest::qWaitForWindowExposed(window)) {
        std::fprintf(stderr, "%s never appeared\n", qPrintable(name));
        ++failures;
        return;
    }
    // Centre it, as a window manager would place a new dialog.
    const QRect screen = QGuiApplication::primaryScreen()->geometry();
    QRect frame = window->frameGeometry();
    window->move(screen.center() - QPoint(frame.width() / 2, frame.height() / 2));
    QTest::qWait(200);
    frame = window->frameGeometry();
    save(name, frame);
}

void shootMenu(const QString &name, UI &ui)
{
    QMenu *menu = ui.trayIcon->contextMenu();
    const QRect icon = ui.trayIcon->geometry();
    menu->popup(QPoint(icon.isValid() ? icon.left() : 1100, 24));
    if (!QTest::qWaitForWindowExposed(menu)) {
        ++failures;
        return;
    }
    // The tray bar and the menu hanging from it.
    const QRect menuRect = menu->geometry();
    QRect area = menuRect.united(icon.isValid() ? icon : QRect());
    area.setTop(0);
    area.adjust(-60, 0, 40, 12);
    save(name, area.intersected(QGuiApplication::primaryScreen()->geometry()));
    menu->hide();
}
} // namespace

int main(int argc, char *argv[])
{
    QApplication app(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    if (app.arguments().size() != 2) {
        std::fprintf(stderr, "usage: shoot_windows OUTPUT_DIR\n");
        return 2;
    }
    outputDir = app.arguments().at(1);
    QDir().mkpath(outputDir);
    TestEnvironment::setUp();
    QTranslator english;
    if (english.load(QStringLiteral("en"), QStringLiteral(VELM_LOCALE_DIR)))
        QCoreApplication::installTranslator(&english);
    Updater::setInstance(new updater::FeedUpdater(&app));

    CoreFixture fixture;
    QSettings().setValue(QStringLiteral("welcome"), true);
    UI ui;
    if (!QTest::qWaitFor([&] { return fixture.core->server != nullptr; }, 5000)) {
        std::fprintf(stderr, "the server did not start\n");
        return 1;
    }
    QTest::qWait(500);

    shootMenu(QStringLiteral("tray-menu-no-clients"), ui);

    {
        auto *preferences = new Preferences;
        shootWindow(QStringLiteral("preferences"), preferences);
        preferences->close();
    }
    {
        auto *about = new AboutBox;
        shootWindow(QStringLiteral("about"), about);
        about->close();
    }
    {
        ui.showWebRemote();
        shootWindow(QStringLiteral("web-remote"), ui.webRemote);
        ui.webRemote->close();
    }
    {
        QSettings().setValue(QStringLiteral("welcome"), false);
        auto *welcome = new WelcomeView;
        shootWindow(QStringLiteral("welcome"), welcome);
        welcome->close();
        fixture.platform->granted = false;
        auto *permissions = new WelcomeView;
        shootWindow(QStringLiteral("welcome-permissions"), permissions);
        permissions->close();
        fixture.platform->granted = true;
    }
    {
        ProtocolClient *stranger = fixture.connectStranger(QStringLiteral("pixel-8"));
        if (!stranger || !QTest::qWaitFor([&] { return !ui.authDialogs.isEmpty(); }, 5000)) {
            std::fprintf(stderr, "no pairing prompt\n");
            return 1;
        }
        shootWindow(QStringLiteral("pairing-prompt"), ui.authDialogs.first());
        stranger->close();
        if (!QTest::qWaitFor([&] { return ui.authDialogs.isEmpty(); }, 5000))
            ++failures;
    }
    if (!fixture.connectClient(QStringLiteral("phone-1"))) {
        std::fprintf(stderr, "no client\n");
        return 1;
    }
    if (!QTest::qWaitFor(
            [&] { return ui.clientCountAction->text().startsWith(QLatin1Char('1')); }, 5000))
        ++failures;
    shootMenu(QStringLiteral("tray-menu-one-client"), ui);
    {
        auto *preferences = new Preferences;
        shootWindow(QStringLiteral("preferences-devices"), preferences);
        preferences->close();
    }
    return failures == 0 ? 0 : 1;
}
