// Fetches one URL through the program's shared caching client and prints the body: a separate
// process, so that tests can see the cache outlive it.
#include "constants.h"
#include "http.h"
#include "httputils.h"

#include <QCoreApplication>
#include <cstdio>

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(Constants::UNIX_NAME);
    QCoreApplication::setOrganizationName(Constants::ORG_NAME);
    if (argc < 2)
        return 2;
    HttpReply *reply = HttpUtils::cached().get(QUrl(QString::fromUtf8(argv[1])));
    int status = 1;
    QObject::connect(reply, &HttpReply::data, [&status](const QByteArray &body) {
        std::fwrite(body.constData(), 1, size_t(body.size()), stdout);
        status = 0;
    });
    QObject::connect(reply, &HttpReply::finished, &app, [] { QCoreApplication::quit(); });
    app.exec();
    return status;
}
