#pragma once

#include "accessible.h"
#include "waylandwindowsession.h"

#include <QHash>

class AccessibleFrames;
class RemoteDesktopPortal;

// A desktop whose compositor tells other programs nothing about windows (GNOME, and any
// without the wlroots or Plasma protocols): the windows and the one in front come from the
// accessibility bus, keys and wheel steps go through the desktop portal's remote desktop
// (one consent, then remembered), and the front window is closed with Alt+F4 through it.
// Other programs' windows cannot be brought forward, minimised, maximised or put in full
// screen from here: applications are brought forward through their desktop entries instead.
class PortalSession : public WaylandWindowSession
{
    Q_OBJECT
public:
    // Takes the connection, which is used for the keymap only and may be unconnected.
    explicit PortalSession(WaylandConnection *connection, QObject *parent = nullptr);
    ~PortalSession() override;

    QString kind() const override { return QStringLiteral("portal"); }
    Capabilities capabilities() const override;

    void activate(WId id) override;
    void minimize(WId id) override;
    void close(WId id) override;
    void setMaximized(WId id, bool on) override;
    void setFullscreen(WId id, bool on) override;
    bool fullscreenSupported() const override { return false; }

    void scroll(bool up) override;
    void pressChord(const QList<unsigned> &modifierKeycodes, unsigned keycode) override;

private:
    WId idOf(const Accessible &frame) const;
    void onFrameAdded(const Accessible &frame);
    void onFrameRemoved(const Accessible &frame);
    void describe(WId id, const Accessible &frame, bool active);

    AccessibleFrames *m_frames = nullptr;
    RemoteDesktopPortal *m_portal = nullptr;
    QHash<WId, Accessible> m_windows;
    WId m_nextId = 1;
};
