#include "FixtureSite.h"
#include "QueueFakes.h"
#include "TestEnv.h"
#include "TestMain.h"
#include "analysis_music.h"
#include "engine_media.h"

#include "core/AppSettings.h"
#include "engine/Tools.h"
#include "queue/DownloadQueue.h"
#include "queue/HistoryStore.h"

#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QTest>

#include <memory>

using namespace queuetest;

// The real queue with the real downloader and ffmpeg against the local fixture site.
class DownloadPipelineTest : public QObject {
    Q_OBJECT
    std::unique_ptr<FixtureSite> m_site;
    int m_runs = 0;

    struct RealRig {
        AppSettings settings;
        HistoryStore history;
        RecordingNotifier notifier;
        DownloadQueue queue;
        QString downloads;
        explicit RealRig(const QString &name)
            : settings(TestEnv::root() + u'/' + name + QStringLiteral(".ini")),
              history(TestEnv::root() + u'/' + name + QStringLiteral("-history.json")),
              queue(settings, history, notifier, DownloadQueue::Services::real()),
              downloads(TestEnv::root() + u'/' + name + QStringLiteral("-downloads")) {
            settings.setDownloadFolderPath(downloads);
            settings.setAudioFormatRaw(QStringLiteral("mp3"));
            settings.setPreferMP4(true);
            settings.setUseBrowserCookies(false);
            settings.setAutoAnalyzeAudio(false);
        }
        DownloadItemPtr find(const QString &url) const {
            for (const auto &item : queue.items())
                if (item->url() == url)
                    return item;
            return {};
        }
        int count(ItemState::Kind kind) const {
            int n = 0;
            for (const auto &item : queue.items())
                n += item->state().is(kind) ? 1 : 0;
            return n;
        }
    };

    std::unique_ptr<RealRig> rig() {
        return std::make_unique<RealRig>(QStringLiteral("pipeline-") + QString::number(++m_runs));
    }

    static QStringList pathFiles() {
        return QDir(AppSettings::appSupportDir()).entryList({QStringLiteral("outpath-*")}, QDir::Files);
    }

    static QStringList filesUnder(const QString &dir) {
        QStringList out;
        QDirIterator it(dir, QDir::Files, QDirIterator::Subdirectories);
        while (it.hasNext())
            out << QDir(dir).relativeFilePath(it.next());
        out.sort();
        return out;
    }

    // A downloader that behaves like the real one except where the test scripts it.
    static void installScriptedDownloader(const QString &script) {
        const QString real = Tools::packagedDir() + QStringLiteral("/yt-dlp");
        // Never let a test reach the update server.
        const QString offline = QStringLiteral("case \" $* \" in *' -U '*) echo 'yt-dlp is up to date'; exit 0;; esac\n");
        TestEnv::writeStubTool(Tools::ytDlpName, script + u'\n' + offline + QStringLiteral("exec '%1' \"$@\"\n").arg(real));
    }

private Q_SLOTS:
    void initTestCase() {
        m_site = std::make_unique<FixtureSite>();
        QVERIFY(m_site->isRunning());
        QVERIFY(EngineMedia::populate(*m_site));
        AnalysisMusic::Options music;
        music.seconds = 16;
        QVERIFY(AnalysisMusic::song(m_site->root() + QStringLiteral("/song.mp3"), 7, false, 120, music));
    }

    void init() { TestEnv::removeStubTool(Tools::ytDlpName); }
    void cleanupTestCase() { TestEnv::removeStubTool(Tools::ytDlpName); }

