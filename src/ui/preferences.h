#pragma once

#include <QDialog>

class QCheckBox;
class QLabel;
class QPushButton;

// The two switches and the authorized devices. It keeps nothing: every control reads from and
// writes to the coordinator and the server at once.
class Preferences : public QDialog
{
    Q_OBJECT
public:
    explicit Preferences(QWidget *parent = nullptr);

    QCheckBox *autostartBox = nullptr;
    QCheckBox *preventSleepBox = nullptr;
    // Null when no device was authorized when the dialog opened.
    QLabel *devicesLabel = nullptr;
    QPushButton *deauthorizeButton = nullptr;
};
