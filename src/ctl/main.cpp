#include "ctl.h"

#include "constants.h"

#include <QCoreApplication>

#include <cstdio>

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("velmctl"));
    QCoreApplication::setApplicationVersion(Constants::VERSION);
    QTextStream out(stdout);
    QTextStream err(stderr);

    CtlOptions options;
    QString error;
    if (!parseCtlArguments(QCoreApplication::arguments(), &options, &error)
        || !(error = checkCtlCommand(options)).isEmpty()) {
        err << "velmctl: " << error << "\n\n" << usageText();
        return Exit::Usage;
    }
    if (options.command == QLatin1String("version")) {
        out << "velmctl " << Constants::VERSION << '\n';
        return Exit::Done;
    }
    Ctl ctl(options, out, err);
    QObject::connect(
        &ctl, &Ctl::finished, &app, [](int code) { QCoreApplication::exit(code); },
        Qt::QueuedConnection);
    ctl.start();
    return app.exec();
}
