#include <gio/gdesktopappinfo.h>
#include <gio/gio.h>

#include "linuxapp.h"

#include "accessibility.h"
#include "keys.h"
#include "l.h"
#include "linuxlogging.h"
#include "random.h"
#include "windowsession.h"

#include <KStartupInfo>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QFileInfo>
#include <QQueue>
#include <QTimer>

#include <utility>

namespace {
// How long keys wait for the window manager to bring their application forward.
constexpr int activationTimeout = 300;

// Built from the session's layout on the first shortcut, and again after the layout changed
// (a Wayland compositor tells when it does; an X server's layout is read once).
const Keys::Table &keyTable(const WindowSession *session)
{
    static const WindowSession *builtFor = nullptr;
    static int generation = -1;
    static Keys::Table table(nullptr);
    if (builtFor != session || generation != session->layoutGeneration()) {
        table = Keys::Table(session);
        builtFor = session;
        generation = session->layoutGeneration();
    }
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
    if (session && session->kind() == QLatin1String("X11") && G_IS_DESKTOP_APP_INFO(info)
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
    if (windows.isEmpty())
        launch();
    else if (!bringForward())
        // A single-instance application started again shows its window.
        launch();
}

bool LinuxApp::bringForward()
{
    if (session && !windows.isEmpty() && (session->capabilities() & WindowSession::Activate)) {
        session->activate(recentWindow());
        return true;
    }
    // Where nobody but the compositor may bring a window forward, the application is asked
    // to come forward itself, through the D-Bus activation its entry declares.
    GDesktopAppInfo *entry
        = m_info && G_IS_DESKTOP_APP_INFO(m_info) ? G_DESKTOP_APP_INFO(m_info) : nullptr;
    if (!entry || !g_desktop_app_info_get_boolean(entry, "DBusActivatable"))
        return false;
    QString objectPath = QLatin1Char('/') + id;
    objectPath.replace(QLatin1Char('.'), QLatin1Char('/'))
        .replace(QLatin1Char('-'), QLatin1Char('_'));
    QDBusMessage call = QDBusMessage::createMethodCall(
        id, objectPath, QStringLiteral("org.freedesktop.Application"), QStringLiteral("Activate"));
    call << QVariantMap();
    auto *watcher
        = new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher] {
        watcher->deleteLater();
        if (watcher->isError())
            qCWarning(lcLinux) << "Cannot activate" << id << watcher->error().message();
    });
    return true;
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
    m_pendingKeys.append(keys);
    // Already waiting for the window manager: these keys follow the earlier ones.
    if (m_activationTimer && m_activationTimer->isActive())
        return;
    if (windows.isEmpty() || windows.contains(session->activeWindow())) {
        typePendingKeys();
        return;
    }
    // Another application is in front: bring this one forward first, so that the keys reach
    // it, and type them once the window manager says it is active. The event loop goes on
    // serving everyone meanwhile.
    if (!m_activationTimer) {
        m_activationTimer = new QTimer(this);
        m_activationTimer->setSingleShot(true);
        m_activationTimer->setInterval(activationTimeout);
        connect(m_activationTimer, &QTimer::timeout, this, [this] {
            qCWarning(lcLinux) << "Window did not become active" << id;
            typePendingKeys();
        });
        connect(
            session, &WindowSession::activeWindowChanged, this, &LinuxApp::onActiveWindowChanged);
    }
    // Never started again for keys: a second copy of the program would get them.
    if (!bringForward())
        qCWarning(lcLinux) << "Cannot bring" << id << "forward for keys";
    m_activationTimer->start();
}

void LinuxApp::onActiveWindowChanged(WId window)
{
    if (m_activationTimer->isActive() && windows.contains(window)) {
        m_activationTimer->stop();
        typePendingKeys();
    }
}

