#include "pulseaudio.h"

#include "constants.h"
#include "linuxlogging.h"

#include "pulselibrary.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cmath>

namespace {

// The folder the server makes its socket in, as the library looks for it.
QString runtimeFolder()
{
    const QString path = qEnvironmentVariable("PULSE_RUNTIME_PATH");
    if (!path.isEmpty())
        return path;
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    return runtime.isEmpty() ? QString() : runtime + QStringLiteral("/pulse");
}

// Whether a session bus may answer: one of its addresses is not a socket file that is missing.
bool sessionBusMayBeThere()
{
    const QByteArray addresses = qgetenv("DBUS_SESSION_BUS_ADDRESS");
    if (addresses.isEmpty()) {
        const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
        return !runtime.isEmpty() && QFileInfo::exists(runtime + QStringLiteral("/bus"));
    }
    for (const QByteArray &address : addresses.split(';')) {
        if (address.isEmpty())
            continue;
        QByteArray path;
        if (address.startsWith("unix:")) {
            for (const QByteArray &pair : address.mid(5).split(',')) {
                if (pair.startsWith("path="))
                    path = QByteArray::fromPercentEncoding(pair.mid(5));
            }
        }
        // Abstract sockets, TCP and the rest cannot be told from here.
        if (path.isEmpty() || QFileInfo::exists(QFile::decodeName(path)))
            return true;
    }
    return false;
}

const QString dropFolder = QStringLiteral("/etc/pulse/client.conf.d");

// The client configuration files the library reads, where it looks for them (its own folder
// under HOME, not XDG_CONFIG_HOME), with those of the drop-in folder as they are now.
QStringList configurationFiles()
{
    const QString chosen = qEnvironmentVariable("PULSE_CLIENTCONFIG");
    if (!chosen.isEmpty())
        return { chosen };
    QStringList files;
    const QString folder = qEnvironmentVariable("PULSE_CONFIG_PATH");
    if (!folder.isEmpty()) {
        files << folder + QStringLiteral("/client.conf");
    } else {
        files << QDir::homePath() + QStringLiteral("/.pulse/client.conf")
              << QDir::homePath() + QStringLiteral("/.config/pulse/client.conf");
    }
    files << QStringLiteral("/etc/pulse/client.conf");
    const QDir drop(dropFolder);
    for (const QString &name : drop.entryList({ QStringLiteral("*.conf") }, QDir::Files))
        files << drop.filePath(name);
    return files;
}

// Whether one of the client configuration files names a server.
bool configurationNamesServer()
{
    const QStringList files = configurationFiles();
    for (const QString &name : files) {
        QFile file(name);
        if (!file.open(QIODevice::ReadOnly))
            continue;
        while (!file.atEnd()) {
            const QByteArray line = file.readLine(4096).trimmed();
            if (line.startsWith("default-server") && line.contains('='))
                return true;
        }
    }
    return false;
}
} // namespace

bool PulseAudio::serverMayBeThere()
{
    if (!qEnvironmentVariableIsEmpty("PULSE_SERVER"))
        return true;
    // The library finds a server named on the X display's root window, and with a session bus
    // it waits for one to start.
    if (!qEnvironmentVariableIsEmpty("DISPLAY") || sessionBusMayBeThere())
        return true;
    const QString folder = runtimeFolder();
    if (!folder.isEmpty() && QFileInfo::exists(folder + QStringLiteral("/native")))
        return true;
    // A server for the whole system.
    if (QFileInfo::exists(QStringLiteral("/run/pulse/native")))
        return true;
    return configurationNamesServer();
}

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
    retry.setSingleShot(true);
    retry.setTimerType(Qt::VeryCoarseTimer);
    connect(&retry, &QTimer::timeout, this, &PulseAudio::connectToServer);
    // A socket or a configuration made, removed or changed: look again at once, but only
    // while waiting (an attempt under way would only be delayed by starting over).
    auto lookAgain = [this] {
        if (waiting)
            retry.start(0);
    };
    connect(&watcher, &QFileSystemWatcher::directoryChanged, this, lookAgain);
    connect(&watcher, &QFileSystemWatcher::fileChanged, this, lookAgain);
    connectToServer();
}

