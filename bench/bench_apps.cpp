// What a client waits for on the Linux backend, over the wire on loopback:
//  - "ia" with 500 installed applications (desktop entries in a private data folder), the first
//    request after connecting and repeated ones, beside "ca" (the current application, a reply
//    with almost nothing in it) as the baseline measured in the same run;
//  - with --menus, inside the rig (an X server, its window manager and the accessibility bus):
//    "am" for the GTK test application with a menu bar of 300 entries, first and repeated,
//    beside the same application's usual menu bar of 16 entries.
// It measures; it never passes or fails.
//   usage: bench_apps [--menus]

#include "core.h"
#include "l.h"
#include "linuxapp.h"
#include "linuxplatform.h"
#include "protocolclient.h"
#include "server.h"
#include "serverfixture.h"
#include "testenvironment.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLoggingCategory>
#include <QProcess>
#include <QSettings>
#include <QTemporaryDir>
#include <QTimer>
#include <QtTest>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <vector>

namespace {

const QString gtkApp = QStringLiteral(VELM_A11Y_DIR "/gtk_app.py");

// Sends the message and waits for the first reply with its code: milliseconds, or -1 after 20 s.
double roundTrip(ProtocolClient &client, const QJsonObject &message, Frame *reply = nullptr)
{
    const QString code = message.value(L::method).toString();
    QEventLoop loop;
    QElapsedTimer clock;
    double elapsed = -1;
    const QMetaObject::Connection connection
        = QObject::connect(&client, &ClientSession::frameReceived, &loop, [&](const Frame &frame) {
              if (elapsed >= 0 || frame.method() != code)
                  return;
              elapsed = double(clock.nsecsElapsed()) / 1e6;
              if (reply)
                  *reply = frame;
              loop.quit();
          });
    QTimer::singleShot(20000, &loop, &QEventLoop::quit);
    clock.start();
    client.send(message);
    loop.exec();
    QObject::disconnect(connection);
    return elapsed;
}

double median(std::vector<double> values)
{
    if (values.empty())
        return -1;
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

double repeated(ProtocolClient &client, const QJsonObject &message, int runs)
{
    std::vector<double> times;
    for (int i = 0; i < runs; ++i)
        times.push_back(roundTrip(client, message));
    return median(times);
}

// Names like those of a real system's applications, in no particular order.
void writeApplications(const QString &folder, int count)
{
    QDir().mkpath(folder);
    static const char *const words[] = { "Studio", "Viewer", "Editor", "Player", "Manager",
        "Monitor", "Terminal", "Settings", "Calculator", "Browser", "Mail", "Notes", "Maps",
        "Photos", "Music", "Office", "Draw", "Console", "Backup", "Scanner" };
    for (int i = 0; i < count; ++i) {
        const QString name
            = QStringLiteral("%1 %2 %3")
                  .arg(QLatin1String(words[(i * 7) % 20]), QLatin1String(words[(i * 13 + 5) % 20]))
                  .arg((i * 7919) % 1000);
        QFile file(QStringLiteral("%1/org.velm.bench.App%2.desktop").arg(folder).arg(i));
        if (!file.open(QIODevice::WriteOnly))
            return;
        file.write(QStringLiteral("[Desktop Entry]\nType=Application\nName=%1\nComment=An "
                                  "application of the benchmark\nExec=true %%U\nIcon=app-%2\n"
                                  "Categories=Utility;\n")
                       .arg(name)
                       .arg(i)
                       .toUtf8());
    }
}

int countEntries(const QJsonArray &items)
{
    int count = 0;
    for (const QJsonValue &value : items)
        count += 1 + countEntries(value.toObject().value(QStringLiteral("m")).toArray());
    return count;
}

struct Menus
{
    int entries = 0;
    double first = -1;
    double again = -1;
};

// Starts the GTK application, waits until it is the current one and its menu can be read, and
// times "am" for it.
Menus menusOf(Platform *platform, ProtocolClient &client, const QStringList &arguments)
{
    Menus result;
    QTemporaryDir folder;
    QProcess process;
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(gtkApp, QStringList { folder.filePath(QStringLiteral("log")) } + arguments);
    LinuxApp *app = nullptr;
    const bool front = QTest::qWaitFor(
        [&] {
            app = qobject_cast<LinuxApp *>(platform->getCurrentApp());
            return app && app->processIds().contains(int(process.processId()));
        },
        20000);
    if (front) {
        const QJsonObject ask { { L::method, L::appMenu }, { L::id, app->id } };
        // The first answer that holds a tree: a toolkit may take a moment after its window
        // shows to put it on the accessibility bus.
        QElapsedTimer waited;
        waited.start();
        while (waited.elapsed() < 20000) {
            Frame reply;
            const double time = roundTrip(client, ask, &reply);
            const QJsonArray tree = reply.parts.isEmpty()
                ? QJsonArray()
                : QJsonDocument::fromJson(reply.parts.first().second).array();
            if (!tree.isEmpty()) {
                result.first = time;
                result.entries = countEntries(tree);
                break;
            }
            QTest::qWait(100);
        }
        result.again = repeated(client, ask, 10);
    }
    process.terminate();
    if (!process.waitForFinished(5000))
        process.kill();
    process.waitForFinished(3000);
    return result;
}

} // namespace

int main(int argc, char *argv[])
{
    const bool menus = argc > 1 && QByteArray(argv[1]) == "--menus";
    // The applications come from a private data folder alone, not from the system's.
    QTemporaryDir data;
    qputenv("XDG_DATA_HOME", data.path().toUtf8());
    qputenv("XDG_DATA_DIRS", data.filePath(QStringLiteral("none")).toUtf8());
    writeApplications(data.filePath(QStringLiteral("applications")), 500);
    if (!menus)
        qputenv("QT_QPA_PLATFORM", "offscreen");

    QApplication application(argc, argv);
    TestEnvironment::setUp();
    qputenv("AVAHI_COMPAT_NOWARN", "1");
    QLoggingCategory::setFilterRules(QStringLiteral("velm.*.warning=false"));
    QSettings().setValue(QStringLiteral("preventSleep"), false);

    auto *platform = new LinuxPlatform;
    Core core(platform);
    QElapsedTimer startClock;
    startClock.start();
    core.start();
    const double start = double(startClock.nsecsElapsed()) / 1e6;
    if (!core.server) {
        std::printf("The server did not start\n");
        return 1;
    }
    // The list is read when the first client arrives; timed here on its own.
    QElapsedTimer readClock;
    readClock.start();
    platform->setActive(true);
    const double read = double(readClock.nsecsElapsed()) / 1e6;
    Pairing::authorize(QStringLiteral("bench"), QStringLiteral("bench-token"));
    ProtocolClient client(QStringLiteral("bench"));
    if (!Pairing::connectAuthenticated(client, listeningPort(core.server))) {
        std::printf("The client could not connect\n");
        return 1;
    }

    const QJsonObject installed { { L::method, L::installedApps } };
    const QJsonObject current { { L::method, L::currentApp } };
    Frame list;
    const double first = roundTrip(client, installed, &list);
    const double again = repeated(client, installed, 50);
    const double baseline = repeated(client, current, 50);
    std::printf("Installed applications (\"ia\"), %d in the list, %d bytes of JSON\n",
        int(list.object().value(L::apps).toArray().size()), int(list.json.size()));
    std::printf("  back-end start                    %8.2f ms\n", start);
    std::printf("  the list read (first client)      %8.2f ms\n", read);
    std::printf("  first request                     %8.2f ms\n", first);
    std::printf("  repeated (median of 50)           %8.2f ms\n", again);
    std::printf("  \"ca\" on the same connection       %8.2f ms   ratio %.1f\n", baseline,
        baseline > 0 ? again / baseline : 0.0);

    if (!menus)
        return 0;
    if (platform->getUnsupported().contains(L::appMenu)) {
        std::printf("\nMenus (\"am\"): this session has no accessibility bus; run it in the "
                    "rig\n");
        return 1;
    }
    const Menus usual = menusOf(platform, client, {});
    const Menus large
        = menusOf(platform, client, { QStringLiteral("--many"), QStringLiteral("300") });
    std::printf("\nMenus (\"am\") of the GTK test application\n");
    std::printf("  %-26s %8s %14s %16s\n", "menu bar", "entries", "first (ms)", "repeated (ms)");
    std::printf("  %-26s %8d %14.1f %16.1f\n", "usual", usual.entries, usual.first, usual.again);
    std::printf("  %-26s %8d %14.1f %16.1f\n", "large", large.entries, large.first, large.again);
    if (usual.entries > 0 && large.entries > 0 && usual.again > 0)
        std::printf("  per entry, repeated: usual %.3f ms, large %.3f ms\n",
            usual.again / usual.entries, large.again / large.entries);
    return 0;
}
