#include "QueueFakes.h"
#include "TestEnv.h"
#include "TestMain.h"

#include "queue/BatchText.h"
#include "queue/ClipboardSource.h"
#include "queue/ClipboardWatcher.h"
#include "queue/InboxWatcher.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTest>

#include <algorithm>

#include <unistd.h>

using namespace queuetest;

namespace {

struct FakeClipboard : ClipboardSource {
    qint64 count = 7;
    std::optional<QString> content;
    qint64 changeCount() const override { return count; }
    std::optional<QString> text() const override { return content; }
    void copy(const std::optional<QString> &text) {
        content = text;
        ++count;
    }
};

// Oldest first, the order links were handed over.
QStringList queuedInOrder(const QueueRig &rig)
{
    QStringList urls = rig.urls();
    std::reverse(urls.begin(), urls.end());
    return urls;
}

bool writeFile(const QString &path, const QByteArray &bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size();
}

QByteArray readFile(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray("<unreadable>");
}

} // namespace

class LinkIntakeTest : public QObject {
    Q_OBJECT
    int m_rigs = 0;
    std::unique_ptr<QueueRig> rig() {
        auto r = std::make_unique<QueueRig>(QStringLiteral("intake-") + QString::number(++m_rigs));
        // Hold probes so the queued links stay visible and active.
        r->engine.holdProbe = true;
        r->settings.setMaxConcurrent(1);
        return r;
    }

private Q_SLOTS:
    void extractURLs_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QStringList>("expected");
        const QString a = QStringLiteral("https://www.youtube.com/watch?v=abc");
        QTest::newRow("none") << QStringLiteral("no links here, just words. www.example.com") << QStringList();
        QTest::newRow("empty") << QString() << QStringList();
        QTest::newRow("punctuation then repeat")
            << QStringLiteral("see (%1), then again %1.").arg(a) << QStringList{a};
        QTest::newRow("all trailing marks") << QStringLiteral("x https://a.example/p.,;:)]}!? y")
                                            << QStringList{QStringLiteral("https://a.example/p")};
        QTest::newRow("paren inside link is cut too")
            << QStringLiteral("https://en.example.org/wiki/Foo_(bar)") << QStringList{QStringLiteral("https://en.example.org/wiki/Foo_(bar")};
        QTest::newRow("angle brackets") << QStringLiteral("<https://vimeo.com/123>")
                                        << QStringList{QStringLiteral("https://vimeo.com/123")};
        QTest::newRow("quotes") << QStringLiteral("href=\"https://a.example/x\" and 'http://b.example/y'")
                                << QStringList{QStringLiteral("https://a.example/x"), QStringLiteral("http://b.example/y")};
        QTest::newRow("upper-case scheme is not a link") << QStringLiteral("HTTPS://A.EXAMPLE/ and Https://b.example/")
                                                         << QStringList();
        QTest::newRow("order of first occurrence, case-sensitive")
            << QStringLiteral("http://b.example\nhttp://a.example\thttp://B.example http://b.example")
            << QStringList{QStringLiteral("http://b.example"), QStringLiteral("http://a.example"), QStringLiteral("http://B.example")};
        QTest::newRow("bare scheme keeps what is left") << QStringLiteral("https://.") << QStringList{QStringLiteral("https://")};
    }
    void extractURLs() {
        QFETCH(QString, text);
        QFETCH(QStringList, expected);
        QCOMPARE(BatchView::extractURLs(text), expected);
    }

    void isMediaURL_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("accepted");
        QTest::newRow("youtube") << QStringLiteral("https://www.youtube.com/watch?v=x") << true;
        QTest::newRow("short link") << QStringLiteral("https://youtu.be/x") << true;
        QTest::newRow("music") << QStringLiteral("https://music.youtube.com/watch?v=x") << true;
        QTest::newRow("vimeo") << QStringLiteral("https://vimeo.com/1") << true;
        QTest::newRow("tiktok sub-domain") << QStringLiteral("https://vm.tiktok.com/x") << true;
        QTest::newRow("instagram") << QStringLiteral("https://www.instagram.com/reel/x") << true;
        QTest::newRow("facebook") << QStringLiteral("https://facebook.com/watch?v=1") << true;
        QTest::newRow("fb.watch") << QStringLiteral("https://fb.watch/x") << true;
        QTest::newRow("soundcloud") << QStringLiteral("https://soundcloud.com/a/b") << true;
        QTest::newRow("twitch") << QStringLiteral("https://www.twitch.tv/v") << true;
        QTest::newRow("dailymotion") << QStringLiteral("https://www.dailymotion.com/video/x") << true;
        QTest::newRow("x") << QStringLiteral("https://x.com/a/status/1") << true;
        QTest::newRow("twitter") << QStringLiteral("https://twitter.com/a/status/1") << true;
        QTest::newRow("spotify web player") << QStringLiteral("https://open.spotify.com/track/1") << true;
        QTest::newRow("bandcamp artist") << QStringLiteral("https://artist.bandcamp.com/track/y") << true;
        QTest::newRow("upper-case host and scheme") << QStringLiteral("HTTPS://WWW.YOUTUBE.COM/watch?v=x") << true;
        QTest::newRow("surrounding white space") << QStringLiteral("  https://youtu.be/x \n") << true;
        QTest::newRow("bare spotify domain") << QStringLiteral("https://spotify.com/track/1") << false;
        QTest::newRow("look-alike host") << QStringLiteral("https://notyoutube.com/watch") << false;
        QTest::newRow("host as a path") << QStringLiteral("https://evil.example/youtube.com") << false;
        QTest::newRow("unsupported") << QStringLiteral("https://example.com/video") << false;
        QTest::newRow("space inside") << QStringLiteral("https://youtu.be/x y") << false;
        QTest::newRow("other scheme") << QStringLiteral("ftp://youtube.com/x") << false;
        QTest::newRow("no host") << QStringLiteral("https:///watch") << false;
        QTest::newRow("empty") << QString() << false;
    }
    void isMediaURL() {
        QFETCH(QString, text);
        QFETCH(bool, accepted);
        QCOMPARE(ClipboardWatcher::isMediaURL(text), accepted);
        QCOMPARE(ClipboardWatcher::mediaHosts().size(), 15);
    }

    void clipboardQueuesOnlyNewSupportedFirstLines() {
        auto r = rig();
        r->settings.setSmartMode(true);
        FakeClipboard clip;
        clip.content = QStringLiteral("https://youtu.be/before");
        ClipboardWatcher watcher(clip, r->settings, r->queue);
        watcher.check();
        QVERIFY2(r->queue.items().isEmpty(), "what was copied before the watcher existed is never queued");

        clip.copy(QStringLiteral("  https://youtu.be/one\n"));
        watcher.check();
        watcher.check(); // no change: nothing new
        clip.copy(QStringLiteral("just a note"));
        watcher.check();
        clip.copy(std::nullopt); // an image, say
        watcher.check();
        clip.copy(QStringLiteral("https://vimeo.com/2\r\nhttps://vimeo.com/3"));
        watcher.check();
        clip.copy(QStringLiteral("https://example.com/not-a-media-site"));
        watcher.check();
        clip.copy(QStringLiteral("\u2028 https://soundcloud.com/a/b\u2029https://vimeo.com/4"));
        watcher.check();
        QCOMPARE(queuedInOrder(*r), (QStringList{QStringLiteral("https://youtu.be/one"), QStringLiteral("https://vimeo.com/2"),
                                                 QStringLiteral("https://soundcloud.com/a/b")}));
        QCOMPARE(r->queue.lastMessage().value_or(QString()), QStringLiteral("Smart Mode \u00B7 queued link"));
    }

    void clipboardRespectsSmartModeAndRestartBaseline() {
        auto r = rig();
        FakeClipboard clip;
        ClipboardWatcher watcher(clip, r->settings, r->queue);
        watcher.start();
        QVERIFY(watcher.isRunning());
        r->settings.setSmartMode(false);
        clip.copy(QStringLiteral("https://youtu.be/while-off"));
        watcher.check();
        QVERIFY(r->queue.items().isEmpty());

        // Switching on from the window restarts the watcher: the old copy counts as seen.
        r->settings.setSmartMode(true);
        watcher.start();
        watcher.check();
        QVERIFY(r->queue.items().isEmpty());

        // The timer itself polls.
        clip.copy(QStringLiteral("https://youtu.be/by-timer"));
        QTRY_COMPARE_WITH_TIMEOUT(r->urls(), QStringList{QStringLiteral("https://youtu.be/by-timer")}, 3000);
        watcher.stop();
        QVERIFY(!watcher.isRunning());
    }

    void clipboardCopiedTwiceQueuesAgainAfterItEnds() {
        auto r = rig();
        r->settings.setSmartMode(true);
        r->engine.holdProbe = false;
        r->engine.probeErrors.insert(QStringLiteral("https://youtu.be/again"), QStringLiteral("Video unavailable"));
        FakeClipboard clip;
        ClipboardWatcher watcher(clip, r->settings, r->queue);
        clip.copy(QStringLiteral("https://youtu.be/again"));
        watcher.check();
        clip.copy(QStringLiteral("https://youtu.be/again"));
        watcher.check();
        QCOMPARE(r->queue.items().size(), 2);
    }

    void clipboardWithHugeText() {
        auto r = rig();
        r->settings.setSmartMode(true);
        FakeClipboard clip;
        ClipboardWatcher watcher(clip, r->settings, r->queue);
        QString huge = QStringLiteral("https://youtu.be/huge ");
        huge += QString(10 * 1024 * 1024, u'x');
        clip.copy(huge);
        watcher.check();
        QVERIFY(r->queue.items().isEmpty());
        clip.copy(QStringLiteral("https://youtu.be/huge\n") + QString(10 * 1024 * 1024, u'y'));
        watcher.check();
        QCOMPARE(r->urls(), QStringList{QStringLiteral("https://youtu.be/huge")});
    }

    void inboxQueuesLinksInFileOrderAndEmptiesIt() {
        auto r = rig();
        r->settings.setWatchiCloudInbox(true);
        const QString path = TestEnv::root() + QStringLiteral("/inbox-a/Vorlix/inbox.txt");
        InboxWatcher inbox(r->settings, r->queue, [path] { return path; });
        inbox.start();
        QVERIFY(QFileInfo::exists(path));
        QCOMPARE(readFile(path), QByteArray());

        QVERIFY(writeFile(path, "https://vimeo.com/1\n\n  note: for later \nHTTPS://vimeo.com/2\t\n\thttp://example.com/3\n"));
        inbox.drain();
        QCOMPARE(queuedInOrder(*r), (QStringList{QStringLiteral("https://vimeo.com/1"), QStringLiteral("HTTPS://vimeo.com/2"),
                                                 QStringLiteral("http://example.com/3")}));
        QCOMPARE(readFile(path), QByteArray());
        QCOMPARE(r->queue.lastMessage().value_or(QString()), QStringLiteral("iPhone \u00B7 queued 3 links"));

        QVERIFY(writeFile(path, "https://vimeo.com/9\n"));
        inbox.drain();
        QCOMPARE(r->queue.lastMessage().value_or(QString()), QStringLiteral("iPhone \u00B7 queued 1 link"));
    }

    void inboxLeavesNotesAndBadFilesAlone_data() {
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("only a note") << QByteArray("remember to buy milk\n");
        QTest::newRow("blank lines") << QByteArray("\n \n\t\n");
        QTest::newRow("binary garbage") << QByteArray("https://vimeo.com/1\n\xff\xfe\x00\x80garbage", 24);
    }
    void inboxLeavesNotesAndBadFilesAlone() {
        QFETCH(QByteArray, content);
        auto r = rig();
        r->settings.setWatchiCloudInbox(true);
        const QString path = TestEnv::root() + QStringLiteral("/inbox-b/Vorlix/inbox.txt");
        QVERIFY(writeFile(path, content));
        InboxWatcher inbox(r->settings, r->queue, [path] { return path; });
        inbox.drain();
        QVERIFY(r->queue.items().isEmpty());
        QCOMPARE(readFile(path), content);
        QVERIFY(!r->queue.lastMessage());
    }

    void inboxOffOrUnwritable() {
        auto r = rig();
        const QString dir = TestEnv::root() + QStringLiteral("/inbox-c/Vorlix");
        const QString path = dir + QStringLiteral("/inbox.txt");
        QVERIFY(writeFile(path, "https://vimeo.com/7\n"));
        InboxWatcher inbox(r->settings, r->queue, [path] { return path; });
        r->settings.setWatchiCloudInbox(false);
        inbox.drain();
        QVERIFY(r->queue.items().isEmpty());

        // A folder we may not write: the links are still taken once, never on every tick.
        if (geteuid() == 0)
            QSKIP("permissions do not bind root");
        r->settings.setWatchiCloudInbox(true);
        QFile::setPermissions(dir, QFileDevice::ReadOwner | QFileDevice::ExeOwner);
        QFile::setPermissions(path, QFileDevice::ReadOwner);
        inbox.drain();
        inbox.drain();
        QFile::setPermissions(dir, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
        QCOMPARE(r->urls(), QStringList{QStringLiteral("https://vimeo.com/7")});
        QCOMPARE(r->queue.items().size(), 1);
    }

    void inboxPathPrefersExistingSyncedFolder() {
        const QString home = QDir::homePath();
        QDir(home + QStringLiteral("/Nextcloud")).removeRecursively();
        QDir(home + QStringLiteral("/Dropbox")).removeRecursively();
        QCOMPARE(InboxWatcher::defaultInboxPath(), home + QStringLiteral("/Sync/Vorlix/inbox.txt"));
        QVERIFY(QDir().mkpath(home + QStringLiteral("/Dropbox")));
        QCOMPARE(InboxWatcher::defaultInboxPath(), home + QStringLiteral("/Dropbox/Vorlix/inbox.txt"));
        QVERIFY(QDir().mkpath(home + QStringLiteral("/Nextcloud")));
        QCOMPARE(InboxWatcher::defaultInboxPath(), home + QStringLiteral("/Nextcloud/Vorlix/inbox.txt"));
    }
};

VORLIX_TEST_SUITE(LinkIntakeTest)
#include "LinkIntakeTest.moc"
