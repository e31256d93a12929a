#include "idle.h"

#include "constants.h"
#include "linuxlogging.h"

#include <QDBusConnection>
#include <QDBusInterface>
#include <QDBusReply>

Q_LOGGING_CATEGORY(lcLinuxIdle, "velm.linux.idle")

namespace {

const QString service = QStringLiteral("org.freedesktop.ScreenSaver");
const QString path = QStringLiteral("/org/freedesktop/ScreenSaver");

// The inhibition cookie of the display assertion; 0 when none is held.
uint displayCookie = 0;
bool missingReported = false;

bool screenSaverCall(const QString &method, const QList<QVariant> &arguments, uint *cookie)
{
    QDBusInterface screenSaver(service, path, service, QDBusConnection::sessionBus());
    QDBusMessage reply = screenSaver.callWithArgumentList(QDBus::Block, method, arguments);
    if (reply.type() == QDBusMessage::ErrorMessage) {
        // A desktop without the service: say so once, then stay quiet.
        if (!missingReported) {
            missingReported = true;
            qCWarning(lcLinuxIdle) << "Cannot keep the display awake:" << reply.errorMessage();
        }
        return false;
    }
    if (cookie && !reply.arguments().isEmpty())
        *cookie = reply.arguments().constFirst().toUInt();
    return true;
}

} // namespace

namespace Idle {

bool preventDisplaySleep(const QString &reason)
{
    return screenSaverCall(
        QStringLiteral("Inhibit"), { QString(Constants::NAME), reason }, &displayCookie);
}

bool allowDisplaySleep()
{
    if (!displayCookie)
        return false;
    const uint cookie = displayCookie;
    displayCookie = 0;
    return screenSaverCall(QStringLiteral("UnInhibit"), { cookie }, nullptr);
}

// Keeping the whole system awake goes through the session manager, which comes with the
// session backend.
bool preventSystemSleep(const QString &) { return false; }

bool allowSystemSleep() { return false; }

QString displayErrorMessage() { return QString(); }

QString systemErrorMessage() { return QString(); }

} // namespace Idle
