#include "platform.h"

#include "app.h"

Platform::Platform(QObject *parent)
    : QObject(parent)
{
    // The signals carry App* and may cross queued connections.
    qRegisterMetaType<App *>();
}

Platform::~Platform() { qDeleteAll(installedApps); }

App *Platform::appforId(const QString &id) const
{
    // An application without an identifier (a bundle that names none) is listed, but no
    // request can mean it.
    return id.isEmpty() ? nullptr : apps.value(id);
}

void Platform::setCurrentApp(App *app)
{
    if (currentApp)
        currentApp->setCurrent(false);
    currentApp = app;
    if (app)
        app->setCurrent(true);
    emit currentAppChanged(currentApp);
}

void Platform::clearApps()
{
    apps.clear();
    runningApps.clear();
    if (currentApp) {
        currentApp->setCurrent(false);
        currentApp = nullptr;
    }
    emit currentAppChanged(nullptr);
    qDeleteAll(installedApps);
    installedApps.clear();
    emit installedAppsChanged();
}
