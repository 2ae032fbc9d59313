#include "Await.h"
#include "FixtureSite.h"
#include "TestEnv.h"
#include "TestMain.h"
#include "engine_media.h"

#include "engine/YtDlp.h"

#include <QFile>
#include <QTest>

#include <memory>

namespace {

struct Probed {
    ProbeResult result;
    QString error; // probeFailed message
};

Probed run(QCoro::Task<ProbeResult> task) {
    Probed p;
    try {
        p.result = vtest::await(std::move(task));
    } catch (const YtDlpError &e) {
        p.error = e.kind() == YtDlpError::Kind::probeFailed ? e.message() : QStringLiteral("<wrong kind>");
    }
    return p;
}

QStringList invocations(const QString &log) {
    QFile f(log);
    if (!f.open(QIODevice::ReadOnly))
        return {};
    return QString::fromUtf8(f.readAll()).split(u'\n', Qt::SkipEmptyParts);
}

} // namespace

class YtDlpProbeTest : public QObject {
    Q_OBJECT
    std::unique_ptr<FixtureSite> m_site;
    const QString m_log = TestEnv::root() + QStringLiteral("/probe-invocations.log");

    // A downloader that records each call's options and then behaves like the real one,
    // except that it fails the light probe when `failLight` is set.
    void installRecordingDownloader(bool failLight) {
        TestEnv::removeStubTool(Tools::ytDlpName);
        QFile::remove(m_log);
        const QString real = Tools::packagedDir() + QStringLiteral("/yt-dlp");
        QString body = QStringLiteral("echo \"$1 $2 $3 $4 $5\" >> '%1'\n").arg(m_log);
        if (failLight)
            body += QStringLiteral("[ \"$3\" = --print ] && { echo 'ERROR: light probe broke' >&2; exit 1; }\n");
        body += QStringLiteral("exec '%1' \"$@\"\n").arg(real);
        TestEnv::writeStubTool(Tools::ytDlpName, body);
    }

private Q_SLOTS:
    void initTestCase() {
        m_site = std::make_unique<FixtureSite>();
        QVERIFY(m_site->isRunning());
        QVERIFY(EngineMedia::populate(*m_site));
    }

    void cleanupTestCase() { TestEnv::removeStubTool(Tools::ytDlpName); }

    void singleVideoTakesTheLightProbe() {
        installRecordingDownloader(false);
        const Probed p = run(YtDlp::probe(m_site->url(QStringLiteral("/page.html"))));
        QCOMPARE(p.error, QString());
        QCOMPARE(p.result.title, QStringLiteral("Fixture Page (1)"));
        QCOMPARE(p.result.thumbnail, std::optional<QUrl>(QUrl(m_site->url(QStringLiteral("/poster.jpg")))));
        QVERIFY(p.result.playlistEntries.isEmpty());
        QVERIFY(p.result.categories.isEmpty());
        QCOMPARE(invocations(m_log), QStringList{QStringLiteral("--no-warnings --no-playlist --print ") +
                                                 YtDlp::metadataTemplate + u' ' + m_site->url(QStringLiteral("/page.html"))});
    }

    void failedLightProbeFallsBackToJson() {
        installRecordingDownloader(true);
        const QString url = m_site->url(QStringLiteral("/page.html"));
        const Probed p = run(YtDlp::probe(url));
        QCOMPARE(p.error, QString());
        QCOMPARE(p.result.title, QStringLiteral("Fixture Page (1)"));
        QCOMPARE(p.result.thumbnail, std::optional<QUrl>(QUrl(m_site->url(QStringLiteral("/poster.jpg")))));
        const QStringList calls = invocations(m_log);
        QCOMPARE(calls.size(), 2);
        QVERIFY(calls[0].contains(QLatin1String("--print")));
        QCOMPARE(calls[1], QStringLiteral("-J --flat-playlist --no-warnings --no-playlist ") + url);
    }

