#include "portalsession.h"

#include "accessibility.h"
#include "linuxlogging.h"
#include "remotedesktopportal.h"
#include "waylandconnection.h"

#include <QFileInfo>

#include <xkbcommon/xkbcommon.h>

PortalSession::PortalSession(WaylandConnection *connection, QObject *parent)
    : WaylandWindowSession(connection, parent)
{
    // The seat's keymap, when the compositor has one for us.
    connection->roundtrip();
    connection->roundtrip();
    if (!hasLayout() && context())
        setKeymap(xkb_keymap_new_from_names(context(), nullptr, XKB_KEYMAP_COMPILE_NO_FLAGS));

    m_portal = new RemoteDesktopPortal(this);
    connect(
        m_portal, &RemoteDesktopPortal::stateChanged, this, &WindowSession::capabilitiesChanged);
    m_frames = new AccessibleFrames(this);
    connect(m_frames, &AccessibleFrames::frameAdded, this, &PortalSession::onFrameAdded);
    connect(m_frames, &AccessibleFrames::frameRemoved, this, &PortalSession::onFrameRemoved);
    connect(m_frames, &AccessibleFrames::frameActivated, this, [this](const Accessible &frame) {
        if (const WId id = idOf(frame))
            describe(id, frame, true);
    });
    connect(m_frames, &AccessibleFrames::frameDeactivated, this, [this](const Accessible &frame) {
        if (const WId id = idOf(frame))
            describe(id, frame, false);
    });
    if (!m_frames->start())
        qCWarning(lcLinux) << "No accessibility bus: windows of other programs are unknown";
    qCInfo(lcLinux) << "Windows through the accessibility bus, input through the desktop portal";
}

PortalSession::~PortalSession()
{
    // The frames' listener goes before the windows it reports on.
    delete m_frames;
    m_frames = nullptr;
}

WindowSession::Capabilities PortalSession::capabilities() const
{
    Capabilities result;
    if (m_frames->isStarted())
        result |= ListWindows | ProcessIds;
    if (m_portal->isUsable())
        result |= Close | Keys | Scroll;
    return result;
}

WId PortalSession::idOf(const Accessible &frame) const
{
    for (auto it = m_windows.cbegin(); it != m_windows.cend(); ++it) {
        if (it.value() == frame)
            return it.key();
    }
    return 0;
}

void PortalSession::onFrameAdded(const Accessible &frame)
{
    const WId id = m_nextId++;
    m_windows.insert(id, frame);
    describe(id, frame, false);
}

void PortalSession::onFrameRemoved(const Accessible &frame)
{
    if (const WId id = idOf(frame)) {
        m_windows.remove(id);
        withdraw(id);
    }
}

void PortalSession::describe(WId id, const Accessible &frame, bool active)
{
    DesktopWindow info;
    info.id = id;
    info.regular = true;
    info.pid = frame.processId();
    info.title = frame.name();
    // The program's file name stands for the class: entries name it in StartupWMClass or as
    // their id, and the executable itself is matched against their Exec.
    const QByteArray program
        = QFileInfo(QStringLiteral("/proc/%1/exe").arg(info.pid)).symLinkTarget().toUtf8();
    info.className = info.instanceName = QFileInfo(QString::fromUtf8(program)).fileName().toUtf8();
    publish(info, active);
}

void PortalSession::activate(WId)
{
    // Only the compositor could; LinuxApp goes through the application's entry instead.
}

void PortalSession::minimize(WId) { }

void PortalSession::setMaximized(WId, bool) { }

void PortalSession::setFullscreen(WId, bool) { }

void PortalSession::close(WId id)
{
    if (id != activeWindow()) {
        qCWarning(lcLinux) << "Only the window in front can be closed on this desktop";
        return;
    }
    // As the user would: the desktop's own shortcut, which asks the window to close.
    m_portal->pressKeysyms({ XKB_KEY_Alt_L }, XKB_KEY_F4);
}

void PortalSession::scroll(bool up) { m_portal->scroll(up); }

void PortalSession::pressChord(const QList<unsigned> &modifierKeycodes, unsigned keycode)
{
    // The portal takes keysyms: those of the unshifted level of the keys, as the modifiers
    // then do their part.
    QList<unsigned> modifiers;
    for (unsigned code : modifierKeycodes) {
        if (const unsigned keysym = keysymAt(code))
            modifiers << keysym;
    }
    if (const unsigned keysym = keysymAt(keycode))
        m_portal->pressKeysyms(modifiers, keysym);
}
