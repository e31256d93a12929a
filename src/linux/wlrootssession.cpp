#include "wlrootssession.h"

#include "linuxlogging.h"
#include "waylandconnection.h"

#include "virtual-keyboard-unstable-v1-client-protocol.h"
#include "wlr-foreign-toplevel-management-unstable-v1-client-protocol.h"
#include "wlr-virtual-pointer-unstable-v1-client-protocol.h"

#include <QDateTime>

#include <sys/mman.h>
#include <unistd.h>
#include <wayland-client.h>
#include <xkbcommon/xkbcommon.h>

struct WlrootsSession::Toplevel
{
    WlrootsSession *session = nullptr;
    zwlr_foreign_toplevel_handle_v1 *handle = nullptr;
    DesktopWindow info;
    // What arrives between two "done" events.
    QString title;
    QByteArray appId;
    bool minimized = false, maximized = false, activated = false, fullscreen = false;
    bool hasParent = false;
};

namespace {
using Toplevel = WlrootsSession::Toplevel;

// A wheel step as a mouse wheel reports it: 15 degrees, one click.
constexpr int wheelStep = 15;

void onTitle(void *data, zwlr_foreign_toplevel_handle_v1 *, const char *title)
{
    static_cast<Toplevel *>(data)->title = QString::fromUtf8(title);
}

void onAppId(void *data, zwlr_foreign_toplevel_handle_v1 *, const char *appId)
{
    static_cast<Toplevel *>(data)->appId = QByteArray(appId);
}

void onOutputEnter(void *, zwlr_foreign_toplevel_handle_v1 *, wl_output *) { }
void onOutputLeave(void *, zwlr_foreign_toplevel_handle_v1 *, wl_output *) { }

void onState(void *data, zwlr_foreign_toplevel_handle_v1 *, wl_array *states)
{
    auto *toplevel = static_cast<Toplevel *>(data);
    toplevel->minimized = toplevel->maximized = toplevel->activated = toplevel->fullscreen = false;
    const auto *state = static_cast<const uint32_t *>(states->data);
    for (size_t i = 0; i < states->size / sizeof(uint32_t); ++i) {
        switch (state[i]) {
        case ZWLR_FOREIGN_TOPLEVEL_HANDLE_V1_STATE_MINIMIZED:
            toplevel->minimized = true;
            break;
        case ZWLR_FOREIGN_TOPLEVEL_HANDLE_V1_STATE_MAXIMIZED:
            toplevel->maximized = true;
            break;
        case ZWLR_FOREIGN_TOPLEVEL_HANDLE_V1_STATE_ACTIVATED:
            toplevel->activated = true;
            break;
        case ZWLR_FOREIGN_TOPLEVEL_HANDLE_V1_STATE_FULLSCREEN:
            toplevel->fullscreen = true;
            break;
        default:
            break;
        }
    }
}

void onDone(void *data, zwlr_foreign_toplevel_handle_v1 *)
{
    auto *toplevel = static_cast<Toplevel *>(data);
    toplevel->session->onDone(toplevel);
}

void onClosed(void *data, zwlr_foreign_toplevel_handle_v1 *)
{
    auto *toplevel = static_cast<Toplevel *>(data);
    toplevel->session->onClosed(toplevel);
}

void onParent(
    void *data, zwlr_foreign_toplevel_handle_v1 *, zwlr_foreign_toplevel_handle_v1 *parent)
{
    static_cast<Toplevel *>(data)->hasParent = parent != nullptr;
}

// The version of foreign-toplevel whose every event the listeners answer (the protocol's
// file here is of that version); handles come from the manager, at its version.
constexpr uint32_t foreignToplevelVersion = 3;
// The virtual devices have no events; version 1 has everything used here.
constexpr uint32_t virtualKeyboardVersion = 1;
constexpr uint32_t virtualPointerVersion = 1;

const zwlr_foreign_toplevel_handle_v1_listener toplevelListener = [] {
    zwlr_foreign_toplevel_handle_v1_listener listener {};
    listener.title = onTitle;
    listener.app_id = onAppId;
    listener.output_enter = onOutputEnter;
    listener.output_leave = onOutputLeave;
    listener.state = onState;
    listener.done = onDone;
    listener.closed = onClosed;
    listener.parent = onParent;
    return listener;
}();

void onManagerToplevel(
    void *data, zwlr_foreign_toplevel_manager_v1 *, zwlr_foreign_toplevel_handle_v1 *handle)
{
    static_cast<WlrootsSession *>(data)->onToplevel(handle);
}

void onManagerFinished(void *data, zwlr_foreign_toplevel_manager_v1 *)
{
    static_cast<WlrootsSession *>(data)->onManagerFinished();
}

const zwlr_foreign_toplevel_manager_v1_listener managerListener = [] {
    zwlr_foreign_toplevel_manager_v1_listener listener {};
    listener.toplevel = onManagerToplevel;
    listener.finished = onManagerFinished;
    return listener;
}();

} // namespace

