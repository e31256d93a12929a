#include <gio/gio.h>

#include "linuxapp.h"

#include "linuxlogging.h"

LinuxApp::LinuxApp(const QString &id, GAppInfo *info, QObject *parent)
    : App(id, parent)
    , m_info(G_APP_INFO(g_object_ref(info)))
{ }

LinuxApp::~LinuxApp() { g_object_unref(m_info); }

bool LinuxApp::launchWith(const QStringList &uris)
{
    GList *list = nullptr;
    for (const QString &uri : uris)
        list = g_list_append(list, g_strdup(uri.toUtf8().constData()));
    GError *error = nullptr;
    const bool launched = g_app_info_launch_uris(m_info, list, nullptr, &error);
    g_list_free_full(list, g_free);
    if (!launched) {
        qCWarning(lcLinux) << "Cannot launch" << id << (error ? error->message : "");
        g_clear_error(&error);
    }
    return launched;
}

void LinuxApp::launch() { launchWith({}); }

void LinuxApp::activate()
{
    // Bringing an existing window forward needs the window backend; starting works already.
    if (!running)
        launch();
}

void LinuxApp::quit() { }

void LinuxApp::hide() { }

void LinuxApp::close() { }

void LinuxApp::toggleMiniminize() { }

void LinuxApp::toggleMaximize() { }

bool LinuxApp::supportsFullscreen() { return false; }

void LinuxApp::toggleFullscreen() { }

void LinuxApp::scroll(int, int) { }

void LinuxApp::performKeySequence(const QString &) { }

const std::vector<MenuItem> &LinuxApp::getMenuItems() { return m_menu; }

void LinuxApp::performMenu(const QString &) { }

void LinuxApp::setFocusValue(const QString &) { }

void LinuxApp::performFocusedElement() { }
