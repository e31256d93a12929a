#include <atspi/atspi.h>

#include "accessibility.h"

#include "linuxlogging.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusReply>
#include <QDBusVariant>
#include <QFile>
#include <QTimer>

#include <cerrno>
#include <signal.h>

namespace {
const QString a11yService = QStringLiteral("org.a11y.Bus");
const QString a11yPath = QStringLiteral("/org/a11y/bus");
const QString statusInterface = QStringLiteral("org.a11y.Status");
const QString propertiesInterface = QStringLiteral("org.freedesktop.DBus.Properties");
// Applications that answer slowly must not hold the program up for long.
constexpr int callTimeout = 1500;

bool busThere()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    return bus.isConnected() && bus.interface()
        && bus.interface()->isServiceRegistered(a11yService).value();
}
} // namespace

Accessibility::Accessibility(QObject *parent)
    : QObject(parent)
{ }

Accessibility::~Accessibility()
{
    if (listener) {
        atspi_event_listener_deregister(listener, "object:state-changed:focused", nullptr);
        g_object_unref(listener);
    }
}

bool Accessibility::enabled()
{
    if (!busThere())
        return false;
    QDBusMessage get = QDBusMessage::createMethodCall(
        a11yService, a11yPath, propertiesInterface, QStringLiteral("Get"));
    get << statusInterface << QStringLiteral("IsEnabled");
    const QDBusReply<QDBusVariant> reply
        = QDBusConnection::sessionBus().call(get, QDBus::Block, callTimeout);
    return reply.isValid() && reply.value().variant().toBool();
}

bool Accessibility::requestEnabled()
{
    if (!busThere())
        return false;
    QDBusMessage set = QDBusMessage::createMethodCall(
        a11yService, a11yPath, propertiesInterface, QStringLiteral("Set"));
    set << statusInterface << QStringLiteral("IsEnabled")
        << QVariant::fromValue(QDBusVariant(true));
    const QDBusMessage reply = QDBusConnection::sessionBus().call(set, QDBus::Block, callTimeout);
    if (reply.type() == QDBusMessage::ErrorMessage) {
        qCWarning(lcLinuxA11y) << "Cannot switch accessibility on:" << reply.errorMessage();
        return false;
    }
    return true;
}

bool Accessibility::start()
{
    if (listener)
        return true;
    if (!busThere())
        return false;
    // AT-SPI talks on the GLib main loop, which is Qt's event loop here.
    if (atspi_init() > 1) {
        qCWarning(lcLinuxA11y) << "Cannot connect to the accessibility bus";
        return false;
    }
    atspi_set_timeout(callTimeout, 15000);
    listener = atspi_event_listener_new(&Accessibility::onEvent, this, nullptr);
    GError *error = nullptr;
    if (!atspi_event_listener_register(listener, "object:state-changed:focused", &error)) {
        qCWarning(lcLinuxA11y) << "Cannot follow the focus:" << (error ? error->message : "");
        g_clear_error(&error);
        g_object_unref(listener);
        listener = nullptr;
        return false;
    }
    return true;
}

void Accessibility::onEvent(AtspiEvent *event, void *data)
{
    auto *self = static_cast<Accessibility *>(data);
    const Accessible source = Accessible::share(event->source);
    const bool gained = event->detail1 != 0;
    g_boxed_free(ATSPI_TYPE_EVENT, event);
    const int pid = source.processId();
    if (pid <= 0)
        return;
    if (gained) {
        // Processes that ended while they had the focus leave no trace.
        for (auto entry = self->focused.begin(); entry != self->focused.end();) {
            if (::kill(entry.key(), 0) != 0 && errno == ESRCH)
                entry = self->focused.erase(entry);
            else
                ++entry;
        }
        self->focused.insert(pid, source);
        emit self->focusChanged(pid, source);
    } else if (self->focused.value(pid) == source) {
        self->focused.remove(pid);
    }
}

