#include "Await.h"
#include "FixtureSite.h"
#include "TestEnv.h"
#include "TestMain.h"
#include "engine_media.h"

#include "engine/YtDlp.h"

#include <QFile>
#include <QTest>

#include <memory>

class YtDlpProbeTest : public QObject {
    Q_OBJECT
    std::unique_ptr<FixtureSite> m_site;
    const QString m_log = TestEnv::root() + QStringLiteral("/probe-invocations.log");

    // The real downloader behind a stub that records each call's first options, and fails the
    // light probe when `failLight` is set.
    void installRecordingDownloader(bool failLight = false) {
        QFile::remove(m_log);
        QString body = QStringLiteral("echo \"$1 $2 $3 $4 $5\" >> '%1'\n").arg(m_log);
        if (failLight)
            body += QStringLiteral("[ \"$3\" = --print ] && { echo 'ERROR: light probe broke' >&2; exit 1; }\n");
        TestEnv::writeStubTool(Tools::ytDlpName, body + QStringLiteral("exec '%1/yt-dlp' \"$@\"\n").arg(Tools::packagedDir()));
    }
    QStringList invocations() const { return QString::fromUtf8(TestEnv::readFile(m_log)).split(u'\n', Qt::SkipEmptyParts); }

private Q_SLOTS:
    void initTestCase() {
        m_site = std::make_unique<FixtureSite>();
        QVERIFY(m_site->isRunning());
        QVERIFY(EngineMedia::populate(*m_site));
    }
    void cleanupTestCase() { TestEnv::removeStubTool(Tools::ytDlpName); }

    void singleVideo_data() {
        QTest::addColumn<bool>("failLight");
        QTest::newRow("light probe") << false;
        QTest::newRow("failed light probe falls back to JSON") << true;
    }
    void singleVideo() {
        QFETCH(bool, failLight);
        installRecordingDownloader(failLight);
        const QString url = m_site->url(QStringLiteral("/page.html"));
        const ProbeResult p = vtest::await(YtDlp::probe(url));
        QCOMPARE(p.title, QStringLiteral("Fixture Page (1)"));
        QCOMPARE(p.thumbnail, std::optional<QUrl>(QUrl(m_site->url(QStringLiteral("/poster.jpg")))));
        QVERIFY(p.playlistEntries.isEmpty() && p.categories.isEmpty());
        QStringList expected{QStringLiteral("--no-warnings --no-playlist --print ") + YtDlp::metadataTemplate + u' ' + url};
        if (failLight)
            expected << QStringLiteral("-J --flat-playlist --no-warnings --no-playlist ") + url;
        QCOMPARE(invocations(), expected);
    }

    void multiVideoPageIsAPlaylist() {
        installRecordingDownloader();
        const QString url = m_site->url(QStringLiteral("/playlist/"));
        const ProbeResult p = vtest::await(YtDlp::probe(url));
        QCOMPARE(p.title, QStringLiteral("Fixture Playlist"));
        const QList<ProbeResult::Entry> expected{{m_site->url(QStringLiteral("/clip.mp4")), QStringLiteral("Fixture Playlist (1)")},
                                                 {m_site->url(QStringLiteral("/clip2.mp4")), QStringLiteral("Fixture Playlist (2)")}};
        QCOMPARE(p.playlistEntries, expected);
        QCOMPARE(invocations(), QStringList{QStringLiteral("-J --flat-playlist --no-warnings --playlist-end 100")});
        // A direct file through the JSON probe is titled after its name.
        QCOMPARE(vtest::await(YtDlp::probeJSON(m_site->url(QStringLiteral("/clip.mp4")))).title, QStringLiteral("clip"));
    }

    void failuresBecomeOneFriendlyLine_data() {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("fragment");
        QTest::newRow("404") << QStringLiteral("/missing.html") << QStringLiteral("HTTP Error 404");
        QTest::newRow("500") << QStringLiteral("/page.html?status=500") << QStringLiteral("HTTP Error 500");
        QTest::newRow("404 playlist") << QStringLiteral("/playlist/missing.html") << QStringLiteral("HTTP Error 404");
    }
    void failuresBecomeOneFriendlyLine() {
        QFETCH(QString, path);
        QFETCH(QString, fragment);
        installRecordingDownloader();
        try {
            vtest::await(YtDlp::probe(m_site->url(path)));
            QFAIL("expected a YtDlpError");
        } catch (const YtDlpError &e) {
            QCOMPARE(e.kind(), YtDlpError::Kind::probeFailed);
            QVERIFY2(e.message().contains(fragment) && !e.message().contains(QLatin1String("ERROR:")) && !e.message().contains(u'\n'),
                     qPrintable(e.message()));
        }
    }

    void brokenAnswersFailWithoutCrashing_data() {
        QTest::addColumn<QString>("script");
        QTest::addColumn<QString>("expected"); // "error: …" or the title
        QTest::newRow("light empty, JSON garbage") << QStringLiteral("[ \"$1\" = -J ] && { echo '{\"title\": '; echo 'ERROR: no JSON' >&2; }\nexit 0\n")
                                                   << QStringLiteral("error: no JSON");
        QTest::newRow("light fails, JSON of wrong types") << QStringLiteral("[ \"$1\" = -J ] && { echo '{\"title\":[1],\"entries\":{}}'; exit 0; }\nexit 9\n")
                                                          << QStringLiteral("https://example.com/v/9");
        QTest::newRow("light prints plain text") << QStringLiteral("echo 'Something odd'\n") << QStringLiteral("Something odd");
    }
    void brokenAnswersFailWithoutCrashing() {
        QFETCH(QString, script);
        QFETCH(QString, expected);
        TestEnv::writeStubTool(Tools::ytDlpName, script);
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
