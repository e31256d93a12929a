#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QObject>

#include <functional>

struct wl_display;
struct wl_keyboard;
struct wl_registry;
struct wl_seat;
struct wl_interface;
class QSocketNotifier;

// A listener and the version of its interface up to which it has a function for every event.
// Each global is bound at no more than that version: libwayland aborts the program when an
// event arrives that its listener has no function for, and a newer compositor (or a newer
// protocol header) brings new events.
struct WaylandListener
{
    const wl_interface *interface = nullptr;
    // The listener struct, a row of function pointers; null for an interface without events.
    const void *functions = nullptr;
    uint32_t version = 0;
};

// The names of the events up to the listener's version that it has no function for.
QList<QByteArray> unansweredEvents(const WaylandListener &listener);

// A connection of our own to the Wayland compositor of the session, served by Qt's event loop
// whatever Qt itself draws with. It knows the compositor's globals from the start, so a
// session can tell which protocols it offers before it chooses how to work.
class WaylandConnection : public QObject
{
    Q_OBJECT
public:
    struct Global
    {
        uint32_t name = 0;
        uint32_t version = 0;
    };

    // Connects to WAYLAND_DISPLAY; isConnected() says whether that worked.
    explicit WaylandConnection(QObject *parent = nullptr);
    ~WaylandConnection() override;

    // The session is a Wayland one: WAYLAND_DISPLAY is set, or XDG_SESSION_TYPE says so.
    static bool sessionIsWayland();

    bool isConnected() const { return m_display != nullptr; }
    wl_display *display() const { return m_display; }
    bool has(const char *interface) const { return m_globals.contains(QByteArray(interface)); }
    // Binds the global at no more than the version the listener answers, and sets the
    // listener (for `data`); null when the compositor has none.
    void *bind(const WaylandListener &listener, void *data);
    // The version the compositor offers.
    uint32_t version(const char *interface) const;
    // The version a global was bound at; 0 when it was not.
    uint32_t boundVersion(const char *interface) const;
    // The process on the other end of the socket, e.g. "sway"; empty when unknown.
    QByteArray compositorName() const;

    // Sends what was asked for. Requests are queued by libwayland until flushed.
    void flush();
    // Waits for the compositor to answer everything sent so far; only for start-up, when
    // what follows depends on the answer.
    bool roundtrip();

signals:
    // The compositor went away or broke the connection; every object of it is gone.
    void lost();

public:
    // For libwayland.
    static void onGlobal(
        void *data, wl_registry *, uint32_t name, const char *interface, uint32_t version);
    static void onGlobalRemove(void *data, wl_registry *, uint32_t name);

private:
    void dispatch();
    void fail();

    wl_display *m_display = nullptr;
    wl_registry *m_registry = nullptr;
    QSocketNotifier *m_notifier = nullptr;
    QHash<QByteArray, Global> m_globals;
    QHash<QByteArray, uint32_t> m_bound;
};

// The compositor's seat and the keymap of its keyboard: the layout the user types with, told
// again whenever it changes.
class WaylandSeat : public QObject
{
    Q_OBJECT
public:
    explicit WaylandSeat(WaylandConnection *connection, QObject *parent = nullptr);
    ~WaylandSeat() override;

    // Null when the compositor has no seat.
    wl_seat *seat() const { return m_seat; }
    // Lets go of the proxies; for a connection that is going away.
    void release();
    // What the seat binds, with the version each of its listeners answers.
    static QList<WaylandListener> listeners();

    // For libwayland.
    void onCapabilities(uint32_t capabilities);
    void onKeymap(uint32_t format, int fd, uint32_t size);

signals:
    // The keymap in XKB's text format.
    void keymapReceived(const QByteArray &text);

private:
    wl_seat *m_seat = nullptr;
    wl_keyboard *m_keyboard = nullptr;
};
