#include "pulseaudio.h"

#include "constants.h"
#include "linuxlogging.h"

#include <pulse/glib-mainloop.h>
#include <pulse/pulseaudio.h>

#include <QTimer>

#include <cmath>

PulseAudio::PulseAudio(QObject *parent)
    : QObject(parent)
{
    // Qt's event loop on Linux is GLib's default context, so the sound server's callbacks
    // arrive on this thread.
    mainloop = pa_glib_mainloop_new(nullptr);
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
        < 0)
        qCWarning(lcLinux) << "Cannot connect to the sound server"
                           << pa_strerror(pa_context_errno(context));
}

void PulseAudio::onStateChanged()
{
    switch (pa_context_get_state(context)) {
    case PA_CONTEXT_READY:
        pa_operation_unref(pa_context_subscribe(context,
            pa_subscription_mask_t(PA_SUBSCRIPTION_MASK_SINK | PA_SUBSCRIPTION_MASK_SERVER),
            nullptr, nullptr));
        readDefaultSink();
        break;
    case PA_CONTEXT_FAILED:
    case PA_CONTEXT_TERMINATED:
        // The server went away: say so, and wait for the next one.
        qCWarning(lcLinux) << "Sound server connection lost"
                           << pa_strerror(pa_context_errno(context));
        sinkName.clear();
        setAvailable(false);
        QTimer::singleShot(0, this, &PulseAudio::connectToServer);
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
    // A whole percentage of the normal volume, truncated.
    currentVolume = int(qint64(pa_cvolume_avg(&info->volume)) * 100 / PA_VOLUME_NORM);
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
    // Rounded up, so that reading it back (truncated) gives the same whole percentage: 65
    // stays 65, not 64.99.
    const double normal = std::ceil(double(value) * PA_VOLUME_NORM / 100.0);
    requestedVolume = pa_volume_t(qBound(0.0, normal, double(PA_VOLUME_MAX)));
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
