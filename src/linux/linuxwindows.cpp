#include <gio/gdesktopappinfo.h>
#include <gio/gio.h>

#include "commandlines.h"
#include "iconthemes.h"
#include "linuxapp.h"
#include "linuxplatform.h"
#include "windowsession.h"

// The windows of other applications: which application each belongs to, and following them as
// they come, change, take the front and go.

namespace {
const QString desktopSuffix = QStringLiteral(".desktop");

QString fromUtf8(const char *text) { return text ? QString::fromUtf8(text) : QString(); }
} // namespace

void LinuxPlatform::startObserving()
{
    m_observing = true;
    if (!m_session)
        return;
    connect(m_session, &WindowSession::windowAdded, this, [this](WId id) { addWindows({ id }); });
    connect(
        m_session, &WindowSession::windowRemoved, this, [this](WId id) { removeWindows({ id }); });
    connect(m_session, &WindowSession::windowChanged, this, &LinuxPlatform::onWindowChanged);
    connect(m_session, &WindowSession::activeWindowChanged, this,
        &LinuxPlatform::onActiveWindowChanged);
    addWindows(m_session->windows());
    onActiveWindowChanged(m_session->activeWindow());
}

LinuxApp *LinuxPlatform::matchWindow(const DesktopWindow &window) const
{
    using namespace CommandLines;
    auto byId = [this](const QByteArray &name) -> LinuxApp * {
        QString id = QString::fromUtf8(name);
        if (id.endsWith(desktopSuffix))
            id.chop(desktopSuffix.size());
        return id.isEmpty() ? nullptr : qobject_cast<LinuxApp *>(apps.value(id));
    };
    // 1. The GTK application id, 2. the KDE desktop file hint: both name the entry.
    if (LinuxApp *app = byId(window.gtkApplicationId))
        return app;
    if (LinuxApp *app = byId(window.desktopFileName))
        return app;
    // 3. WM_CLASS against StartupWMClass, then against the entry's id.
    const QString className = QString::fromUtf8(window.className);
    const QString instanceName = QString::fromUtf8(window.instanceName);
    auto sameName = [&](const QString &name) {
        return !name.isEmpty()
            && (name.compare(className, Qt::CaseInsensitive) == 0
                || name.compare(instanceName, Qt::CaseInsensitive) == 0);
    };
    for (App *app : installedApps) {
        auto *linuxApp = static_cast<LinuxApp *>(app);
        if (GAppInfo *info = linuxApp->appInfo(); info && G_IS_DESKTOP_APP_INFO(info)) {
            if (sameName(
                    fromUtf8(g_desktop_app_info_get_startup_wm_class(G_DESKTOP_APP_INFO(info)))))
                return linuxApp;
        }
    }
    for (App *app : installedApps) {
        if (static_cast<LinuxApp *>(app)->appInfo() && sameName(app->id))
            return static_cast<LinuxApp *>(app);
    }
    // 4. The command line the window's process was started with against the entry's Exec, the
    // longest match first: entries that run the same interpreter (python3, java, sh) differ
    // only in the script and the words after it.
    const ProcessCommand command = processCommand(window.pid);
    LinuxApp *started = nullptr;
    int matched = 0;
    for (App *app : installedApps) {
        auto *linuxApp = static_cast<LinuxApp *>(app);
        if (!linuxApp->appInfo())
            continue;
        if (const int words = commandMatch(command, entryCommand(linuxApp->appInfo()));
            words > matched) {
            started = linuxApp;
            matched = words;
        }
    }
    if (started)
        return started;
    // 5. The program the process runs, for a program that names itself otherwise on its
    // command line: only an entry that starts the program without words of its own.
    const QString executable = executableOf(window.pid);
    if (!executable.isEmpty()) {
        for (App *app : installedApps) {
            auto *linuxApp = static_cast<LinuxApp *>(app);
            if (linuxApp->appInfo() && entryCommand(linuxApp->appInfo()).size() == 1
                && entryExecutable(linuxApp->appInfo()) == executable)
                return linuxApp;
        }
    }
    // A program seen before without an entry.
    const QString id = className.isEmpty() ? instanceName : className;
    if (auto *known = qobject_cast<LinuxApp *>(apps.value(id)); known && !known->appInfo())
        return known;
    return nullptr;
}

LinuxApp *LinuxPlatform::appForWindow(const DesktopWindow &window)
{
    if (!window.regular)
        return nullptr;
    if (LinuxApp *app = matchWindow(window))
        return app;
    // A program without a desktop entry: it is listed from its window, as an application
    // started from outside the usual places is.
    QString id
        = QString::fromUtf8(window.className.isEmpty() ? window.instanceName : window.className);
    if (id.isEmpty())
        id = QStringLiteral("window-%1").arg(window.pid);
    auto *app = new LinuxApp(id, nullptr, this);
    app->session = m_session;
    app->accessibility = m_a11y;
    app->name = !window.className.isEmpty() ? QString::fromUtf8(window.className) : window.title;
    app->path = CommandLines::executableOf(window.pid);
    app->icon = m_session->windowIcon(window.id);
    if (app->icon.isNull())
        app->icon = IconThemes::genericApplication();
    installedApps.append(app);
    apps.insert(app->id, app);
    emit installedAppsChanged();
    return app;
}

void LinuxPlatform::addWindows(const QList<WId> &windows)
{
    bool changed = false;
    for (WId id : windows) {
        if (m_windowApps.contains(id))
            continue;
        LinuxApp *app = appForWindow(m_session->window(id));
        if (!app)
            continue;
        m_windowApps.insert(id, app);
        app->windows.append(id);
        app->forgetMenu();
        // Activation may have been announced while the window was not listed yet.
        if (id == m_session->activeWindow() && currentApp != app)
            setCurrentApp(app);
        // An application starts running with its first regular window.
        if (app->windows.size() == 1) {
            app->setRunning(true);
            runningApps.append(app);
            emit appLaunched(app);
            changed = true;
        }
    }
    if (changed)
        emit runningAppsChanged();
}

void LinuxPlatform::removeWindows(const QList<WId> &windows)
{
    bool changed = false;
    for (WId id : windows) {
        LinuxApp *app = m_windowApps.take(id);
        if (!app)
            continue;
        app->windows.removeAll(id);
        app->forgetMenu();
        if (app->windows.isEmpty()) {
            app->setRunning(false);
            runningApps.removeOne(app);
            emit appTerminated(app);
            changed = true;
        }
    }
    if (changed)
        emit runningAppsChanged();
}

void LinuxPlatform::onWindowChanged(WId window)
{
    // A window may turn regular (mapped as normal after all) or stop being so (skip-taskbar).
    const bool regular = m_session->window(window).regular;
    if (regular && !m_windowApps.contains(window)) {
        addWindows({ window });
        if (window == m_session->activeWindow())
            onActiveWindowChanged(window);
    } else if (!regular && m_windowApps.contains(window)) {
        removeWindows({ window });
    }
}

void LinuxPlatform::onActiveWindowChanged(WId window)
{
    // The window manager may announce the new active window before the client list has it.
    if (window && !m_windowApps.contains(window))
        addWindows({ window });
    // Dialogs and docks leave the application as it was; an unknown window has none.
    LinuxApp *app = m_windowApps.value(window);
    if (!app && window) {
        const DesktopWindow info = m_session->window(window);
        if (!info.regular)
            app = matchWindow(info);
    }
    setCurrentApp(app);
}
