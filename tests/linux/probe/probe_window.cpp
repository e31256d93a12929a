// A small desktop application for the window and keyboard tests. It shows one window and
// appends what it receives to a log file, one line each:
//   ready <window id>          once the window is shown
//   key <keysym hex> <modifiers hex> <text hex>   for every key press but modifier keys
//   wheel <up|down>            for every wheel step
//   close                      when asked to close (it then quits)
//   active <1|0>               when the window gains or loses the activation
//   fullscreen <1|0>           when it enters or leaves full screen
// Options: --log FILE (required), --class NAME (the WM_CLASS class), --title TEXT,
// --dock (a dock window), --skip-taskbar, --red-icon (a red window icon),
// --refuse-close (stays open when asked to close).
#include <QApplication>
#include <QCommandLineParser>
#include <QFile>
#include <QIcon>
#include <QKeyEvent>
#include <QPixmap>
#include <QTextStream>
#include <QWheelEvent>
#include <QWidget>
#include <QX11Info>

#include <xcb/xcb.h>

namespace {
QFile logFile;

void record(const QString &line)
{
    logFile.write(line.toUtf8() + '\n');
    logFile.flush();
}

xcb_atom_t atom(const char *name)
{
    xcb_connection_t *connection = QX11Info::connection();
    xcb_intern_atom_reply_t *reply = xcb_intern_atom_reply(
        connection, xcb_intern_atom(connection, 0, uint16_t(strlen(name)), name), nullptr);
    const xcb_atom_t result = reply ? reply->atom : xcb_atom_t(XCB_ATOM_NONE);
    free(reply);
    return result;
}
} // namespace

class ProbeWindow : public QWidget
{
public:
    bool refuseClose = false;
    bool wasFullscreen = false;

protected:
    void keyPressEvent(QKeyEvent *event) override
    {
        // Modifier keys arrive as presses of their own; the log keeps the keys they modify.
        switch (event->key()) {
        case Qt::Key_Shift:
        case Qt::Key_Control:
        case Qt::Key_Alt:
        case Qt::Key_Meta:
        case Qt::Key_Super_L:
        case Qt::Key_Super_R:
        case Qt::Key_AltGr:
            return;
        default:
            break;
        }
        record(QStringLiteral("key %1 %2 %3")
                   .arg(event->nativeVirtualKey(), 0, 16)
                   .arg(int(event->modifiers()
                            & (Qt::ShiftModifier | Qt::ControlModifier | Qt::AltModifier
                                | Qt::MetaModifier)),
                       0, 16)
                   .arg(QString::fromLatin1(event->text().toUtf8().toHex())));
    }
    void wheelEvent(QWheelEvent *event) override
    {
        record(event->angleDelta().y() > 0 ? QStringLiteral("wheel up")
                                           : QStringLiteral("wheel down"));
    }
    void changeEvent(QEvent *event) override
    {
        if (event->type() == QEvent::ActivationChange)
            record(QStringLiteral("active %1").arg(isActiveWindow() ? 1 : 0));
        if (event->type() == QEvent::WindowStateChange) {
            const bool fullscreen = windowState() & Qt::WindowFullScreen;
            if (fullscreen != wasFullscreen)
                record(QStringLiteral("fullscreen %1").arg(fullscreen ? 1 : 0));
            wasFullscreen = fullscreen;
        }
        QWidget::changeEvent(event);
    }
    void closeEvent(QCloseEvent *event) override
    {
        record(QStringLiteral("close"));
        if (refuseClose)
            event->ignore();
        else
            QWidget::closeEvent(event);
    }
};

int main(int argc, char *argv[])
{
    // The class must be known before the application object reads it.
    for (int i = 1; i + 1 < argc; ++i) {
        if (qstrcmp(argv[i], "--class") == 0)
            QCoreApplication::setApplicationName(QString::fromLocal8Bit(argv[i + 1]));
    }
    QApplication app(argc, argv);
    QCommandLineParser parser;
    const QCommandLineOption log(QStringLiteral("log"), QString(), QStringLiteral("file"));
    const QCommandLineOption className(QStringLiteral("class"), QString(), QStringLiteral("name"));
    const QCommandLineOption title(QStringLiteral("title"), QString(), QStringLiteral("text"));
    const QCommandLineOption dock(QStringLiteral("dock"));
    const QCommandLineOption skipTaskbar(QStringLiteral("skip-taskbar"));
    const QCommandLineOption refuseClose(QStringLiteral("refuse-close"));
    // Not "icon": Qt takes -icon/--icon for itself.
    const QCommandLineOption icon(QStringLiteral("red-icon"));
    parser.addOptions({ log, className, title, dock, skipTaskbar, refuseClose, icon });
    parser.process(app);
    logFile.setFileName(parser.value(log));
    if (!logFile.open(QIODevice::Append))
        return 2;

    ProbeWindow window;
    window.refuseClose = parser.isSet(refuseClose);
    window.setWindowTitle(parser.isSet(title) ? parser.value(title) : QStringLiteral("Probe"));
    window.setFocusPolicy(Qt::StrongFocus);
    window.resize(320, 200);
    if (parser.isSet(icon)) {
        // A plain red square, carried by the window itself (_NET_WM_ICON).
        QIcon red;
        for (int size : { 32, 64 }) {
            QPixmap pixmap(size, size);
            pixmap.fill(Qt::red);
            red.addPixmap(pixmap);
        }
        window.setWindowIcon(red);
    }
    if (parser.isSet(dock))
        window.setAttribute(Qt::WA_X11NetWmWindowTypeDock);
    if (parser.isSet(skipTaskbar)) {
        // Set before the window is mapped, so the window manager never lists it.
        window.winId();
        const xcb_atom_t state = atom("_NET_WM_STATE");
        const xcb_atom_t skip = atom("_NET_WM_STATE_SKIP_TASKBAR");
        xcb_change_property(QX11Info::connection(), XCB_PROP_MODE_REPLACE,
            xcb_window_t(window.winId()), state, XCB_ATOM_ATOM, 32, 1, &skip);
    }
    window.show();
    record(QStringLiteral("ready %1").arg(window.winId()));
    return app.exec();
}
