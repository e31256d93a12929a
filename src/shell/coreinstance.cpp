#include "core.h"

#include "idle.h"
#include "platformfactory.h"

// Apart from the rest of Core, so that code that makes its own Core over another platform
// (the tests) needs no backend.

Core *Core::instance()
{
    if (!current())
        new Core();
    return current();
}

Core::Core(QObject *parent)
    : Core(createPlatform(nullptr), parent)
{
    setDisplaySleep({ &Idle::preventDisplaySleep, &Idle::allowDisplaySleep });
}
