#include "x11session.h"

#include "linuxlogging.h"

#include <KWindowInfo>
#include <KWindowSystem>
#include <KX11Extras>
#include <NETWM>
#include <QGuiApplication>
#include <QX11Info>

#include <xcb/xcb.h>
#include <xcb/xtest.h>
#include <xkbcommon/xkbcommon-x11.h>
#include <xkbcommon/xkbcommon.h>

namespace {
// Window types that never stand for an application.
constexpr NET::WindowTypes typeMask = NET::NormalMask | NET::DesktopMask | NET::DockMask
    | NET::ToolbarMask | NET::MenuMask | NET::DialogMask | NET::UtilityMask | NET::SplashMask
    | NET::TopMenuMask | NET::NotificationMask | NET::OnScreenDisplayMask;
} // namespace

X11Session::X11Session(QObject *parent)
    : WindowSession(parent)
{
    if (!available())
        return;
    connection = QX11Info::connection();
    KX11Extras *extras = KX11Extras::self();
    connect(extras, &KX11Extras::windowAdded, this, &X11Session::windowAdded);
    connect(extras, &KX11Extras::windowRemoved, this, &X11Session::windowRemoved);
    connect(extras, &KX11Extras::activeWindowChanged, this, &X11Session::activeWindowChanged);
    connect(extras,
        static_cast<void (KX11Extras::*)(WId, NET::Properties, NET::Properties2)>(
            &KX11Extras::windowChanged),
        this, [this](WId id, NET::Properties properties, NET::Properties2 properties2) {
            if (properties & (NET::WMState | NET::WMWindowType | NET::WMName | NET::WMPid)
                || properties2
                    & (NET::WM2WindowClass | NET::WM2DesktopFileName | NET::WM2GTKApplicationId))
                emit windowChanged(id);
        });

    // The keyboard layout of the core keyboard, as the server has it now.
    if (xkb_x11_setup_xkb_extension(connection, XKB_X11_MIN_MAJOR_XKB_VERSION,
            XKB_X11_MIN_MINOR_XKB_VERSION, XKB_X11_SETUP_XKB_EXTENSION_NO_FLAGS, nullptr, nullptr,
            nullptr, nullptr)) {
        context = xkb_context_new(XKB_CONTEXT_NO_FLAGS);
        const int32_t device = xkb_x11_get_core_keyboard_device_id(connection);
        if (context && device >= 0)
            setKeymap(xkb_x11_keymap_new_from_device(
                context, connection, device, XKB_KEYMAP_COMPILE_NO_FLAGS));
    }
    if (!hasLayout())
        qCWarning(lcLinux) << "No keyboard layout from the X server";
}

X11Session::~X11Session()
{
    // The keymap goes before its context.
    setKeymap(nullptr);
    if (context)
        xkb_context_unref(context);
}

WindowSession::Capabilities X11Session::capabilities() const
{
    if (!connection)
        return {};
    Capabilities all
        = ListWindows | Activate | Close | Minimize | Maximize | Keys | Scroll | ProcessIds;
    if (fullscreenSupported())
        all |= Fullscreen;
    return all;
}

bool X11Session::available()
{
    return KWindowSystem::isPlatformX11() && QX11Info::connection() != nullptr;
}

QList<WId> X11Session::windows() const { return connection ? KX11Extras::windows() : QList<WId>(); }

QList<WId> X11Session::stackingOrder() const
{
    return connection ? KX11Extras::stackingOrder() : QList<WId>();
}

WId X11Session::activeWindow() const { return connection ? KX11Extras::activeWindow() : 0; }

DesktopWindow X11Session::window(WId id) const
{
    DesktopWindow result;
    result.id = id;
    if (!connection)
        return result;
    const KWindowInfo info(id, NET::WMWindowType | NET::WMState | NET::WMPid | NET::WMName,
        NET::WM2WindowClass | NET::WM2DesktopFileName | NET::WM2GTKApplicationId
            | NET::WM2AllowedActions | NET::WM2TransientFor);
    if (!info.valid())
        return result;
    const NET::WindowType type = info.windowType(typeMask);
    // Untyped windows are normal unless they are transient for another (dialogs).
    const bool normal = type == NET::Normal || (type == NET::Unknown && !info.transientFor());
    result.regular = normal && !info.hasState(NET::SkipTaskbar);
    result.gtkApplicationId = info.gtkApplicationId();
    result.desktopFileName = info.desktopFileName();
    result.className = info.windowClassClass();
    result.instanceName = info.windowClassName();
    result.pid = info.pid();
    result.title = info.name();
    result.minimized = info.isMinimized();
    result.maximized = info.hasState(NET::Max);
    result.fullscreen = info.hasState(NET::FullScreen);
    result.fullscreenAllowed = info.actionSupported(NET::ActionFullScreen);
    return result;
}

QIcon X11Session::windowIcon(WId id) const
{
    QIcon icon;
    if (!connection)
        return icon;
    for (int size : { 32, 48, 128, 256 }) {
        const QPixmap pixmap = KX11Extras::icon(id, size, size, false, KX11Extras::NETWM);
        if (!pixmap.isNull() && !icon.availableSizes().contains(pixmap.size()))
            icon.addPixmap(pixmap);
    }
    return icon;
}

void X11Session::activate(WId id)
{
    if (!connection)
        return;
    if (KWindowInfo(id, NET::WMState).isMinimized())
        KX11Extras::unminimizeWindow(id);
    // As a pager asks: window managers honour that over their focus-stealing prevention.
    KX11Extras::forceActiveWindow(id);
    xcb_flush(connection);
}

void X11Session::minimize(WId id)
{
    if (!connection)
        return;
    KX11Extras::minimizeWindow(id);
    xcb_flush(connection);
}

void X11Session::close(WId id)
{
    if (!connection)
        return;
    NETRootInfo root(connection, NET::CloseWindow);
    root.closeWindowRequest(id);
    xcb_flush(connection);
}

void X11Session::setMaximized(WId id, bool on)
{
    if (!connection)
        return;
    NETWinInfo info(connection, id, QX11Info::appRootWindow(), NET::WMState, NET::Properties2());
    info.setState(on ? NET::Max : NET::States(), NET::Max);
    xcb_flush(connection);
}

void X11Session::setFullscreen(WId id, bool on)
{
    if (!connection)
        return;
    NETWinInfo info(connection, id, QX11Info::appRootWindow(), NET::WMState, NET::Properties2());
    info.setState(on ? NET::FullScreen : NET::States(), NET::FullScreen);
    xcb_flush(connection);
}

bool X11Session::fullscreenSupported() const
{
    if (!connection)
        return false;
    const NETRootInfo root(connection, NET::Supported);
    return root.isSupported(NET::FullScreen);
}

void X11Session::scroll(bool up)
{
    if (!connection)
        return;
    const uint8_t button = up ? 4 : 5;
    xcb_test_fake_input(connection, XCB_BUTTON_PRESS, button, XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
    xcb_test_fake_input(
        connection, XCB_BUTTON_RELEASE, button, XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
    xcb_flush(connection);
}

void X11Session::fakeKey(unsigned keycode, bool press)
{
    xcb_test_fake_input(connection, press ? XCB_KEY_PRESS : XCB_KEY_RELEASE, uint8_t(keycode),
        XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
}

void X11Session::pressChord(const QList<unsigned> &modifierKeycodes, unsigned keycode)
{
    if (!connection || !keycode)
        return;
    pressInChordOrder(
        modifierKeycodes, keycode, [this](unsigned code, bool press) { fakeKey(code, press); });
    xcb_flush(connection);
}
