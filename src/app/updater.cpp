#include "updater.h"

#include "updateutils.h"

#include <QAction>
#include <QCoreApplication>
#include <QLabel>
#include <QPushButton>

namespace {
Updater *theInstance = nullptr;
}

Updater::Updater(QObject *parent)
    : QObject(parent)
{
    qRegisterMetaType<Updater::Status>();
}

Updater::~Updater()
{
    if (theInstance == this)
        theInstance = nullptr;
    delete button;
    delete label;
}

Updater *Updater::instance()
{
    if (!theInstance)
        UpdateUtils::init();
    return theInstance;
}

void Updater::setInstance(Updater *updater) { theInstance = updater; }

QAction *Updater::getAction()
{
    if (!action) {
        action = new QAction(this);
        action->setMenuRole(QAction::ApplicationSpecificRole);
        connect(action, &QAction::triggered, this, &Updater::onUserAction);
        retext();
    }
    return action;
}

QPushButton *Updater::getButton()
{
    if (!button) {
        button = new QPushButton();
        connect(button, &QPushButton::clicked, this, &Updater::onUserAction);
        retext();
    }
    return button;
}

QLabel *Updater::getLabel()
{
    if (!label) {
        label = new QLabel();
        retext();
    }
    return label;
}

void Updater::setStatus(Status value)
{
    if (status == value)
        return;
    status = value;
    retext();
    emit statusChanged(status);
    emit actionTextChanged(actionText());
}

QString Updater::shownVersion() const
{
    return displayVersion.isEmpty() ? version : displayVersion;
}

QString Updater::actionText() const
{
    switch (status) {
    case NotChecked:
    case UpToDate:
        return tr("Check for Updates...");
    case UpdateAvailable:
        return tr("Version %1 is available...").arg(shownVersion());
    case DownloadingUpdate:
        return tr("Downloading version %1...").arg(shownVersion());
    case UpdateDownloaded:
        return tr("Restart to Update");
    case UpdateDownloadFailed:
        return tr("Version %1 download failed").arg(shownVersion());
    }
    return QString();
}

QString Updater::buttonText() const
{
    switch (status) {
    case NotChecked:
    case UpToDate:
        return tr("Check for Updates");
    case UpdateAvailable:
        return tr("Download Update");
    case DownloadingUpdate:
        return tr("Downloading update...");
    case UpdateDownloaded:
        return tr("Restart to Update");
    case UpdateDownloadFailed:
        return tr("Retry Update Download");
    }
    return QString();
}

QString Updater::labelText() const
{
    switch (status) {
    case NotChecked:
        return tr("Didn't check for updates.");
    case UpToDate:
        return tr("You have the latest version.");
    case UpdateAvailable:
        return tr("Version %1 is available.").arg(shownVersion());
    case DownloadingUpdate:
        return tr("Downloading update...");
    case UpdateDownloaded:
        return tr("An update has been downloaded and is ready to be installed.");
    case UpdateDownloadFailed:
        return tr("Version %1 download failed.").arg(shownVersion());
    }
    return QString();
}

void Updater::retext()
{
    if (action)
        action->setText(actionText());
    if (button) {
        button->setText(buttonText());
        // Showing a button that has no parent yet would open it as a window of its own; such a
        // button is only marked so that it appears with the box it is put in.
        if (status == DownloadingUpdate)
            button->hide();
        else if (button->parentWidget())
            button->show();
        else
            button->setAttribute(Qt::WA_WState_ExplicitShowHide, false);
    }
    if (label)
        label->setText(labelText());
}

void Updater::onUserAction()
{
    if (status == UpdateDownloaded) {
        // The downloaded update installs on the way out.
        QCoreApplication::quit();
        return;
    }
    checkAndShowUI();
}
