#pragma once

#include <QDialog>

class ClickableLabel;

// The program's name, version, update state and ownership line.
class AboutBox : public QDialog
{
    Q_OBJECT
public:
    explicit AboutBox(QWidget *parent = nullptr);

    ClickableLabel *iconLabel = nullptr;

protected:
    void showEvent(QShowEvent *event) override;

private:
    void updateIcon();
    bool screenFollowed = false;
};
