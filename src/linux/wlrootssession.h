#pragma once

#include "windowsession.h"

#include <QHash>
#include <QList>
#include <QVector>

class WaylandConnection;
struct wl_seat;
struct wl_keyboard;
struct wl_array;
struct xkb_context;
struct zwlr_foreign_toplevel_manager_v1;
struct zwlr_foreign_toplevel_handle_v1;
struct zwp_virtual_keyboard_manager_v1;
struct zwp_virtual_keyboard_v1;
struct zwlr_virtual_pointer_manager_v1;
struct zwlr_virtual_pointer_v1;

// A wlroots compositor (sway, Hyprland, labwc, river, Wayfire): windows through the
// foreign-toplevel protocol, keys through a virtual keyboard carrying the user's layout, and
// scrolling through a virtual pointer. Windows of XWayland clients are listed there too, so
// nothing is counted twice.
class WlrootsSession : public WindowSession
{
    Q_OBJECT
public:
    // Takes the connection; usable when `offeredBy(connection)`.
    explicit WlrootsSession(WaylandConnection *connection, QObject *parent = nullptr);
    ~WlrootsSession() override;

    // The compositor offers the window list.
    static bool offeredBy(const WaylandConnection *connection);

    QString kind() const override { return QStringLiteral("wlroots"); }
    Capabilities capabilities() const override;
    QList<WId> windows() const override;
    QList<WId> stackingOrder() const override { return m_order; }
    WId activeWindow() const override { return m_active; }
    DesktopWindow window(WId id) const override;
    QIcon windowIcon(WId id) const override;

    void activate(WId id) override;
    void minimize(WId id) override;
    void close(WId id) override;
    void setMaximized(WId id, bool on) override;
    void setFullscreen(WId id, bool on) override;
    bool fullscreenSupported() const override;

    void scroll(bool up) override;
    void pressChord(const QList<unsigned> &modifierKeycodes, unsigned keycode) override;

    // For libwayland.
    struct Toplevel;
    void onToplevel(zwlr_foreign_toplevel_handle_v1 *handle);
    void onDone(Toplevel *toplevel);
    void onClosed(Toplevel *toplevel);
    void onKeymap(uint32_t format, int fd, uint32_t size);
    void onSeatCapabilities(uint32_t capabilities);
    void onManagerFinished();

private:
    Toplevel *find(WId id) const;
    void uploadKeymap();
    // Lets go of every object of the connection; with announce, says that the windows are gone.
    void releaseAll(bool announce);
    // Time stamps for synthetic input, in milliseconds.
    uint32_t now() const;

    WaylandConnection *m_connection = nullptr;
    // The compositor ignores these requests although it offers them.
    bool m_ignoresMinimize = false;
    bool m_ignoresMaximize = false;
    wl_seat *m_seat = nullptr;
    wl_keyboard *m_keyboard = nullptr;
    xkb_context *m_context = nullptr;
    zwlr_foreign_toplevel_manager_v1 *m_manager = nullptr;
    uint32_t m_managerVersion = 0;
    zwp_virtual_keyboard_manager_v1 *m_keyboardManager = nullptr;
    zwp_virtual_keyboard_v1 *m_virtualKeyboard = nullptr;
    zwlr_virtual_pointer_manager_v1 *m_pointerManager = nullptr;
    zwlr_virtual_pointer_v1 *m_virtualPointer = nullptr;
    // The keymap text the virtual keyboard carries now.
    QByteArray m_uploaded;
    QHash<WId, Toplevel *> m_toplevels;
    // Least to most recently active.
    QList<WId> m_order;
    WId m_active = 0;
    WId m_nextId = 1;
};