namespace {
// Compositors that offer a window request in the protocol and leave the window as it is, known
// by the name of the process at the other end of the socket. What one ignores is listed in
// `unsupported` instead of answered as if done. How each entry was established:
// - sway: run here (1.7 on the rig, 1.10.1 in Debian 13); it tiles, and leaves minimised and
//   maximised windows as they are (tst_wayland).
// - Hyprland: read from 0.57's handling of zwlr_foreign_toplevel_handle_v1, not run (it needs
//   a GPU device these machines lack): set_minimized only posts an event on Hyprland's own
//   event socket; set_maximized gives its maximised full-screen mode, which does maximise.
constexpr WlrootsSession::IgnoredRequests ignoredRequests[] = {
    { "sway", true, true },
    { "Hyprland", true, false },
};
} // namespace

WlrootsSession::IgnoredRequests WlrootsSession::ignoredBy(const QByteArray &compositor)
{
    for (const IgnoredRequests &entry : ignoredRequests) {
        if (compositor == entry.compositor)
            return entry;
    }
    return { "", false, false };
}

bool WlrootsSession::offeredBy(const WaylandConnection *connection)
{
    return connection->isConnected()
        && connection->has(zwlr_foreign_toplevel_manager_v1_interface.name);
}

WlrootsSession::WlrootsSession(WaylandConnection *connection, QObject *parent)
    : WaylandWindowSession(connection, parent)
{
    const QByteArray compositor = connection->compositorName();
    const IgnoredRequests ignored = ignoredBy(compositor);
    m_ignoresMinimize = ignored.minimize;
    m_ignoresMaximize = ignored.maximize;
    const QList<WaylandListener> bound = listeners();
    m_manager = static_cast<zwlr_foreign_toplevel_manager_v1 *>(connection->bind(bound[0], this));
    m_managerVersion = connection->boundVersion(zwlr_foreign_toplevel_manager_v1_interface.name);
    m_keyboardManager
        = static_cast<zwp_virtual_keyboard_manager_v1 *>(connection->bind(bound[2], this));
    m_pointerManager
        = static_cast<zwlr_virtual_pointer_manager_v1 *>(connection->bind(bound[3], this));
    // The seat's capabilities, then the keymap of its keyboard: the user's layout, which the
    // virtual keyboard then carries too.
    connection->roundtrip();
    connection->roundtrip();
    wl_seat *wlSeat = seat()->seat();
    if (wlSeat && m_keyboardManager) {
        if (!hasLayout() && context()) {
            // No keyboard on the seat yet: the layout the environment names, else US.
            setKeymap(xkb_keymap_new_from_names(context(), nullptr, XKB_KEYMAP_COMPILE_NO_FLAGS));
        }
        m_virtualKeyboard
            = zwp_virtual_keyboard_manager_v1_create_virtual_keyboard(m_keyboardManager, wlSeat);
        uploadKeymap();
    }
    if (m_pointerManager)
        m_virtualPointer
            = zwlr_virtual_pointer_manager_v1_create_virtual_pointer(m_pointerManager, wlSeat);
    // A new device's first events can be lost while the compositor sets it up.
    connection->roundtrip();
    qCInfo(lcLinux).noquote() << "Windows and input through the compositor"
                              << (compositor.isEmpty() ? QByteArrayLiteral("(unknown)")
                                                       : compositor)
                              << "(wlroots protocols)";
}

WlrootsSession::~WlrootsSession() { releaseProxies(); }

QList<WaylandListener> WlrootsSession::listeners()
{
    return {
        { &zwlr_foreign_toplevel_manager_v1_interface, &managerListener, foreignToplevelVersion },
        { &zwlr_foreign_toplevel_handle_v1_interface, &toplevelListener, foreignToplevelVersion },
        { &zwp_virtual_keyboard_manager_v1_interface, nullptr, virtualKeyboardVersion },
        { &zwlr_virtual_pointer_manager_v1_interface, nullptr, virtualPointerVersion },
    };
}

