#include "QueueFakes.h"
#include "TestEnv.h"
#include "TestMain.h"

#include <QDir>
#include <QSignalSpy>
#include <QTest>

using namespace queuetest;

namespace {

const QString linkA = QStringLiteral("https://vimeo.com/100");
const QString linkB = QStringLiteral("https://vimeo.com/200");

YtDlp::Progress at(std::optional<double> fraction, QString speed = QStringLiteral("1.0MiB/s"),
                   QString eta = QStringLiteral("00:10"))
{
    YtDlp::Progress p;
    p.fraction = fraction;
    p.speed = std::move(speed);
    p.eta = std::move(eta);
    return p;
}

ProbeResult playlist(int entries)
{
    ProbeResult r;
    r.title = QStringLiteral("Mix");
    for (int i = 0; i < entries; ++i)
        r.playlistEntries.append({QStringLiteral("https://vimeo.com/p") + QString::number(i), QString()});
    return r;
}

} // namespace

class DownloadQueueTest : public QObject {
    Q_OBJECT
    int m_rigs = 0;
    std::unique_ptr<QueueRig> rig() {
        return std::make_unique<QueueRig>(QStringLiteral("queue-") + QString::number(++m_rigs));
    }

private Q_SLOTS:
    void addDropsInvalidAndDuplicateLinks_data() {
        QTest::addColumn<QStringList>("links");
        QTest::addColumn<int>("queued");
        QTest::newRow("empty") << QStringList{QString(), QStringLiteral("   ")} << 0;
        QTest::newRow("other scheme") << QStringList{QStringLiteral("ftp://vimeo.com/1"), QStringLiteral("vimeo.com/1")} << 0;
        QTest::newRow("same link twice") << QStringList{linkA, linkA} << 1;
        QTest::newRow("tracking parameter makes no difference")
            << QStringList{linkA, linkA + QStringLiteral("?utm_source=x")} << 1;
        QTest::newRow("two links") << QStringList{linkA, linkB} << 2;
    }
    void addDropsInvalidAndDuplicateLinks() {
        QFETCH(QStringList, links);
        QFETCH(int, queued);
        auto r = rig();
        r->engine.holdProbe = true;
        for (const auto &l : links)
            r->queue.add(l);
        QCOMPARE(r->queue.items().size(), queued);
    }

    void addChoosesModeAndMoments_data() {
        QTest::addColumn<QString>("storedDefault");
        QTest::addColumn<std::optional<DownloadMode>>("given");
        QTest::addColumn<QString>("link");
        QTest::addColumn<bool>("askMoments");
        QTest::addColumn<DownloadMode>("mode");
        QTest::addColumn<bool>("moments");
        QTest::addColumn<QString>("title");
        const auto audio = std::optional<DownloadMode>(DownloadMode::audioOnly);
        const auto video = std::optional<DownloadMode>(DownloadMode::videoOnly);
        const std::optional<DownloadMode> none;
        QTest::newRow("invalid stored default") << QStringLiteral("bogus") << none << linkA << true
                                                << DownloadMode::bestVideoAudio << true << linkA;
        QTest::newRow("stored default") << QStringLiteral("audioOnly") << none << linkA << false
                                        << DownloadMode::audioOnly << false << linkA;
        QTest::newRow("audio never asks for moments") << QString() << audio << linkA << true
                                                      << DownloadMode::audioOnly << false << linkA;
        QTest::newRow("given mode wins") << QStringLiteral("audioOnly") << video << linkA << true
                                         << DownloadMode::videoOnly << true << linkA;
        const QString spotify = QStringLiteral("https://open.spotify.com/track/abc");
        QTest::newRow("spotify forced to audio") << QString() << video << spotify << true
                                                 << DownloadMode::audioOnly << false << QStringLiteral("Spotify track\u2026");
    }
    void addChoosesModeAndMoments() {
        QFETCH(QString, storedDefault);
        QFETCH(std::optional<DownloadMode>, given);
        QFETCH(QString, link);
        QFETCH(bool, askMoments);
        auto r = rig();
        r->engine.holdProbe = true;
        r->settings.setMaxConcurrent(1);
        r->queue.add(QStringLiteral("https://vimeo.com/blocker")); // keeps the item under test queued
        r->settings.setDefaultModeRaw(storedDefault);
        r->queue.add(link, given, std::nullopt, askMoments);
        QCOMPARE(r->queue.items().size(), 2);
        const auto item = r->queue.items().first();
        QCOMPARE(item->state(), ItemState::queued());
        QTEST(item->mode(), "mode");
        QTEST(item->wantsMoments(), "moments");
        QTEST(item->title(), "title");
    }

