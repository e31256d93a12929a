#include <gio/gdesktopappinfo.h>
#include <gio/gio.h>

#include "linuxplatform.h"

#include "accessibility.h"
#include "backlight.h"
#include "constants.h"
#include "iconthemes.h"
#include "l.h"
#include "linuxapp.h"
#include "linuxlogging.h"
#include "loginsession.h"
#include "mediaplayers.h"
#include "plasmasession.h"
#include "portalsession.h"
#include "pulseaudio.h"
#include "standardfileservices.h"
#include "waylandconnection.h"
#include "wlrootssession.h"
#include "x11session.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QIcon>
#include <QSaveFile>
#include <QStandardPaths>
#include <QTimer>
#include <QUrl>

#include <xkbcommon/xkbcommon-keysyms.h>

#include <algorithm>

Q_LOGGING_CATEGORY(lcLinux, "velm.linux")

namespace {

const QString desktopSuffix = QStringLiteral(".desktop");
const QString bundleSuffix = QStringLiteral(".app");

QString fromUtf8(const char *text) { return text ? QString::fromUtf8(text) : QString(); }

// The icon of a desktop entry: a themed name, or a file.
QIcon iconFromGIcon(GIcon *gicon)
{
    if (!gicon)
        return QIcon();
    if (G_IS_THEMED_ICON(gicon)) {
        const gchar *const *names = g_themed_icon_get_names(G_THEMED_ICON(gicon));
        for (int i = 0; names && names[i]; ++i) {
            const QString name = QString::fromUtf8(names[i]);
            // Some entries name a file although the key holds a theme name.
            if (QFileInfo(name).isAbsolute() && QFile::exists(name))
                return QIcon(name);
            if (QIcon::hasThemeIcon(name))
                return QIcon::fromTheme(name);
        }
        return QIcon();
    }
    if (G_IS_FILE_ICON(gicon)) {
        char *path = g_file_get_path(g_file_icon_get_file(G_FILE_ICON(gicon)));
        const QString file = fromUtf8(path);
        g_free(path);
        return file.isEmpty() ? QIcon() : QIcon(file);
    }
    return QIcon();
}

// The best way to reach other applications' windows that the session offers. On a Wayland
// session, the compositor's own protocols see native windows and XWayland ones alike; X11
// alone would see only the latter. VELM_WINDOWS (x11, wlroots, plasma, portal) asks for one.
WindowSession *chooseWindowSession(QObject *parent)
{
    const QByteArray wanted = qgetenv("VELM_WINDOWS").toLower();
    if (wanted == "x11")
        return X11Session::available() ? new X11Session(parent) : nullptr;
    if (WaylandConnection::sessionIsWayland() || !wanted.isEmpty()) {
        auto *connection = new WaylandConnection;
        if (wanted.isEmpty() || wanted == "wlroots") {
            if (WlrootsSession::offeredBy(connection))
                return new WlrootsSession(connection, parent);
        }
        if (wanted.isEmpty() || wanted == "plasma") {
            if (PlasmaSession::offeredBy(connection))
                return new PlasmaSession(connection, parent);
        }
        if (connection->compositorName() == "kwin_wayland")
            qCWarning(lcLinux) << "KWin keeps its window protocols from this program: install it "
                                  "with its desktop entry, which asks for them";
        if (wanted.isEmpty() || wanted == "portal") {
            // GNOME, and compositors that tell other programs nothing about windows.
            return new PortalSession(connection, parent);
        }
        delete connection;
        qCWarning(lcLinux) << "VELM_WINDOWS asks for" << wanted << "which this session lacks";
        return nullptr;
    }
    if (X11Session::available())
        return new X11Session(parent);
    return nullptr;
}

} // namespace

LinuxPlatform::LinuxPlatform(QObject *parent)
    : Platform(parent)
{
    IconThemes::configure();
    files = std::make_shared<StandardFileServices>();
    m_session = chooseWindowSession(this);
    if (m_session) {
        connect(m_session, &WindowSession::capabilitiesChanged, this,
            &LinuxPlatform::refreshUnsupported);
    } else {
        // Launching works without.
        qCWarning(lcLinux) << "No X server or window protocols of the compositor: window "
                              "control and keys are unavailable";
    }
    m_backlight = new Backlight;
    refreshUnsupported();
}

LinuxPlatform::~LinuxPlatform()
{
    delete m_backlight;
    if (m_monitor) {
        g_signal_handlers_disconnect_by_data(m_monitor, this);
        g_object_unref(m_monitor);
    }
}

