#include "updateutils.h"

#include "feedupdater.h"

#include <QCoreApplication>

void UpdateUtils::init()
{
    // Lives as long as the application; without one it lives for the process.
    Updater::setInstance(new updater::FeedUpdater(QCoreApplication::instance()));
}