    void pumpRespectsLimitOldestFirst_data() {
        QTest::addColumn<int>("limit");
        QTest::addColumn<int>("runs");
        QTest::newRow("default 3") << 3 << 3;
        QTest::newRow("zero counts as one") << 0 << 1;
        QTest::newRow("negative counts as one") << -4 << 1;
        QTest::newRow("more than items") << 8 << 5;
    }
    void pumpRespectsLimitOldestFirst() {
        QFETCH(int, limit);
        QFETCH(int, runs);
        auto r = rig();
        r->settings.setMaxConcurrent(limit);
        r->engine.holdProbe = true;
        for (int i = 1; i <= 5; ++i)
            r->queue.add(QStringLiteral("https://vimeo.com/") + QString::number(i));
        QCOMPARE(r->queue.running(), runs);
        QCOMPARE(r->engine.probeCalls, runs);
        // Newest first: the oldest `runs` links are the ones started.
        const auto &items = r->queue.items();
        for (int i = 0; i < 5; ++i) {
            const bool started = i >= 5 - runs;
            QCOMPARE(items.at(i)->state(), started ? ItemState::probing() : ItemState::queued());
        }
        if (runs == 5)
            return;
        // One finishes: exactly the oldest waiting item starts.
        r->engine.holdProbe = false;
        r->engine.probeErrors.insert(QStringLiteral("https://vimeo.com/1"), QStringLiteral("gone"));
        r->engine.holdProbe = true;
        const auto oldestWaiting = items.at(4 - runs);
        r->engine.release(); // every held probe answers; the rest keep going one after another
        QTRY_VERIFY(oldestWaiting->state() != ItemState::queued());
        QVERIFY(r->queue.running() <= std::max(1, limit));
        QCOMPARE(r->find(QStringLiteral("https://vimeo.com/1"))->state(), ItemState::failed(QStringLiteral("gone")));
    }

    void retryOnlyForFailed() {
        auto r = rig();
        r->engine.probeErrors.insert(linkA, QStringLiteral("Video unavailable"));
        r->queue.add(linkA);
        const auto item = r->queue.items().first();
        QCOMPARE(item->state(), ItemState::failed(QStringLiteral("Video unavailable")));
        QCOMPARE(r->notifier.posted.last(), std::make_pair(QStringLiteral("Download failed"), linkA));
        QCOMPARE(r->queue.lastMessage().value_or(QString()), QStringLiteral("Failed \u00B7 ") + linkA);
        QVERIFY(!r->queue.isActiveURL(linkA));
        QVERIFY2(!r->queue.hasAutoClear(item->id()), "failed items stay until the user acts");

        r->engine.probeErrors.clear();
        r->engine.holdDownload = true;
        item->setProgress(0.4);
        r->queue.retry(item);
        QCOMPARE(item->state(), ItemState::downloading());
        QCOMPARE(item->progress(), 0.0);
        QCOMPARE(r->queue.items().size(), 1);
        QVERIFY(r->queue.isActiveURL(linkA));
        r->engine.release();
        QTRY_COMPARE(item->state(), ItemState::done());

        const int probes = r->engine.probeCalls;
        r->queue.retry(item); // done
        QCOMPARE(item->state(), ItemState::done());
        r->queue.add(linkB);
        r->queue.cancel(r->find(linkB));
        r->queue.retry(r->find(linkB)); // cancelled
        QCOMPARE(r->find(linkB)->state(), ItemState::cancelled());
        QCOMPARE(r->engine.probeCalls, probes + 1);
    }

