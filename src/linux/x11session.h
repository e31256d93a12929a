#pragma once

#include <QByteArray>
#include <QHash>
#include <QIcon>
#include <QList>
#include <QObject>
#include <QString>
#include <QWindow>

#include "windowsession.h"

struct xkb_context;
typedef struct xcb_connection_t xcb_connection_t;

// The X11 desktop (also XWayland windows): the window list with its changes, the active window,
// window state requests through the window manager, and synthetic input through XTest with the
// keyboard layout read by xkbcommon. Without an X server it reports itself unavailable.
class X11Session : public WindowSession
{
    Q_OBJECT
public:
    explicit X11Session(QObject *parent = nullptr);
    ~X11Session() override;

    // An X server is there and Qt talks to it.
    static bool available();

    QString kind() const override { return QStringLiteral("X11"); }
    Capabilities capabilities() const override;
    QList<WId> windows() const override;
    QList<WId> stackingOrder() const override;
    WId activeWindow() const override;
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

private:
    void fakeKey(unsigned keycode, bool press);
    xcb_connection_t *connection = nullptr;
    xkb_context *context = nullptr;
};