void LinuxPlatform::init()
{
    m_a11y = new Accessibility(this);
    m_a11yGranted = Accessibility::enabled();
    bool asked = false;
    if (!m_a11yGranted)
        asked = Accessibility::requestEnabled();
    if ((m_a11yGranted || asked) && m_a11y->start()) {
        connect(
            m_a11y, &Accessibility::focusChanged, this, [this](int pid, const Accessible &element) {
                auto *app = qobject_cast<LinuxApp *>(currentApp);
                if (app && app->processIds().contains(pid))
                    app->reportFocus(element);
            });
    }
    m_pulse = new PulseAudio(this);
    connect(m_pulse, &PulseAudio::volumeChanged, this, &Platform::volumeChanged);
    connect(m_pulse, &PulseAudio::muteChanged, this, &Platform::volumeMuteChanged);
    connect(m_pulse, &PulseAudio::availableChanged, this, &LinuxPlatform::refreshUnsupported);
    m_login = new LoginSession(this);
    connect(m_login, &LoginSession::availabilityChanged, this, &LinuxPlatform::refreshUnsupported);
    connect(m_login, &LoginSession::screenLockReported, this, &LinuxPlatform::setScreenLocked);
    m_media = new MediaPlayers(this);
    connect(m_media, &MediaPlayers::playersChanged, this, &LinuxPlatform::refreshUnsupported);
    refreshUnsupported();
    if (!m_a11yGranted)
        emit needPermissions();
    emit ready();
}

void LinuxPlatform::appInfoChangedCallback(GAppInfoMonitor *, void *self)
{
    static_cast<LinuxPlatform *>(self)->onAppInfoChanged();
}

void LinuxPlatform::onAppInfoChanged() { findInstalledApps(); }

void LinuxPlatform::findInstalledApps()
{
    GList *all = g_app_info_get_all();
    QVector<LinuxApp *> found;
    for (GList *item = all; item; item = item->next) {
        GAppInfo *info = G_APP_INFO(item->data);
        if (!g_app_info_should_show(info))
            continue;
        QString id = fromUtf8(g_app_info_get_id(info));
        if (id.endsWith(desktopSuffix))
            id.chop(desktopSuffix.size());
        // Applications stay the same objects when the entries change: windows, the running
        // list and the clients' lists point at them.
        auto *app = qobject_cast<LinuxApp *>(apps.value(id));
        if (app && !found.contains(app)) {
            app->setAppInfo(info);
        } else {
            app = new LinuxApp(id, info, this);
            app->session = m_session;
            app->accessibility = m_a11y;
        }
        app->name = fromUtf8(g_app_info_get_display_name(info));
        if (app->name.endsWith(bundleSuffix))
            app->name.chop(bundleSuffix.size());
        if (G_IS_DESKTOP_APP_INFO(info))
            app->path = fromUtf8(g_desktop_app_info_get_filename(G_DESKTOP_APP_INFO(info)));
        app->icon = iconFromGIcon(g_app_info_get_icon(info));
        if (app->icon.isNull())
            app->icon = IconThemes::genericApplication();
        found.append(app);
    }
    g_list_free_full(all, g_object_unref);
    std::stable_sort(found.begin(), found.end(), &App::nameComparator);
    // Programs known only by their windows stay while they run.
    QVector<App *> windowOnly;
    for (App *app : qAsConst(installedApps)) {
        auto *linuxApp = static_cast<LinuxApp *>(app);
        if (!linuxApp->appInfo() && !linuxApp->windows.isEmpty() && !found.contains(linuxApp))
            windowOnly.append(app);
    }
    installedApps.clear();
    apps.clear();
    for (LinuxApp *app : qAsConst(found)) {
        installedApps.append(app);
        apps.insert(app->id, app);
    }
    for (App *app : qAsConst(windowOnly)) {
        installedApps.append(app);
        apps.insert(app->id, app);
    }
    emit installedAppsChanged();
}

void LinuxPlatform::setActive(bool active)
{
    // Without a backlight there is nothing to poll.
    if (!active) {
        if (m_backlight->isAvailable())
            stopPolling();
        return;
    }
    // The installed applications serve clients only: they are read, and their entries
    // watched, once the first client is here (with the icon themes, the MIME database and a
    // thread for the watches, some 1.5 MiB a program at rest does not need).
    if (!m_monitor) {
        // Emits "changed" in this thread's main context, which is Qt's event loop here.
        m_monitor = g_app_info_monitor_get();
        g_signal_connect(
            m_monitor, "changed", G_CALLBACK(&LinuxPlatform::appInfoChangedCallback), this);
        findInstalledApps();
    }
    if (!m_observing)
        startObserving();
    if (m_backlight->isAvailable())
        startPolling();
}

