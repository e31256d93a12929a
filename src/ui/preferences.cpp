#include "preferences.h"

#include "constants.h"
#include "core.h"
#include "server.h"

#include <QCheckBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

Preferences::Preferences(QWidget *parent)
    : QDialog(parent)
{
    setAttribute(Qt::WA_DeleteOnClose);
    setWindowTitle(tr("%1 Preferences").arg(Constants::NAME));
    Core *core = Core::instance();

    auto *outer = new QHBoxLayout(this);
    outer->setSizeConstraint(QLayout::SetFixedSize);
    outer->setContentsMargins(30, 15, 30, 15);
    outer->setSpacing(30);
    auto *column = new QVBoxLayout;
    column->setAlignment(Qt::AlignTop);
    column->setSpacing(10);
    outer->addLayout(column);

    autostartBox = new QCheckBox(tr("Automatically start %1 at login").arg(Constants::NAME));
    autostartBox->setChecked(core->getAutostart());
    connect(autostartBox, &QCheckBox::toggled, core, &Core::setAutostart);
    column->addWidget(autostartBox);

    preventSleepBox = new QCheckBox(tr("Prevent sleep when clients are connected"));
    preventSleepBox->setChecked(core->getPreventSleep());
    connect(preventSleepBox, &QCheckBox::toggled, core, &Core::setPreventSleep);
    column->addWidget(preventSleepBox);

    column->addSpacing(30);

    Server *server = core->server;
    if (server && server->totalAuthorizations() > 0) {
        devicesLabel = new QLabel(
            tr("%1 devices authorized").arg(QString::number(server->totalAuthorizations())));
        column->addWidget(devicesLabel);
        deauthorizeButton = new QPushButton(tr("Deauthorize All"));
        deauthorizeButton->setSizePolicy(QSizePolicy::Minimum, QSizePolicy::Minimum);
        column->addWidget(deauthorizeButton, 0, Qt::AlignLeft);
        column->addSpacing(30);
        connect(deauthorizeButton, &QPushButton::clicked, this, [this, server] {
            server->deauthorizeAll();
            devicesLabel->clear();
            deauthorizeButton->setEnabled(false);
        });
    }
}
