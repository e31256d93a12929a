#include "feedupdater.h"

#include "appcast.h"
#include "constants.h"
#include "http.h"

#include <QDesktopServices>
#include <QLoggingCategory>
#include <QMessageBox>
#include <QSettings>
#include <QTimer>

#include <utility>

Q_LOGGING_CATEGORY(lcUpdates, "velm.updates")

namespace updater {

namespace {
// Feeds are a few kilobytes; anything far bigger is not one.
constexpr int maxFeedSize = 4 * 1024 * 1024;
} // namespace

FeedUpdater::FeedUpdater(QObject *parent)
    : Updater(parent)
    , http(new Http)
{ }

FeedUpdater::~FeedUpdater()
{
    delete box;
    delete http;
}

QUrl FeedUpdater::feedUrl() const
{
    const QString configured = QSettings().value(QStringLiteral("updateFeed")).toString().trimmed();
    if (!configured.isEmpty())
        return QUrl(configured);
    return QUrl(QStringLiteral(VELM_UPDATE_FEED));
}

void FeedUpdater::checkAndShowUI()
{
    if (getStatus() == UpdateAvailable && page.isValid()) {
        QDesktopServices::openUrl(page);
        return;
    }
    check(true);
}

void FeedUpdater::checkAndMaybeShowUI() { check(false); }

void FeedUpdater::checkWithoutUI() { check(false); }

void FeedUpdater::update() { }

void FeedUpdater::check(bool showResult)
{
    const QUrl url = feedUrl();
    if (url.isEmpty() || !url.isValid()) {
        if (showResult)
            inform(tr("This copy of %1 does not check for updates. Your package manager or the "
                      "%1 web site has new versions.")
                       .arg(Constants::NAME));
        emit checkFinished(QStringLiteral("no update feed"));
        return;
    }
    showPending = showPending || showResult;
    // One check at a time; a user asking during a background check gets its result.
    if (checking)
        return;
    checking = true;
    HttpReply *reply = http->get(url);
    connect(reply, &HttpReply::data, this, [this](const QByteArray &body) {
        if (body.size() > maxFeedSize) {
            onFailure(QStringLiteral("the feed is larger than %1 bytes").arg(maxFeedSize),
                std::exchange(showPending, false));
            return;
        }
        onFeed(body, std::exchange(showPending, false));
    });
    connect(reply, &HttpReply::error, this,
        [this](const QString &message) { onFailure(message, std::exchange(showPending, false)); });
}

void FeedUpdater::onFeed(const QByteArray &body, bool showResult)
{
    checking = false;
    QString error;
    const QList<AppcastItem> items = Appcast::parse(body, &error);
    if (!error.isEmpty()) {
        onFailure(error, showResult);
        return;
    }
    if (const AppcastItem *item = Appcast::newest(items, Constants::VERSION)) {
        setVersion(item->version);
        setDisplayVersion(item->displayVersion);
        page = item->downloadPage;
        setStatus(UpdateAvailable);
        if (showResult && page.isValid())
            QDesktopServices::openUrl(page);
    } else {
        page = QUrl();
        setStatus(UpToDate);
        if (showResult)
            inform(tr("You have the latest version."),
                tr("%1 %2 is the newest version available.")
                    .arg(Constants::NAME, Constants::VERSION));
    }
    emit checkFinished(QString());
}

void FeedUpdater::onFailure(const QString &error, bool showResult)
{
    checking = false;
    qCWarning(lcUpdates) << "Cannot check for updates" << error;
    if (showResult)
        inform(tr("Cannot check for updates."), error);
    emit checkFinished(error);
}

void FeedUpdater::inform(const QString &text, const QString &details)
{
    delete box;
    box = new QMessageBox(QMessageBox::Information, Constants::NAME, text);
    box->setInformativeText(details);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->open();
    box->raise();
}

} // namespace updater
