#include "TestEnv.h"
#include "TestMain.h"

#include "app/LinkHandOver.h"
#include "core/AppSettings.h"
#include "queue/ClipboardSource.h"
#include "queue/DownloadQueue.h"
#include "queue/HistoryStore.h"
#include "queue/Notifier.h"

#include <QDBusConnectionInterface>
#include <QProcess>
#include <QScopeGuard>
#include <QStandardPaths>
#include <QTest>

namespace {

struct SilentNotifier : Notifier {
    void post(const QString &, const QString &) override {}
};

struct FakeClipboard : ClipboardSource {
    std::optional<QString> content;
    qint64 changeCount() const override { return 0; }
    std::optional<QString> text() const override { return content; }
};

// A queue whose probes fail at once, so added items stay listed without touching the network.
struct QueueRig {
    AppSettings settings{TestEnv::root() + QStringLiteral("/handover.ini")};
    HistoryStore history{TestEnv::root() + QStringLiteral("/handover-history.json")};
    SilentNotifier notifier;
    FakeClipboard clipboard;
    DownloadQueue queue{settings, history, notifier, services()};
    LinkHandOver handOver{queue, clipboard};

    static DownloadQueue::Services services() {
        DownloadQueue::Services s;
        s.probe = [](QString) -> QCoro::Task<ProbeResult> {
            throw YtDlpError::probeFailed(QStringLiteral("offline"));
            co_return ProbeResult{};
        };
        s.isSpotifyTrackURL = [](const QString &) { return false; };
        return s;
    }
    // Oldest first (the queue lists the newest on top).
    QStringList urls() const {
        QStringList out;
        for (const DownloadItemPtr &item : queue.items())
            out.prepend(item->url());
        return out;
    }
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
        QTest::newRow("none") << QStringList{} << QStringList{} << false;
        QTest::newRow("links in order") << QStringList{a, b} << QStringList{a, b} << false;
        QTest::newRow("clipboard") << QStringList{QStringLiteral("--from-clipboard")} << QStringList{} << true;
        QTest::newRow("not web links") << QStringList{QStringLiteral("ftp://example.com/x"), QStringLiteral("/home/me/a.mp4"),
                                                      QStringLiteral("example.com/v"), QStringLiteral("https://"),
                                                      QStringLiteral("--unknown")}
                                       << QStringList{} << false;
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

    void firstInstanceQueuesItsOwnRequest() {
        QueueRig rig;
        rig.handOver.handle({});
        QVERIFY(rig.queue.items().isEmpty());
        rig.handOver.handle({{}, true}); // nothing on the clipboard: nothing queued
        QVERIFY(rig.queue.items().isEmpty());
        rig.clipboard.content = QStringLiteral("https://example.com/v/clip");
        rig.handOver.handle({{QStringLiteral("https://example.com/v/1")}, true});
        QCOMPARE(rig.urls(), (QStringList{QStringLiteral("https://example.com/v/1"), QStringLiteral("https://example.com/v/clip")}));
    }

    // A later start reaches the running instance over a real bus; non-links sent by anyone
    // else on the bus are dropped.
    void laterStartHandsOverThroughTheBus() {
        if (QStandardPaths::findExecutable(QStringLiteral("dbus-daemon")).isEmpty())
            QSKIP("needs dbus-daemon (scripts/setup.sh installs it)");
        QProcess daemon;
        const auto stop = qScopeGuard([&] {
            daemon.terminate();
            daemon.waitForFinished(5000);
        });
        daemon.start(QStringLiteral("dbus-daemon"), {QStringLiteral("--session"), QStringLiteral("--nofork"),
                                                     QStringLiteral("--print-address=1")});
        QVERIFY(daemon.waitForReadyRead(15000));
        const QString address = QString::fromLatin1(daemon.readLine().trimmed());
        const QString service = QStringLiteral("app.vorlix.test");
        {
            QDBusConnection running = QDBusConnection::connectToBus(address, QStringLiteral("running"));
            QDBusConnection later = QDBusConnection::connectToBus(address, QStringLiteral("later"));
            QVERIFY(running.isConnected() && later.isConnected());
            QVERIFY(running.registerService(service));

            QueueRig rig;
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
