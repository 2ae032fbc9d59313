#include "QueueFakes.h"
#include "TestMain.h"

#include "queue/BatchText.h"
#include "queue/ClipboardWatcher.h"
#include "queue/InboxWatcher.h"

#include <QFile>
#include <QFileInfo>
#include <QTest>

using namespace queuetest;

namespace {

// Probes held, one at a time: queued links stay visible and active.
std::unique_ptr<QueueRig> heldRig() {
    auto r = std::make_unique<QueueRig>();
    r->engine.holdProbe = true;
    r->settings.setMaxConcurrent(1);
    r->settings.setSmartMode(true);
    r->settings.setWatchiCloudInbox(true);
    return r;
}

QString inboxPath(const QString &name = QStringLiteral("inbox.txt")) {
    static int n = 0;
    return QStringLiteral("%1/inbox-%2/Vorlix/%3").arg(TestEnv::root()).arg(++n).arg(name);
}

// The inbox's bytes; a missing file reads differently from an emptied one.
QByteArray readFile(const QString &path) { return QFile::exists(path) ? TestEnv::readFile(path) : QByteArray("<missing>"); }
using TestEnv::writeFile;

// Links written space-separated, for short expectations.
QStringList links(const char *spaced) { return QString::fromUtf8(spaced).split(u' ', Qt::SkipEmptyParts); }

} // namespace

class LinkIntakeTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void extractURLs_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QStringList>("expected");
        const QString a = QStringLiteral("https://www.youtube.com/watch?v=abc");
        QTest::newRow("trailing marks cut, repeat dropped")
            << QStringLiteral("see (%1), then again %1.!?]}").arg(a) << QStringList{a};
        QTest::newRow("angle brackets, quotes, no scheme") << QStringLiteral("<https://vimeo.com/123> href=\"https://a.example/x\" www.b.example")
                                                           << links("https://vimeo.com/123 https://a.example/x");
        QTest::newRow("upper-case scheme is not a link") << QStringLiteral("HTTPS://A.EXAMPLE/ and Https://b.example/") << QStringList();
        QTest::newRow("order of first occurrence, case-sensitive")
            << QStringLiteral("http://b.example\nhttp://a.example\thttp://B.example http://b.example")
            << links("http://b.example http://a.example http://B.example");
        QTest::newRow("Unicode spaces end a link")
            << QStringLiteral("https://a.example/1\u00A0https://a.example/2\u3000x")
            << links("https://a.example/1 https://a.example/2");
    }
    void extractURLs() {
        QFETCH(QString, text);
        QTEST(BatchView::extractURLs(text), "expected");
    }

    void isMediaURL() {
        for (const QString &text : links("https://youtu.be/x https://vm.tiktok.com/x HTTPS://WWW.YOUTUBE.COM/watch?v=x") + QStringList{QStringLiteral("  https://youtu.be/x \n")})
            QVERIFY2(ClipboardWatcher::isMediaURL(text), qPrintable(text));
        for (const QString &text : {QStringLiteral("https://spotify.com/track/1"), QStringLiteral("https://notyoutube.com/watch"),
                                    QStringLiteral("https://evil.example/youtube.com"), QStringLiteral("https://youtu.be/x\u00A0y"),
                                    QStringLiteral("ftp://youtube.com/x"), QStringLiteral("https:///watch"), QString()})
            QVERIFY2(!ClipboardWatcher::isMediaURL(text), qPrintable(text));
    }

    // Only a new copy counts, and only its first line when that is a supported link; copies made
    // while Smart Mode is off are seen, not queued, when it comes back on.
    void clipboardQueuesOnlyNewSupportedFirstLines() {
        auto r = heldRig();
        FakeClipboard clip;
        clip.content = QStringLiteral("https://youtu.be/before");
        ClipboardWatcher watcher(clip, r->settings, r->queue);
        watcher.start();
        watcher.check();
        const QString huge = QStringLiteral("https://youtu.be/huge");
        for (const auto &text : {std::optional(QStringLiteral("  https://youtu.be/one\n")), std::optional(QStringLiteral("just a note")),
                                 std::optional<QString>(), // an image, say
                                 std::optional(QStringLiteral("https://vimeo.com/2\r\nhttps://vimeo.com/3")),
                                 std::optional(QStringLiteral("https://example.com/not-a-media-site")),
                                 std::optional(QStringLiteral("\u2028 https://soundcloud.com/a/b\u2029https://vimeo.com/4")),
                                 std::optional(QStringLiteral("https://vimeo.com/5\u00A0\u3000")),
                                 std::optional<QString>(huge + u' ' + QString(10 * 1024 * 1024, u'x')),
                                 std::optional<QString>(huge + u'\n' + QString(10 * 1024 * 1024, u'y'))}) {
            clip.copy(text);
            watcher.check();
            watcher.check(); // no change: nothing new
        }
        QCOMPARE(r->urls(), links("https://youtu.be/one https://vimeo.com/2 https://soundcloud.com/a/b https://vimeo.com/5 https://youtu.be/huge"));
        QCOMPARE(r->message(), QStringLiteral("Smart Mode \u00B7 queued link"));

        r->settings.setSmartMode(false);
        clip.copy(QStringLiteral("https://youtu.be/while-off"));
        watcher.check();
        r->settings.setSmartMode(true);
        watcher.start(); // restarting takes the current copy as seen
        watcher.check();
        r->engine.holdProbe = false;
        r->engine.release();
        QTRY_COMPARE(r->count(ItemState::Kind::done), 5);
        clip.copy(huge); // copied again once the first has ended, taken by the timer
        QTRY_COMPARE_WITH_TIMEOUT(r->urls().size(), 6, 3000);
        QCOMPARE(r->urls().last(), huge);
    }

    void inboxQueuesLinksInFileOrderAndEmptiesIt() {
        auto r = heldRig();
        const QString path = inboxPath();
        InboxWatcher inbox(r->settings, r->queue, [path] { return path; });
        inbox.start();
        QCOMPARE(readFile(path), QByteArray()); // made for the phone to append to
        QVERIFY(writeFile(path, "https://vimeo.com/1\xc2\xa0\n\n  note: for later \nHTTPS://vimeo.com/2\t\r\n\thttp://example.com/3\xe3\x80\x80sent from my phone\n"));
        inbox.drain();
        QCOMPARE(r->urls(), links("https://vimeo.com/1 HTTPS://vimeo.com/2 http://example.com/3"));
        QCOMPARE(readFile(path), QByteArray());
        QCOMPARE(r->message(), QStringLiteral("iPhone \u00B7 queued 3 links"));
        QVERIFY(writeFile(path, "https://vimeo.com/9\n"));
        QTRY_COMPARE_WITH_TIMEOUT(r->message(), QStringLiteral("iPhone \u00B7 queued 1 link"), 7000); // the timer's poll
    }

    void inboxLeavesNotesAndBadFilesAlone() {
        const QList<std::pair<QByteArray, bool>> cases{{"remember to buy milk\n", true},
                                                       {QByteArray("https://vimeo.com/1\n\xff\xfe\x00\x80garbage", 24), true},
                                                       {"https://vimeo.com/1\n", false}}; // watching off
        for (const auto &[content, watching] : cases) {
            auto r = heldRig();
            r->settings.setWatchiCloudInbox(watching);
            const QString path = inboxPath();
            QVERIFY(writeFile(path, content));
            InboxWatcher(r->settings, r->queue, [path] { return path; }).drain();
            QVERIFY(r->queue.items().isEmpty() && !r->queue.lastMessage());
            QCOMPARE(readFile(path), content);
        }
    }

};

VORLIX_TEST_SUITE(LinkIntakeTest)
#include "LinkIntakeTest.moc"
