#include "FixtureSite.h"
#include "QueueFakes.h"
#include "TestMain.h"
#include "analysis_music.h"
#include "engine_media.h"

#include "discovery/SpotifyResolver.h"
#include "engine/Tools.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QTest>

#include <memory>

using namespace queuetest;

namespace {

QStringList pathFiles() {
    return QDir(AppSettings::appSupportDir()).entryList({QStringLiteral("outpath-*")}, QDir::Files);
}

int filesUnder(const QString &dir) {
    int n = 0;
    for (QDirIterator it(dir, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories); it.hasNext(); it.next())
        ++n;
    return n;
}

// A downloader that behaves like the real one except where `script` decides first; it records its
// arguments and never reaches the update server.
void installScriptedDownloader(const QString &script) {
    const QString real = Tools::packagedDir() + QStringLiteral("/yt-dlp");
    const QString offline = QStringLiteral("case \" $* \" in *' -U '*) echo 'yt-dlp is up to date'; exit 0;; esac\n");
    TestEnv::standIn(Tools::ytDlpName, script + u'\n' + offline + QStringLiteral("exec '%1' \"$@\"").arg(real));
}

} // namespace

// The real queue with the real downloader and ffmpeg against the local fixture site.
class DownloadPipelineTest : public QObject {
    Q_OBJECT
    std::unique_ptr<FixtureSite> m_site;

