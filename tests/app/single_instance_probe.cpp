// A program that is what the server is to the single-instance check: it prints "primary <id>"
// when it becomes the primary, one "started" line for every instanceStarted(), and quits when
// its standard input closes. A second copy ends inside the constructor.
#include "constants.h"
#include "singleapplication.h"

#include <QSocketNotifier>
#include <cstdio>
#include <unistd.h>

int main(int argc, char *argv[])
{
    QCoreApplication::setApplicationName(Constants::UNIX_NAME);
    QCoreApplication::setOrganizationName(Constants::ORG_NAME);
    QCoreApplication::setOrganizationDomain(Constants::ORG_DOMAIN);
    QCoreApplication::setApplicationVersion(Constants::VERSION);
    SingleApplication app(argc, argv, false, SingleApplication::User, 1000);
    std::printf("primary %s\n", qPrintable(app.blockServerName()));
    std::fflush(stdout);
    QObject::connect(&app, &SingleApplication::instanceStarted, [] {
        std::printf("started\n");
        std::fflush(stdout);
    });
    QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
    QObject::connect(&input, &QSocketNotifier::activated, &app, [&input] {
        char buffer[64];
        if (::read(STDIN_FILENO, buffer, sizeof buffer) <= 0) {
            input.setEnabled(false);
            QCoreApplication::quit();
        }
    });
    return app.exec();
}
