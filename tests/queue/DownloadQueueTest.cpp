#include "QueueFakes.h"
#include "TestMain.h"

#include <QDir>
#include <QTest>

using namespace queuetest;

namespace {
const QString linkA = QStringLiteral("https://vimeo.com/100");
const QString linkB = QStringLiteral("https://vimeo.com/200");
QString vimeo(const QString &id) { return QStringLiteral("https://vimeo.com/") + id; }
} // namespace

// The scheduler and the pipeline's decisions, with the engine, resolver and analysis scripted.
class DownloadQueueTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void addDropsInvalidAndDuplicateLinks_data() {
        QTest::addColumn<QStringList>("links");
        QTest::addColumn<int>("queued");
        QTest::newRow("empty") << QStringList{QString(), QStringLiteral("   ")} << 0;
        QTest::newRow("other scheme") << QStringList{QStringLiteral("ftp://vimeo.com/1"), QStringLiteral("vimeo.com/1")} << 0;
        QTest::newRow("active link") << QStringList{linkA, linkA} << 1;
        QTest::newRow("tracking parameter makes no difference") << QStringList{linkA, linkA + QStringLiteral("?utm_source=x")} << 1;
        QTest::newRow("two links") << QStringList{linkA, linkB} << 2;
    }
    void addDropsInvalidAndDuplicateLinks() {
        QFETCH(QStringList, links);
        QueueRig r;
        r.engine.holdProbe = true;
        std::for_each(links.cbegin(), links.cend(), [&r](const QString &l) { r.queue.add(l); });
        QTEST(int(r.queue.items().size()), "queued");
        QVERIFY2(!r.queue.lastMessage() && r.notifier.titles.isEmpty(), "dropped silently");
    }

    void addChoosesModeAndMoments_data() {
        QTest::addColumn<QString>("storedDefault");
        QTest::addColumn<std::optional<DownloadMode>>("given");
        QTest::addColumn<QString>("link");
        QTest::addColumn<DownloadMode>("mode");
        QTest::addColumn<bool>("moments"); // moments are always asked for
        QTest::newRow("invalid stored default") << QStringLiteral("bogus") << std::optional<DownloadMode>() << linkA << DownloadMode::bestVideoAudio << true;
        QTest::newRow("audio never asks for moments") << QString() << std::optional(DownloadMode::audioOnly) << linkA << DownloadMode::audioOnly << false;
        QTest::newRow("given mode wins") << QStringLiteral("audioOnly") << std::optional(DownloadMode::videoOnly) << linkA << DownloadMode::videoOnly << true;
        QTest::newRow("spotify forced to audio") << QString() << std::optional(DownloadMode::videoOnly)
                                                 << QStringLiteral("https://open.spotify.com/track/abc") << DownloadMode::audioOnly << false;
    }
    void addChoosesModeAndMoments() {
        QFETCH(QString, storedDefault);
        QFETCH(std::optional<DownloadMode>, given);
        QFETCH(QString, link);
        QueueRig r;
        r.engine.holdProbe = true;
        r.settings.setMaxConcurrent(1);
        r.queue.add(vimeo(QStringLiteral("blocker"))); // keeps the item under test queued
        r.settings.setDefaultModeRaw(storedDefault);
        r.queue.add(link, given, std::nullopt, true);
        const auto item = r.queue.items().first();
        QTEST(item->mode(), "mode");
        QTEST(item->wantsMoments(), "moments");
    }

    void pumpRespectsLimitOldestFirst_data() {
        QTest::addColumn<int>("limit");
        QTest::addColumn<int>("runs");
        QTest::newRow("2") << 2 << 2;
        QTest::newRow("below one counts as one") << -4 << 1;
    }
    void pumpRespectsLimitOldestFirst() {
        QFETCH(int, limit);
        QFETCH(int, runs);
        QueueRig r;
        r.settings.setMaxConcurrent(limit);
        r.engine.holdProbe = true;
        for (int i = 1; i <= 5; ++i)
            r.queue.add(vimeo(QString::number(i)));
        QCOMPARE(r.queue.running(), runs);
        const auto &items = r.queue.items(); // newest first
        const auto expect = [&](int done, int probing) {
            for (int age = 0; age < 5; ++age) // 0: the oldest
                QCOMPARE(items.at(4 - age)->state(),
                         age < done ? ItemState::done() : age < done + probing ? ItemState::probing() : ItemState::queued());
        };
        expect(0, runs);
        // Freed slots go to the oldest waiting links.
        r.engine.release();
        QTRY_COMPARE(r.count(ItemState::Kind::done), runs);
        expect(runs, runs);
        QCOMPARE(r.engine.downloadedURLs, (QStringList{vimeo(QStringLiteral("1")), vimeo(QStringLiteral("2"))}.mid(0, runs)));
        // Raising the limit starts the waiting ones at once, not at the next add or finish.
        r.settings.setMaxConcurrent(6);
        QCOMPARE(r.queue.running(), 5 - runs);
        QCOMPARE(r.engine.probeCalls, 5);
    }

    void retryOnlyForFailed() {
        QueueRig r;
        r.engine.probeErrors.insert(linkA, QStringLiteral("Video unavailable"));
        r.queue.add(linkA);
        const auto item = r.queue.items().first();
        QCOMPARE(item->state(), ItemState::failed(QStringLiteral("Video unavailable")));

        r.engine.probeErrors.clear();
        r.engine.holdDownload = true;
        item->setProgress(0.4);
        r.queue.retry(item);
        QCOMPARE(item->state(), ItemState::downloading());
        QCOMPARE(item->progress(), 0.0);
        r.engine.release();
        QTRY_COMPARE(item->state(), ItemState::done());

        r.queue.retry(item); // done
        r.queue.add(linkB);
        r.queue.cancel(r.find(linkB));
        r.queue.retry(r.find(linkB)); // cancelled
        QCOMPARE(r.engine.probeCalls, 3);
        r.queue.add(linkA); // a finished link may be queued again
        QCOMPARE(r.queue.items().size(), 3);
    }

    void progressClampsAndThrottles_data() {
        QTest::addColumn<QList<double>>("fractions");
        QTest::addColumn<QList<double>>("gaps"); // seconds before each record
        QTest::addColumn<QList<double>>("seen"); // progress after each record
        using L = QList<double>;
        QTest::newRow("clamped high and low") << L{1.3, -0.2} << L{0, 1} << L{1.0, 0.0};
        QTest::newRow("small step within 0.12 s dropped") << L{0.5, 0.505} << L{0, 0.05} << L{0.5, 0.5};
        QTest::newRow("big step within 0.12 s kept") << L{0.5, 0.52} << L{0, 0.05} << L{0.5, 0.52};
        QTest::newRow("small step after 0.12 s kept") << L{0.5, 0.505} << L{0, 0.13} << L{0.5, 0.505};
        QTest::newRow("dropped records do not move the mark")
            << L{0.5, 0.505, 0.509, 0.509} << L{0, 0.05, 0.05, 0.03} << L{0.5, 0.5, 0.5, 0.509};
    }
    void progressClampsAndThrottles() {
        QFETCH(QList<double>, fractions);
        QFETCH(QList<double>, gaps);
        QFETCH(QList<double>, seen);
        QueueRig r;
        r.engine.holdProbe = true;
        r.queue.add(linkA);
        const auto item = r.queue.items().first();
        for (qsizetype i = 0; i < fractions.size(); ++i) {
            r.clock.advance(gaps.at(i));
            r.queue.applyProgress(progressAt(fractions.at(i)), item);
            QCOMPARE(item->progress(), seen.at(i));
        }
        QCOMPARE(item->state(), ItemState::downloading());
    }

    // A long playlist queues its first 100 entries in order, in the playlist's mode.
    void playlistFansOut() {
        QueueRig r;
        r.settings.setMaxConcurrent(1);
        ProbeResult mix;
        mix.title = QStringLiteral("Mix");
        for (int i = 0; i < 250; ++i)
            mix.playlistEntries.append({vimeo(QStringLiteral("p") + QString::number(i)), QString()});
        r.engine.probes.insert(linkA, mix);
        r.engine.holdDownload = true;
        r.queue.add(linkA, DownloadMode::videoOnly);
        const auto list = r.find(linkA);
        QCOMPARE(list->state(), ItemState::done());
        QCOMPARE(r.queue.items().size(), 101);
        QCOMPARE(r.urls().at(1), vimeo(QStringLiteral("p0")));
        QCOMPARE(r.urls().last(), vimeo(QStringLiteral("p99")));
        QCOMPARE(r.queue.items().first()->mode(), DownloadMode::videoOnly);
        QVERIFY(r.queue.hasAutoClear(list->id()));
        QTRY_COMPARE(r.engine.downloadedURLs, QStringList{vimeo(QStringLiteral("p0"))}); // the rest wait
        r.history.waitForPendingSave();
        QVERIFY2(r.history.entries().isEmpty(), "a playlist item is not a download");
    }

    void selfHealsOnce_data() {
        QTest::addColumn<QStringList>("errors");
        QTest::addColumn<int>("updates");
        QTest::addColumn<QString>("failure"); // empty: ends done
        const QString notLocated = QStringLiteral("Finished, but the output file could not be located.");
        const QString missing = QStringLiteral("HTTP Error 404: Not Found");
        QTest::newRow("healed") << QStringList{QStringLiteral("Unable to extract uploader id")} << 1 << QString();
        QTest::newRow("second failure is final") << QStringList{notLocated, notLocated} << 1 << notLocated;
        QTest::newRow("not healable") << QStringList{missing} << 0 << missing;
    }
    void selfHealsOnce() {
        QFETCH(QStringList, errors);
        QFETCH(int, updates);
        QFETCH(QString, failure);
        QueueRig r;
        r.engine.downloadErrors = errors;
        r.engine.holdProbe = true; // until the watch below is set up
        r.queue.add(linkA);
        const auto item = r.queue.items().first();
        // The bar keeps its place while the engine updates, then starts over for the retry.
        std::optional<double> atUpdate, atRetry;
        QObject watching;
        connect(item.get(), &DownloadItem::changed, &watching, [&] {
            if (item->state() == ItemState::processing(QStringLiteral("Updating engine + retrying\u2026")))
                atUpdate = atUpdate.value_or(item->progress());
            else if (atUpdate && !atRetry && item->state().is(ItemState::Kind::downloading))
                atRetry = item->progress();
        });
        r.engine.holdProbe = false;
        r.engine.release();
        QTRY_VERIFY(item->state().isTerminal());
        QCOMPARE(atUpdate, updates ? std::optional(0.5) : std::nullopt);
        QCOMPARE(atRetry, updates ? std::optional(0.0) : std::nullopt);
        QCOMPARE(r.engine.updateCalls, updates);
        QCOMPARE(item->didSelfHeal(), updates > 0);
        QCOMPARE(r.engine.downloadedURLs.size(), 1 + updates);
        QCOMPARE(item->state(), failure.isEmpty() ? ItemState::done() : ItemState::failed(failure));
        QCOMPARE(r.notifier.titles, QStringList{failure.isEmpty() ? QStringLiteral("Download complete") : QStringLiteral("Download failed")});
    }

    // The pipeline resumes after its item or the whole queue is gone: nothing freed may be touched
    // (run under the sanitizer build too).
    void stoppedWhileSuspended_data() {
        QTest::addColumn<bool>("inProbe");
        QTest::addColumn<QString>("how");
        for (const bool probe : {true, false})
            for (const char *how : {"cancel", "remove", "destroy queue"})
                QTest::addRow("%s in %s", how, probe ? "probe" : "download") << probe << QString::fromLatin1(how);
    }
    void stoppedWhileSuspended() {
        QFETCH(bool, inProbe);
        QFETCH(QString, how);
        QueueRig r;
        r.settings.setMaxConcurrent(1);
        r.engine.holdProbe = inProbe;
        r.engine.holdDownload = !inProbe;
        if (how == QLatin1String("destroy queue")) {
            std::weak_ptr<DownloadItem> weak;
            {
                DownloadQueue doomed(r.settings, r.history, r.notifier, r.engine.services(), r.clock.clock());
                doomed.add(linkA);
                weak = doomed.items().first();
                QTRY_COMPARE(r.engine.waiting, 1);
            }
            r.engine.holdProbe = r.engine.holdDownload = false;
            r.engine.release();
            QTRY_VERIFY(weak.expired());
            QVERIFY(r.notifier.titles.isEmpty());
            return;
        }
        r.queue.add(linkA);
        r.queue.add(linkB);
        std::weak_ptr<DownloadItem> weak = r.find(linkA);
        QTRY_COMPARE(r.engine.waiting, 1);
        if (how == QLatin1String("remove"))
            r.queue.remove(r.find(linkA));
        else
            r.queue.cancel(r.find(linkA));
        QVERIFY(!r.queue.isActiveURL(linkA));
        QCOMPARE(r.queue.running(), 1);
        r.engine.holdProbe = r.engine.holdDownload = false;
        r.engine.release();
        QTRY_COMPARE(r.find(linkB)->state(), ItemState::done());
        QCOMPARE(r.engine.downloadedURLs.size(), inProbe ? 1 : 2);
        QCOMPARE(weak.expired(), how == QLatin1String("remove"));
        if (!weak.expired())
            QCOMPARE(r.find(linkA)->state(), ItemState::cancelled());
        QCOMPARE(r.notifier.titles, QStringList{QStringLiteral("Download complete")});
        r.history.waitForPendingSave();
        QCOMPARE(r.history.entries().size(), 1);
    }

    void finishingRecordsAndAnnounces() {
        QueueRig r;
        r.settings.setAutoAnalyzeAudio(true);
        r.engine.analysis = {128.0, QStringLiteral("A\u266Dm")};
        r.settings.setOrganizeDownloads(true);
        const QString tiktok = QStringLiteral("https://www.tiktok.com/@a/video/1");
        r.queue.add(tiktok, DownloadMode::audioOnly);
        r.queue.add(linkB, DownloadMode::bestVideoAudio, std::nullopt, true);
        QTRY_COMPARE(r.queue.running(), 0);
        r.settings.setOrganizeDownloads(false);
        r.queue.add(linkA);
        QTRY_COMPARE(r.queue.running(), 0);
        const auto audio = r.find(tiktok), video = r.find(linkB);
        QCOMPARE(std::pair(audio->detectedBPM(), audio->detectedKey()), std::pair(std::optional(128.0), std::optional(QStringLiteral("A\u266Dm"))));
        QCOMPARE(r.engine.analyzeCalls, 1); // only the audio download
        QCOMPARE(r.queue.momentsRequest(), video);
        QVERIFY(!r.queue.hasAutoClear(video->id()) && r.queue.hasAutoClear(audio->id()));
        r.queue.setMomentsRequest(nullptr); // the review is over: the item leaves like any other
        QVERIFY(r.queue.hasAutoClear(video->id()));
        QCOMPARE(r.notifier.titles, QStringList(3, QStringLiteral("Download complete")));
        QCOMPARE(r.engine.outputDirs.first(), QDir(r.downloads).filePath(QStringLiteral("TikTok")));
        QVERIFY(QFileInfo(r.engine.outputDirs.first()).isDir());
        QCOMPARE(r.engine.outputDirs.last(), r.downloads);
        r.history.waitForPendingSave();
        QCOMPARE(r.history.entries().size(), 3);
    }

    void autoClearRemovesDoneNotFailedOrRetried() {
        QueueRig r;
        r.queue.setAutoClearDelay(150);
        r.engine.probeErrors.insert(linkB, QStringLiteral("gone"));
        r.queue.add(linkA);
        r.queue.add(linkB);
        const auto failed = r.find(linkB);
        QVERIFY(!r.queue.hasAutoClear(failed->id()));
        QTRY_VERIFY_WITH_TIMEOUT(!r.find(linkA), 3000);
        QCOMPARE(r.find(linkB), failed);

        // An item that is active again when its removal comes due stays.
        r.queue.scheduleAutoClear(failed);
        r.engine.probeErrors.clear();
        r.engine.holdProbe = true;
        r.queue.retry(failed);
        QTRY_VERIFY_WITH_TIMEOUT(!r.queue.hasAutoClear(failed->id()), 3000); // came due
        QCOMPARE(r.find(linkB), failed);

        // Clearing takes every finished row and disarms its pending removal.
        r.engine.holdProbe = false;
        r.engine.release();
        QTRY_COMPARE(failed->state(), ItemState::done());
        r.queue.add(linkA);
        r.queue.cancel(r.find(linkA));
        QVERIFY(r.queue.hasAutoClear(failed->id()));
        r.queue.clearFinished();
        QVERIFY(r.queue.items().isEmpty());
        QVERIFY(!r.queue.hasAutoClear(failed->id()));
    }
};

VORLIX_TEST_SUITE(DownloadQueueTest)
#include "DownloadQueueTest.moc"
