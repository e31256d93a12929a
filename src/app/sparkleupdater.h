#pragma once

#include "updater.h"

#include <QtGlobal>

Q_FORWARD_DECLARE_OBJC_CLASS(SPUStandardUpdaterController);
Q_FORWARD_DECLARE_OBJC_CLASS(SparkleDelegate);

namespace updater {

// Updates through Sparkle 2: it checks the feed named in the bundle's Info.plist, downloads in
// the background, and installs on quit (at once while no device is connected).
class SparkleUpdater : public Updater
{
    Q_OBJECT
public:
    explicit SparkleUpdater(QObject *parent = nullptr);
    ~SparkleUpdater() override;

public slots:
    bool getAutomaticDownload() const override;
    void setAutomaticDownload(bool value) override;
    void checkAndShowUI() override;
    void checkAndMaybeShowUI() override;
    void checkWithoutUI() override;
    void update() override { }

private:
    SparkleDelegate *delegate = nullptr;
    SPUStandardUpdaterController *controller = nullptr;
};

} // namespace updater