    void multiVideoPageIsAPlaylist() {
        installRecordingDownloader(false);
        const QString url = m_site->url(QStringLiteral("/playlist/"));
        QVERIFY(YtDlp::isLikelyPlaylistOrChannel(url));
        const Probed p = run(YtDlp::probe(url));
        QCOMPARE(p.error, QString());
        QCOMPARE(p.result.title, QStringLiteral("Fixture Playlist"));
        const QList<ProbeResult::Entry> expected{
            {m_site->url(QStringLiteral("/clip.mp4")), QStringLiteral("Fixture Playlist (1)")},
            {m_site->url(QStringLiteral("/clip2.mp4")), QStringLiteral("Fixture Playlist (2)")},
        };
        QCOMPARE(p.result.playlistEntries, expected);
        QVERIFY(!p.result.durationSeconds);
        QCOMPARE(invocations(m_log), QStringList{QStringLiteral("-J --flat-playlist --no-warnings --playlist-end 100")});
    }

    void jsonProbeOfADirectFile() {
        installRecordingDownloader(false);
        const Probed p = run(YtDlp::probeJSON(m_site->url(QStringLiteral("/clip.mp4"))));
        QCOMPARE(p.error, QString());
        QCOMPARE(p.result.title, QStringLiteral("clip"));
        QVERIFY(!p.result.thumbnail);
        QVERIFY(p.result.playlistEntries.isEmpty());
    }

    void failuresBecomeFriendlyMessages_data() {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("fragment");
        QTest::newRow("404") << QStringLiteral("/missing.html") << QStringLiteral("HTTP Error 404");
        QTest::newRow("500") << QStringLiteral("/page.html?status=500") << QStringLiteral("HTTP Error 500");
        QTest::newRow("404 playlist") << QStringLiteral("/playlist/missing.html") << QStringLiteral("HTTP Error 404");
    }

    void failuresBecomeFriendlyMessages() {
        QFETCH(QString, path);
        QFETCH(QString, fragment);
        installRecordingDownloader(false);
        const Probed p = run(YtDlp::probe(m_site->url(path)));
        QVERIFY2(p.error.contains(fragment), qPrintable(p.error));
        QVERIFY(!p.error.contains(QLatin1String("ERROR:")));
        QVERIFY(!p.error.contains(u'\n'));
    }

    void brokenAnswersFailWithoutCrashing_data() {
        QTest::addColumn<QString>("script");
        QTest::addColumn<QString>("error");
        QTest::addColumn<QString>("title");

        QTest::newRow("light empty, JSON garbage")
            << QStringLiteral("[ \"$1\" = -J ] && { echo '{\"title\": '; echo 'ERROR: no JSON' >&2; exit 0; }\nexit 0\n")
            << QStringLiteral("no JSON") << QString();
        QTest::newRow("light empty, JSON array")
            << QStringLiteral("[ \"$1\" = -J ] && { echo '[1,2]'; exit 0; }\necho 'ERROR: light' >&2\nexit 0\n")
            << QStringLiteral("Unknown error") << QString();
        QTest::newRow("light fails, JSON object of wrong types")
            << QStringLiteral("[ \"$1\" = -J ] && { echo '{\"title\":[1],\"duration\":\"x\",\"entries\":{}}'; exit 0; }\nexit 9\n")
            << QString() << QStringLiteral("https://example.com/v/9");
        QTest::newRow("light prints plain text")
            << QStringLiteral("echo 'Something odd'\nexit 0\n") << QString() << QStringLiteral("Something odd");
    }

    void brokenAnswersFailWithoutCrashing() {
        QFETCH(QString, script);
        QFETCH(QString, error);
        QFETCH(QString, title);
        TestEnv::writeStubTool(Tools::ytDlpName, script);
        const Probed p = run(YtDlp::probe(QStringLiteral("https://example.com/v/9")));
        QCOMPARE(p.error, error);
        if (error.isEmpty())
            QCOMPARE(p.result.title, title);
    }
};

VORLIX_TEST_SUITE(YtDlpProbeTest)
#include "YtDlpProbeTest.moc"
