#include "pulseaudio.h"

#include "constants.h"
#include "linuxlogging.h"

#include <pulse/glib-mainloop.h>
#include <pulse/pulseaudio.h>

#include <QFileInfo>

#include <cmath>

namespace {
constexpr int reconnectDelay = 1000;

// The folder the server makes its socket in, as the library looks for it.
QString runtimeFolder()
{
    const QString path = qEnvironmentVariable("PULSE_RUNTIME_PATH");
    if (!path.isEmpty())
        return path;
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    return runtime.isEmpty() ? QString() : runtime + QStringLiteral("/pulse");
}
} // namespace

// Percentages are rounded to the nearest whole one both ways, as pactl and the desktops' sound
// settings show them: a volume set to N reads back as N, and so does one set to "N%" elsewhere.
int PulseAudio::percentFromVolume(uint32_t volume)
{
    return int((quint64(volume) * 100 + PA_VOLUME_NORM / 2) / PA_VOLUME_NORM);
}

uint32_t PulseAudio::volumeFromPercent(int percent)
{
    const double volume = std::round(double(qMax(0, percent)) * PA_VOLUME_NORM / 100.0);
    return pa_volume_t(qMin(volume, double(PA_VOLUME_MAX)));
}

PulseAudio::PulseAudio(QObject *parent)
    : QObject(parent)
{
    // Qt's event loop on Linux is GLib's default context, so the sound server's callbacks
    // arrive on this thread.
    mainloop = pa_glib_mainloop_new(nullptr);
    retry.setSingleShot(true);
    retry.setTimerType(Qt::VeryCoarseTimer);
    connect(&retry, &QTimer::timeout, this, &PulseAudio::connectToServer);
    // A socket made or removed in the watched folder: look again at once.
    connect(&watcher, &QFileSystemWatcher::directoryChanged, this, [this] {
        // Only while waiting: an attempt under way would only be delayed by starting over.
        if (waiting)
            retry.start(0);
    });
    connectToServer();
}

PulseAudio::~PulseAudio()
{
    if (context) {
        pa_context_set_state_callback(context, nullptr, nullptr);
        pa_context_set_subscribe_callback(context, nullptr, nullptr);
        pa_context_disconnect(context);
        pa_context_unref(context);
    }
    pa_glib_mainloop_free(mainloop);
}

void PulseAudio::connectToServer()
{
    waiting = false;
    if (context) {
        pa_context_set_state_callback(context, nullptr, nullptr);
        pa_context_set_subscribe_callback(context, nullptr, nullptr);
        pa_context_disconnect(context);
        pa_context_unref(context);
    }
    context = pa_context_new(pa_glib_mainloop_get_api(mainloop),
        QByteArray(QString(Constants::NAME).toUtf8()).constData());
    pa_context_set_state_callback(
        context,
        [](pa_context *, void *self) { static_cast<PulseAudio *>(self)->onStateChanged(); }, this);
    pa_context_set_subscribe_callback(
        context,
        [](pa_context *, pa_subscription_event_type_t type, uint32_t, void *self) {
            const int facility = type & PA_SUBSCRIPTION_EVENT_FACILITY_MASK;
            // A sink changed, or the server (its default sink) did: read the default again.
            if (facility == PA_SUBSCRIPTION_EVENT_SINK || facility == PA_SUBSCRIPTION_EVENT_SERVER)
                static_cast<PulseAudio *>(self)->readDefaultSink();
        },
        this);
    // NOFAIL: when no server is there yet, wait for one to appear instead of failing. A
    // desktop program does not start the sound server itself.
    if (pa_context_connect(context, nullptr,
            pa_context_flags_t(PA_CONTEXT_NOFAIL | PA_CONTEXT_NOAUTOSPAWN), nullptr)
        >= 0)
        return;
    // Failing without an error: no server was found and there is no D-Bus on which the library
    // could wait for one to appear, so nothing would ever call back. Look again from time to time.
    const int error = pa_context_errno(context);
    if (error != PA_OK) {
        qCWarning(lcLinux) << "Cannot connect to the sound server" << pa_strerror(error);
        return;
    }
    if (!failureReported)
        qCWarning(lcLinux) << "No sound server is running: volume and mute wait for one to start";
    failureReported = true;
    waitForServer();
}