    void doneLinkCanBeQueuedAgain() {
        auto r = rig();
        r->queue.add(linkA);
        QTRY_COMPARE(r->queue.items().first()->state(), ItemState::done());
        r->queue.add(linkA);
        QCOMPARE(r->queue.items().size(), 2);
        QTRY_COMPARE(r->queue.running(), 0);
    }

    void trimKeepsActiveItems() {
        auto r = rig();
        for (int i = 0; i < 85; ++i) {
            const QString link = QStringLiteral("https://vimeo.com/t") + QString::number(i);
            r->engine.probeErrors.insert(link, QStringLiteral("nope"));
            r->queue.add(link);
        }
        // Each add trims before its own item ends, so 81 terminal items survive the last add.
        QCOMPARE(r->queue.items().size(), 81);
        r->queue.trimOldTerminalItems(80);
        QCOMPARE(r->queue.items().size(), 80);
        QCOMPARE(r->queue.items().last()->url(), QStringLiteral("https://vimeo.com/t5"));

        r->settings.setMaxConcurrent(2);
        r->engine.holdProbe = true;
        for (int i = 0; i < 6; ++i)
            r->queue.add(QStringLiteral("https://vimeo.com/live") + QString::number(i));
        r->queue.trimOldTerminalItems(0);
        QCOMPARE(r->queue.items().size(), 6);
        for (const auto &item : r->queue.items())
            QVERIFY(item->state().isActive());
    }

    void progressClampsAndThrottles_data() {
        QTest::addColumn<QList<double>>("fractions");
        QTest::addColumn<QList<double>>("gaps"); // seconds before each record
        QTest::addColumn<QList<double>>("seen"); // progress after each record
        QTest::newRow("clamped high and low") << QList<double>{1.3, -0.2} << QList<double>{0, 1} << QList<double>{1.0, 0.0};
        QTest::newRow("small step within 0.12 s dropped")
            << QList<double>{0.5, 0.505} << QList<double>{0, 0.05} << QList<double>{0.5, 0.5};
        QTest::newRow("big step within 0.12 s kept")
            << QList<double>{0.5, 0.52} << QList<double>{0, 0.05} << QList<double>{0.5, 0.52};
        QTest::newRow("small step after 0.12 s kept")
            << QList<double>{0.5, 0.505} << QList<double>{0, 0.13} << QList<double>{0.5, 0.505};
        QTest::newRow("dropped records do not move the mark")
            << QList<double>{0.5, 0.505, 0.509, 0.509} << QList<double>{0, 0.05, 0.05, 0.03}
            << QList<double>{0.5, 0.5, 0.5, 0.509};
    }
    void progressClampsAndThrottles() {
        QFETCH(QList<double>, fractions);
        QFETCH(QList<double>, gaps);
        QFETCH(QList<double>, seen);
        auto r = rig();
        r->engine.holdProbe = true;
        r->queue.add(linkA);
        const auto item = r->queue.items().first();
        for (qsizetype i = 0; i < fractions.size(); ++i) {
            r->clock.advance(gaps.at(i));
            r->queue.applyProgress(at(fractions.at(i)), item);
            QCOMPARE(item->progress(), seen.at(i));
        }
        QCOMPARE(item->state(), ItemState::downloading());
    }

