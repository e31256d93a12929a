// The documents read from the web service: a command set (its "b") and the website catalogue
// (its "i" with "n" and "d"). Any bytes: no crash, and the command set is kept as received.

#include "app.h"
#include "cachedhttp.h"
#include "core.h"

#include <QCoreApplication>
#include <QLoggingCategory>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace {
class FuzzApp : public App
{
public:
    FuzzApp()
        : App(QStringLiteral("org.fuzz.app.Helper"))
    { }
    void launch() override { }
    void activate() override { }
    void quit() override { }
    void hide() override { }
    void close() override { }
    void toggleMiniminize() override { }
    void toggleMaximize() override { }
    bool supportsFullscreen() override { return false; }
    void toggleFullscreen() override { }
    void scroll(int, int) override { }
    void performKeySequence(const QString &) override { }
    const std::vector<MenuItem> &getMenuItems() override { return menu; }
    void performMenu(const QString &) override { }
    void setFocusValue(const QString &) override { }
    void performFocusedElement() override { }

private:
    std::vector<MenuItem> menu;
};
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static int argc = 1;
    static char name[] = "fuzz";
    static char *argv[] = { name, nullptr };
    static QCoreApplication *app = [] {
        auto *application = new QCoreApplication(argc, argv);
        QLoggingCategory::setFilterRules(QStringLiteral("velm.*=false"));
        return application;
    }();
    Q_UNUSED(app)
    const QByteArray bytes(reinterpret_cast<const char *>(data), int(size));

    FuzzApp target;
    CachedHttpReply reply(
        bytes, QUrl(QStringLiteral("http://127.0.0.1/velm-ws/app?q=org.fuzz.app.helper")), false);
    target.parseCommands(reply);
    if (!target.commandsAreLoaded || target.commands != bytes)
        abort();

    for (const QString &host : Core::siteHosts(bytes)) {
        if (host.isEmpty())
            abort();
    }
    return 0;
}
