#include "plasmasession.h"

#include "linuxlogging.h"
#include "waylandconnection.h"

#include "fake-input-client-protocol.h"
#include "plasma-window-management-client-protocol.h"

#include <wayland-client.h>

struct PlasmaSession::Window
{
    PlasmaSession *session = nullptr;
    org_kde_plasma_window *proxy = nullptr;
    // Described completely ("initial_state"): changes are announced from then on.
    bool ready = false;
    DesktopWindow info;
    uint32_t state = 0;
    bool hasParent = false;
};

namespace {
using Window = PlasmaSession::Window;

// A wheel step as a mouse wheel reports it: 15 degrees.
constexpr int wheelStep = 15;

Window *windowOf(void *data) { return static_cast<Window *>(data); }

void changed(void *data)
{
    Window *window = windowOf(data);
    if (window->ready)
        window->session->onChanged(window);
}

void onTitle(void *data, org_kde_plasma_window *, const char *title)
{
    windowOf(data)->info.title = QString::fromUtf8(title);
    changed(data);
}

void onAppId(void *data, org_kde_plasma_window *, const char *appId)
{
    // The app id names the desktop entry as a GTK application id or a KDE desktop file name
    // does, and stands for the class where an entry's StartupWMClass is matched.
    DesktopWindow &info = windowOf(data)->info;
    info.desktopFileName = info.className = info.instanceName = QByteArray(appId);
    changed(data);
}

void onState(void *data, org_kde_plasma_window *, uint32_t state)
{
    windowOf(data)->state = state;
    changed(data);
}

void onVirtualDesktop(void *, org_kde_plasma_window *, int32_t) { }
void onThemedIcon(void *, org_kde_plasma_window *, const char *) { }

void onUnmapped(void *data, org_kde_plasma_window *)
{
    windowOf(data)->session->onUnmapped(windowOf(data));
}

void onInitialState(void *data, org_kde_plasma_window *)
{
    windowOf(data)->ready = true;
    windowOf(data)->session->onChanged(windowOf(data));
}

void onParent(void *data, org_kde_plasma_window *, org_kde_plasma_window *parent)
{
    windowOf(data)->hasParent = parent != nullptr;
    changed(data);
}

void onGeometry(void *, org_kde_plasma_window *, int32_t, int32_t, uint32_t, uint32_t) { }
void onIconChanged(void *, org_kde_plasma_window *) { }

void onPid(void *data, org_kde_plasma_window *, uint32_t pid)
{
    windowOf(data)->info.pid = int(pid);
    changed(data);
}

void onDesktopEntered(void *, org_kde_plasma_window *, const char *) { }
void onDesktopLeft(void *, org_kde_plasma_window *, const char *) { }
void onApplicationMenu(void *, org_kde_plasma_window *, const char *, const char *) { }
void onActivityEntered(void *, org_kde_plasma_window *, const char *) { }
void onActivityLeft(void *, org_kde_plasma_window *, const char *) { }
void onResourceName(void *, org_kde_plasma_window *, const char *) { }

// The version of window management whose every event the listeners below answer; KWin 6
// offers newer ones (client geometry, a second stacking order) that nothing here reads. The
// listeners are filled by name so that newer headers, with more events, still compile.
constexpr uint32_t windowManagementVersion = 16;
// Keys need fake input's keyboard_key; the interface has no events.
constexpr uint32_t fakeInputVersion = ORG_KDE_KWIN_FAKE_INPUT_KEYBOARD_KEY_SINCE_VERSION;

// Windows come from the manager, at its version.
const org_kde_plasma_window_listener windowListener = [] {
    org_kde_plasma_window_listener listener {};
    listener.title_changed = onTitle;
    listener.app_id_changed = onAppId;
    listener.state_changed = onState;
    listener.virtual_desktop_changed = onVirtualDesktop;
    listener.themed_icon_name_changed = onThemedIcon;
    listener.unmapped = onUnmapped;
    listener.initial_state = onInitialState;
    listener.parent_window = onParent;
    listener.geometry = onGeometry;
    listener.icon_changed = onIconChanged;
    listener.pid_changed = onPid;
    listener.virtual_desktop_entered = onDesktopEntered;
    listener.virtual_desktop_left = onDesktopLeft;
    listener.application_menu = onApplicationMenu;
    listener.activity_entered = onActivityEntered;
    listener.activity_left = onActivityLeft;
    listener.resource_name_changed = onResourceName;
    return listener;
}();

void onShowDesktop(void *, org_kde_plasma_window_management *, uint32_t) { }

void onWindowById(void *data, org_kde_plasma_window_management *, uint32_t id)
{
    static_cast<PlasmaSession *>(data)->onWindow(id, nullptr);
}

void onStackingOrder(void *, org_kde_plasma_window_management *, wl_array *) { }
void onStackingOrderUuid(void *, org_kde_plasma_window_management *, const char *) { }

void onWindowWithUuid(void *data, org_kde_plasma_window_management *, uint32_t id, const char *uuid)
{
    static_cast<PlasmaSession *>(data)->onWindow(id, uuid);
}

const org_kde_plasma_window_management_listener managerListener = [] {
    org_kde_plasma_window_management_listener listener {};
    listener.show_desktop_changed = onShowDesktop;
    listener.window = onWindowById;
    listener.stacking_order_changed = onStackingOrder;
    listener.stacking_order_uuid_changed = onStackingOrderUuid;
    listener.window_with_uuid = onWindowWithUuid;
    return listener;
}();
} // namespace