    void progressTextsAndPhases() {
        auto r = rig();
        r->engine.holdProbe = true;
        r->queue.add(linkA);
        const auto item = r->queue.items().first();
        QSignalSpy changes(item.get(), &DownloadItem::changed);
        r->queue.applyProgress(at(0.1, QStringLiteral("Unknown"), QStringLiteral("Unknown")), item);
        QCOMPARE(item->speedText(), QString());
        QCOMPARE(item->etaText(), QString());
        r->clock.advance(0.01);
        // Throttled record: speed and ETA wait too.
        r->queue.applyProgress(at(0.1, QStringLiteral("2MiB/s"), QStringLiteral("00:05")), item);
        QCOMPARE(item->speedText(), QString());
        r->clock.advance(1);
        r->queue.applyProgress(at(std::nullopt, QStringLiteral("2MiB/s"), QStringLiteral("00:05")), item);
        QCOMPARE(item->speedText(), QStringLiteral("2MiB/s"));
        QCOMPARE(item->progress(), 0.1);
        const auto before = changes.size();
        r->queue.applyProgress(at(std::nullopt, QStringLiteral("2MiB/s"), QStringLiteral("00:05")), item);
        QCOMPARE(changes.size(), before);

        YtDlp::Progress merge;
        merge.phase = QStringLiteral("Merging video + audio");
        r->queue.applyProgress(merge, item);
        QCOMPARE(item->state(), ItemState::processing(QStringLiteral("Merging video + audio")));
        QCOMPARE(item->speedText(), QString());
        r->clock.advance(1);
        r->queue.applyProgress(at(0.9), item);
        QCOMPARE(item->state(), ItemState::processing(QStringLiteral("Merging video + audio")));

        r->queue.cancel(item);
        r->clock.advance(1);
        r->queue.applyProgress(at(0.95), item);
        r->queue.applyProgress(merge, item);
        QCOMPARE(item->state(), ItemState::cancelled());
        QCOMPARE(item->progress(), 0.9);
    }

    void playlistFansOut_data() {
        QTest::addColumn<int>("entries");
        QTest::addColumn<int>("queued");
        QTest::newRow("250") << 250 << 100;
        QTest::newRow("7") << 7 << 7;
    }
    void playlistFansOut() {
        QFETCH(int, entries);
        QFETCH(int, queued);
        auto r = rig();
        r->settings.setMaxConcurrent(1);
        r->engine.probes.insert(linkA, playlist(entries));
        r->engine.holdDownload = true;
        r->queue.add(linkA, DownloadMode::videoOnly);
        const auto list = r->find(linkA);
        QCOMPARE(list->state(), ItemState::done());
        QCOMPARE(list->title(), QStringLiteral("Mix \u2014 ") + QString::number(entries) + QStringLiteral(" videos queued"));
        QCOMPARE(list->progress(), 1.0);
        QCOMPARE(r->queue.items().size(), queued + 1);
        QCOMPARE(r->queue.lastMessage().value_or(QString()),
                 QStringLiteral("Queued ") + QString::number(queued) + QStringLiteral(" videos from playlist"));
        QCOMPARE(r->queue.items().first()->url(), QStringLiteral("https://vimeo.com/p") + QString::number(queued - 1));
        QCOMPARE(r->queue.items().first()->mode(), DownloadMode::videoOnly);
        QVERIFY(r->queue.hasAutoClear(list->id()));
        QVERIFY(!r->find(QStringLiteral("https://vimeo.com/p") + QString::number(queued)));
        QTRY_COMPARE(r->engine.downloadCalls, 1); // the first entry runs, the rest wait
        r->history.waitForPendingSave();
        QVERIFY2(r->history.entries().isEmpty(), "a playlist item is not a download");
    }

