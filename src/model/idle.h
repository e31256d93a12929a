#pragma once

#include <QString>

// Keeps the display (or the system) awake while clients are connected. Each backend implements
// it with the system's own mechanism; callers pair prevent and allow calls.
namespace Idle {
bool preventDisplaySleep(const QString &reason);
bool allowDisplaySleep();
bool preventSystemSleep(const QString &reason);
bool allowSystemSleep();
QString displayErrorMessage();
QString systemErrorMessage();
} // namespace Idle
