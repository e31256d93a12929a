#include "fakeplatform.h"

FakeApp::FakeApp(const QString &id, const QString &name)
    : App(id)
{
    this->name = name.isEmpty() ? id : name;
}

void FakeApp::setCurrent(bool current)
{
    calls << QStringLiteral("setCurrent(%1)")
                 .arg(current ? QStringLiteral("true") : QStringLiteral("false"));
    App::setCurrent(current);
}

void FakeApp::scroll(int x, int y) { calls << QStringLiteral("scroll(%1,%2)").arg(x).arg(y); }

void FakeApp::performKeySequence(const QString &keys)
{
    calls << QStringLiteral("performKeySequence(%1)").arg(keys);
}

const std::vector<MenuItem> &FakeApp::getMenuItems()
{
    calls << QStringLiteral("getMenuItems");
    return menu;
}

void FakeApp::performMenu(const QString &menuId)
{
    calls << QStringLiteral("performMenu(%1)").arg(menuId);
}

void FakeApp::setFocusValue(const QString &value)
{
    calls << QStringLiteral("setFocusValue(%1)").arg(value);
}

FakePlatform::FakePlatform(QObject *parent)
    : Platform(parent)
{ }

FakeApp *FakePlatform::addApp(const QString &id, const QString &name, qint64 lastRun)
{
    auto *app = new FakeApp(id, name);
    app->lastRun = lastRun;
    installedApps.append(app);
    apps.insert(id, app);
    return app;
}

void FakePlatform::setRunning(App *app, bool running)
{
    app->running = running;
    if (running && !runningApps.contains(app))
        runningApps.append(app);
    else if (!running)
        runningApps.removeAll(app);
    emit runningAppsChanged();
}

void FakePlatform::setUnsupportedList(const QStringList &list)
{
    unsupported = list;
    emit unsupportedChanged();
}

void FakePlatform::init()
{
    calls << QStringLiteral("init");
    emit ready();
}

void FakePlatform::setActive(bool active)
{
    calls << QStringLiteral("setActive(%1)")
                 .arg(active ? QStringLiteral("true") : QStringLiteral("false"));
}

void FakePlatform::setAutostart(bool enabled)
{
    calls << QStringLiteral("setAutostart(%1)")
                 .arg(enabled ? QStringLiteral("true") : QStringLiteral("false"));
}

QPixmap FakePlatform::previewForFile(const QString &path, int width, int height)
{
    calls << QStringLiteral("previewForFile(%1,%2,%3)").arg(path).arg(width).arg(height);
    return previews.value(path);
}

QPixmap FakePlatform::iconForFile(const QString &path, int size)
{
    calls << QStringLiteral("iconForFile(%1,%2)").arg(path).arg(size);
    return fileIcons.value(path);
}

QPixmap FakePlatform::iconForFileType(const QString &type, int size)
{
    calls << QStringLiteral("iconForFileType(%1,%2)").arg(type).arg(size);
    return typeIcons.value(type);
}

void FakePlatform::openFile(const QString &path, const QString &appId)
{
    calls << QStringLiteral("openFile(%1,%2)").arg(path, appId);
}

QVector<App *> FakePlatform::appsForFile(const QString &path)
{
    calls << QStringLiteral("appsForFile(%1)").arg(path);
    return fileApps;
}

void FakePlatform::setBrightness(int value)
{
    calls << QStringLiteral("setBrightness(%1)").arg(value);
}

void FakePlatform::setVolume(int value) { calls << QStringLiteral("setVolume(%1)").arg(value); }

void FakePlatform::setVolumeMute(bool value)
{
    calls << QStringLiteral("setVolumeMute(%1)")
                 .arg(value ? QStringLiteral("true") : QStringLiteral("false"));
}