    void spotifyPath() {
        auto r = rig();
        const QString album = QStringLiteral("https://open.spotify.com/album/xyz");
        r->queue.add(album);
        QCOMPARE(r->find(album)->state(),
                 ItemState::failed(QStringLiteral("Only Spotify track links are supported (not playlists/albums).")));

        const QString bare = QStringLiteral("https://open.spotify.com/track/bare");
        const QString named = QStringLiteral("https://open.spotify.com/track/named");
        r->engine.spotify.insert(bare, {QStringLiteral("ytsearch1:Song"), SpotifyTrack{QStringLiteral("Song"), {}, {}}});
        r->engine.spotify.insert(named, {QStringLiteral("https://www.youtube.com/watch?v=q"),
                                         SpotifyTrack{QStringLiteral("Hit"), QStringLiteral("Band"), QUrl(QStringLiteral("https://i.example/c.jpg"))}});
        r->queue.add(bare, DownloadMode::bestVideoAudio);
        r->queue.add(named);
        QTRY_COMPARE(r->find(named)->state(), ItemState::done());
        QTRY_COMPARE(r->find(bare)->state(), ItemState::done());
        QCOMPARE(r->find(bare)->title(), QStringLiteral("Song"));
        const auto item = r->find(named);
        QCOMPARE(item->title(), QStringLiteral("Band \u2014 Hit"));
        QCOMPARE(item->mode(), DownloadMode::audioOnly);
        QCOMPARE(item->thumbnailURL(), QUrl(QStringLiteral("https://i.example/c.jpg")));
        QVERIFY(r->engine.downloadedURLs.contains(QStringLiteral("https://www.youtube.com/watch?v=q")));
        QVERIFY2(item->finalFileURL().toLocalFile().endsWith(QLatin1String(".tagged-Hit")), "the tagged file is the result");
        QCOMPARE(r->engine.probeCalls, 0);

        const QString unknown = QStringLiteral("https://open.spotify.com/track/unknown");
        r->queue.add(unknown);
        QCOMPARE(r->find(unknown)->state(), ItemState::failed(QStringLiteral("Couldn't read track info from that Spotify link.")));
    }

    void selfHealsOnce_data() {
        QTest::addColumn<QStringList>("errors");
        QTest::addColumn<int>("updates");
        QTest::addColumn<QString>("failure"); // empty: ends done
        const QString notLocated = QStringLiteral("Finished, but the output file could not be located.");
        QTest::newRow("healed") << QStringList{QStringLiteral("Unable to extract uploader id")} << 1 << QString();
        QTest::newRow("second failure is final") << QStringList{notLocated, notLocated} << 1 << notLocated;
        QTest::newRow("not healable") << QStringList{QStringLiteral("HTTP Error 404: Not Found")} << 0
                                      << QStringLiteral("HTTP Error 404: Not Found");
    }
    void selfHealsOnce() {
        QFETCH(QStringList, errors);
        QFETCH(int, updates);
        QFETCH(QString, failure);
        auto r = rig();
        for (const auto &e : errors)
            r->engine.downloads.append({QString(), e});
        r->engine.holdDownload = true;
        r->queue.add(linkA);
        const auto item = r->queue.items().first();
        r->engine.watched = item;
        QTRY_COMPARE(r->engine.waiting, 1);
        r->engine.progressSinks.last()(at(0.6));
        QCOMPARE(item->progress(), 0.6);
        r->engine.holdDownload = false;
        r->engine.release();
        QTRY_VERIFY(item->state().isTerminal());
        QCOMPARE(r->engine.updateCalls, updates);
        QCOMPARE(item->didSelfHeal(), updates > 0);
        QCOMPARE(r->engine.downloadCalls, 1 + updates);
        if (updates > 0)
            QCOMPARE(r->engine.progressAtUpdate, QList<double>{0.6});
        if (failure.isEmpty()) {
            QCOMPARE(item->state(), ItemState::done());
            QCOMPARE(item->progress(), 1.0);
        } else {
            QCOMPARE(item->state(), ItemState::failed(failure));
            QCOMPARE(r->notifier.titles(), QStringList{QStringLiteral("Download failed")});
        }
    }