Accessible Accessibility::application(int pid) const
{
    if (!listener || pid <= 0)
        return Accessible();
    const Accessible desktop = Accessible::adopt(atspi_get_desktop(0));
    const QVector<Accessible> applications = desktop.children();
    for (const Accessible &application : applications) {
        if (application.processId() == pid)
            return application;
    }
    return Accessible();
}

Accessible Accessibility::focusedElement(int pid) const { return focused.value(pid); }

namespace {
const char *const frameEvents[]
    = { "window:create", "window:destroy", "window:activate", "window:deactivate" };
// How often frames of ended processes are looked for, while there are frames.
constexpr int pruneInterval = 2000;

bool processGone(int pid)
{
    if (pid <= 0 || (::kill(pid, 0) != 0 && errno == ESRCH))
        return true;
    // A zombie has ended too; only its parent has not been told yet.
    QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!stat.open(QIODevice::ReadOnly))
        return true;
    const QByteArray line = stat.readAll();
    const int end = line.lastIndexOf(')');
    return end > 0 && line.mid(end + 2, 1) == "Z";
}
} // namespace

AccessibleFrames::AccessibleFrames(QObject *parent)
    : QObject(parent)
{
    pruneTimer = new QTimer(this);
    pruneTimer->setInterval(pruneInterval);
    connect(pruneTimer, &QTimer::timeout, this, &AccessibleFrames::prune);
}

void AccessibleFrames::prune()
{
    for (int i = known.size() - 1; i >= 0; --i) {
        if (processGone(processes.at(i)))
            remove(i);
    }
}

void AccessibleFrames::remove(int index)
{
    const Accessible frame = known.takeAt(index);
    processes.removeAt(index);
    if (known.isEmpty())
        pruneTimer->stop();
    emit frameRemoved(frame);
}

AccessibleFrames::~AccessibleFrames()
{
    if (!listener)
        return;
    for (const char *event : frameEvents)
        atspi_event_listener_deregister(listener, event, nullptr);
    g_object_unref(listener);
}

bool AccessibleFrames::start()
{
    if (listener)
        return true;
    if (!busThere() || atspi_init() > 1)
        return false;
    listener = atspi_event_listener_new(&AccessibleFrames::onEvent, this, nullptr);
    for (const char *event : frameEvents) {
        GError *error = nullptr;
        if (!atspi_event_listener_register(listener, event, &error)) {
            qCWarning(lcLinuxA11y) << "Cannot follow windows:" << (error ? error->message : "");
            g_clear_error(&error);
        }
    }
    const Accessible desktop = Accessible::adopt(atspi_get_desktop(0));
    for (const Accessible &application : desktop.children()) {
        for (const Accessible &child : application.children(100)) {
            if (child.kind() == Accessible::Frame && child.isShowing())
                add(child);
        }
    }
    return true;
}

void AccessibleFrames::add(const Accessible &frame)
{
    if (frame.isNull() || known.contains(frame))
        return;
    known.append(frame);
    processes.append(frame.processId());
    pruneTimer->start();
    emit frameAdded(frame);
    if (frame.isActive())
        emit frameActivated(frame);
}

void AccessibleFrames::onEvent(AtspiEvent *event, void *data)
{
    auto *self = static_cast<AccessibleFrames *>(data);
    const Accessible source = Accessible::share(event->source);
    const QByteArray type(event->type);
    g_boxed_free(ATSPI_TYPE_EVENT, event);
    if (type == "window:destroy") {
        if (const int index = self->known.indexOf(source); index >= 0)
            self->remove(index);
        return;
    }
    if (source.kind() != Accessible::Frame)
        return;
    // A frame that was there before we looked is known from its first event.
    if (!self->known.contains(source)) {
        self->add(source);
        if (type == "window:activate")
            return;
    }
    if (type == "window:activate")
        emit self->frameActivated(source);
    else if (type == "window:deactivate")
        emit self->frameDeactivated(source);
}