    std::unique_ptr<QueueRig> rig() const {
        SpotifyResolver::Endpoint spotify{QUrl(m_site->url(QStringLiteral("/open.spotify.com/oembed")))};
        spotify.oEmbedTimeout = spotify.pageTimeout = spotify.artTimeout = std::chrono::seconds(10);
        auto r = std::make_unique<QueueRig>(DownloadQueue::Services::real(spotify));
        r->settings.setAudioFormatRaw(QStringLiteral("mp3"));
        r->settings.setPreferMP4(true);
        r->settings.setUseBrowserCookies(false);
        r->settings.setAutoAnalyzeAudio(false);
        r->settings.setOrganizeDownloads(false);
        return r;
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

    // Downloads run side by side and land as files below the catch-all source folder and in the
    // history, leaving no per-download path file behind; a downloader that crashes fails only its
    // own item, one that fails in a healable way updates the engine once and retries. (Which link
    // takes a freed slot, and the progress around a retry, are the scheduler's tests.)
    void downloadsLandInLibraryAndHistory() {
        installScriptedDownloader(QStringLiteral(
            "case \" $* \" in *' -o '*crash*) kill -SEGV $$;; *' -o '*heal*) if [ ! -e '%1' ]; then : > '%1'; "
            "echo 'ERROR: [generic] Unable to extract video data; please report this issue' >&2; exit 1; fi;; esac")
                                      .arg(TestEnv::root() + QStringLiteral("/failed-once")));
        auto r = rig();
        r->settings.setMaxConcurrent(2);
        r->settings.setOrganizeDownloads(true);
        for (const QString &name : {QStringLiteral("a.mp4"), QStringLiteral("b.mp4?crash=1"), QStringLiteral("c.mp4?heal=1"), QStringLiteral("d.mp4")}) {
            QFile::copy(m_site->root() + QStringLiteral("/clip.mp4"), m_site->root() + u'/' + name.section(u'?', 0, 0));
            r->queue.add(m_site->url(u'/' + name));
        }
        QTRY_COMPARE_WITH_TIMEOUT(r->queue.running(), 0, 90000);
        const auto crashed = r->find(m_site->url(QStringLiteral("/b.mp4?crash=1")));
        QVERIFY(crashed->state().is(ItemState::Kind::failed) && !crashed->state().text().isEmpty());
        QCOMPARE(r->count(ItemState::Kind::done), 3);
        QVERIFY(r->find(m_site->url(QStringLiteral("/c.mp4?heal=1")))->didSelfHeal());
        QCOMPARE(TestEnv::standInArgs(Tools::ytDlpName).count(QStringLiteral("-U")),
                 std::count_if(r->queue.items().cbegin(), r->queue.items().cend(), [](const auto &i) { return i->didSelfHeal(); }));
        for (const auto &item : r->queue.items()) {
            const QFileInfo file(item->finalFileURL().toLocalFile());
            QVERIFY2(item == crashed || (file.isFile() && file.absolutePath() != r->downloads && file.absolutePath().startsWith(r->downloads)),
                     qPrintable(file.filePath()));
        }
        QCOMPARE(filesUnder(r->downloads), 3);
        QCOMPARE(r->notifier.titles.count(QStringLiteral("Download complete")), 3);
        r->history.waitForPendingSave();
        QCOMPARE(r->history.entries().size(), 3);
        QVERIFY(pathFiles().isEmpty());
    }

    // A site that never answers: cancelling ends its probe at once and frees the slot.
    void cancelWhileProbingFreesTheSlot() {
        auto r = rig();
        const QString stuck = m_site->url(QStringLiteral("/page.html?delay=60&n=stuck"));
        const auto probing = [] { return !EngineMedia::liveProcessesMentioning(QStringLiteral("n=stuck"), {QStringLiteral("yt-dlp")}).isEmpty(); };
        r->queue.add(stuck);
        bool seen = false;
        QTRY_VERIFY_WITH_TIMEOUT(seen = seen || probing(), 30000);
        r->queue.cancel(r->find(stuck));
        QTRY_COMPARE_WITH_TIMEOUT(r->queue.running(), 0, 5000);
        QTRY_VERIFY_WITH_TIMEOUT(!probing(), 5000);
        QCOMPARE(r->find(stuck)->state(), ItemState::cancelled());
    }

    void cancelDuringThrottledDownload() {
        auto r = rig();
        const QString slow = m_site->url(QStringLiteral("/slow.html"));
        const QStringList tools{QStringLiteral("yt-dlp"), QStringLiteral("ffmpeg")};
        r->queue.add(slow);
        const auto item = r->find(slow);
        QTRY_VERIFY_WITH_TIMEOUT(item->state().is(ItemState::Kind::downloading) && item->progress() > 0, 60000);
        QVERIFY(!EngineMedia::liveProcessesMentioning(QStringLiteral("slow"), tools).isEmpty());
        r->queue.cancel(item);
        QCOMPARE(item->state(), ItemState::cancelled());
        const double progress = item->progress();
        QTRY_COMPARE_WITH_TIMEOUT(r->queue.running(), 0, 20000);
        QTRY_VERIFY_WITH_TIMEOUT(EngineMedia::liveProcessesMentioning(QStringLiteral("slow"), tools).isEmpty(), 10000);
        r->queue.applyProgress(progressAt(0.99), item); // a late line
        QCOMPARE(item->state(), ItemState::cancelled());
        QCOMPARE(item->progress(), progress);
        QVERIFY(pathFiles().isEmpty());
        QVERIFY(r->notifier.titles.isEmpty());
        r->history.waitForPendingSave();
        QVERIFY(r->history.entries().isEmpty());
    }

    // The downloader is cancelled before it has started; once it runs it must still be stopped.
    void cancelWhileTheDownloaderStarts() {
        installScriptedDownloader(QStringLiteral("case \" $* \" in *' --newline '*) exec sleep 600;; esac"));
        auto r = rig();
        const QString page = m_site->url(QStringLiteral("/page.html"));
        r->queue.add(page);
        const auto item = r->find(page);
        QObject::connect(item.get(), &DownloadItem::changed, &r->queue, [&r, item] {
            if (item->state().is(ItemState::Kind::downloading))
                r->queue.cancel(item);
        });
        QTRY_COMPARE_WITH_TIMEOUT(r->queue.running(), 0, 30000);
        QCOMPARE(item->state(), ItemState::cancelled());
        QVERIFY(pathFiles().isEmpty());
    }

    // A Spotify track is found by search, downloaded, analysed and named; albums are refused.
    void spotifyTrackEndsTaggedAlbumFails() {
        m_site->put(QStringLiteral("open.spotify.com/oembed"),
                    QStringLiteral(R"({"title": "Night Drive", "thumbnail_url": "%1"})").arg(m_site->url(QStringLiteral("/poster.jpg"))).toUtf8());
        m_site->put(QStringLiteral("open.spotify.com/track/4uLU6hMC"),
                    "<html><head><meta property=\"og:title\" content=\"Night Drive\">"
                    "<meta property=\"og:description\" content=\"Neon Arcade \xc2\xb7 Song \xc2\xb7 2021\"></head></html>");
        installScriptedDownloader(QStringLiteral(
            "case \"$*\" in *ytsearch*) "
            "printf 'VORLIXSR\\tkaraoke1\\tNight Drive (Karaoke)\\tSing Along\\t200\\t9\\n"
            "VORLIXSR\\tnd1\\tNeon Arcade - Night Drive (Official Audio)\\tNeon Arcade - Topic\\t200\\t1000\\n'; exit 0;; esac\n"
            "for a do shift; case \"$a\" in https://www.youtube.com/watch?v=nd1) a='%1';; esac; set -- \"$@\" \"$a\"; done")
                                      .arg(m_site->url(QStringLiteral("/song.mp3"))));
        auto r = rig();
        r->settings.setAutoAnalyzeAudio(true);
        const QString track = m_site->url(QStringLiteral("/open.spotify.com/track/4uLU6hMC"));
        const QString album = m_site->url(QStringLiteral("/open.spotify.com/album/1xyz"));
        r->queue.add(track, DownloadMode::bestVideoAudio);
        r->queue.add(album);
        QCOMPARE(r->find(album)->state(),
                 ItemState::failed(QStringLiteral("Only Spotify track links are supported (not playlists/albums).")));
        QTRY_COMPARE_WITH_TIMEOUT(r->queue.running(), 0, 90000);
        const auto item = r->find(track);
        QCOMPARE(item->state(), ItemState::done());
        QCOMPARE(item->title(), QStringLiteral("Neon Arcade \u2014 Night Drive"));
        // The song is a G major cadence at 120 BPM.
        QVERIFY2(item->detectedBPM() && std::abs(*item->detectedBPM() - 120) <= 2, qPrintable(QString::number(item->detectedBPM().value_or(0))));
        QCOMPARE(item->detectedKey(), std::optional<QString>(QStringLiteral("G")));

        // Tags and cover are the resolver suite's; here the file is named after them.
        QCOMPARE(item->finalFileURL().toLocalFile(), r->downloads + QStringLiteral("/Neon Arcade - Night Drive.mp3"));
        QCOMPARE(filesUnder(r->downloads), 1);
        QCOMPARE(TestEnv::filesContaining(QDir::tempPath(), QStringLiteral("vorlix-art-")), QStringList());
        r->history.waitForPendingSave();
        QCOMPARE(r->history.entries().size(), 1);
    }
};

VORLIX_TEST_SUITE(DownloadPipelineTest)
#include "DownloadPipelineTest.moc"
