#include "Await.h"
#include "FixtureSite.h"
#include "TestEnv.h"
#include "TestMain.h"
#include "engine_media.h"

#include "engine/YtDlp.h"

#include <QTest>

#include <memory>

// The packaged downloader against the fixture site, behind the recording stand-in.
class YtDlpProbeTest : public QObject {
    Q_OBJECT
    std::unique_ptr<FixtureSite> m_site;

    static void recordRealDownloader() {
        TestEnv::standIn(Tools::ytDlpName, QStringLiteral("exec '%1/yt-dlp' \"$@\"").arg(Tools::packagedDir()));
    }

private Q_SLOTS:
    void initTestCase() {
        m_site = std::make_unique<FixtureSite>();
        QVERIFY(m_site->isRunning());
        QVERIFY(EngineMedia::populate(*m_site));
    }
    void cleanupTestCase() { TestEnv::removeStubTool(Tools::ytDlpName); }

    void multiVideoPageIsAPlaylist() {
        recordRealDownloader();
        const QString url = m_site->url(QStringLiteral("/playlist/"));
        const ProbeResult p = vtest::await(YtDlp::probe(url));
        QCOMPARE(p.title, QStringLiteral("Fixture Playlist"));
        const QList<ProbeResult::Entry> expected{{m_site->url(QStringLiteral("/clip.mp4")), QStringLiteral("Fixture Playlist (1)")},
                                                 {m_site->url(QStringLiteral("/clip2.mp4")), QStringLiteral("Fixture Playlist (2)")}};
        QCOMPARE(p.playlistEntries, expected);
        QCOMPARE(TestEnv::standInArgs(Tools::ytDlpName), (QStringList{QStringLiteral("-J"), QStringLiteral("--flat-playlist"),
            QStringLiteral("--no-warnings"), QStringLiteral("--playlist-end"), QStringLiteral("100"), url}));
    }
};

VORLIX_TEST_SUITE(YtDlpProbeTest)
#include "YtDlpProbeTest.moc"
