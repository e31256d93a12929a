#pragma once

#include "accessible.h"

#include <QHash>
#include <QObject>
#include <QVector>

class QTimer;

typedef struct _AtspiEvent AtspiEvent;
typedef struct _AtspiEventListener AtspiEventListener;

// The desktop's accessibility bus (AT-SPI): whether it is there and switched on, the
// applications on it, and which element has the keyboard focus in each of them, as the focus
// events tell (the toolkits' own focus states can lag behind).
class Accessibility : public QObject
{
    Q_OBJECT
public:
    explicit Accessibility(QObject *parent = nullptr);
    ~Accessibility() override;

    // The bus is reachable and applications are asked to expose themselves on it.
    static bool enabled();
    // Asks the desktop to switch accessibility on; true when it accepted.
    static bool requestEnabled();

    // Connects to the bus and starts following focus; false when the bus is not there.
    bool start();
    bool isStarted() const { return listener != nullptr; }
    // The application element of a process; null when it is not on the bus.
    Accessible application(int pid) const;
    // The element that last took the focus in a process and still has it; null if none.
    Accessible focusedElement(int pid) const;

signals:
    void focusChanged(int pid, const Accessible &element);

private:
    static void onEvent(AtspiEvent *event, void *self);
    AtspiEventListener *listener = nullptr;
    QHash<int, Accessible> focused;
};

// The top-level windows of applications on the accessibility bus, as their toolkits announce
// them: created, destroyed, activated and deactivated. Where the compositor tells other
// programs nothing about windows (GNOME), this is how the program knows them.
class AccessibleFrames : public QObject
{
    Q_OBJECT
public:
    explicit AccessibleFrames(QObject *parent = nullptr);
    ~AccessibleFrames() override;

    // Connects to the bus, lists the frames there are and follows them; false without a bus.
    bool start();
    bool isStarted() const { return listener != nullptr; }
    QVector<Accessible> frames() const { return known; }
    // Forgets the frames of processes that ended without closing them (killed or crashed:
    // nothing is announced then).
    void prune();

signals:
    void frameAdded(const Accessible &frame);
    void frameRemoved(const Accessible &frame);
    void frameActivated(const Accessible &frame);
    void frameDeactivated(const Accessible &frame);

private:
    static void onEvent(AtspiEvent *event, void *self);
    void add(const Accessible &frame);
    void remove(int index);
    AtspiEventListener *listener = nullptr;
    QVector<Accessible> known;
    // The process of each known frame, read when it was first seen.
    QVector<int> processes;
    QTimer *pruneTimer = nullptr;
};