    void threeRunTheRestWaitInOrder() {
        auto r = rig();
        r->settings.setMaxConcurrent(3);
        QStringList links;
        for (int i = 1; i <= 5; ++i)
            links << m_site->url(QStringLiteral("/clip.mp4?rate=200000&n=") + QString::number(i));
        for (const auto &l : links)
            r->queue.add(l);
        QCOMPARE(r->queue.running(), 3);
        QCOMPARE(r->count(ItemState::Kind::queued), 2);
        QCOMPARE(r->find(links[3])->state(), ItemState::queued());
        QCOMPARE(r->find(links[4])->state(), ItemState::queued());

        // The first finished slot goes to the fourth link, the fifth still waits.
        QTRY_VERIFY_WITH_TIMEOUT(r->count(ItemState::Kind::done) >= 1, 60000);
        QVERIFY(r->find(links[3])->state() != ItemState::queued());
        QVERIFY(r->queue.running() <= 3);
        QTRY_COMPARE_WITH_TIMEOUT(r->count(ItemState::Kind::done), 5, 90000);
        QCOMPARE(r->queue.running(), 0);
        for (const auto &item : r->queue.items())
            QVERIFY(QFileInfo(item->finalFileURL().toLocalFile()).isFile());
        QCOMPARE(r->notifier.titles().count(QStringLiteral("Download complete")), 5);
        r->history.waitForPendingSave();
        QCOMPARE(r->history.entries().size(), 5);
        QVERIFY(QFileInfo(TestEnv::root() + QStringLiteral("/") + QStringLiteral("pipeline-") + QString::number(m_runs)
                          + QStringLiteral("-history.json"))
                    .size() > 0);
        QVERIFY(pathFiles().isEmpty());
    }

    void playlistPageFansOut() {
        auto r = rig();
        const QString page = m_site->url(QStringLiteral("/playlist/index.html"));
        r->queue.add(page);
        QTRY_COMPARE_WITH_TIMEOUT(r->queue.running(), 0, 90000);
        const auto list = r->find(page);
        QVERIFY(list);
        QCOMPARE(list->state(), ItemState::done());
        QCOMPARE(list->title(), QStringLiteral("Fixture Playlist \u2014 2 videos queued"));
        QCOMPARE(r->queue.items().size(), 3);
        QCOMPARE(r->count(ItemState::Kind::done), 3);
        QCOMPARE(filesUnder(r->downloads).size(), 2);
        r->history.waitForPendingSave();
        QCOMPARE(r->history.entries().size(), 2);
    }

    void organizedFoldersAndAudioAnalysis() {
        auto r = rig();
        r->settings.setOrganizeDownloads(true);
        r->settings.setAutoAnalyzeAudio(true);
        const QString song = m_site->url(QStringLiteral("/song.mp3"));
        const QString page = m_site->url(QStringLiteral("/page.html"));
        r->queue.add(song, DownloadMode::audioOnly);
        r->queue.add(page, DownloadMode::bestVideoAudio);
        QTRY_COMPARE_WITH_TIMEOUT(r->queue.running(), 0, 120000);
        const auto audio = r->find(song);
        const auto video = r->find(page);
        QCOMPARE(audio->state(), ItemState::done());
        QCOMPARE(video->state(), ItemState::done());
        QVERIFY(audio->detectedBPM());
        QVERIFY2(std::abs(*audio->detectedBPM() - 120) <= 2, qPrintable(QString::number(*audio->detectedBPM())));
        QCOMPARE(audio->detectedKey(), std::optional<QString>(QStringLiteral("G")));
        QVERIFY(!video->detectedBPM());
        // Neither site is known, so both go under the catch-all source folder.
        for (const auto &item : {audio, video}) {
            const QString file = item->finalFileURL().toLocalFile();
            QVERIFY2(QFileInfo(file).isFile(), qPrintable(file));
            QVERIFY2(QFileInfo(file).absolutePath() != QDir(r->downloads).absolutePath(), qPrintable(file));
            QVERIFY(file.startsWith(r->downloads + u'/'));
        }

        auto flat = rig();
        flat->settings.setOrganizeDownloads(false);
        flat->queue.add(page);
        QTRY_COMPARE_WITH_TIMEOUT(flat->queue.running(), 0, 60000);
        const QString file = flat->find(page)->finalFileURL().toLocalFile();
        QCOMPARE(QFileInfo(file).absolutePath(), QDir(flat->downloads).absolutePath());
    }