    void cancelWhileSuspended_data() {
        QTest::addColumn<bool>("inProbe");
        QTest::addColumn<bool>("remove");
        QTest::newRow("cancel in probe") << true << false;
        QTest::newRow("remove in probe") << true << true;
        QTest::newRow("cancel in download") << false << false;
        QTest::newRow("remove in download") << false << true;
    }
    void cancelWhileSuspended() {
        QFETCH(bool, inProbe);
        QFETCH(bool, remove);
        auto r = rig();
        r->settings.setMaxConcurrent(1);
        r->engine.holdProbe = inProbe;
        r->engine.holdDownload = !inProbe;
        r->queue.add(linkA);
        r->queue.add(linkB);
        std::weak_ptr<DownloadItem> weak = r->find(linkA);
        QTRY_COMPARE(r->engine.waiting, 1);
        if (remove)
            r->queue.remove(r->find(linkA));
        else
            r->queue.cancel(r->find(linkA));
        QVERIFY(!r->queue.isActiveURL(linkA));
        QCOMPARE(r->queue.running(), 1);
        r->engine.holdProbe = r->engine.holdDownload = false;
        r->engine.release();
        QTRY_COMPARE(r->find(linkB) ? r->find(linkB)->state() : ItemState::queued(), ItemState::done());
        QCOMPARE(r->engine.downloadCalls, inProbe ? 1 : 2);
        QCOMPARE(r->queue.items().size(), remove ? 1 : 2);
        QVERIFY(weak.expired() == remove);
        if (!remove)
            QCOMPARE(r->find(linkA)->state(), ItemState::cancelled());
        QCOMPARE(r->notifier.titles(), QStringList{QStringLiteral("Download complete")});
        r->history.waitForPendingSave();
        QCOMPARE(r->history.entries().size(), 1);
    }

    void finishingRecordsAndAnnounces() {
        auto r = rig();
        r->settings.setAutoAnalyzeAudio(true);
        r->engine.analysis = {128.0, QStringLiteral("A\u266Dm")};
        r->queue.add(linkA, DownloadMode::audioOnly);
        r->queue.add(linkB, DownloadMode::bestVideoAudio, std::nullopt, true);
        QTRY_COMPARE(r->queue.running(), 0);
        const auto audio = r->find(linkA);
        const auto video = r->find(linkB);
        QCOMPARE(audio->state(), ItemState::done());
        QCOMPARE(audio->detectedBPM(), std::optional<double>(128.0));
        QCOMPARE(audio->detectedKey(), std::optional<QString>(QStringLiteral("A\u266Dm")));
        QCOMPARE(r->engine.analyzeCalls, 1);
        QVERIFY(!video->detectedBPM());
        QCOMPARE(r->queue.momentsRequest(), video);
        QVERIFY(!r->queue.hasAutoClear(video->id()));
        QVERIFY(r->queue.hasAutoClear(audio->id()));
        QCOMPARE(r->notifier.titles(), (QStringList{QStringLiteral("Download complete"), QStringLiteral("Download complete")}));
        QCOMPARE(r->queue.lastMessage().value_or(QString()), QStringLiteral("Saved \u00B7 Title of ") + linkB);
        r->history.waitForPendingSave();
        QCOMPARE(r->history.entries().size(), 2);
    }

    void outputFolderFollowsOrganizeSetting() {
        auto r = rig();
        const QString root = r->settings.downloadFolder();
        r->settings.setOrganizeDownloads(false);
        r->queue.add(linkA);
        QTRY_COMPARE(r->engine.downloadCalls, 1);
        r->settings.setOrganizeDownloads(true);
        r->queue.add(QStringLiteral("https://www.tiktok.com/@a/video/1"));
        QTRY_COMPARE(r->engine.downloadCalls, 2);
        QCOMPARE(r->engine.outputDirs.at(0), root);
        QCOMPARE(r->engine.outputDirs.at(1), QDir(root).filePath(QStringLiteral("TikTok")));
        QVERIFY(QFileInfo(r->engine.outputDirs.at(1)).isDir());
    }

