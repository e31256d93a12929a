#include "ui.h"

#include "aboutbox.h"
#include "constants.h"
#include "core.h"
#include "desktop.h"
#include "iconutils.h"
#include "platform.h"
#include "preferences.h"
#include "server.h"
#include "updater.h"
#include "webremotedialog.h"
#include "welcomeview.h"

#include <QAction>
#include <QApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLoggingCategory>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QSettings>
#include <QSystemTrayIcon>
#include <QWebSocket>
#include <QWindow>

Q_LOGGING_CATEGORY(lcUi, "velm.ui")

namespace {
// Idle, the tray shows a one-colour template shape; with a device connected, the colour one.
// Desktops other than macOS do not recolour template images themselves, so the shape is
// chosen here from the icon set that suits the desktop's colours.
QIcon trayIconFor(bool connected)
{
    QIcon icon = IconUtils::icon(connected ? "tray-color" : "tray");
    icon.setIsMask(!connected);
    return icon;
}
// Qt's platforms without a screen: nothing shown there is seen, and they have no tray and no
// window stacking (asking for either only makes Qt log that it cannot).
bool hasDisplay()
{
    const QString platform = QGuiApplication::platformName();
    return platform != QLatin1String("offscreen") && platform != QLatin1String("minimal");
}

// In front, where a window manager can put it there.
void bringForward(QWidget *window)
{
    window->show();
    if (!hasDisplay())
        return;
    window->raise();
    window->activateWindow();
}
} // namespace

UI::UI(QWidget *parent)
    : QObject(parent)
{
    // The server first: clients wait on it, while the menu's widgets (which load the fonts)
    // are not needed before the user can look at them.
    startCore();
    setupTrayIcon();
}

UI::~UI() { delete menu; }

void UI::startCore()
{
    Core *core = Core::instance();
    if (!coreConnected) {
        coreConnected = true;
        connect(core, &Core::ready, this, &UI::onCoreReady);
    }
    core->start();
}

void UI::setupTrayIcon()
{
    menu = new QMenu;
    clientCountAction = menu->addAction(QString());
    clientCountAction->setEnabled(false);
    onClientCountChanged(0);
    menu->addSeparator();
    menu->addAction(tr("Open Web Remote..."), this, &UI::showWebRemote);
    QAction *update = Updater::instance()->getAction();
    update->setMenuRole(QAction::NoRole);
    menu->addAction(update);
    menu->addAction(tr("Preferences..."), this, &UI::showPreferences);
    menu->addAction(tr("About %1").arg(Constants::NAME), this, &UI::showAboutBox);
    menu->addSeparator();
    menu->addAction(tr("Quit"), qApp, &QCoreApplication::quit);

    if (!hasDisplay()) {
        qCInfo(lcUi).noquote()
            << "No display: no tray icon or window is shown; approve a new device with"
            << Constants::UNIX_NAME << "--pending and" << Constants::UNIX_NAME << "--approve ID";
        return;
    }
    trayIcon = new QSystemTrayIcon(this);
    trayIcon->setIcon(trayIconFor(false));
    trayIcon->setToolTip(QString(Constants::NAME));
    trayIcon->setContextMenu(menu);
    // A left click shows the same menu: there is no window to open.
    connect(trayIcon, &QSystemTrayIcon::activated, this,
        [this](QSystemTrayIcon::ActivationReason reason) {
            if (reason == QSystemTrayIcon::Trigger)
                menu->popup(QCursor::pos());
        });
    trayIcon->setVisible(true);
    if (!QSystemTrayIcon::isSystemTrayAvailable()) {
        qCWarning(lcUi) << "No system tray";
        // Without a tray the program would be invisible: say that it runs and where to
        // find its settings.
        if (desktop::canNotify())
            desktop::notify(QString(Constants::NAME), QString(),
                tr("%1 is running. Your desktop shows no tray icons; start %1 again to open its "
                   "preferences.")
                    .arg(Constants::NAME));
    }
}

void UI::onClientCountChanged(int count)
{
    if (count == 0)
        clientCountAction->setText(tr("No clients connected"));
    else
        clientCountAction->setText(tr("%n client(s) connected", nullptr, count));
    if (trayIcon && count < 2)
        trayIcon->setIcon(trayIconFor(count > 0));
    Updater::instance()->setImmediateInstallAllowed(count == 0);
}

void UI::onCoreReady()
{
    Core *core = Core::instance();
    connect(core->server, &Server::clientCountChanged, this, &UI::onClientCountChanged,
        Qt::UniqueConnection);
    connect(core->server, &Server::needUserAuthorization, this, &UI::showAuthDialog,
        Qt::UniqueConnection);
    // The welcome window explains what to switch on in the desktop's settings; without a
    // display there is nobody to read it (the platform's log says what is missing).
    if (hasDisplay()) {
        if (!QSettings().value(QStringLiteral("welcome"), false).toBool()
            || !core->platform->permissionsGranted())
            showWelcome();
        connect(core->platform, &Platform::needPermissions, this, &UI::showWelcome,
            Qt::UniqueConnection);
    }
    Updater::instance()->checkAndMaybeShowUI();
}

