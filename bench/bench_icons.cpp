// Application icons ("ai") at 256 px: a plain PNG encode of the icon as the baseline, the first
// answer (render and encode), and the answer when asked again (from the per-size cache), both
// through the real server and an encrypted client on loopback. It measures; it never passes or
// fails.

#include "corefixture.h"
#include "l.h"
#include "testenvironment.h"

#include <QApplication>
#include <QBuffer>
#include <QElapsedTimer>
#include <QFile>
#include <QIcon>
#include <QLoggingCategory>
#include <QPainter>
#include <QRadialGradient>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {
// An icon like the ones desktops ship: a theme's 256 and 512 px images when there are some,
// else a drawn one with gradients and soft edges.
QIcon sampleIcon(int variant)
{
    static const char *themed[]
        = { "/usr/share/icons/Adwaita/256x256/legacy/utilities-terminal.png",
              "/usr/share/icons/Adwaita/512x512/legacy/utilities-terminal.png" };
    QIcon icon;
    for (const char *path : themed) {
        if (QFile::exists(QLatin1String(path)))
            icon.addFile(QLatin1String(path));
    }
    if (!icon.availableSizes().isEmpty() && variant == 0)
        return icon;
    QImage image(512, 512, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    QRadialGradient gradient(200, 180, 380);
    gradient.setColorAt(0, QColor::fromHsv((variant * 47) % 360, 120, 250));
    gradient.setColorAt(1, QColor::fromHsv((variant * 47 + 60) % 360, 200, 120));
    painter.setBrush(gradient);
    painter.setPen(Qt::NoPen);
    painter.drawRoundedRect(QRectF(32, 32, 448, 448), 96, 96);
    painter.setBrush(QColor(255, 255, 255, 220));
    painter.drawEllipse(QPointF(256, 256), 120, 120);
    painter.end();
    icon.addPixmap(QPixmap::fromImage(image));
    return icon;
}

struct Stats
{
    double p50 = 0;
    double p99 = 0;
};

Stats stats(std::vector<double> times)
{
    std::sort(times.begin(), times.end());
    return { times[times.size() / 2], times[std::min(times.size() - 1, times.size() * 99 / 100)] };
}
} // namespace

int main(int argc, char *argv[])
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    QLoggingCategory::setFilterRules(QStringLiteral("*.warning=false"));
    TestEnvironment::setUp();
    CoreFixture fixture;
    constexpr int apps = 40;
    for (int i = 0; i < apps; ++i)
        fixture.platform
            ->addApp(QStringLiteral("org.bench.App%1").arg(i), QStringLiteral("App %1").arg(i))
            ->icon
            = sampleIcon(i % 5);
    if (!fixture.start())
        return 1;
    ProtocolClient *client = fixture.connectClient(QStringLiteral("bench"));
    if (!client)
        return 1;

    // Baseline: the icon rendered and encoded as PNG at Qt's default settings, nothing else.
    std::vector<double> plain;
    qint64 plainBytes = 0;
    for (int i = 0; i < apps; ++i) {
        const QIcon icon = sampleIcon(i % 5);
        QElapsedTimer timer;
        timer.start();
        QByteArray png;
        QBuffer buffer(&png);
        buffer.open(QIODevice::WriteOnly);
        icon.pixmap(256, 256).save(&buffer, "PNG");
        plain.push_back(timer.nsecsElapsed() / 1e6);
        plainBytes += png.size();
    }

    client->setKeepFrames(false);
    // Sends one request and runs the event loop until its answer is decoded.
    auto roundTrip = [&](const QJsonObject &request, const QString &code) {
        QEventLoop loop;
        const QMetaObject::Connection done = QObject::connect(
            client, &ProtocolClient::frameReceived, &loop, [&](const Frame &frame) {
                if (frame.method() == code)
                    loop.quit();
            });
        QTimer::singleShot(5000, &loop, &QEventLoop::quit);
        QElapsedTimer timer;
        timer.start();
        client->send(request);
        loop.exec();
        QObject::disconnect(done);
        return timer.nsecsElapsed() / 1e6;
    };
    auto ask = [&](int i) {
        return roundTrip(
            QJsonObject { { L::method, L::appIcon },
                { L::id, QStringLiteral("org.bench.App%1").arg(i) }, { L::size, 256 } },
            L::appIcon);
    };
    // The round trip of a tiny request, to see what the loopback and the encryption cost.
    std::vector<double> trip;
    for (int i = 0; i < 200; ++i)
        trip.push_back(roundTrip(QJsonObject { { L::method, L::unsupported } }, L::unsupported));
    std::vector<double> first;
    std::vector<double> again;
    for (int i = 0; i < apps; ++i)
        first.push_back(ask(i));
    qint64 sentBytes = 0;
    for (int i = 0; i < apps; ++i)
        sentBytes += fixture.platform->appforId(QStringLiteral("org.bench.App%1").arg(i))
                         ->iconPng(256)
                         .size();
    for (int round = 0; round < 10; ++round) {
        for (int i = 0; i < apps; ++i)
            again.push_back(ask(i));
    }

    const Stats base = stats(plain);
    const Stats tiny = stats(trip);
    const Stats cold = stats(first);
    const Stats warm = stats(again);
    std::printf("app icons at 256 px, %d applications\n", apps);
    std::printf("  plain render + PNG encode (Qt defaults)   p50 %7.3f ms  p99 %7.3f ms\n",
        base.p50, base.p99);
    std::printf("  \"un\" round trip (loopback, encryption)    p50 %7.3f ms  p99 %7.3f ms\n",
        tiny.p50, tiny.p99);
    std::printf("  \"ai\" first answer (render + encode)       p50 %7.3f ms  p99 %7.3f ms  ratio "
                "to plain %.2f\n",
        cold.p50, cold.p99, cold.p50 / base.p50);
    std::printf("  \"ai\" asked again (cached PNG)             p50 %7.3f ms  p99 %7.3f ms  ratio "
                "to plain %.2f\n",
        warm.p50, warm.p99, warm.p50 / base.p50);
    std::printf("  PNG size: default compression %lld bytes per icon, sent %lld (ratio %.2f)\n",
        plainBytes / apps, sentBytes / apps, double(sentBytes) / double(plainBytes));
    return 0;
}
