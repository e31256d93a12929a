#include "desktop.h"

#include "mac.h"

#include <QCoreApplication>

bool desktop::canNotify() { return mac::canNotify(); }

void desktop::notify(const QString &title, const QString &subtitle, const QString &text)
{
    mac::notify(title, subtitle, text);
}

void desktop::showInFinder(const QString &path) { mac::showInFinder(path); }

bool desktop::isHiDPI() { return mac::isHiDPI(); }

QVariant desktop::lightFont(int size) { return mac::lightFont(size); }

QStringList desktop::accessibilitySteps()
{
    return { QCoreApplication::translate("desktop", "Open <b>System Settings</b>."),
        QCoreApplication::translate("desktop",
            "Go to <b>Privacy &amp; Security</b>, then "
            "<b>Accessibility</b>."),
        QCoreApplication::translate("desktop", "Turn on <b>Velm Server</b>.") };
}