void LinuxPlatform::refreshUnsupported()
{
    QStringList codes;
    using Session = WindowSession;
    const Session::Capabilities can
        = m_session ? m_session->capabilities() : Session::Capabilities();
    // Menus and fields are those of the application in front, found on the accessibility bus
    // by the processes of its windows.
    if (!m_a11y || !m_a11y->isStarted() || !(can & Session::ProcessIds))
        codes << L::appMenu << L::performMenu << L::focusValue << L::performFocus
              << L::focusedElement;
    if (!m_backlight->isAvailable())
        codes << L::brightness;
    if (!m_pulse || !m_pulse->isAvailable())
        codes << L::volume << L::volumeMute;
    if (!m_login || (!m_login->hasSession() && !m_login->hasScreenSaver()))
        codes << L::screenLock;
    if (!m_login || !m_login->hasSession())
        codes << L::logout;
    if (!m_login || !m_login->canSuspend())
        codes << L::sleep;
    if (!m_login || !m_login->canReboot())
        codes << L::restart;
    if (!m_login || !m_login->canPowerOff())
        codes << L::shutdown;
    // Media keys are the fallback when no player is on the bus.
    if (!(can & Session::Keys) && (!m_media || m_media->isEmpty()))
        codes << L::playPause << L::previousTrack << L::nextTrack;
    if (!(can & Session::ListWindows))
        codes << L::currentApp;
    if (!(can & Session::Close))
        codes << L::closeApp << L::quitApp;
    if (!(can & Session::Minimize))
        codes << L::toggleMinimizeApp;
    // Each of the two falls back on the other.
    if (!(can & (Session::Maximize | Session::Fullscreen)))
        codes << L::toggleMaximizeApp << L::toggleFullscreenApp;
    if (!(can & Session::Scroll))
        codes << L::appScroll;
    if (!(can & Session::Keys))
        codes << L::keySequence;
    if (codes == unsupported)
        return;
    unsupported = codes;
    emit unsupportedChanged();
}

QString LinuxPlatform::autostartFile()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation)
        + QStringLiteral("/autostart/") + Constants::UNIX_NAME + desktopSuffix;
}

void LinuxPlatform::setAutostart(bool enabled)
{
    const QString file = autostartFile();
    if (!enabled) {
        QFile::remove(file);
        return;
    }
    QDir().mkpath(QFileInfo(file).absolutePath());
    QSaveFile out(file);
    if (!out.open(QIODevice::WriteOnly)) {
        qCWarning(lcLinux) << "Cannot write" << file << out.errorString();
        return;
    }
    const QString executable = QCoreApplication::applicationFilePath();
    out.write("[Desktop Entry]\nType=Application\nName=");
    out.write(QString(Constants::NAME).toUtf8());
    out.write("\nExec=");
    out.write(QFile::encodeName(executable));
    out.write("\nX-GNOME-Autostart-enabled=true\n");
    if (!out.commit())
        qCWarning(lcLinux) << "Cannot write" << file << out.errorString();
}

QPixmap LinuxPlatform::iconForFileType(const QString &type, int size)
{
    return ::iconForFileType(type, size);
}

void LinuxPlatform::openFile(const QString &path, const QString &type, const QString &appId)
{
    // The path is not looked at here (it may be on a mount that never answers): the type was
    // found off the event loop.
    const QString uri = QUrl::fromLocalFile(QDir::cleanPath(QDir::current().absoluteFilePath(path)))
                            .toString(QUrl::FullyEncoded);
    if (!appId.isEmpty()) {
        if (auto *app = qobject_cast<LinuxApp *>(appforId(appId)))
            app->launchWith({ uri });
        return;
    }
    if (type.isEmpty()) {
        qCWarning(lcLinux) << "Cannot open" << path << "(no such file)";
        return;
    }
    GAppInfo *info = g_app_info_get_default_for_type(type.toUtf8().constData(), FALSE);
    if (!info) {
        qCWarning(lcLinux) << "Cannot open" << path << "(no application opens" << type << ")";
        return;
    }
    QString id = fromUtf8(g_app_info_get_id(info));
    if (id.endsWith(desktopSuffix))
        id.chop(desktopSuffix.size());
    // A known application starts as from its own entry, with startup notification.
    if (auto *app = qobject_cast<LinuxApp *>(appforId(id))) {
        g_object_unref(info);
        app->launchWith({ uri });
        return;
    }
    GList *uris = g_list_append(nullptr, g_strdup(uri.toUtf8().constData()));
    GError *error = nullptr;
    if (!g_app_info_launch_uris(info, uris, nullptr, &error)) {
        qCWarning(lcLinux) << "Cannot open" << path << (error ? error->message : "");
        g_clear_error(&error);
    }
    g_list_free_full(uris, g_free);
    g_object_unref(info);
}

