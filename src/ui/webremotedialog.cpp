#include "webremotedialog.h"

#include "constants.h"

#include <QApplication>
#include <QClipboard>
#include <QDialogButtonBox>
#include <QLabel>
#include <QPixmap>
#include <QPushButton>
#include <QVBoxLayout>

#include <qrencode.h>

namespace {
constexpr int quietZone = 4;
constexpr int codeSize = 240;
} // namespace

WebRemoteDialog::WebRemoteDialog(QWidget *parent)
    : QDialog(parent)
{
    setWindowTitle(tr("%1 Web Remote").arg(Constants::NAME));
    auto *layout = new QVBoxLayout(this);
    auto *intro = new QLabel(tr("Open this address in a browser on a phone, tablet or computer "
                                "on the same network, or point a phone's camera at the code:"));
    intro->setWordWrap(true);
    layout->addWidget(intro);
    addressLabel = new QLabel;
    addressLabel->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::LinksAccessibleByMouse);
    addressLabel->setOpenExternalLinks(true);
    addressLabel->setAlignment(Qt::AlignCenter);
    QFont big = addressLabel->font();
    big.setPointSizeF(big.pointSizeF() * 1.3);
    addressLabel->setFont(big);
    layout->addWidget(addressLabel);
    codeLabel = new QLabel;
    codeLabel->setAlignment(Qt::AlignCenter);
    codeLabel->setMinimumSize(codeSize, codeSize);
    layout->addWidget(codeLabel);
    auto *note = new QLabel(tr("The device still has to be approved here the first time."));
    note->setWordWrap(true);
    layout->addWidget(note);

    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Close);
    QPushButton *copy = buttons->addButton(tr("Copy Address"), QDialogButtonBox::ActionRole);
    connect(copy, &QPushButton::clicked, this,
        [this] { QApplication::clipboard()->setText(m_address); });
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::close);
    layout->addWidget(buttons);
}

void WebRemoteDialog::setAddress(const QString &address)
{
    m_address = address;
    if (address.isEmpty()) {
        addressLabel->setText(tr("The server is not listening yet."));
        codeLabel->clear();
        return;
    }
    addressLabel->setText(QStringLiteral("<a href=\"%1\">%1</a>").arg(address.toHtmlEscaped()));
    const QImage code = qrCode(address);
    if (code.isNull()) {
        codeLabel->clear();
        return;
    }
    // Whole pixels per module keep the code sharp for a camera.
    const qreal ratio = devicePixelRatioF();
    const int scale = qMax(1, int(codeSize * ratio) / code.width());
    QPixmap pixmap = QPixmap::fromImage(
        code.scaled(code.size() * scale, Qt::IgnoreAspectRatio, Qt::FastTransformation));
    pixmap.setDevicePixelRatio(ratio);
    codeLabel->setPixmap(pixmap);
}

QImage WebRemoteDialog::qrCode(const QString &text)
{
    const QByteArray utf8 = text.toUtf8();
    QRcode *code = QRcode_encodeString(utf8.constData(), 0, QR_ECLEVEL_M, QR_MODE_8, 1);
    if (!code)
        return QImage();
    const int size = code->width + 2 * quietZone;
    QImage image(size, size, QImage::Format_Mono);
    image.setColor(0, qRgb(255, 255, 255));
    image.setColor(1, qRgb(0, 0, 0));
    image.fill(0);
    for (int y = 0; y < code->width; ++y) {
        for (int x = 0; x < code->width; ++x) {
            // The lowest bit of each module says whether it is dark.
            if (code->data[y * code->width + x] & 1)
                image.setPixel(x + quietZone, y + quietZone, 1);
        }
    }
    QRcode_free(code);
    return image;
}
