#pragma once

#include "updater.h"

#include <QPointer>
#include <QUrl>

class Http;
class QMessageBox;

namespace updater {

// Checks an update feed for a newer release and, when the user asks, opens the release's
// download page. It never downloads or installs anything itself: on Linux the package manager
// or the user does that.
class FeedUpdater : public Updater
{
    Q_OBJECT
public:
    // The feed comes from the setting "updateFeed", else from the build.
    explicit FeedUpdater(QObject *parent = nullptr);
    ~FeedUpdater() override;

    QUrl feedUrl() const;
    QUrl downloadPage() const { return page; }
    bool isChecking() const { return checking; }

signals:
    // Every check ends with this, whatever its outcome; `error` is empty on success.
    void checkFinished(const QString &error);

public slots:
    void checkAndShowUI() override;
    void checkAndMaybeShowUI() override;
    void checkWithoutUI() override;
    void update() override;

private:
    void check(bool showResult);
    void onFeed(const QByteArray &body, bool showResult);
    void onFailure(const QString &error, bool showResult);
    void inform(const QString &text, const QString &details = QString());

    Http *http;
    QUrl page;
    bool checking = false;
    bool showPending = false;
    QPointer<QMessageBox> box;
};

} // namespace updater