    void cancelDuringThrottledDownload() {
        auto r = rig();
        const QString slow = m_site->url(QStringLiteral("/slow.html"));
        r->queue.add(slow);
        const auto item = r->find(slow);
        QTRY_VERIFY_WITH_TIMEOUT(item->state().is(ItemState::Kind::downloading) && item->progress() > 0, 60000);
        const QList<qint64> children = EngineMedia::liveProcessesMentioning(QStringLiteral("slow"), {QStringLiteral("yt-dlp"), QStringLiteral("ffmpeg")});
        QVERIFY(!children.isEmpty());
        r->queue.cancel(item);
        QCOMPARE(item->state(), ItemState::cancelled());
        const double progress = item->progress();
        QTRY_COMPARE_WITH_TIMEOUT(r->queue.running(), 0, 20000);
        QTRY_VERIFY_WITH_TIMEOUT(EngineMedia::liveProcessesMentioning(QStringLiteral("slow"), {QStringLiteral("yt-dlp"), QStringLiteral("ffmpeg")}).isEmpty(), 10000);
        QTest::qWait(300);
        QCOMPARE(item->state(), ItemState::cancelled());
        QCOMPARE(item->progress(), progress);
        YtDlp::Progress late;
        late.fraction = 0.99;
        r->queue.applyProgress(late, item);
        QCOMPARE(item->progress(), progress);
        QVERIFY(pathFiles().isEmpty());
        QVERIFY(r->notifier.posted.isEmpty());
        r->history.waitForPendingSave();
        QVERIFY(r->history.entries().isEmpty());
    }

    void healableFailureUpdatesOnceAndRetries() {
        const QString marker = TestEnv::root() + QStringLiteral("/failed-once");
        const QString updates = TestEnv::root() + QStringLiteral("/updates.log");
        QFile::remove(marker);
        QFile::remove(updates);
        installScriptedDownloader(QStringLiteral(
            "case \" $* \" in *' -U '*) echo \"-U\" >> '%2'; echo 'yt-dlp is up to date'; exit 0;; esac\n"
            "case \" $* \" in *' -o '*) if [ ! -e '%1' ]; then : > '%1'; "
            "echo 'VORLIX| 50.0%|1.0MiB/s|00:01'; "
            "echo 'ERROR: [generic] Unable to extract video data; please report this issue' >&2; exit 1; fi;; esac")
                                      .arg(marker, updates));
        auto r = rig();
        const QString page = m_site->url(QStringLiteral("/page.html"));
        QStringList states;
        QList<double> progressAtRetry;
        r->queue.add(page);
        const auto item = r->find(page);
        connect(item.get(), &DownloadItem::changed, this, [&] {
            const QString s = item->state().is(ItemState::Kind::processing) ? item->state().text()
                                                                             : QString::number(int(item->state().kind()));
            if (states.isEmpty() || states.last() != s)
                states << s;
            if (s == QStringLiteral("Updating engine + retrying\u2026"))
                progressAtRetry << item->progress();
        });
        QTRY_COMPARE_WITH_TIMEOUT(r->queue.running(), 0, 90000);
        QCOMPARE(item->state(), ItemState::done());
        QVERIFY(item->didSelfHeal());
        QVERIFY2(states.contains(QStringLiteral("Updating engine + retrying\u2026")), qPrintable(states.join(u',')));
        QCOMPARE(progressAtRetry.first(), 0.5);
        QFile log(updates);
        QVERIFY(log.open(QIODevice::ReadOnly));
        QCOMPARE(log.readAll(), QByteArray("-U\n"));
        QVERIFY(QFileInfo(item->finalFileURL().toLocalFile()).isFile());
    }

    void crashingDownloaderFailsOnlyItsItem() {
        installScriptedDownloader(QStringLiteral(
            "case \"$*\" in *crash*) case \" $* \" in *' -o '*) kill -SEGV $$;; esac;; esac"));
        auto r = rig();
        r->settings.setMaxConcurrent(1);
        const QString crash = m_site->url(QStringLiteral("/page.html?crash=1"));
        const QString fine = m_site->url(QStringLiteral("/clip.mp4"));
        r->queue.add(crash);
        r->queue.add(fine);
        QTRY_COMPARE_WITH_TIMEOUT(r->queue.running(), 0, 120000);
        const auto crashed = r->find(crash);
        QVERIFY(crashed->state().is(ItemState::Kind::failed));
        QVERIFY(!crashed->state().text().isEmpty());
        QCOMPARE(r->find(fine)->state(), ItemState::done());
        QVERIFY(pathFiles().isEmpty());
    }
};

VORLIX_TEST_SUITE(DownloadPipelineTest)
#include "DownloadPipelineTest.moc"
