#pragma once

#include <QWidget>

class QCheckBox;
class QLabel;
class QPushButton;

// The first window a user sees: where to find the program, or how to give it the
// accessibility permission it needs.
class WelcomeView : public QWidget
{
    Q_OBJECT
public:
    explicit WelcomeView(QWidget *parent = nullptr);

    QLabel *textLabel = nullptr;
    // Only when the permission is granted.
    QCheckBox *dontShowBox = nullptr;
    QPushButton *closeButton = nullptr;

protected:
    void showEvent(QShowEvent *event) override;

private:
    // Inline images are chosen for the window's pixel ratio.
    void updateContents();

    QLabel *imageLabel = nullptr;
    bool granted = false;
    bool screenFollowed = false;
};
