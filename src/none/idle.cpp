#include "idle.h"

// Nothing to keep awake with: every call says so.
namespace Idle {
namespace {
QString unavailable() { return QStringLiteral("this build has no way to keep the computer awake"); }
} // namespace

bool preventDisplaySleep(const QString &) { return false; }
bool allowDisplaySleep() { return false; }
bool preventSystemSleep(const QString &) { return false; }
bool allowSystemSleep() { return false; }
QString displayErrorMessage() { return unavailable(); }
QString systemErrorMessage() { return unavailable(); }
} // namespace Idle
