#include "QueueFakes.h"
#include "TestMain.h"

#include "app/AppUpdater.h"
#include "app/TrayMenu.h"

#include <QAction>
#include <QApplication>
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
    // Updates: numeric order with pre-releases first, and the feed's newest item with a safe link.
    void updateRules() {
        const std::tuple<const char *, const char *, int> order[] = {
            {"1.10", "1.9", 1}, {"1.2", "1.2.0", 0}, {"2.0b1", "2.0", -1}, {"2.0b2", "2.0b10", -1},
            {"2.0rc1", "2.0b3", 1}, {"1.99999999999999999999", "1.100000000000000000000", -1}};
        for (const auto &[a, b, sign] : order) {
            QCOMPARE(AppUpdater::compareVersions(QString::fromLatin1(a), QString::fromLatin1(b)), sign);
            QCOMPARE(AppUpdater::compareVersions(QString::fromLatin1(b), QString::fromLatin1(a)), -sign);
        }
        const QByteArray head = "<?xml version=\"1.0\"?><rss version=\"2.0\" "
                                "xmlns:sparkle=\"http://www.andymatuschak.org/xml-namespaces/sparkle\"><channel>";
        const auto newest = AppUpdater::newestRelease(
            head + "<item><enclosure url=\"https://vorlix.app/v/0.9.zip\" sparkle:version=\"0.9\"/></item><item><link>javascript:alert(1)</link>"
                   "<enclosure url=\"https://vorlix.app/v/0.10.zip\" sparkle:version=\"0.10\" sparkle:shortVersionString=\"0.10 beta\"/></item></channel></rss>");
        QVERIFY(newest);
        QCOMPARE(newest->version + u'|' + newest->displayVersion + u'|' + newest->link.toString(),
                 QStringLiteral("0.10|0.10 beta|https://vorlix.app/v/0.10.zip"));
        QVERIFY(!AppUpdater::newestRelease("<html><body>Not found"));
    }

    void trayFollowsDownloadsAndActs() {
        TrayRig rig;
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

        rig.queue.cancel(items[2]);
        rig.queue.clearFinished();
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
};

VORLIX_TEST_SUITE(ShellTest)
#include "ShellTest.moc"