    void autoClearRemovesDoneNotFailedOrRetried() {
        auto r = rig();
        r->queue.setAutoClearDelay(150);
        r->engine.probeErrors.insert(linkB, QStringLiteral("gone"));
        r->queue.add(linkA);
        r->queue.add(linkB);
        QTRY_COMPARE(r->queue.running(), 0);
        const auto failed = r->find(linkB);
        QVERIFY(!r->queue.hasAutoClear(failed->id()));
        QTRY_VERIFY_WITH_TIMEOUT(!r->find(linkA), 3000);
        QTest::qWait(300);
        QCOMPARE(r->find(linkB), failed);

        // An item that is active again when its removal comes due stays.
        r->queue.scheduleAutoClear(failed);
        r->engine.probeErrors.clear();
        r->engine.holdProbe = true;
        r->queue.retry(failed);
        QTest::qWait(300);
        QCOMPARE(r->find(linkB), failed);
        QVERIFY(!r->queue.hasAutoClear(failed->id()));

        // Clearing takes every finished row and disarms its pending removal.
        r->engine.holdProbe = false;
        r->engine.release();
        QTRY_COMPARE(failed->state(), ItemState::done());
        const QString linkC = QStringLiteral("https://vimeo.com/300");
        r->queue.add(linkC);
        r->queue.cancel(r->find(linkC));
        QVERIFY(r->queue.hasAutoClear(failed->id()));
        r->queue.clearFinished();
        QVERIFY(r->queue.items().isEmpty());
        QVERIFY(!r->queue.hasAutoClear(failed->id()));
        QVERIFY(!r->queue.isActiveURL(linkB));
    }

    void postProcessingActions() {
        auto r = rig();
        r->queue.add(linkA);
        QTRY_COMPARE(r->queue.running(), 0);
        const auto item = r->find(linkA);
        const QUrl file = item->finalFileURL();

        auto bare = DownloadItem::make(linkB, DownloadMode::audioOnly);
        r->queue.transcribe(bare);
        r->queue.renderPitch(bare, 2);
        QCOMPARE(bare->state(), ItemState::queued());

        r->engine.transcribeError = QStringLiteral("whisper-cli failed: out of memory");
        r->queue.transcribe(item);
        QTRY_COMPARE(item->state(), ItemState::done());
        QCOMPARE(r->queue.lastMessage().value_or(QString()), QStringLiteral("whisper-cli failed: out of memory"));

        r->engine.transcribeError.clear();
        r->engine.transcriptPath = TestEnv::root() + QStringLiteral("/talk.srt");
        r->queue.transcribe(item);
        QTRY_COMPARE(r->notifier.titles().last(), QStringLiteral("Transcript + summary ready"));
        QCOMPARE(item->transcriptURL(), QUrl::fromLocalFile(TestEnv::root() + QStringLiteral("/talk.srt")));
        QCOMPARE(item->summaryURL(), QUrl::fromLocalFile(TestEnv::root() + QStringLiteral("/talk.txt.summary")));

        r->engine.renderResult = QUrl::fromLocalFile(QStringLiteral("/x/Song (75%).m4a"));
        r->queue.renderPractice(item, 0.75);
        QTRY_COMPARE(r->queue.lastMessage().value_or(QString()), QStringLiteral("Saved Song (75%).m4a"));
        r->engine.renderResult.reset();
        r->queue.renderPitch(item, -3);
        QTRY_COMPARE(r->queue.lastMessage().value_or(QString()), QStringLiteral("Render failed"));
        QCOMPARE(item->state(), ItemState::done());
        QCOMPARE(item->finalFileURL(), file);
    }

    void statusTexts_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("expected");
        QTest::newRow("75%") << DownloadQueue::practiceStatus(0.75) << QStringLiteral("Rendering 75% version");
        QTest::newRow("50%") << DownloadQueue::practiceStatus(0.5) << QStringLiteral("Rendering 50% version");
        QTest::newRow("+2") << DownloadQueue::pitchStatus(2) << QStringLiteral("Shifting +2 st");
        QTest::newRow("-3") << DownloadQueue::pitchStatus(-3) << QStringLiteral("Shifting -3 st");
        QTest::newRow("0") << DownloadQueue::pitchStatus(0) << QStringLiteral("Shifting 0 st");
    }
    void statusTexts() {
        QFETCH(QString, text);
        QFETCH(QString, expected);
        QCOMPARE(text, expected);
    }
};

VORLIX_TEST_SUITE(DownloadQueueTest)
#include "DownloadQueueTest.moc"
