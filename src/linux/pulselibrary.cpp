#include "pulselibrary.h"

#include "linuxlogging.h"

#include <QLibrary>

namespace {
template<typename Function>
bool resolve(QLibrary &library, const char *name, Function &function)
{
    function = reinterpret_cast<Function>(library.resolve(name));
    if (!function)
        qCWarning(lcLinux) << "Cannot load the sound server's library:" << library.errorString();
    return function != nullptr;
}

bool load(PulseLibrary &functions)
{
    // By their sonames, as the packages that run programs install them (no development links).
    QLibrary pulse(QStringLiteral("pulse"), 0);
    QLibrary glib(QStringLiteral("pulse-mainloop-glib"), 0);
    for (QLibrary *library : { &pulse, &glib }) {
        if (!library->load()) {
            qCWarning(lcLinux) << "Cannot load the sound server's library:"
                               << library->errorString();
            return false;
        }
    }
    bool resolved = true;
#define VELM_PULSE_RESOLVE(name) resolved = resolved && resolve(pulse, #name, functions.name);
    VELM_PULSE_FUNCTIONS(VELM_PULSE_RESOLVE)
#undef VELM_PULSE_RESOLVE
#define VELM_PULSE_RESOLVE(name) resolved = resolved && resolve(glib, #name, functions.name);
    VELM_PULSE_GLIB_FUNCTIONS(VELM_PULSE_RESOLVE)
#undef VELM_PULSE_RESOLVE
    // A QLibrary going out of scope leaves the library loaded, which is what is wanted here.
    return resolved;
}
} // namespace

const PulseLibrary *PulseLibrary::get()
{
    static PulseLibrary functions;
    static const bool loaded = load(functions);
    return loaded ? &functions : nullptr;
}
