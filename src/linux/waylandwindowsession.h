#pragma once

#include "windowsession.h"

#include <QHash>
#include <QList>

class WaylandConnection;
struct WaylandListener;
class WaylandSeat;
struct xkb_context;

// What the Wayland sessions share: the connection and the seat, the keymap of the seat's
// keyboard, and the list of windows with the order in which they were last active (a
// compositor tells which window is active, not how windows are stacked).
class WaylandWindowSession : public WindowSession
{
    Q_OBJECT
public:
    // Takes the connection.
    explicit WaylandWindowSession(WaylandConnection *connection, QObject *parent = nullptr);
    ~WaylandWindowSession() override;

    QList<WId> windows() const override { return m_order; }
    QList<WId> stackingOrder() const override { return m_order; }
    WId activeWindow() const override { return m_active; }
    DesktopWindow window(WId id) const override { return m_windows.value(id); }
    // Windows carry no icon here; the app id usually names one in the icon theme.
    QIcon windowIcon(WId id) const override;
    // What the compositor offers, and what was bound of it.
    WaylandConnection *connection() const { return m_connection; }

protected:
    WaylandSeat *seat() const { return m_seat; }
    xkb_context *context() const { return m_context; }
    // A window as the compositor now describes it: listed when new, announced when changed,
    // made the active one when it is.
    void publish(const DesktopWindow &info, bool activated);
    // A window is gone.
    void withdraw(WId id);
    // Every window is gone, with the connection.
    void withdrawAll();
    // A new keymap from the seat has been taken.
    virtual void keymapTaken() { }
    // Lets go of the session's own proxies, when the connection is lost.
    virtual void releaseProxies() { }
    // Compiles the keymap text; null when it cannot be read.
    xkb_keymap *compile(const QByteArray &text) const;
    // The keymap in XKB's text format, as libxkbcommon writes it.
    static QByteArray textOf(xkb_keymap *keymap);

private:
    void onKeymap(const QByteArray &text);

    WaylandConnection *m_connection = nullptr;
    WaylandSeat *m_seat = nullptr;
    xkb_context *m_context = nullptr;
    QHash<WId, DesktopWindow> m_windows;
    // Least to most recently active.
    QList<WId> m_order;
    WId m_active = 0;
};
