#include "welcomeview.h"

#include "constants.h"
#include "core.h"
#include "desktop.h"
#include "iconutils.h"
#include "platform.h"

#include <QCheckBox>
#include <QFile>
#include <QHBoxLayout>
#include <QHostInfo>
#include <QLabel>
#include <QPushButton>
#include <QScreen>
#include <QSettings>
#include <QVBoxLayout>
#include <QWindow>

namespace {
// An inline image's source for the given pixel ratio: the "@2x" twin when it helps.
QString imageSource(const char *name, const QColor &background, qreal ratio)
{
    const QString path = IconUtils::iconPath(name, 16, background);
    if (ratio > 1.0) {
        QString twin = path;
        twin.insert(twin.lastIndexOf(QLatin1Char('.')), QStringLiteral("@2x"));
        if (QFile::exists(twin))
            return twin;
    }
    return path;
}
} // namespace

WelcomeView::WelcomeView(QWidget *parent)
    : QWidget(parent, Qt::Window)
{
    setAttribute(Qt::WA_DeleteOnClose);
    setWindowTitle(tr("Welcome to %1").arg(Constants::NAME));
    granted = Core::instance()->platform->permissionsGranted();

    auto *layout = new QVBoxLayout(this);
    layout->setSizeConstraint(QLayout::SetFixedSize);
    layout->setContentsMargins(40, 30, 40, 25);
    layout->setSpacing(15);

    imageLabel = new QLabel;
    imageLabel->setAlignment(Qt::AlignHCenter);
    layout->addWidget(imageLabel);

    textLabel = new QLabel;
    textLabel->setWordWrap(true);
    textLabel->setTextFormat(Qt::RichText);
    textLabel->setFixedWidth(420);
    layout->addWidget(textLabel);

    auto *row = new QHBoxLayout;
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(15);
    if (granted) {
        dontShowBox = new QCheckBox(tr("Do not show this message again"));
        dontShowBox->setChecked(QSettings().value(QStringLiteral("welcome"), false).toBool());
        connect(dontShowBox, &QCheckBox::toggled, this,
            [](bool checked) { QSettings().setValue(QStringLiteral("welcome"), checked); });
        row->addWidget(dontShowBox);
    }
    row->addStretch();
    closeButton = new QPushButton(granted ? tr("Use %1").arg(Constants::NAME) : tr("OK"));
    closeButton->setDefault(true);
    connect(closeButton, &QPushButton::clicked, this, &QWidget::close);
    row->addWidget(closeButton);
    layout->addLayout(row);

    updateContents();
}

void WelcomeView::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    updateContents();
    if (!screenFollowed && windowHandle()) {
        screenFollowed = true;
        connect(windowHandle(), &QWindow::screenChanged, this, &WelcomeView::updateContents);
    }
}

void WelcomeView::updateContents()
{
    const qreal ratio = devicePixelRatioF();
    const QColor background = palette().color(QPalette::Window);
    imageLabel->setPixmap(IconUtils::pixmap(QStringLiteral(":/images/128/app.png"), ratio));

    QString text = QStringLiteral("<h1 style='font-weight:300'>")
        + tr("Welcome to %1").arg(Constants::NAME) + QStringLiteral("</h1>");
    if (granted) {
        text += tr("You can now connect your device to this %1 named <b>%2</b>.")
                    .arg(Constants::NAME, QHostInfo::localHostName().toHtmlEscaped());
        text += QStringLiteral("<p><img src='") + imageSource("tray", background, ratio)
            + QStringLiteral("' style='vertical-align: bottom'>&nbsp; ")
            + tr("%1 lives as a tray icon on your menu bar.").arg(Constants::NAME);
    } else {
        // The steps are the desktop's own: the backend knows where its switch is.
        text += tr("%1 needs permissions to use accessibility features.").arg(Constants::NAME)
            + QStringLiteral(" ") + tr("To turn them on:") + QStringLiteral("<ol>");
        for (const QString &step : desktop::accessibilitySteps())
            text += QStringLiteral("<li>") + step;
        text += QStringLiteral("</ol>");
    }
    textLabel->setText(text);
}
