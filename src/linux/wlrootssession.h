#pragma once

#include "waylandwindowsession.h"

#include <QHash>

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
class WlrootsSession : public WaylandWindowSession
{
    Q_OBJECT
public:
    // Takes the connection; usable when `offeredBy(connection)`.
    explicit WlrootsSession(WaylandConnection *connection, QObject *parent = nullptr);
    ~WlrootsSession() override;

    // The compositor offers the window list.
    static bool offeredBy(const WaylandConnection *connection);
    // What the session binds, with the version each of its listeners answers.
    static QList<WaylandListener> listeners();

    QString kind() const override { return QStringLiteral("wlroots"); }
    Capabilities capabilities() const override;

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
    void onManagerFinished();

protected:
    void keymapTaken() override;
    void releaseProxies() override;

public:
    // What a compositor, by its process name, offers in the protocol but does not do.
    struct IgnoredRequests
    {
        const char *compositor;
        bool minimize;
        bool maximize;
    };
    static IgnoredRequests ignoredBy(const QByteArray &compositor);

private:
    Toplevel *find(WId id) const { return m_toplevels.value(id); }
    void uploadKeymap();

    // The compositor ignores these requests although it offers them.
    bool m_ignoresMinimize = false;
    bool m_ignoresMaximize = false;
    zwlr_foreign_toplevel_manager_v1 *m_manager = nullptr;
    uint32_t m_managerVersion = 0;
    zwp_virtual_keyboard_manager_v1 *m_keyboardManager = nullptr;
    zwp_virtual_keyboard_v1 *m_virtualKeyboard = nullptr;
    zwlr_virtual_pointer_manager_v1 *m_pointerManager = nullptr;
    zwlr_virtual_pointer_v1 *m_virtualPointer = nullptr;
    // The keymap text the virtual keyboard carries now.
    QByteArray m_uploaded;
    QHash<WId, Toplevel *> m_toplevels;
    WId m_nextId = 1;
};