bool PlasmaSession::offeredBy(const WaylandConnection *connection)
{
    return connection->isConnected()
        && connection->has(org_kde_plasma_window_management_interface.name);
}

PlasmaSession::PlasmaSession(WaylandConnection *connection, QObject *parent)
    : WaylandWindowSession(connection, parent)
{
    const QList<WaylandListener> bound = listeners();
    m_manager = static_cast<org_kde_plasma_window_management *>(connection->bind(bound[0], this));
    m_managerVersion = connection->boundVersion(org_kde_plasma_window_management_interface.name);
    m_fakeInput = static_cast<org_kde_kwin_fake_input *>(connection->bind(bound[2], this));
    if (m_fakeInput) {
        if (connection->version(org_kde_kwin_fake_input_interface.name) < fakeInputVersion) {
            qCWarning(lcLinux) << "KWin's fake input is too old for keys";
        }
        // KWin lets in any program it offered the interface to.
        org_kde_kwin_fake_input_authenticate(m_fakeInput, "Velm Server",
            "Keys and scrolling sent from a paired phone or another client");
    }
    // The windows there are now, and the seat's keymap.
    connection->roundtrip();
    connection->roundtrip();
    qCInfo(lcLinux) << "Windows and input through KWin (Plasma protocols)";
}

PlasmaSession::~PlasmaSession() { releaseProxies(); }

QList<WaylandListener> PlasmaSession::listeners()
{
    return {
        { &org_kde_plasma_window_management_interface, &managerListener, windowManagementVersion },
        { &org_kde_plasma_window_interface, &windowListener, windowManagementVersion },
        { &org_kde_kwin_fake_input_interface, nullptr, fakeInputVersion },
    };
}

void PlasmaSession::releaseProxies()
{
    for (Window *window : qAsConst(m_windows)) {
        org_kde_plasma_window_destroy(window->proxy);
        delete window;
    }
    m_windows.clear();
    if (m_fakeInput)
        org_kde_kwin_fake_input_destroy(m_fakeInput);
    if (m_manager)
        org_kde_plasma_window_management_destroy(m_manager);
    m_fakeInput = nullptr;
    m_manager = nullptr;
}

WindowSession::Capabilities PlasmaSession::capabilities() const
{
    Capabilities result;
    if (!m_manager)
        return result;
    result |= ListWindows | Activate | Close | Minimize | Maximize | Fullscreen | ProcessIds;
    if (m_fakeInput
        && connection()->version(org_kde_kwin_fake_input_interface.name) >= fakeInputVersion
        && hasLayout())
        result |= Keys;
    if (m_fakeInput)
        result |= Scroll;
    return result;
}

