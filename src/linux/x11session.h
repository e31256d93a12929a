#pragma once

#include <QByteArray>
#include <QHash>
#include <QIcon>
#include <QList>
#include <QObject>
#include <QString>
#include <QWindow>

struct xkb_context;
struct xkb_keymap;
typedef struct xcb_connection_t xcb_connection_t;

// What the desktop says about one top-level window.
struct X11Window
{
    WId id = 0;
    // A normal window that a taskbar would show: what "regular" means on Linux.
    bool regular = false;
    QByteArray gtkApplicationId;
    QByteArray desktopFileName;
    QByteArray className; // WM_CLASS class part ("Firefox")
    QByteArray instanceName; // WM_CLASS instance part ("Navigator")
    int pid = 0;
    QString title;
    bool minimized = false;
    bool maximized = false;
    bool fullscreen = false;
    bool fullscreenAllowed = false;
};

// The X11 desktop (also XWayland windows): the window list with its changes, the active window,
// window state requests through the window manager, and synthetic input through XTest with the
// keyboard layout read by xkbcommon. Everything the Linux backend does to other applications'
// windows goes through here; without an X server it reports itself unavailable.
class X11Session : public QObject
{
    Q_OBJECT
public:
    explicit X11Session(QObject *parent = nullptr);
    ~X11Session() override;

    // An X server is there and Qt talks to it.
    static bool available();

    QList<WId> windows() const;
    // Bottom to top.
    QList<WId> stackingOrder() const;
    WId activeWindow() const;
    X11Window window(WId id) const;
    // The icon the window carries itself (_NET_WM_ICON), at the sizes it offers.
    QIcon windowIcon(WId id) const;

    void activate(WId id);
    void minimize(WId id);
    void close(WId id);
    void setMaximized(WId id, bool on);
    void setFullscreen(WId id, bool on);
    bool fullscreenSupported() const;

    // One wheel step at the pointer: up or down.
    void scroll(bool up);
    // The keycode that types `keysym` in the current layout (level 1 preferred), or 0.
    unsigned keycodeFor(unsigned keysym) const;
    // Every keycode with the text its unshifted level types, for the key-name table.
    QHash<QByteArray, unsigned> layoutCharacters() const;
    bool hasLayout() const { return keymap != nullptr; }
    // Presses the modifiers and the key, then releases them in reverse order.
    void pressChord(const QList<unsigned> &modifierKeycodes, unsigned keycode);

signals:
    void windowAdded(WId id);
    void windowRemoved(WId id);
    void windowChanged(WId id);
    void activeWindowChanged(WId id);

private:
    void fakeKey(unsigned keycode, bool press);
    xcb_connection_t *connection = nullptr;
    xkb_context *context = nullptr;
    xkb_keymap *keymap = nullptr;
};