PulseAudio::~PulseAudio()
{
    if (!m_pa)
        return;
    if (context) {
        m_pa->pa_context_set_state_callback(context, nullptr, nullptr);
        m_pa->pa_context_set_subscribe_callback(context, nullptr, nullptr);
        m_pa->pa_context_disconnect(context);
        m_pa->pa_context_unref(context);
    }
    m_pa->pa_glib_mainloop_free(mainloop);
}

void PulseAudio::connectToServer()
{
    waiting = false;
    if (!m_pa) {
        if (!serverMayBeThere()) {
            reportNoServer();
            waitForServer(false);
            return;
        }
        m_pa = PulseLibrary::get();
        // Not there: the volume and mute stay unsupported.
        if (!m_pa)
            return;
        // Qt's event loop on Linux is GLib's default context, so the sound server's callbacks
        // arrive on this thread.
        mainloop = m_pa->pa_glib_mainloop_new(nullptr);
    }
    if (context) {
        m_pa->pa_context_set_state_callback(context, nullptr, nullptr);
        m_pa->pa_context_set_subscribe_callback(context, nullptr, nullptr);
        m_pa->pa_context_disconnect(context);
        m_pa->pa_context_unref(context);
    }
    context = m_pa->pa_context_new(m_pa->pa_glib_mainloop_get_api(mainloop),
        QByteArray(QString(Constants::NAME).toUtf8()).constData());
    m_pa->pa_context_set_state_callback(
        context,
        [](pa_context *, void *self) { static_cast<PulseAudio *>(self)->onStateChanged(); }, this);
    m_pa->pa_context_set_subscribe_callback(
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
    if (m_pa->pa_context_connect(context, nullptr,
            pa_context_flags_t(PA_CONTEXT_NOFAIL | PA_CONTEXT_NOAUTOSPAWN), nullptr)
        >= 0)
        return;
    const int error = m_pa->pa_context_errno(context);
    if (error != PA_OK) {
        // The state callback asks again later.
        if (!failureReported)
            qCWarning(lcLinux) << "Cannot connect to the sound server" << m_pa->pa_strerror(error);
        failureReported = true;
        return;
    }
    // Failing without an error: no server was found and there is no D-Bus on which the library
    // could wait for one to appear, so nothing would ever call back. Look again from time to time.
    reportNoServer();
    waitForServer(true);
}

void PulseAudio::reportNoServer()
{
    if (!failureReported)
        qCWarning(lcLinux) << "No sound server is running: volume and mute wait for one to start";
    failureReported = true;
}

namespace {
// The folder, or while it is not there, the nearest one above it that is.
QString nearestFolder(const QString &path)
{
    QString at = QFileInfo(path).absoluteFilePath();
    while (!QFileInfo(at).isDir()) {
        const QString up = QFileInfo(at).absolutePath();
        if (up == at)
            return QString();
        at = up;
    }
    return at;
}
} // namespace

// Without a session bus, the library cannot wait for a server itself. While nothing names one,
// whatever could is watched, which costs no wakeups: the folder the server's socket is made in,
// the session bus's folder, the system-wide server's, and the client configuration files (in
// place, and the folders they would be made in). A server that is named (or may be, on the X
// display's root window) but does not answer can only be asked again now and then.
void PulseAudio::waitForServer(bool named)
{
    QStringList folders;
    QStringList files;
    const QString socketFolder = runtimeFolder();
    if (!socketFolder.isEmpty()) {
        // Until the runtime folder exists, the one it will be made in.
        if (QFileInfo(socketFolder).isDir())
            folders << socketFolder;
        else if (QFileInfo(QFileInfo(socketFolder).absolutePath()).isDir())
            folders << QFileInfo(socketFolder).absolutePath();
    }
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (!runtime.isEmpty() && QFileInfo(runtime).isDir())
        folders << QFileInfo(runtime).absoluteFilePath();
    folders << nearestFolder(QStringLiteral("/run/pulse"));
    const QStringList configuration = configurationFiles();
    for (const QString &file : configuration) {
        if (QFileInfo(file).isFile())
            files << file;
        folders << nearestFolder(QFileInfo(file).absolutePath());
    }
    // A drop-in file made where there was none.
    folders << nearestFolder(dropFolder);
    folders.removeAll(QString());
    folders.removeDuplicates();
    const QStringList wanted = folders + files;
    const QStringList watched = watcher.directories() + watcher.files();
    for (const QString &path : watched) {
        if (!wanted.contains(path))
            watcher.removePath(path);
    }
    for (const QString &path : wanted) {
        if (!watched.contains(path))
            watcher.addPath(path);
    }
    waiting = true;
    if (named)
        retry.start(serverPollInterval);
    else if (serverMayBeThere())
        retry.start(0); // It came while the watches were being set up.
    else
        retry.stop();
}

void PulseAudio::onStateChanged()
{
    switch (m_pa->pa_context_get_state(context)) {
    case PA_CONTEXT_READY:
        failureReported = false;
        retryDelay = reconnectDelay;
        retry.stop();
        if (!watcher.directories().isEmpty())
            watcher.removePaths(watcher.directories());
        if (!watcher.files().isEmpty())
            watcher.removePaths(watcher.files());
        m_pa->pa_operation_unref(m_pa->pa_context_subscribe(context,
            pa_subscription_mask_t(PA_SUBSCRIPTION_MASK_SINK | PA_SUBSCRIPTION_MASK_SERVER),
            nullptr, nullptr));
        readDefaultSink();
        break;
    case PA_CONTEXT_FAILED:
    case PA_CONTEXT_TERMINATED:
        // The server went away: say so once, and wait for the next one.
        if (!failureReported)
            qCWarning(lcLinux) << "Sound server connection lost"
                               << m_pa->pa_strerror(m_pa->pa_context_errno(context));
        failureReported = true;
        sinkName.clear();
        setAvailable(false);
        // Not at once: without D-Bus to wait on, a missing server fails every attempt on the
        // spot, and retrying at once would spin. A server that keeps refusing (one that is
        // named but not running) is asked less and less often, down to the slow poll.
        retry.start(retryDelay);
        retryDelay = qMin(2 * retryDelay, serverPollInterval);
        break;
    default:
        break;
    }
}

void PulseAudio::readDefaultSink()
{
    if (m_pa->pa_context_get_state(context) != PA_CONTEXT_READY)
        return;
    pa_operation *operation = m_pa->pa_context_get_server_info(
        context,
        [](pa_context *, const pa_server_info *info, void *self) {
            static_cast<PulseAudio *>(self)->onServerInfo(info);
        },
        this);
    if (operation)
        m_pa->pa_operation_unref(operation);
}

void PulseAudio::onServerInfo(const pa_server_info *info)
{
    if (!info || !info->default_sink_name) {
        setAvailable(false);
        return;
    }
    sinkName = QByteArray(info->default_sink_name);
    pa_operation *operation = m_pa->pa_context_get_sink_info_by_name(
        context, sinkName.constData(),
        [](pa_context *, const pa_sink_info *info, int eol, void *self) {
            if (eol == 0)
                static_cast<PulseAudio *>(self)->onSinkInfo(info);
        },
        this);
    if (operation)
        m_pa->pa_operation_unref(operation);
}

void PulseAudio::onSinkInfo(const pa_sink_info *info)
{
    if (!info)
        return;
    currentVolume = percentFromVolume(m_pa->pa_cvolume_avg(&info->volume));
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
    pa_operation *operation = m_pa->pa_context_get_sink_info_by_name(
        context, sinkName.constData(),
        [](pa_context *context, const pa_sink_info *info, int eol, void *self) {
            if (eol != 0 || !info)
                return;
            const PulseLibrary *pa = static_cast<PulseAudio *>(self)->m_pa;
            pa_cvolume volume;
            pa->pa_cvolume_set(
                &volume, info->volume.channels, static_cast<PulseAudio *>(self)->requestedVolume);
            pa_operation *set = pa->pa_context_set_sink_volume_by_index(
                context, info->index, &volume, nullptr, nullptr);
            if (set)
                pa->pa_operation_unref(set);
        },
        this);
    if (operation)
        m_pa->pa_operation_unref(operation);
}

void PulseAudio::setMuted(bool muted)
{
    if (!available || sinkName.isEmpty())
        return;
    pa_operation *operation = m_pa->pa_context_set_sink_mute_by_name(
        context, sinkName.constData(), muted ? 1 : 0, nullptr, nullptr);
    if (operation)
        m_pa->pa_operation_unref(operation);
}
