#pragma once

#include <QByteArray>
#include <QHash>
#include <QIcon>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QWindow>

#include <functional>

struct xkb_keymap;

// Presses the modifiers in order and the key, then releases the key and the modifiers in
// reverse order: how every mechanism types a chord.
void pressInChordOrder(const QList<unsigned> &modifiers, unsigned key,
    const std::function<void(unsigned key, bool press)> &press);

// What the desktop says about one top-level window.
struct DesktopWindow
{
    WId id = 0;
    // A normal window that a taskbar would show: what "regular" means on Linux.
    bool regular = false;
    QByteArray gtkApplicationId;
    QByteArray desktopFileName;
    QByteArray className; // WM_CLASS class part ("Firefox"); the app id on Wayland
    QByteArray instanceName; // WM_CLASS instance part ("Navigator"); the app id on Wayland
    // 0 where the desktop does not say.
    int pid = 0;
    QString title;
    bool minimized = false;
    bool maximized = false;
    bool fullscreen = false;
    bool fullscreenAllowed = false;
};

// The windows of other applications and synthetic input into them, through whatever the
// desktop session offers: an X server (also XWayland) or a Wayland compositor's own protocols.
// Window ids are the session's own; keycodes are XKB keycodes of the layout the session has.
class WindowSession : public QObject
{
    Q_OBJECT
public:
    // What a session can do; the platform lists the rest in `unsupported`.
    enum Capability {
        ListWindows = 0x1,
        // Brings a given window forward; without it, applications come forward through their
        // desktop entries.
        Activate = 0x2,
        Close = 0x4,
        Minimize = 0x8,
        Maximize = 0x10,
        Fullscreen = 0x20,
        Keys = 0x40,
        Scroll = 0x80,
        // Windows name their processes, which is how the accessibility bus knows them.
        ProcessIds = 0x100,
    };
    Q_DECLARE_FLAGS(Capabilities, Capability)

    explicit WindowSession(QObject *parent = nullptr);
    ~WindowSession() override;

    // "X11", "wlroots", ... for the log.
    virtual QString kind() const = 0;
    virtual Capabilities capabilities() const = 0;

    virtual QList<WId> windows() const = 0;
    // Bottom to top, or least to most recently active where the desktop has no stacking.
    virtual QList<WId> stackingOrder() const = 0;
    virtual WId activeWindow() const = 0;
    virtual DesktopWindow window(WId id) const = 0;
    // The icon the window carries itself, at the sizes it offers; null when it has none.
    virtual QIcon windowIcon(WId id) const;

    virtual void activate(WId id) = 0;
    virtual void minimize(WId id) = 0;
    virtual void close(WId id) = 0;
    virtual void setMaximized(WId id, bool on) = 0;
    virtual void setFullscreen(WId id, bool on) = 0;
    virtual bool fullscreenSupported() const = 0;

    // One wheel step at the pointer: up or down.
    virtual void scroll(bool up) = 0;
    // Presses the modifiers and the key, then releases them in reverse order.
    virtual void pressChord(const QList<unsigned> &modifierKeycodes, unsigned keycode) = 0;

    // The keycode that types `keysym` in the current layout (level 1 preferred), or 0.
    unsigned keycodeFor(unsigned keysym) const;
    // The keysym of the key's unshifted level; 0 when the layout has none.
    unsigned keysymAt(unsigned keycode) const;
    // Every keycode with the text its unshifted level types, for the key-name table.
    QHash<QByteArray, unsigned> layoutCharacters() const;
    bool hasLayout() const { return m_keymap != nullptr; }
    // Grows by one whenever the layout changes.
    int layoutGeneration() const { return m_layoutGeneration; }

signals:
    void windowAdded(WId id);
    void windowRemoved(WId id);
    void windowChanged(WId id);
    void activeWindowChanged(WId id);
    void capabilitiesChanged();

protected:
    // Takes the reference.
    void setKeymap(xkb_keymap *keymap);
    xkb_keymap *keymap() const { return m_keymap; }

private:
    xkb_keymap *m_keymap = nullptr;
    int m_layoutGeneration = 0;
};

Q_DECLARE_OPERATORS_FOR_FLAGS(WindowSession::Capabilities)
