#include "QueueFakes.h"
#include "TestMain.h"

#include "app/LinkHandOver.h"

#include <QDBusConnectionInterface>
#include <QProcess>
#include <QScopeGuard>
#include <QStandardPaths>
#include <QTest>

namespace {
// Probes are held, so handed-over links stay listed.
struct HandOverRig : queuetest::QueueRig {
    queuetest::FakeClipboard clipboard;
    LinkHandOver handOver{queue, clipboard};
    HandOverRig() { engine.holdProbe = true; }
};
} // namespace

class LinkHandOverTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void parsesLinksAndClipboardOption_data() {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QStringList>("links");
        QTest::addColumn<bool>("clipboard");
        const QString a = QStringLiteral("https://www.youtube.com/watch?v=abc"), b = QStringLiteral("http://example.com/v/1");
        QTest::newRow("links in order") << QStringList{a, b} << QStringList{a, b} << false;
        QTest::newRow("clipboard") << QStringList{QStringLiteral("--from-clipboard")} << QStringList{} << true;
        QTest::newRow("not web links")
            << QString::fromLatin1("ftp://example.com/x /home/me/a.mp4 example.com/v https:// --unknown").split(u' ') << QStringList{} << false;
        QTest::newRow("trimmed, mixed") << QStringList{u' ' + a + u'\n', QStringLiteral("--from-clipboard")} << QStringList{a}
                                        << true;
    }
    void parsesLinksAndClipboardOption() {
        QFETCH(QStringList, arguments);
        arguments.prepend(QStringLiteral("vorlix"));
        const LinkHandOver::Request request = LinkHandOver::parse(arguments);
        QTEST(request.links, "links");
        QTEST(request.fromClipboard, "clipboard");
    }

    // A later start reaches the running instance over a real bus; non-links sent by anyone
    // else on the bus are dropped. The first start's own request goes straight to the queue.
    void laterStartHandsOverThroughTheBus() {
        if (QStandardPaths::findExecutable(QStringLiteral("dbus-daemon")).isEmpty())
            QSKIP("needs dbus-daemon (scripts/setup.sh installs it)");
        QProcess daemon;
        const auto stop = qScopeGuard([&] {
            daemon.terminate();
            daemon.waitForFinished(5000);
        });
        daemon.start(QStringLiteral("dbus-daemon"), QString::fromLatin1("--session --nofork --print-address=1").split(u' '));
        QVERIFY(daemon.waitForReadyRead(15000));
        const QString address = QString::fromLatin1(daemon.readLine().trimmed());
        const QString service = QStringLiteral("app.vorlix.test");
        {
            QDBusConnection running = QDBusConnection::connectToBus(address, QStringLiteral("running"));
            QDBusConnection later = QDBusConnection::connectToBus(address, QStringLiteral("later"));
            QVERIFY(running.isConnected() && later.isConnected());
            QVERIFY(running.registerService(service));

            HandOverRig rig;
            rig.handOver.handle({{}, true}); // the first start's own request, nothing on the clipboard
            QVERIFY(rig.queue.items().isEmpty());
            QVERIFY(rig.handOver.listen(running));
            rig.clipboard.content = QStringLiteral("https://example.com/v/clip");
            const QString link = QStringLiteral("https://example.com/v/2");
            QVERIFY(LinkHandOver::send({{link}, true}, service, later));
            QVERIFY(LinkHandOver::send({{QStringLiteral("file:///etc/passwd")}, false}, service, later));
            QCOMPARE(rig.urls(), (QStringList{link, QStringLiteral("https://example.com/v/clip")}));
            // Nobody holds the name any more: the sender learns the links did not arrive.
            running.unregisterService(service);
            QVERIFY(!LinkHandOver::send({{link}, false}, service, later));
        }
        QDBusConnection::disconnectFromBus(QStringLiteral("running"));
        QDBusConnection::disconnectFromBus(QStringLiteral("later"));
    }
};

VORLIX_TEST_SUITE(LinkHandOverTest)
#include "LinkHandOverTest.moc"