void UI::showWebRemote()
{
    if (!webRemote) {
        webRemote = new WebRemoteDialog;
        webRemote->setAttribute(Qt::WA_DeleteOnClose);
    }
    // Asked each time: the port changes when the server starts again.
    Server *server = Core::instance()->server;
    webRemote->setAddress(server ? server->webRemoteAddress() : QString());
    bringForward(webRemote);
}

void UI::showAuthDialog(
    QObject *socket, const QString &id, const QString &name, const QString &address)
{
    if (!hasDisplay()) {
        // Nobody could click a prompt: the device waits for an answer from a terminal.
        asking = { socket, id, name, address };
        qCInfo(lcUi).noquote() << "A device asks to connect; see" << Constants::UNIX_NAME
                               << "--pending";
        return;
    }
    auto *box = new QMessageBox;
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setWindowTitle(QString(Constants::NAME));
    box->setIconPixmap(
        IconUtils::pixmap(QStringLiteral(":/images/64/app.png"), box->devicePixelRatioF()));
    box->setText(tr("%1 would like to connect.").arg(name));
    box->setInformativeText(address);
    QPushButton *deny = box->addButton(tr("Deny"), QMessageBox::RejectRole);
    QPushButton *authorize = box->addButton(tr("Authorize"), QMessageBox::AcceptRole);
    // The prompt may pop up while the user types: a stray Return must not let a device in.
    box->setDefaultButton(deny);
    box->setEscapeButton(deny);
    authDialogs.append(box);
    asking = { socket, id, name, address };
    // The answer belongs to this device only: when it has gone, another one may be waiting.
    const QPointer<QObject> asking(socket);
    connect(box, &QMessageBox::finished, this, [this, box, authorize, id, asking] {
        const bool authorized = box->clickedButton() == authorize;
        authDialogs.removeAll(box);
        Server *server = Core::instance()->server;
        if (server && asking && static_cast<QObject *>(server->getPendingSocket()) == asking.data())
            server->setAuthorization(id, authorized);
        box->deleteLater();
    });
    if (socket)
        connect(socket, &QObject::destroyed, box, &QMessageBox::close);
    box->open();
    if (hasDisplay()) {
        box->raise();
        box->activateWindow();
    }
    QApplication::beep();
}

QByteArray UI::answerRemote(const QByteArray &request)
{
    const QJsonObject asked = QJsonDocument::fromJson(request).object();
    Server *server = Core::instance()->server;
    const bool waiting = server && asking.socket
        && static_cast<QObject *>(server->getPendingSocket()) == asking.socket.data();
    QJsonObject reply;
    QJsonArray pending;
    if (waiting)
        pending.append(QJsonObject { { QStringLiteral("id"), asking.id },
            { QStringLiteral("name"), asking.name },
            { QStringLiteral("address"), asking.address } });
    if (asked.contains(QLatin1String("pending"))) {
        reply.insert(QStringLiteral("pending"), pending);
    } else if (asked.contains(QLatin1String("approve")) || asked.contains(QLatin1String("deny"))) {
        const bool granted = asked.contains(QLatin1String("approve"));
        const QString named
            = asked.value(granted ? QLatin1String("approve") : QLatin1String("deny")).toString();
        // The answer is for the device the user saw waiting; whoever came since gets nothing.
        if (named.isEmpty()) {
            reply.insert(QStringLiteral("error"), QStringLiteral("no device was named"));
            reply.insert(QStringLiteral("pending"), pending);
        } else if (!waiting) {
            reply.insert(QStringLiteral("error"), QStringLiteral("no device is waiting"));
            reply.insert(QStringLiteral("pending"), pending);
        } else if (asking.id != named) {
            reply.insert(QStringLiteral("error"), QStringLiteral("%1 is not waiting").arg(named));
            reply.insert(QStringLiteral("pending"), pending);
        } else {
            const QString id = asking.id;
            // Answered here: the prompt closes without answering again (the device is no
            // longer the one waiting).
            server->setAuthorization(id, granted);
            for (const QPointer<QMessageBox> &box : authDialogs) {
                if (box)
                    box->close();
            }
            reply.insert(granted ? QStringLiteral("approved") : QStringLiteral("denied"), id);
        }
    } else {
        reply.insert(QStringLiteral("error"), QStringLiteral("unknown request"));
    }
    return QJsonDocument(reply).toJson(QJsonDocument::Compact);
}

void UI::showWelcome()
{
    if (!welcomeView)
        welcomeView = new WelcomeView;
    bringForward(welcomeView);
}

void UI::showPreferences()
{
    if (!preferences)
        preferences = new Preferences;
    bringForward(preferences);
}

void UI::showAboutBox()
{
    if (!aboutBox)
        aboutBox = new AboutBox;
    bringForward(aboutBox);
    Updater::instance()->checkAndMaybeShowUI();
}
