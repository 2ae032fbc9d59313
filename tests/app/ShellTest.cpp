#include "AccessibleNames.h"
#include "Await.h"
#include "FixtureSite.h"
#include "QueueFakes.h"
#include "TestEnv.h"
#include "TestMain.h"

#include "app/AppUpdater.h"
#include "app/TrayMenu.h"
#include "app/VorlixApp.h"

#include <QAction>
#include <QApplication>
#include <QMainWindow>
#include <QMenu>
#include <QSignalSpy>
#include <QTest>

namespace {

struct TrayRig : queuetest::QueueRig {
    queuetest::FakeClipboard clipboard;
    int opened = 0;
    TrayMenu menu{queue, clipboard, {[this] { ++opened; }, {}, {}}};

    TrayRig() {
        engine.holdProbe = true; // items stay where the test puts them
        settings.setMaxConcurrent(6);
    }

    QStringList entries() const {
        QStringList out;
        for (QAction *a : menu.menu()->actions())
            if (a->isVisible())
                out << (a->isSeparator() ? QStringLiteral("-") : a->text());
        return out;
    }
    QAction *entry(const QString &text) const {
        for (QAction *a : menu.menu()->actions())
            if (a->text() == text)
                return a;
        return nullptr;
    }
};

} // namespace

class ShellTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void trayFollowsActiveDownloads() {
        TrayRig rig;
        QCOMPARE(rig.entries(), (QStringList{QStringLiteral("Download Link from Clipboard"), QStringLiteral("-"),
                                             QStringLiteral("Open Vorlix"), QStringLiteral("Open Download Folder"),
                                             QStringLiteral("-"), QStringLiteral("Quit Vorlix")}));
        QCOMPARE(rig.entry(QStringLiteral("Download Link from Clipboard"))->shortcut(), QKeySequence(Qt::CTRL | Qt::Key_V));
        // What a screen reader reads from the menu: every entry by its text.
        QCOMPARE(AccessibleNames::menuEntries(rig.menu.menu()),
                 (QStringList{QStringLiteral("Download Link from Clipboard"), QStringLiteral("Open Vorlix"),
                              QStringLiteral("Open Download Folder"), QStringLiteral("Quit Vorlix")}));
        QCOMPARE(rig.menu.iconSymbol(), QStringLiteral("arrow.down.circle"));
        const QImage idle = rig.menu.icon().pixmap(22).toImage();

        QSignalSpy icons(&rig.menu, &TrayMenu::iconChanged);
        for (int i = 1; i <= 3; ++i)
            rig.queue.add(QStringLiteral("https://example.com/v/") + QString::number(i));
        const auto items = rig.queue.items();
        items[0]->setState(ItemState::downloading());
        items[1]->setState(ItemState::processing(QStringLiteral("Tagging…")));
        items[2]->setState(ItemState::queued());
        QCOMPARE(rig.entries().value(1), QStringLiteral("2 downloads in progress"));
        QCOMPARE(rig.menu.iconSymbol(), QStringLiteral("arrow.down.circle.fill"));
        QVERIFY(rig.menu.icon().pixmap(22).toImage() != idle);

