// A Qt 5 window for the accessibility tests: a menu bar (with a disabled entry, a submenu and a
// separator, submenus two and three levels deep), a one-line entry, a text area, a list and a
// button. What is invoked, typed and pressed goes to the log file, one line each.
//   usage: qt_app LOG [--title TEXT] [--tab-leaves-area]
#include <QApplication>
#include <QFile>
#include <QLineEdit>
#include <QListWidget>
#include <QMainWindow>
#include <QMenuBar>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSocketNotifier>
#include <QTimer>
#include <QVBoxLayout>

namespace {
QFile logFile;

void record(const QString &line)
{
    logFile.write(line.toUtf8() + '\n');
    logFile.flush();
}
} // namespace

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    const QStringList arguments = app.arguments();
    if (arguments.size() < 2)
        return 2;
    logFile.setFileName(arguments.at(1));
    if (!logFile.open(QIODevice::Append))
        return 2;
    const int titleAt = arguments.indexOf(QStringLiteral("--title"));
    const QString title = titleAt > 0 && titleAt + 1 < arguments.size()
        ? arguments.at(titleAt + 1)
        : QStringLiteral("Qt Probe");

    QMainWindow window;
    window.setWindowTitle(title);
    window.resize(480, 360);
    auto addItem = [](QMenu *menu, const QString &text, bool enabled = true) {
        QAction *action = menu->addAction(text);
        action->setEnabled(enabled);
        QObject::connect(
            action, &QAction::triggered, [text] { record(QStringLiteral("menu ") + text); });
        return action;
    };
    // Names that a client must never see, as on a Mac: the system menu and the services.
    addItem(window.menuBar()->addMenu(QStringLiteral("Apple")), QStringLiteral("About"));
    QMenu *file = window.menuBar()->addMenu(QStringLiteral("File"));
    QObject::connect(file, &QMenu::aboutToShow, [] { record(QStringLiteral("open File")); });
    addItem(file, QStringLiteral("New"));
    addItem(file, QStringLiteral("Locked"), false);
    file->addSeparator();
    QMenu *recent = file->addMenu(QStringLiteral("Recent"));
    addItem(recent, QStringLiteral("First File"));
    addItem(recent, QStringLiteral("Second File"));
    QMenu *disabled = file->addMenu(QStringLiteral("Disabled Tools"));
    addItem(disabled, QStringLiteral("Hidden Tool"));
    disabled->setEnabled(false);
    addItem(file->addMenu(QStringLiteral("Services")), QStringLiteral("Share"));
    QMenu *edit = window.menuBar()->addMenu(QStringLiteral("Edit"));
    addItem(edit, QStringLiteral("Copy"));
    addItem(edit, QStringLiteral("Paste"));
    // Submenus that are never opened before their entries are invoked. A line "rebuild" on
    // standard input makes them anew, as programs rebuild menus of recent files.
    QMenu *transform = edit->addMenu(QStringLiteral("Transform"));
    const auto fillTransform = [transform, addItem] {
        transform->clear();
        addItem(transform, QStringLiteral("Upper"));
        addItem(transform->addMenu(QStringLiteral("Case")), QStringLiteral("Title"));
    };
    fillTransform();

    auto *central = new QWidget;
    auto *layout = new QVBoxLayout(central);
    auto *entry = new QLineEdit(QStringLiteral("hello world"));
    entry->setAccessibleName(QStringLiteral("Search"));
    // The caret waits after the third character.
    entry->setCursorPosition(3);
    QObject::connect(entry, &QLineEdit::textChanged,
        [](const QString &text) { record(QStringLiteral("entry ") + text); });
    auto *area = new QPlainTextEdit(QStringLiteral("first line\nsecond line"));
    area->setAccessibleName(QStringLiteral("Notes"));
    area->setTabChangesFocus(arguments.contains(QStringLiteral("--tab-leaves-area")));
    QObject::connect(area, &QPlainTextEdit::textChanged, [area] {
        record(QStringLiteral("area ")
            + area->toPlainText().replace(QLatin1Char('\n'), QStringLiteral("\\n")));
    });
    auto *list = new QListWidget;
    list->setAccessibleName(QStringLiteral("Names"));
    list->addItems({ QStringLiteral("alpha"), QStringLiteral("beta") });
    auto *button = new QPushButton(QStringLiteral("Press Me"));
    QObject::connect(button, &QPushButton::clicked, [] { record(QStringLiteral("button")); });
    layout->addWidget(entry);
    layout->addWidget(area);
    layout->addWidget(button);
    layout->addWidget(list);
    window.setCentralWidget(central);

    // Commands on standard input: "rebuild" makes the Transform submenu anew; "focus entry",
    // "focus area" and "focus button" move the keyboard focus.
    QSocketNotifier input(0, QSocketNotifier::Read);
    QFile standardInput;
    standardInput.open(0, QIODevice::ReadOnly);
    QObject::connect(&input, &QSocketNotifier::activated, [&] {
        const QByteArray line = standardInput.readLine().trimmed();
        if (line.isEmpty() && standardInput.atEnd())
            input.setEnabled(false);
        if (line == "rebuild") {
            fillTransform();
            record(QStringLiteral("rebuilt"));
        } else if (line == "focus entry") {
            entry->setFocus();
        } else if (line == "focus area") {
            area->setFocus();
        } else if (line == "focus button") {
            button->setFocus();
        }
    });
    window.show();
    QTimer::singleShot(0, [] { record(QStringLiteral("ready")); });
    return app.exec();
}
