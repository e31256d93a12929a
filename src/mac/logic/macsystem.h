#pragma once

#include <QObject>
#include <QString>

#include <functional>

class QTimer;

// The rules of the macOS system controls that are plain computation: the conversions between
// the system's 0.0..1.0 scalars and the protocol's whole percentages, the media-key events,
// the Apple-event identifiers of the power actions, the screen-lock notifications, and the
// brightness poll.
namespace MacSystem {

// A volume or brightness scalar as a whole percentage, truncated toward zero (0.333 is 33,
// 0.999 is 99).
int percentFromScalar(float scalar);
// A percentage as the scalar written to the system: no clamping (150 writes 1.5).
float scalarFromPercent(int percent);

// The elements a volume is written to, in order.
constexpr unsigned volumeWriteElements[] = { 1, 2 };

// A four-character code as the system's 32-bit value ('shut' is 0x73687574).
constexpr unsigned fourCharCode(const char (&code)[5])
{
    return unsigned(uchar(code[0])) << 24 | unsigned(uchar(code[1])) << 16
        | unsigned(uchar(code[2])) << 8 | unsigned(uchar(code[3]));
}

enum class PowerAction { Shutdown, Restart, Sleep, Logout };
// The Apple event (class 'aevt') asking the system process for the action.
unsigned appleEventId(PowerAction action);
// The text a failed action logs before its status: the operation's full signature.
QString signature(PowerAction action);

enum class MediaKey { PlayPause, Next, Previous };
// One system-defined event (type 14, subtype 8) of a media key.
struct MediaKeyEvent
{
    unsigned modifierFlags = 0;
    long data1 = 0;
};
// The system's media-key number: next and previous are the fast-forward and rewind keys.
int mediaKeyCode(MediaKey key);
// Key down, then key up.
MediaKeyEvent mediaKeyDown(MediaKey key);
MediaKeyEvent mediaKeyUp(MediaKey key);

// The screen-lock state as the distributed notifications tell it: a running screen saver
// counts as locked, and its end as unlocked even while the lock screen is still up.
class ScreenLock
{
public:
    // The state after the notification; `changed` says whether it differs from before.
    // Other notifications change nothing.
    bool notify(const QString &name, bool *changed);
    bool isLocked() const { return locked; }

private:
    bool locked = false;
};

// Brightness read every second while clients are connected, announced only when it changed.
class BrightnessPoll : public QObject
{
    Q_OBJECT
public:
    explicit BrightnessPoll(std::function<int()> read, QObject *parent = nullptr);

    int brightness() const { return stored; }
    // Creates the timer on first use, then only restarts it.
    void start();
    void poll();
    // Logs "timer is null" when no timer was ever made.
    void stop();
    QTimer *timer() const { return pollTimer; }

signals:
    void brightnessChanged();

private:
    std::function<int()> read;
    QTimer *pollTimer = nullptr;
    int stored = 0;
};

} // namespace MacSystem