        items[0]->setState(ItemState::done());
        QCOMPARE(rig.entries().value(1), QStringLiteral("1 download in progress"));
        items[1]->setState(ItemState::failed(QStringLiteral("x")));
        QCOMPARE(rig.entries().value(1), QStringLiteral("-"));
        QCOMPARE(rig.menu.iconSymbol(), QStringLiteral("arrow.down.circle"));
        QCOMPARE(icons.size(), 2);
    }

    void trayEntriesAct() {
        TrayRig rig;
        QAction *paste = rig.entry(QStringLiteral("Download Link from Clipboard"));
        for (const auto &content : {std::optional<QString>(), std::optional(QString()), std::optional(QStringLiteral("https://vimeo.com/7"))}) {
            rig.clipboard.content = content; // nothing, a picture, a link
            paste->trigger();
        }
        QCOMPARE(rig.urls(), QStringList{QStringLiteral("https://vimeo.com/7")});
        QCOMPARE(rig.queue.items().first()->mode(), DownloadMode::bestVideoAudio);

        rig.entry(QStringLiteral("Open Vorlix"))->trigger();
        QCOMPARE(rig.opened, 1);
    }

    void versionOrder_data() {
        QTest::addColumn<QString>("a");
        QTest::addColumn<QString>("b");
        QTest::addColumn<int>("order");
        QTest::newRow("numeric, not textual") << QStringLiteral("1.10") << QStringLiteral("1.9") << 1;
        QTest::newRow("missing parts are zero") << QStringLiteral("1.2") << QStringLiteral("1.2.0") << 0;
        QTest::newRow("pre-release first") << QStringLiteral("2.0b1") << QStringLiteral("2.0") << -1;
        QTest::newRow("betas in order") << QStringLiteral("2.0b2") << QStringLiteral("2.0b10") << -1;
        QTest::newRow("beyond 64 bits") << QStringLiteral("1.99999999999999999999") << QStringLiteral("1.100000000000000000000") << -1;
        QTest::newRow("release candidate after beta") << QStringLiteral("2.0rc1") << QStringLiteral("2.0b3") << 1;
    }
    void versionOrder() {
        QFETCH(QString, a);
        QFETCH(QString, b);
        QFETCH(int, order);
        QCOMPARE(std::pair(AppUpdater::compareVersions(a, b), AppUpdater::compareVersions(b, a)), std::pair(order, -order));
    }

    void appcastParsing_data() {
        QTest::addColumn<QByteArray>("feed");
        QTest::addColumn<QString>("version");
        QTest::addColumn<QString>("shown");
        QTest::addColumn<QString>("link");
        const QByteArray head = "<?xml version=\"1.0\"?><rss version=\"2.0\" "
                                "xmlns:sparkle=\"http://www.andymatuschak.org/xml-namespaces/sparkle\"><channel>";
        QTest::newRow("enclosure attributes, newest of several")
            << head + "<item><enclosure url=\"https://vorlix.app/v/0.9.zip\" sparkle:version=\"0.9\"/></item>"
                      "<item><link>https://vorlix.app/releases/0.10</link><enclosure url=\"https://vorlix.app/v/0.10.zip\" "
                      "sparkle:version=\"0.10\" sparkle:shortVersionString=\"0.10 beta\"/></item>"
                      "<item><enclosure url=\"https://vorlix.app/v/0.2.zip\" sparkle:version=\"0.2\"/></item></channel></rss>"
            << QStringLiteral("0.10") << QStringLiteral("0.10 beta") << QStringLiteral("https://vorlix.app/releases/0.10");
        QTest::newRow("version elements; a script link is not opened")
            << head + "<item><sparkle:version>1.4.2</sparkle:version><link>javascript:alert(1)</link>"
                      "<enclosure url=\"https://vorlix.app/v/1.4.2.zip\"/></item></channel></rss>"
            << QStringLiteral("1.4.2") << QStringLiteral("1.4.2") << QStringLiteral("https://vorlix.app/v/1.4.2.zip");
        QTest::newRow("items without a version") << head + "<item><title>News</title></item></channel></rss>"
                                                 << QString() << QString() << QString();
        QTest::newRow("not XML") << QByteArray("<html><body>Not found") << QString() << QString() << QString();
    }
    void appcastParsing() {
        QFETCH(QByteArray, feed);
        const std::optional<AppUpdater::Release> found = AppUpdater::newestRelease(feed);
        const AppUpdater::Release release = found.value_or(AppUpdater::Release{QStringLiteral("none"), {}, {}});
        QTEST(found ? release.version : QString(), "version");
        QTEST(release.displayVersion, "shown");
        QTEST(release.link.toString(), "link");
    }

    void checkAgainstFeed() {
        FixtureSite site;
        QVERIFY(site.isRunning());
        site.put(QStringLiteral("/appcast.xml"),
                 "<rss xmlns:sparkle=\"http://www.andymatuschak.org/xml-namespaces/sparkle\"><channel><item>"
                 "<enclosure url=\"https://vorlix.app/v.zip\" sparkle:version=\"1.2.0\"/></item></channel></rss>");
        using Kind = AppUpdater::Outcome::Kind;
        QList<Kind> outcomes;
        for (const auto &[path, ours] : {std::pair("/appcast.xml", "1.1.9"), std::pair("/appcast.xml", "1.2"), std::pair("/missing.xml", "1.0")}) {
            AppUpdater updater(QUrl(site.url(QLatin1String(path))), QLatin1String(ours));
            outcomes << vtest::await(updater.check()).kind;
        }
        QCOMPARE(outcomes, (QList<Kind>{Kind::updateAvailable, Kind::upToDate, Kind::failed}));

        // The menu entry is off while a check runs and the outcome reaches the presenter once.
        AppUpdater updater(QUrl(site.url(QStringLiteral("/appcast.xml?delay=0.5"))), QStringLiteral("1.2.0"));
        QList<Kind> shown;
        updater.setPresenter([&shown](const AppUpdater::Outcome &o) { shown << o.kind; });
        QMenu menu;
        QAction *entry = VorlixApp::addCheckForUpdates(&menu, updater);
        QCOMPARE(entry->text(), QStringLiteral("Check for Updates\u2026"));
        entry->trigger();
        QVERIFY(!entry->isEnabled());
        updater.checkForUpdates(); // ignored while busy
        QTRY_VERIFY_WITH_TIMEOUT(entry->isEnabled(), 10000);
        QCOMPARE(shown, QList<Kind>{Kind::upToDate});
    }
};

VORLIX_TEST_SUITE(ShellTest)
#include "ShellTest.moc"
