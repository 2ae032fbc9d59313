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

    void singleVideo() {
        recordRealDownloader();
        const QString url = m_site->url(QStringLiteral("/page.html"));
        const ProbeResult p = vtest::await(YtDlp::probe(url));
        QCOMPARE(p.title, QStringLiteral("Fixture Page (1)"));
        QCOMPARE(p.thumbnail, std::optional<QUrl>(QUrl(m_site->url(QStringLiteral("/poster.jpg")))));
        QVERIFY(p.playlistEntries.isEmpty() && p.categories.isEmpty());
        QCOMPARE(TestEnv::standInArgs(Tools::ytDlpName), (QStringList{QStringLiteral("--no-warnings"), QStringLiteral("--no-playlist"),
                                                                      QStringLiteral("--print"), YtDlp::metadataTemplate, url}));
    }

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

    void brokenAnswersFailWithoutCrashing_data() {
        QTest::addColumn<QString>("script");
        QTest::addColumn<QString>("expected"); // "error: …" or the title
        QTest::newRow("light empty, JSON garbage") << QStringLiteral("[ \"$1\" = -J ] && { echo '{\"title\": '; echo 'ERROR: no JSON' >&2; }\nexit 0")
                                                   << QStringLiteral("error: no JSON");
        QTest::newRow("light fails, JSON of wrong types") << QStringLiteral("[ \"$1\" = -J ] && { echo '{\"title\":[1],\"entries\":{}}'; exit 0; }\nexit 9")
                                                          << QStringLiteral("https://example.com/v/9");
    }
    void brokenAnswersFailWithoutCrashing() {
        QFETCH(QString, script);
        QFETCH(QString, expected);
        TestEnv::standIn(Tools::ytDlpName, script);
        QString actual;
        try {
            actual = vtest::await(YtDlp::probe(QStringLiteral("https://example.com/v/9"))).title;
        } catch (const YtDlpError &e) {
            actual = QStringLiteral("error: ") + e.message();
        }
        QCOMPARE(actual, expected);
    }
};

VORLIX_TEST_SUITE(YtDlpProbeTest)
#include "YtDlpProbeTest.moc"
