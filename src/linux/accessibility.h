#pragma once

#include "accessible.h"

#include <QHash>
#include <QObject>

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
