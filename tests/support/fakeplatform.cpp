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

void FakeFiles::enter(const QString &call, const QString &path)
{
    QMutexLocker lock(&m_mutex);
    m_calls << call;
    m_mostAtOnce = qMax(m_mostAtOnce, ++m_running);
    if (m_held.contains(path)) {
        ++m_waiting;
        while (m_held.contains(path))
            m_released.wait(&m_mutex);
        --m_waiting;
    }
    --m_running;
}

QString FakeFiles::typeOfFile(const QString &path)
{
    enter(QStringLiteral("typeOfFile(%1)").arg(path), path);
    QMutexLocker lock(&m_mutex);
    return m_types.value(path);
}

QImage FakeFiles::previewForFile(const QString &path, int width, int height)
{
    enter(QStringLiteral("previewForFile(%1,%2,%3)").arg(path).arg(width).arg(height), path);
    QMutexLocker lock(&m_mutex);
    return m_previews.value(path);
}

void FakeFiles::setType(const QString &path, const QString &type)
{
    QMutexLocker lock(&m_mutex);
    m_types.insert(path, type);
}

void FakeFiles::setPreview(const QString &path, const QImage &image)
{
    QMutexLocker lock(&m_mutex);
    m_previews.insert(path, image);
}

void FakeFiles::hold(const QString &path)
{
    QMutexLocker lock(&m_mutex);
    m_held.insert(path);
}

void FakeFiles::letGo(const QString &path)
{
    QMutexLocker lock(&m_mutex);
    m_held.remove(path);
    m_released.wakeAll();
}

QStringList FakeFiles::calls() const
{
    QMutexLocker lock(&m_mutex);
    return m_calls;
}

int FakeFiles::waiting() const
{
    QMutexLocker lock(&m_mutex);
    return m_waiting;
}

int FakeFiles::mostAtOnce() const
{
    QMutexLocker lock(&m_mutex);
    return m_mostAtOnce;
}

FakePlatform::FakePlatform(QObject *parent)
    : Platform(parent)
    , fakeFiles(std::make_shared<FakeFiles>())
{
    files = fakeFiles;
}

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

QPixmap FakePlatform::iconForFileType(const QString &type, int size)
{
    calls << QStringLiteral("iconForFileType(%1,%2)").arg(type).arg(size);
    return typeIcons.value(type);
}

QVector<App *> FakePlatform::appsForFileType(const QString &type)
{
    calls << QStringLiteral("appsForFileType(%1)").arg(type);
    return typeApps.value(type);
}

void FakePlatform::openFile(const QString &path, const QString &type, const QString &appId)
{
    calls << QStringLiteral("openFile(%1,%2,%3)").arg(path, type, appId);
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