QVector<App *> LinuxPlatform::appsForFileType(const QString &type)
{
    QVector<App *> result;
    if (type.isEmpty())
        return result;
    GList *handlers = g_app_info_get_all_for_type(type.toUtf8().constData());
    for (GList *item = handlers; item; item = item->next) {
        QString id = fromUtf8(g_app_info_get_id(G_APP_INFO(item->data)));
        if (id.endsWith(desktopSuffix))
            id.chop(desktopSuffix.size());
        if (App *app = appforId(id)) {
            if (!result.contains(app))
                result.append(app);
        }
    }
    g_list_free_full(handlers, g_object_unref);
    return result;
}

// Before init() there is no session to act on; the codes are in `unsupported` then.
void LinuxPlatform::shutdown()
{
    if (m_login)
        m_login->powerOff(Q_FUNC_INFO);
}

void LinuxPlatform::restart()
{
    if (m_login)
        m_login->reboot(Q_FUNC_INFO);
}

void LinuxPlatform::sleep()
{
    if (m_login)
        m_login->suspend(Q_FUNC_INFO);
}

void LinuxPlatform::lockScreen()
{
    if (m_login)
        m_login->lock();
}

void LinuxPlatform::logout()
{
    if (m_login)
        m_login->terminateSession(Q_FUNC_INFO);
}

bool LinuxPlatform::getScreenLocked() { return m_screenLocked; }

void LinuxPlatform::setScreenLocked(bool locked)
{
    if (locked == m_screenLocked)
        return;
    m_screenLocked = locked;
    emit screenLockChanged();
}

int LinuxPlatform::getBrightness() { return qMax(0, m_backlight->percent()); }

void LinuxPlatform::setBrightness(int value)
{
    if (!m_backlight->isAvailable())
        return;
    const uint level = m_backlight->levelFor(value);
    // logind may set the device for the user's session; writing it directly needs rights
    // that only some setups grant. Either way the new value is pushed at once, not on the next
    // poll.
    auto fallBack = [this, level](bool done) {
        if (!done)
            m_backlight->write(level);
        poll();
    };
    if (m_login)
        m_login->setBrightness(m_backlight->name(), level, fallBack);
    else
        fallBack(false);
}

void LinuxPlatform::startPolling()
{
    if (!m_pollTimer) {
        m_pollTimer = new QTimer(this);
        m_pollTimer->setInterval(1000);
        m_pollTimer->setTimerType(Qt::VeryCoarseTimer);
        connect(m_pollTimer, &QTimer::timeout, this, &LinuxPlatform::poll);
    }
    m_pollTimer->start();
}

void LinuxPlatform::poll()
{
    const int brightness = getBrightness();
    if (brightness == m_brightness)
        return;
    m_brightness = brightness;
    emit brightnessChanged();
}

void LinuxPlatform::stopPolling()
{
    if (!m_pollTimer) {
        qCWarning(lcLinux) << "timer is null";
        return;
    }
    m_pollTimer->stop();
}

int LinuxPlatform::getVolume() { return m_pulse ? m_pulse->volume() : 0; }

void LinuxPlatform::setVolume(int value)
{
    if (m_pulse)
        m_pulse->setVolume(value);
}

bool LinuxPlatform::getVolumeMute() { return m_pulse && m_pulse->muted(); }

void LinuxPlatform::setVolumeMute(bool muted)
{
    if (m_pulse)
        m_pulse->setMuted(muted);
}

void LinuxPlatform::previousTrack() { mediaCommand(MediaPlayers::Previous, XKB_KEY_XF86AudioPrev); }

void LinuxPlatform::nextTrack() { mediaCommand(MediaPlayers::Next, XKB_KEY_XF86AudioNext); }

void LinuxPlatform::playPause() { mediaCommand(MediaPlayers::PlayPause, XKB_KEY_XF86AudioPlay); }

void LinuxPlatform::mediaCommand(int command, unsigned keysym)
{
    // Without a player on the bus, the media key goes to whatever listens for it (the
    // desktop, or a player that only grabs keys).
    auto pressKey = [this, keysym] {
        if (!m_session)
            return;
        const unsigned keycode = m_session->keycodeFor(keysym);
        if (keycode)
            m_session->pressChord({}, keycode);
        else
            qCWarning(lcLinux) << "The keyboard layout has no media key" << Qt::hex << keysym;
    };
    if (!m_media || !m_media->send(MediaPlayers::Command(command), pressKey))
        pressKey();
}

bool LinuxPlatform::permissionsGranted() { return m_a11yGranted; }
