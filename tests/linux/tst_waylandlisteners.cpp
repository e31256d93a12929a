#include "plasmasession.h"
#include "waylandconnection.h"
#include "wlrootssession.h"

#include <QtTest>

#include <wayland-client.h>

Q_DECLARE_METATYPE(WaylandListener)

// Every listener has a function for every event up to the version its global is bound at.
// libwayland aborts the program on an event without one, which is how KWin 6 (window
// management 18) brought the program down when it was bound at the header's version.
class TestWaylandListeners : public QObject
{
    Q_OBJECT
private slots:
    void eventsAreCountedFromTheirVersion();
    void everyListenerAnswersItsVersion_data();
    void everyListenerAnswersItsVersion();
};

void TestWaylandListeners::eventsAreCountedFromTheirVersion()
{
    // wl_seat: "capabilities" since 1, "name" since 2.
    const wl_seat_listener none {};
    QCOMPARE(
        unansweredEvents({ &wl_seat_interface, &none, 1 }), QList<QByteArray> { "capabilities" });
    QCOMPARE(unansweredEvents({ &wl_seat_interface, &none, 2 }),
        (QList<QByteArray> { "capabilities", "name" }));
    wl_seat_listener half {};
    half.capabilities = [](void *, wl_seat *, uint32_t) {};
    QCOMPARE(unansweredEvents({ &wl_seat_interface, &half, 1 }), QList<QByteArray>());
    QCOMPARE(unansweredEvents({ &wl_seat_interface, &half, 2 }), QList<QByteArray> { "name" });
    // An interface with events and no listener answers none of them.
    QCOMPARE(
        unansweredEvents({ &wl_seat_interface, nullptr, 1 }), QList<QByteArray> { "capabilities" });
}

void TestWaylandListeners::everyListenerAnswersItsVersion_data()
{
    QTest::addColumn<WaylandListener>("listener");
    QList<WaylandListener> all = WaylandSeat::listeners();
    all << PlasmaSession::listeners() << WlrootsSession::listeners();
    for (const WaylandListener &listener : qAsConst(all))
        QTest::newRow(listener.interface->name) << listener;
}

void TestWaylandListeners::everyListenerAnswersItsVersion()
{
    QFETCH(WaylandListener, listener);
    QVERIFY(listener.version >= 1);
    // The header this was built with knows the version claimed.
    QVERIFY2(listener.version <= uint32_t(listener.interface->version),
        qPrintable(
            QStringLiteral("%1 > %2").arg(listener.version).arg(listener.interface->version)));
    const QList<QByteArray> unanswered = unansweredEvents(listener);
    QVERIFY2(unanswered.isEmpty(), unanswered.join(", ").constData());
    if (uint32_t(listener.interface->version) > listener.version) {
        qInfo("%s: the header has version %d; bound at no more than %u", listener.interface->name,
            listener.interface->version, listener.version);
    }
}

QTEST_GUILESS_MAIN(TestWaylandListeners)
#include "tst_waylandlisteners.moc"