void WlrootsSession::releaseProxies()
{
    // Every proxy goes before the connection that owns it.
    for (Toplevel *toplevel : qAsConst(m_toplevels)) {
        zwlr_foreign_toplevel_handle_v1_destroy(toplevel->handle);
        delete toplevel;
    }
    m_toplevels.clear();
    if (m_virtualKeyboard)
        zwp_virtual_keyboard_v1_destroy(m_virtualKeyboard);
    if (m_virtualPointer)
        zwlr_virtual_pointer_v1_destroy(m_virtualPointer);
    if (m_pointerManager)
        zwlr_virtual_pointer_manager_v1_destroy(m_pointerManager);
    if (m_keyboardManager)
        zwp_virtual_keyboard_manager_v1_destroy(m_keyboardManager);
    if (m_manager)
        zwlr_foreign_toplevel_manager_v1_destroy(m_manager);
    m_virtualKeyboard = nullptr;
    m_virtualPointer = nullptr;
    m_pointerManager = nullptr;
    m_keyboardManager = nullptr;
    m_manager = nullptr;
}

WindowSession::Capabilities WlrootsSession::capabilities() const
{
    Capabilities result;
    if (!m_manager)
        return result;
    result |= ListWindows | Close;
    if (seat()->seat())
        result |= Activate;
    if (!m_ignoresMinimize)
        result |= Minimize;
    if (!m_ignoresMaximize)
        result |= Maximize;
    if (fullscreenSupported())
        result |= Fullscreen;
    if (m_virtualKeyboard && hasLayout())
        result |= Keys;
    if (m_virtualPointer)
        result |= Scroll;
    return result;
}

void WlrootsSession::onToplevel(zwlr_foreign_toplevel_handle_v1 *handle)
{
    auto *toplevel = new Toplevel;
    toplevel->session = this;
    toplevel->handle = handle;
    toplevel->info.id = m_nextId++;
    m_toplevels.insert(toplevel->info.id, toplevel);
    zwlr_foreign_toplevel_handle_v1_add_listener(handle, &toplevelListener, toplevel);
}

void WlrootsSession::onDone(Toplevel *toplevel)
{
    DesktopWindow &info = toplevel->info;
    info.title = toplevel->title;
    // The app id names the desktop entry as a GTK application id or a KDE desktop file name
    // does, and stands for the class where an entry's StartupWMClass is matched.
    info.desktopFileName = toplevel->appId;
    info.className = toplevel->appId;
    info.instanceName = toplevel->appId;
    info.regular = !toplevel->hasParent;
    info.minimized = toplevel->minimized;
    info.maximized = toplevel->maximized;
    info.fullscreen = toplevel->fullscreen;
    info.fullscreenAllowed = fullscreenSupported();
    publish(info, toplevel->activated);
}

void WlrootsSession::onClosed(Toplevel *toplevel)
{
    const WId id = toplevel->info.id;
    m_toplevels.remove(id);
    zwlr_foreign_toplevel_handle_v1_destroy(toplevel->handle);
    delete toplevel;
    withdraw(id);
}

void WlrootsSession::onManagerFinished()
{
    // The compositor stops telling about windows; the manager is of no use any more.
    qCWarning(lcLinux) << "The compositor stopped listing windows";
    zwlr_foreign_toplevel_manager_v1_destroy(m_manager);
    m_manager = nullptr;
    emit capabilitiesChanged();
}

void WlrootsSession::activate(WId id)
{
    if (Toplevel *toplevel = find(id); toplevel && seat()->seat()) {
        zwlr_foreign_toplevel_handle_v1_activate(toplevel->handle, seat()->seat());
        connection()->flush();
    }
}

void WlrootsSession::minimize(WId id)
{
    if (Toplevel *toplevel = find(id)) {
        zwlr_foreign_toplevel_handle_v1_set_minimized(toplevel->handle);
        connection()->flush();
    }
}

void WlrootsSession::close(WId id)
{
    if (Toplevel *toplevel = find(id)) {
        zwlr_foreign_toplevel_handle_v1_close(toplevel->handle);
        connection()->flush();
    }
}