void PlasmaSession::onWindow(uint32_t internalId, const char *uuid)
{
    // From version 13 on, a window comes with its uuid, and the id alone is the old way.
    org_kde_plasma_window *proxy = nullptr;
    if (uuid)
        proxy = org_kde_plasma_window_management_get_window_by_uuid(m_manager, uuid);
    else if (m_managerVersion < ORG_KDE_PLASMA_WINDOW_MANAGEMENT_WINDOW_WITH_UUID_SINCE_VERSION)
        proxy = org_kde_plasma_window_management_get_window(m_manager, internalId);
    if (!proxy)
        return;
    auto *window = new Window;
    window->session = this;
    window->proxy = proxy;
    window->info.id = m_nextId++;
    m_windows.insert(window->info.id, window);
    org_kde_plasma_window_add_listener(proxy, &windowListener, window);
}

void PlasmaSession::onChanged(Window *window)
{
    DesktopWindow &info = window->info;
    const uint32_t state = window->state;
    info.regular
        = !window->hasParent && !(state & ORG_KDE_PLASMA_WINDOW_MANAGEMENT_STATE_SKIPTASKBAR);
    info.minimized = state & ORG_KDE_PLASMA_WINDOW_MANAGEMENT_STATE_MINIMIZED;
    info.maximized = state & ORG_KDE_PLASMA_WINDOW_MANAGEMENT_STATE_MAXIMIZED;
    info.fullscreen = state & ORG_KDE_PLASMA_WINDOW_MANAGEMENT_STATE_FULLSCREEN;
    info.fullscreenAllowed = state & ORG_KDE_PLASMA_WINDOW_MANAGEMENT_STATE_FULLSCREENABLE;
    publish(info, state & ORG_KDE_PLASMA_WINDOW_MANAGEMENT_STATE_ACTIVE);
}

void PlasmaSession::onUnmapped(Window *window)
{
    const WId id = window->info.id;
    m_windows.remove(id);
    org_kde_plasma_window_destroy(window->proxy);
    delete window;
    withdraw(id);
}

void PlasmaSession::setState(WId id, uint32_t flag, bool on)
{
    if (Window *window = find(id)) {
        org_kde_plasma_window_set_state(window->proxy, flag, on ? flag : 0);
        connection()->flush();
    }
}

void PlasmaSession::activate(WId id)
{
    // KWin restores a minimised window it is asked to activate.
    setState(id, ORG_KDE_PLASMA_WINDOW_MANAGEMENT_STATE_ACTIVE, true);
}

void PlasmaSession::minimize(WId id)
{
    setState(id, ORG_KDE_PLASMA_WINDOW_MANAGEMENT_STATE_MINIMIZED, true);
}

void PlasmaSession::close(WId id)
{
    if (Window *window = find(id)) {
        org_kde_plasma_window_close(window->proxy);
        connection()->flush();
    }
}

void PlasmaSession::setMaximized(WId id, bool on)
{
    setState(id, ORG_KDE_PLASMA_WINDOW_MANAGEMENT_STATE_MAXIMIZED, on);
}

void PlasmaSession::setFullscreen(WId id, bool on)
{
    setState(id, ORG_KDE_PLASMA_WINDOW_MANAGEMENT_STATE_FULLSCREEN, on);
}

void PlasmaSession::scroll(bool up)
{
    if (!m_fakeInput)
        return;
    org_kde_kwin_fake_input_axis(m_fakeInput, WL_POINTER_AXIS_VERTICAL_SCROLL,
        wl_fixed_from_int(up ? -wheelStep : wheelStep));
    connection()->flush();
}

void PlasmaSession::pressChord(const QList<unsigned> &modifierKeycodes, unsigned keycode)
{
    if (!(capabilities() & Keys) || keycode < 8)
        return;
    // KWin runs the keys through its own keymap, modifiers included; codes are evdev codes,
    // XKB's less 8.
    auto key = [this](unsigned code, bool press) {
        org_kde_kwin_fake_input_keyboard_key(m_fakeInput, code - 8,
            press ? WL_KEYBOARD_KEY_STATE_PRESSED : WL_KEYBOARD_KEY_STATE_RELEASED);
    };
    QList<unsigned> modifiers;
    for (unsigned modifier : modifierKeycodes) {
        if (modifier >= 8)
            modifiers << modifier;
    }
    pressInChordOrder(modifiers, keycode, key);
    connection()->flush();
}
