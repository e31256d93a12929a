#pragma once

#include "waylandwindowsession.h"

#include <QHash>

struct org_kde_plasma_window_management;
struct org_kde_plasma_window;
struct org_kde_kwin_fake_input;

// KDE Plasma's KWin: windows through its window-management protocol (which also names each
// window's process), keys and scrolling through its fake-input protocol, which KWin treats as
// a keyboard of the user's own layout. KWin offers both only to programs whose installed
// desktop file lists them in X-KDE-Wayland-Interfaces.
class PlasmaSession : public WaylandWindowSession
{
    Q_OBJECT
public:
    // Takes the connection; usable when `offeredBy(connection)`.
    explicit PlasmaSession(WaylandConnection *connection, QObject *parent = nullptr);
    ~PlasmaSession() override;

    static bool offeredBy(const WaylandConnection *connection);
    // What the session binds, with the version each of its listeners answers.
    static QList<WaylandListener> listeners();

    QString kind() const override { return QStringLiteral("Plasma"); }
    Capabilities capabilities() const override;

    void activate(WId id) override;
    void minimize(WId id) override;
    void close(WId id) override;
    void setMaximized(WId id, bool on) override;
    void setFullscreen(WId id, bool on) override;
    bool fullscreenSupported() const override { return m_manager != nullptr; }

    void scroll(bool up) override;
    void pressChord(const QList<unsigned> &modifierKeycodes, unsigned keycode) override;

    // For libwayland.
    struct Window;
    void onWindow(uint32_t internalId, const char *uuid);
    void onChanged(Window *window);
    void onUnmapped(Window *window);

protected:
    void releaseProxies() override;

private:
    Window *find(WId id) const { return m_windows.value(id); }
    void setState(WId id, uint32_t flag, bool on);

    org_kde_plasma_window_management *m_manager = nullptr;
    uint32_t m_managerVersion = 0;
    org_kde_kwin_fake_input *m_fakeInput = nullptr;
    QHash<WId, Window *> m_windows;
    WId m_nextId = 1;
};