void WlrootsSession::setMaximized(WId id, bool on)
{
    if (Toplevel *toplevel = find(id)) {
        if (on)
            zwlr_foreign_toplevel_handle_v1_set_maximized(toplevel->handle);
        else
            zwlr_foreign_toplevel_handle_v1_unset_maximized(toplevel->handle);
        connection()->flush();
    }
}

void WlrootsSession::setFullscreen(WId id, bool on)
{
    Toplevel *toplevel = find(id);
    if (!toplevel || !fullscreenSupported())
        return;
    if (on)
        zwlr_foreign_toplevel_handle_v1_set_fullscreen(toplevel->handle, nullptr);
    else
        zwlr_foreign_toplevel_handle_v1_unset_fullscreen(toplevel->handle);
    connection()->flush();
}

bool WlrootsSession::fullscreenSupported() const
{
    return m_manager
        && m_managerVersion >= ZWLR_FOREIGN_TOPLEVEL_HANDLE_V1_SET_FULLSCREEN_SINCE_VERSION;
}

void WlrootsSession::scroll(bool up)
{
    if (!m_virtualPointer)
        return;
    const auto time = uint32_t(QDateTime::currentMSecsSinceEpoch());
    zwlr_virtual_pointer_v1_axis_source(m_virtualPointer, WL_POINTER_AXIS_SOURCE_WHEEL);
    zwlr_virtual_pointer_v1_axis_discrete(m_virtualPointer, time, WL_POINTER_AXIS_VERTICAL_SCROLL,
        wl_fixed_from_int(up ? -wheelStep : wheelStep), up ? -1 : 1);
    zwlr_virtual_pointer_v1_frame(m_virtualPointer);
    connection()->flush();
}

void WlrootsSession::pressChord(const QList<unsigned> &modifierKeycodes, unsigned keycode)
{
    if (!m_virtualKeyboard || !hasLayout() || keycode < 8)
        return;
    // The compositor takes the modifier state as it is told, not from the keys: it follows
    // the keys here through a state of our own.
    xkb_state *state = xkb_state_new(keymap());
    if (!state)
        return;
    const auto time = uint32_t(QDateTime::currentMSecsSinceEpoch());
    auto key = [&](unsigned code, bool press) {
        // Wayland key codes are evdev codes, XKB's less 8.
        zwp_virtual_keyboard_v1_key(m_virtualKeyboard, time, code - 8,
            press ? WL_KEYBOARD_KEY_STATE_PRESSED : WL_KEYBOARD_KEY_STATE_RELEASED);
        if (xkb_state_update_key(state, code, press ? XKB_KEY_DOWN : XKB_KEY_UP) != 0) {
            zwp_virtual_keyboard_v1_modifiers(m_virtualKeyboard,
                xkb_state_serialize_mods(state, XKB_STATE_MODS_DEPRESSED),
                xkb_state_serialize_mods(state, XKB_STATE_MODS_LATCHED),
                xkb_state_serialize_mods(state, XKB_STATE_MODS_LOCKED),
                xkb_state_serialize_layout(state, XKB_STATE_LAYOUT_EFFECTIVE));
        }
    };
    QList<unsigned> modifiers;
    for (unsigned modifier : modifierKeycodes) {
        if (modifier >= 8)
            modifiers << modifier;
    }
    pressInChordOrder(modifiers, keycode, key);
    xkb_state_unref(state);
    connection()->flush();
}

void WlrootsSession::keymapTaken() { uploadKeymap(); }

void WlrootsSession::uploadKeymap()
{
    if (!m_virtualKeyboard || !hasLayout())
        return;
    // Our own keymap comes back once the virtual keyboard is the seat's: not sent again.
    const QByteArray text = textOf(keymap());
    if (text == m_uploaded)
        return;
    const int fd = memfd_create("velm-keymap", MFD_CLOEXEC);
    if (fd < 0 || write(fd, text.constData(), size_t(text.size()) + 1) != text.size() + 1) {
        qCWarning(lcLinux) << "Cannot hand the keymap to the compositor:" << strerror(errno);
        if (fd >= 0)
            ::close(fd);
        return;
    }
    zwp_virtual_keyboard_v1_keymap(
        m_virtualKeyboard, WL_KEYBOARD_KEYMAP_FORMAT_XKB_V1, fd, uint32_t(text.size()) + 1);
    ::close(fd);
    m_uploaded = text;
    connection()->flush();
}
