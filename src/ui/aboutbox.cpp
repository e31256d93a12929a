#include "aboutbox.h"

#include "clickablelabel.h"
#include "constants.h"
#include "iconutils.h"
#include "updater.h"

#include <QDesktopServices>
#include <QLabel>
#include <QPushButton>
#include <QScreen>
#include <QUrl>
#include <QVBoxLayout>
#include <QWindow>

namespace {
QLabel *centred(const QString &text, bool small)
{
    auto *label = new QLabel(text);
    label->setAlignment(Qt::AlignHCenter);
    if (small)
        label->setAttribute(Qt::WA_MacSmallSize);
    return label;
}
} // namespace

AboutBox::AboutBox(QWidget *parent)
    : QDialog(parent)
{
    setAttribute(Qt::WA_DeleteOnClose);
    setWindowTitle(tr("About %1").arg(Constants::NAME));

    auto *layout = new QVBoxLayout(this);
    layout->setSizeConstraint(QLayout::SetFixedSize);
    layout->setAlignment(Qt::AlignHCenter);
    layout->setContentsMargins(50, 25, 50, 25);

    iconLabel = new ClickableLabel;
    iconLabel->setAlignment(Qt::AlignHCenter);
    iconLabel->setToolTip(QString(Constants::WEBSITE));
    connect(iconLabel, &ClickableLabel::clicked, this,
        [] { QDesktopServices::openUrl(QUrl(QString(Constants::WEBSITE))); });
    layout->addWidget(iconLabel, 0, Qt::AlignHCenter);

    QLabel *name = centred(Constants::NAME, false);
    QFont bold = name->font();
    bold.setWeight(QFont::Bold);
    name->setFont(bold);
    layout->addWidget(name);
    layout->addWidget(centred(tr("Remote control"), false));
    layout->addWidget(centred(tr("Version %1").arg(Constants::VERSION), true));
    layout->addSpacing(25);

    Updater *updater = Updater::instance();
    QLabel *status = updater->getLabel();
    status->setWordWrap(true);
    // Wide enough for the usual one-line texts; the longer ones wrap.
    status->setMinimumWidth(status->fontMetrics().horizontalAdvance(QLatin1Char('x')) * 34);
    status->setAlignment(Qt::AlignHCenter);
    status->setAttribute(Qt::WA_MacSmallSize);
    layout->addWidget(status);
    QPushButton *button = updater->getButton();
    button->setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    button->setAttribute(Qt::WA_MacSmallSize);
    layout->addWidget(button, 0, Qt::AlignHCenter);
    layout->addSpacing(25);

    layout->addWidget(centred(QStringLiteral("© %1 %2").arg(2022).arg(Constants::ORG_NAME), true));
}

void AboutBox::showEvent(QShowEvent *event)
{
    QDialog::showEvent(event);
    updateIcon();
    if (!screenFollowed && windowHandle()) {
        screenFollowed = true;
        connect(windowHandle(), &QWindow::screenChanged, this, &AboutBox::updateIcon);
    }
}

void AboutBox::updateIcon()
{
    iconLabel->setPixmap(
        IconUtils::pixmap(QStringLiteral(":/images/128/app.png"), iconLabel->devicePixelRatioF()));
}