void LinuxApp::typePendingKeys()
{
    const QStringList sequences = std::exchange(m_pendingKeys, QStringList());
    for (const QString &keys : sequences) {
        for (const QString &shortcut : Keys::shortcuts(keys))
            performShortcut(shortcut);
    }
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

QList<int> LinuxApp::processIds() const
{
    QList<int> pids;
    if (!session)
        return pids;
    for (WId window : windows) {
        const int pid = session->window(window).pid;
        if (pid > 0 && !pids.contains(pid))
            pids.append(pid);
    }
    return pids;
}

Accessible LinuxApp::frontFrame() const
{
    if (!accessibility || !accessibility->isStarted())
        return Accessible();
    const QList<int> pids = processIds();
    for (int pid : pids) {
        const Accessible application = accessibility->application(pid);
        if (application.isNull())
            continue;
        Accessible first;
        const QVector<Accessible> children = application.children(100);
        for (const Accessible &child : children) {
            if (child.kind() != Accessible::Frame)
                continue;
            if (child.isActive())
                return child;
            if (first.isNull())
                first = child;
        }
        if (!first.isNull())
            return first;
    }
    return Accessible();
}

namespace {
// Deeper menus than this are not followed, and no tree holds more entries: an application
// could otherwise hand us an endless one.
constexpr int maxMenuDepth = 12;
constexpr int maxMenuEntries = 5000;

// The pre-order search: each item, then its submenu, then its next sibling.
const MenuItem *findMenu(const std::vector<MenuItem> &items, const QString &menuId)
{
    for (const MenuItem &item : items) {
        if (item.id == menuId)
            return &item;
        if (const MenuItem *found = findMenu(item.children, menuId))
            return found;
    }
    return nullptr;
}
} // namespace

const std::vector<MenuItem> &LinuxApp::getMenuItems()
{
    if (!m_menu.empty())
        return m_menu;
    const Accessible bar = menuBar();
    if (bar.isNull())
        return m_menu;
    const QVector<Accessible> entries = bar.children();
    m_menu.reserve(size_t(entries.size()));
    int budget = maxMenuEntries;
    for (const Accessible &entry : entries) {
        const QString title = entry.name();
        if (title.isEmpty() || title == QLatin1String("Apple"))
            continue;
        MenuItem item(QString(), title, entry.handle());
        m_menuElements.append(entry);
        fillMenu(item, entry, { title }, 1, &budget);
        m_menu.push_back(std::move(item));
    }
    return m_menu;
}

Accessible LinuxApp::menuBar() const
{
    const Accessible frame = frontFrame();
    return frame.isNull() ? Accessible() : frame.findFirst(Accessible::MenuBar, 3);
}

namespace {
// The untitled pop-up that holds a menu's entries (Qt's): its entries are the menu's.
bool isMenuContainer(Accessible::Kind kind, const QString &title)
{
    return kind == Accessible::MenuContainer
        || (title.isEmpty() && kind != Accessible::MenuItem && kind != Accessible::Menu);
}

// GTK calls the action "click", Qt "Press"; anything else gets its first action.
bool press(const Accessible &element)
{
    if (element.isNull())
        return false;
    const QStringList actions = element.actions();
    int action = 0;
    for (int i = 0; i < actions.size(); ++i) {
        if (actions.at(i).compare(QLatin1String("click"), Qt::CaseInsensitive) == 0
            || actions.at(i).compare(QLatin1String("press"), Qt::CaseInsensitive) == 0) {
            action = i;
            break;
        }
    }
    return !actions.isEmpty() && element.doAction(action);
}

// The entry titled `title` among the entries of a menu, looking through untitled containers.
Accessible menuEntry(const Accessible &menu, const QString &title, int depth = 0)
{
    if (depth > 2)
        return Accessible();
    const QVector<Accessible> children = menu.children();
    for (const Accessible &child : children) {
        const Accessible::Kind kind = child.kind();
        if (kind == Accessible::Separator)
            continue;
        const QString name = child.name();
        if (isMenuContainer(kind, name)) {
            const Accessible found = menuEntry(child, title, depth + 1);
            if (!found.isNull())
                return found;
        } else if (name == title) {
            return child;
        }
    }
    return Accessible();
}
} // namespace

void LinuxApp::fillMenu(
    MenuItem &parent, const Accessible &element, const QStringList &path, int depth, int *budget)
{
    if (depth > maxMenuDepth)
        return;
    bool ok = false;
    const QVector<Accessible> children = element.children(1000, &ok);
    if (!ok) {
        qCWarning(lcLinuxA11y) << "Cannot get submenus" << parent.name;
        return;
    }
    for (const Accessible &child : children) {
        const Accessible::Kind kind = child.kind();
        if (kind == Accessible::Separator)
            continue;
        const QString title = child.name();
        if (isMenuContainer(kind, title)) {
            fillMenu(parent, child, path, depth + 1, budget);
            continue;
        }
        if (title == QLatin1String("Services") || !child.isEnabled())
            continue;
        if (--*budget < 0)
            return;
        MenuItem item(QString::number(Random::integer(0, 2147483647)), title, child.handle());
        m_menuElements.append(child);
        const QStringList childPath = path + QStringList { title };
        m_menuPaths.insert(item.id, childPath);
        fillMenu(item, child, childPath, depth + 1, budget);
        parent.children.push_back(std::move(item));
    }
}

Accessible LinuxApp::findMenuEntry(const QStringList &path, bool openMenus) const
{
    Accessible element = menuBar();
    for (int i = 0; i < path.size() && !element.isNull(); ++i) {
        // Opening a menu makes a toolkit build and realise what it holds.
        if (openMenus && i > 0)
            press(element);
        element = menuEntry(element, path.at(i));
    }
    return element;
}

void LinuxApp::performMenu(const QString &menuId)
{
    const MenuItem *item = findMenu(getMenuItems(), menuId);
    if (!item) {
        qCWarning(lcLinuxA11y) << "Cannot get menu" << menuId;
        return;
    }
    if (press(Accessible::share(static_cast<AtspiAccessible *>(item->element))))
        return;
    // The element read with the tree may be gone (programs rebuild menus, for recent files or
    // when a model changes), or its menu may have to be open before it can be pressed: find
    // the entry again by its titles, then with the menus above it opened.
    const QStringList path = m_menuPaths.value(menuId, { item->name });
    if (press(findMenuEntry(path, false)) || press(findMenuEntry(path, true)))
        return;
    qCWarning(lcLinuxA11y) << "Cannot press menu" << menuId;
}

Accessible LinuxApp::focusedElement() const
{
    if (!accessibility)
        return Accessible();
    const QList<int> pids = processIds();
    for (int pid : pids) {
        const Accessible element = accessibility->focusedElement(pid);
        if (!element.isNull())
            return element;
    }
    return Accessible();
}

void LinuxApp::reportFocus(const Accessible &element)
{
    // Read afresh: what AT-SPI remembers may be older than the event. An element that has
    // lost the focus again by now is not reported; the event of the one that has it follows.
    element.refresh();
    if (!element.isNull() && !element.isFocused())
        return;
    ElementRole role = Null;
    switch (element.kind()) {
    case Accessible::SingleLineText:
        role = Text;
        break;
    case Accessible::MultiLineText:
        role = TextArea;
        break;
    case Accessible::List:
        role = List;
        break;
    case Accessible::Table:
        role = Table;
        break;
    case Accessible::Button:
        role = Button;
        break;
    case Accessible::Frame:
        role = Window;
        break;
    default:
        break;
    }
    if (role == Null) {
        setFocusRoleAsync(Null, QString(), QString(), QVariantMap());
        return;
    }
    QString title = element.name();
    if (title.isEmpty())
        title = element.description();
    QVariantMap extras;
    int start = 0, length = 0;
    if (role == Text && element.selection(&start, &length)) {
        extras.insert(L::index, start);
        extras.insert(L::length, length);
    }
    setFocusRoleAsync(role, title, element.value(), extras);
}

void LinuxApp::setFocusValue(const QString &value)
{
    const Accessible element = focusedElement();
    if (!element.isNull() && !element.setText(value))
        qCWarning(lcLinuxA11y) << "Cannot set the value of the focused" << element.roleName();
}

void LinuxApp::performFocusedElement()
{
    const Accessible element = focusedElement();
    // Qt offers "SetFocus" on every focusable widget; on the focused one it does nothing.
    const QStringList actions = element.actions();
    qCDebug(lcLinuxA11y) << "actions" << actions;
    for (int i = 0; i < actions.size(); ++i) {
        if (actions.at(i) == QLatin1String("SetFocus"))
            continue;
        element.doAction(i);
        return;
    }
    performKeySequence(QStringLiteral("Return"));
}

void LinuxApp::forgetMenu()
{
    m_menu.clear();
    m_menuElements.clear();
    m_menuPaths.clear();
}

void LinuxApp::setCurrent(bool current)
{
    App::setCurrent(current);
    if (!current) {
        // Menu identifiers are only good while the application stays in front.
        forgetMenu();
        stopPollingBrowser();
        return;
    }
    const Accessible element = focusedElement();
    if (!element.isNull())
        reportFocus(element);
    if (browser)
        startPollingBrowser();
}

void LinuxApp::setBrowser(bool browser)
{
    App::setBrowser(browser);
    if (!browser)
        stopPollingBrowser();
    else if (current)
        startPollingBrowser();
}

void LinuxApp::startPollingBrowser()
{
    if (!m_browserTimer) {
        m_browserTimer = new QTimer(this);
        m_browserTimer->setInterval(5000);
        m_browserTimer->setTimerType(Qt::VeryCoarseTimer);
        connect(m_browserTimer, &QTimer::timeout, this, &LinuxApp::pollBrowser);
    }
    m_browserTimer->start();
    pollBrowser();
}

void LinuxApp::stopPollingBrowser()
{
    if (m_browserTimer) {
        m_browserTimer->stop();
        m_browserTimer->deleteLater();
        m_browserTimer = nullptr;
    }
    m_browserUrl.clear();
}

void LinuxApp::pollBrowser()
{
    const QString url = documentUrl();
    if (url == m_browserUrl)
        return;
    m_browserUrl = url;
    onBrowserUrlChanged(url);
}

QString LinuxApp::documentUrl() const
{
    const Accessible frame = frontFrame();
    if (frame.isNull())
        return QString();
    // The document in front: hidden tabs are not showing, so they are not searched.
    QQueue<QPair<Accessible, int>> queue;
    queue.enqueue({ frame, 0 });
    int visited = 0;
    while (!queue.isEmpty() && ++visited < 2000) {
        const auto [element, level] = queue.dequeue();
        if (element.kind() == Accessible::Document) {
            const QString url = element.documentUrl();
            if (!url.isEmpty())
                return url;
        }
        if (level >= 10)
            continue;
        const QVector<Accessible> children = element.children(200);
        for (const Accessible &child : children) {
            if (child.isShowing())
                queue.enqueue({ child, level + 1 });
        }
    }
    return QString();
}
