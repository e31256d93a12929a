#include "macsystem.h"

#include "maclogging.h"

#include <QTimer>

namespace MacSystem {

namespace {
constexpr int pollInterval = 1000;
} // namespace

int percentFromScalar(float scalar) { return int(scalar * 100); }

float scalarFromPercent(int percent) { return float(double(percent) / 100.0); }

unsigned appleEventId(PowerAction action)
{
    switch (action) {
    case PowerAction::Shutdown:
        return fourCharCode("shut");
    case PowerAction::Restart:
        return fourCharCode("rest");
    case PowerAction::Sleep:
        return fourCharCode("slep");
    case PowerAction::Logout:
        // Log out without asking.
        return fourCharCode("rlgo");
    }
    return 0;
}

QString signature(PowerAction action)
{
    switch (action) {
    case PowerAction::Shutdown:
        return QStringLiteral("virtual void MacPlatform::shutdown()");
    case PowerAction::Restart:
        return QStringLiteral("virtual void MacPlatform::restart()");
    case PowerAction::Sleep:
        return QStringLiteral("virtual void MacPlatform::sleep()");
    case PowerAction::Logout:
        return QStringLiteral("virtual void MacPlatform::logout()");
    }
    return QString();
}

int mediaKeyCode(MediaKey key)
{
    switch (key) {
    case MediaKey::PlayPause:
        return 16;
    case MediaKey::Next:
        return 19;
    case MediaKey::Previous:
        return 20;
    }
    return 0;
}

MediaKeyEvent mediaKeyDown(MediaKey key)
{
    return { 0xa00, long(mediaKeyCode(key)) << 16 | 0xa00 };
}

MediaKeyEvent mediaKeyUp(MediaKey key) { return { 0xb00, long(mediaKeyCode(key)) << 16 | 0xb00 }; }

bool ScreenLock::notify(const QString &name, bool *changed)
{
    bool now = locked;
    if (name == QLatin1String("com.apple.screenIsLocked")
        || name == QLatin1String("com.apple.screensaver.didstart"))
        now = true;
    else if (name == QLatin1String("com.apple.screenIsUnlocked")
        || name == QLatin1String("com.apple.screensaver.didstop"))
        now = false;
    if (changed)
        *changed = now != locked;
    locked = now;
    return locked;
}

BrightnessPoll::BrightnessPoll(std::function<int()> read, QObject *parent)
    : QObject(parent)
    , read(std::move(read))
{ }

void BrightnessPoll::start()
{
    if (!pollTimer) {
        pollTimer = new QTimer(this);
        pollTimer->setInterval(pollInterval);
        pollTimer->setTimerType(Qt::VeryCoarseTimer);
        connect(pollTimer, &QTimer::timeout, this, &BrightnessPoll::poll);
    }
    pollTimer->start();
}

void BrightnessPoll::poll()
{
    const int value = read();
    if (value == stored)
        return;
    stored = value;
    emit brightnessChanged();
}

void BrightnessPoll::stop()
{
    if (!pollTimer) {
        qCWarning(lcMac) << "timer is null";
        return;
    }
    pollTimer->stop();
}

} // namespace MacSystem
