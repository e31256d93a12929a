#pragma once

#include <QLabel>

// A label that acts as a link: a click on it (press and release inside) emits clicked().
class ClickableLabel : public QLabel
{
    Q_OBJECT
public:
    explicit ClickableLabel(QWidget *parent = nullptr);

signals:
    void clicked();

protected:
    void mouseReleaseEvent(QMouseEvent *event) override;
};
