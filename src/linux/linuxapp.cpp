#include <gio/gdesktopappinfo.h>
#include <gio/gio.h>

#include "linuxapp.h"

#include "keys.h"
#include "linuxlogging.h"
#include "x11session.h"

#include <KStartupInfo>
#include <QFileInfo>

namespace {
// Built on the first shortcut from the layout the X server has then, and kept.
const Keys::Table &keyTable(const X11Session *session)
{
    static const Keys::Table table(session);
    return table;
}
} // namespace

LinuxApp::LinuxApp(const QString &id, GAppInfo *info, QObject *parent)
    : App(id, parent)
{
    setAppInfo(info);
}

LinuxApp::~LinuxApp()
{
    if (m_info)
        g_object_unref(m_info);
}

void LinuxApp::setAppInfo(GAppInfo *info)
{
    if (info)
        g_object_ref(info);
    if (m_info)
        g_object_unref(m_info);
    m_info = info ? G_APP_INFO(info) : nullptr;
}

bool LinuxApp::launchWith(const QStringList &uris)
{
    GAppInfo *info = m_info;
    GAppInfo *fromPath = nullptr;
    if (!info && !path.isEmpty() && QFileInfo(path).isExecutable()) {
        // A program known only by its window starts from its executable.
        fromPath = g_app_info_create_from_commandline(
            QFile::encodeName(path).constData(), nullptr, G_APP_INFO_CREATE_NONE, nullptr);
        info = fromPath;
    }
    if (!info) {
        qCWarning(lcLinux) << "Cannot launch" << id << "no desktop entry or program";
        return false;
    }
    GAppLaunchContext *context = g_app_launch_context_new();
    // Startup notification: the desktop shows that something is starting, and the new window
    // is allowed to take the focus.
    if (X11Session::available() && G_IS_DESKTOP_APP_INFO(info)
        && g_desktop_app_info_get_boolean(G_DESKTOP_APP_INFO(info), "StartupNotify")) {
        KStartupInfoId startup;
        startup.initId(KStartupInfo::createNewStartupId());
        KStartupInfoData data;
        data.setName(name);
        data.setBin(QString::fromUtf8(g_app_info_get_executable(info)));
        if (const char *file = g_desktop_app_info_get_filename(G_DESKTOP_APP_INFO(info)))
            data.setApplicationId(QString::fromUtf8(file));
        KStartupInfo::sendStartup(startup, data);
        g_app_launch_context_setenv(context, "DESKTOP_STARTUP_ID", startup.id().constData());
    }
    GList *list = nullptr;
    for (const QString &uri : uris)
        list = g_list_append(list, g_strdup(uri.toUtf8().constData()));
    GError *error = nullptr;
    const bool launched = g_app_info_launch_uris(info, list, context, &error);
    g_list_free_full(list, g_free);
    g_object_unref(context);
    if (fromPath)
        g_object_unref(fromPath);
    if (!launched) {
        qCWarning(lcLinux) << "Cannot launch" << id << (error ? error->message : "");
        g_clear_error(&error);
    }
    return launched;
}

WId LinuxApp::recentWindow() const
{
    if (!session || windows.isEmpty())
        return 0;
    const QList<WId> stacking = session->stackingOrder();
    for (auto it = stacking.crbegin(); it != stacking.crend(); ++it) {
        if (windows.contains(*it))
            return *it;
    }
    return windows.last();
}

WId LinuxApp::frontWindow() const
{
    if (!session || windows.isEmpty())
        return 0;
    const QList<WId> stacking = session->stackingOrder();
    for (auto it = stacking.crbegin(); it != stacking.crend(); ++it) {
        if (windows.contains(*it) && !session->window(*it).minimized)
            return *it;
    }
    return 0;
}

bool LinuxApp::hasWindows(const char *operation) const
{
    if (session && !windows.isEmpty())
        return true;
    qCWarning(lcLinux) << "No running application for" << id << operation;
    return false;
}

void LinuxApp::launch() { launchWith({}); }

void LinuxApp::activate()
{
    if (session && !windows.isEmpty())
        session->activate(recentWindow());
    else
        launch();
}

void LinuxApp::quit()
{
    if (!hasWindows("quit"))
        return;
    // The polite quit: every window is asked to close, so the application can ask to save.
    for (WId window : qAsConst(windows))
        session->close(window);
}

void LinuxApp::hide()
{
    if (!hasWindows("hide"))
        return;
    for (WId window : qAsConst(windows))
        session->minimize(window);
}

void LinuxApp::ensureActive()
{
    if (!session || windows.isEmpty() || windows.contains(session->activeWindow()))
        return;
    const WId window = recentWindow();
    session->activate(window);
    if (!session->waitUntilActive(window, 300))
        qCWarning(lcLinux) << "Window did not become active" << id;
}

void LinuxApp::close()
{
    if (const WId window = frontWindow())
        session->close(window);
}

void LinuxApp::toggleMiniminize()
{
    if (!session)
        return;
    if (const WId window = frontWindow()) {
        session->minimize(window);
        return;
    }
    // Everything is minimised: bring back the first window.
    for (WId window : qAsConst(windows)) {
        if (session->window(window).minimized) {
            session->activate(window);
            return;
        }
    }
}

void LinuxApp::toggleMaximize()
{
    if (supportsFullscreen()) {
        toggleFullscreen();
        return;
    }
    if (const WId window = frontWindow())
        session->setMaximized(window, !session->window(window).maximized);
}

bool LinuxApp::supportsFullscreen()
{
    const WId window = frontWindow();
    return window && session->fullscreenSupported() && session->window(window).fullscreenAllowed;
}

void LinuxApp::toggleFullscreen()
{
    if (!supportsFullscreen()) {
        toggleMaximize();
        return;
    }
    const WId window = frontWindow();
    session->setFullscreen(window, !session->window(window).fullscreen);
}

void LinuxApp::scroll(int, int y)
{
    // Below 10 scrolls one way, 10 and above the other; the threshold is kept as clients
    // expect it.
    if (session)
        session->scroll(y >= 10);
}

void LinuxApp::performKeySequence(const QString &keys)
{
    if (!session)
        return;
    ensureActive();
    for (const QString &shortcut : Keys::shortcuts(keys))
        performShortcut(shortcut);
}

void LinuxApp::performShortcut(const QString &shortcut)
{
    if (shortcut.isEmpty() || !session)
        return;
    const Keys::Chord chord = Keys::parse(shortcut);
    const Keys::Table &table = keyTable(session);
    const unsigned code = table.code(chord.key);
    if (!code) {
        qCWarning(lcLinux) << "Unhandled key" << chord.key;
        return;
    }
    session->pressChord(table.modifierCodes(chord.modifiers), code);
}

const std::vector<MenuItem> &LinuxApp::getMenuItems() { return m_menu; }

void LinuxApp::performMenu(const QString &) { }

void LinuxApp::setFocusValue(const QString &) { }

void LinuxApp::performFocusedElement() { }
