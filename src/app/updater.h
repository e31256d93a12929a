#pragma once

#include <QObject>
#include <QPointer>
#include <QString>

class QAction;
class QLabel;
class QPushButton;

// The state of software updates, and three widgets that follow it: the tray menu's action, and
// the about box's label and button. Subclasses do the checking.
class Updater : public QObject
{
    Q_OBJECT
public:
    enum Status {
        NotChecked = 0,
        UpToDate = 1,
        UpdateAvailable = 2,
        DownloadingUpdate = 3,
        UpdateDownloaded = 4,
        UpdateDownloadFailed = 5,
    };
    Q_ENUM(Status)

    explicit Updater(QObject *parent = nullptr);
    ~Updater() override;

    // The process-wide updater; made by UpdateUtils::init() when nobody installed one.
    static Updater *instance();
    static void setInstance(Updater *updater);

    QAction *getAction();
    QPushButton *getButton();
    QLabel *getLabel();

    Status getStatus() const { return status; }
    void setStatus(Status value);
    QString getVersion() const { return version; }
    void setVersion(const QString &value) { version = value; }
    QString getDisplayVersion() const { return displayVersion; }
    void setDisplayVersion(const QString &value) { displayVersion = value; }

    QString actionText() const;
    QString buttonText() const;
    QString labelText() const;

signals:
    void statusChanged(Updater::Status status);
    void actionTextChanged(const QString &text);

public slots:
    virtual bool getSendsSystemProfile() const { return sendsSystemProfile; }
    virtual void setSendsSystemProfile(bool value) { sendsSystemProfile = value; }
    virtual bool isImmediateInstallAllowed() const { return immediateInstallAllowed; }
    virtual void setImmediateInstallAllowed(bool value) { immediateInstallAllowed = value; }
    virtual bool getAutomaticDownload() const { return automaticDownload; }
    virtual void setAutomaticDownload(bool value) { automaticDownload = value; }
    // A check the user asked for: its outcome is shown to them.
    virtual void checkAndShowUI() = 0;
    // A background check: the widgets change, nothing pops up.
    virtual void checkAndMaybeShowUI() = 0;
    virtual void checkWithoutUI() = 0;
    virtual void update() = 0;
    virtual void onUserAction();

private:
    void retext();
    QString shownVersion() const;

    QPointer<QAction> action;
    QPointer<QPushButton> button;
    QPointer<QLabel> label;
    bool automaticDownload = true;
    bool immediateInstallAllowed = false;
    bool sendsSystemProfile = false;
    Status status = NotChecked;
    QString version;
    QString displayVersion;
};