// Without a session bus, the library cannot wait for a server itself. Its socket appearing is
// what matters, so the folder it is made in is watched (which costs no wakeups); a slow poll
// stays for servers named elsewhere (PULSE_SERVER, the X11 root window, client.conf).
void PulseAudio::waitForServer()
{
    const QString folder = runtimeFolder();
    if (!folder.isEmpty()) {
        QStringList wanted;
        if (QFileInfo(folder).isDir())
            wanted << folder;
        // Until the runtime folder exists, the one it will be made in.
        const QString parent = QFileInfo(folder).absolutePath();
        if (wanted.isEmpty() && QFileInfo(parent).isDir())
            wanted << parent;
        const QStringList stale = watcher.directories();
        for (const QString &path : stale) {
            if (!wanted.contains(path))
                watcher.removePath(path);
        }
        for (const QString &path : qAsConst(wanted)) {
            if (!watcher.directories().contains(path))
                watcher.addPath(path);
        }
    }
    waiting = true;
    retry.start(serverPollInterval);
}

void PulseAudio::onStateChanged()
{
    switch (pa_context_get_state(context)) {
    case PA_CONTEXT_READY:
        failureReported = false;
        retry.stop();
        if (!watcher.directories().isEmpty())
            watcher.removePaths(watcher.directories());
        pa_operation_unref(pa_context_subscribe(context,
            pa_subscription_mask_t(PA_SUBSCRIPTION_MASK_SINK | PA_SUBSCRIPTION_MASK_SERVER),
            nullptr, nullptr));
        readDefaultSink();
        break;
    case PA_CONTEXT_FAILED:
    case PA_CONTEXT_TERMINATED:
        // The server went away: say so once, and wait for the next one.
        if (!failureReported)
            qCWarning(lcLinux) << "Sound server connection lost"
                               << pa_strerror(pa_context_errno(context));
        failureReported = true;
        sinkName.clear();
        setAvailable(false);
        // Not at once: without D-Bus to wait on, a missing server fails every attempt on the
        // spot, and retrying at once would spin.
        retry.start(reconnectDelay);
        break;
    default:
        break;
    }
}

void PulseAudio::readDefaultSink()
{
    if (pa_context_get_state(context) != PA_CONTEXT_READY)
        return;
    pa_operation *operation = pa_context_get_server_info(
        context,
        [](pa_context *, const pa_server_info *info, void *self) {
            static_cast<PulseAudio *>(self)->onServerInfo(info);
        },
        this);
    if (operation)
        pa_operation_unref(operation);
}

void PulseAudio::onServerInfo(const pa_server_info *info)
{
    if (!info || !info->default_sink_name) {
        setAvailable(false);
        return;
    }
    sinkName = QByteArray(info->default_sink_name);
    pa_operation *operation = pa_context_get_sink_info_by_name(
        context, sinkName.constData(),
        [](pa_context *, const pa_sink_info *info, int eol, void *self) {
            if (eol == 0)
                static_cast<PulseAudio *>(self)->onSinkInfo(info);
        },
        this);
    if (operation)
        pa_operation_unref(operation);
}

void PulseAudio::onSinkInfo(const pa_sink_info *info)
{
    if (!info)
        return;
    currentVolume = percentFromVolume(pa_cvolume_avg(&info->volume));
    currentMute = info->mute != 0;
    setAvailable(true);
    emit volumeChanged();
    emit muteChanged();
}

void PulseAudio::setAvailable(bool value)
{
    if (available == value)
        return;
    available = value;
    emit availableChanged(value);
}

void PulseAudio::setVolume(int value)
{
    if (!available || sinkName.isEmpty())
        return;
    requestedVolume = volumeFromPercent(value);
    // Every channel of the sink to the same level, as a volume slider sets it: the channel
    // count comes from the sink.
    pa_operation *operation = pa_context_get_sink_info_by_name(
        context, sinkName.constData(),
        [](pa_context *context, const pa_sink_info *info, int eol, void *self) {
            if (eol != 0 || !info)
                return;
            pa_cvolume volume;
            pa_cvolume_set(
                &volume, info->volume.channels, static_cast<PulseAudio *>(self)->requestedVolume);
            pa_operation *set = pa_context_set_sink_volume_by_index(
                context, info->index, &volume, nullptr, nullptr);
            if (set)
                pa_operation_unref(set);
        },
        this);
    if (operation)
        pa_operation_unref(operation);
}

void PulseAudio::setMuted(bool muted)
{
    if (!available || sinkName.isEmpty())
        return;
    pa_operation *operation = pa_context_set_sink_mute_by_name(
        context, sinkName.constData(), muted ? 1 : 0, nullptr, nullptr);
    if (operation)
        pa_operation_unref(operation);
}
