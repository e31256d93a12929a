#include <atspi/atspi.h>

#include "accessibility.h"

#include "linuxlogging.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusReply>
#include <QDBusVariant>

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
