#include "TestMain.h"

#include "core/SiteAddresses.h"
#include "engine/YtDlp.h"

#include <QTest>

namespace {
const QString pageLink = QStringLiteral("https://example.com/watch/7");
const QString watch = SiteAddresses::youTubeWatchPrefix;

void addProbeColumns() {
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("out");
    QTest::addColumn<QString>("err");
    QTest::addColumn<QString>("expected"); // "error: <message>", or title|duration|thumbnail|categories|entries
}

// Parses with `parse` and compares with the row's expectation.
template <typename Parse> void checkProbe(Parse parse) {
    QFETCH(int, status);
    QFETCH(QString, out);
    QFETCH(QString, err);
    QFETCH(QString, expected);
    Tools::RunResult run;
    run.status = status;
    run.stdoutText = out;
    run.stderrText = err;
    QString actual;
    try {
        const ProbeResult r = parse(run, pageLink);
        QStringList entries;
        for (const auto &e : r.playlistEntries)
            entries << e.url + u'>' + e.title;
        actual = QStringList{r.title, r.durationSeconds ? QString::number(*r.durationSeconds) : QString(),
                             r.thumbnail ? r.thumbnail->toString() : QString(), r.categories.join(u','), entries.join(u',')}
                     .join(u'|');
    } catch (const YtDlpError &e) {
        actual = (e.kind() == YtDlpError::Kind::probeFailed ? QStringLiteral("error: ") : QStringLiteral("wrong kind: ")) + e.message();
    }
    QCOMPARE(actual, expected);
}
} // namespace

class YtDlpLinkTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void normalize_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("expected");
        const auto row = [](const char *name, const char *text, const char *expected) {
            QTest::newRow(name) << QString::fromUtf8(text) << QString::fromUtf8(expected);
        };
        row("share link, spaces", "  https://youtu.be/abc?si=XYZ \n", "https://youtu.be/abc");
        row("names compare case-insensitively", "https://www.youtube.com/watch?v=1&UTM_Source=x&t=30", "https://www.youtube.com/watch?v=1&t=30");
        row("kept values byte for byte", "https://x.com/p?q=a%2Bb&si=1&z=%E2%9C%93&e=a+b&s=%7e", "https://x.com/p?q=a%2Bb&z=%E2%9C%93&e=a+b&s=%7e");
        row("similar names kept, order kept", "https://x.com/?referrer=a&ref=b&sid=c&pp=x&a=si", "https://x.com/?referrer=a&sid=c&a=si");
        row("spaces inside: not a link", "https://x.com/a b?si=1", "https://x.com/a b?si=1");
    }
    void normalize() {
        QFETCH(QString, text);
        QFETCH(QString, expected);
        QCOMPARE(YtDlp::normalizeURL(text), expected);
        QCOMPARE(YtDlp::normalizeURL(expected), expected); // settled links stay as they are
    }

    void playlistOrChannel() {
        for (const char *link : {"https://www.youtube.com/watch?v=abc&list=PL1", "https://www.youtube.com/channel/UC123",
                                 "HTTPS://M.YOUTUBE.COM/@SOMEONE", "https://vimeo.com/someone/videos", "https://x.com/PLAYLIST/1"})
            QVERIFY2(YtDlp::isLikelyPlaylistOrChannel(QString::fromUtf8(link)), link);
        for (const char *link : {"https://www.youtube.com/watch?v=abc", "https://www.tiktok.com/@someone/video/1", "https://youtu.be/abc?t=3"})
            QVERIFY2(!YtDlp::isLikelyPlaylistOrChannel(QString::fromUtf8(link)), link);
    }

    void lightProbeOutput_data() {
        addProbeColumns();
        const auto row = [](const char *name, int status, const QString &out, const QString &err, const QString &expected) {
            QTest::newRow(name) << status << out << err << expected;
        };
        row("song", 0, QStringLiteral("VORLIXMETA\tSong\t213\tNA\tMusic\n"), {}, QStringLiteral("Song|213||Music|"));
        row("last marker line wins", 0,
            QStringLiteral("[generic] x\nVORLIXMETA\tOld\t1\tNA\tNA\nVORLIXMETA\tNew\t2.5\thttps://i.ytimg.com/hq.jpg\tGaming\nDeleting\n"), {},
            QStringLiteral("New|2.5|https://i.ytimg.com/hq.jpg|Gaming|"));
        row("blank output fails", 0, QStringLiteral(" \n\n"), QStringLiteral("WARNING: x\nERROR: boom\n"), QStringLiteral("error: boom"));
        row("non-zero status fails whatever the output", 1, QStringLiteral("VORLIXMETA\tSong\t213\tNA\tMusic\n"),
            QStringLiteral("ERROR: HTTP Error 404: Not Found"), QStringLiteral("error: HTTP Error 404: Not Found"));
    }
    void lightProbeOutput() { checkProbe(&YtDlp::parseProbeLight); }

    void jsonProbeOutput_data() {
        addProbeColumns();
        const auto row = [](const char *name, int status, const char *out, const char *err, const QString &expected) {
            QTest::newRow(name) << status << QString::fromUtf8(out) << QString::fromUtf8(err) << expected;
        };
        row("failed run", 2, "{\"title\":\"x\"}", "ERROR: broken\n", QStringLiteral("error: broken"));
        row("single video", 0, "{\"title\":\"T\",\"duration\":12.5,\"thumbnail\":\"https://i.example/x.jpg\",\"categories\":[\"Music\",\"Film\"]}",
            "", QStringLiteral("T|12.5|https://i.example/x.jpg|Music,Film|"));
        row("wrong types count as missing", 0, "{\"title\":5,\"duration\":\"213\",\"thumbnail\":7,\"categories\":[\"Music\",3]}", "",
            pageLink + QStringLiteral("||||"));
        row("entries of every shape", 0,
            "{\"title\":\"PL\",\"duration\":99,\"entries\":[{\"url\":\"https://a.example/1\",\"title\":\"One\"},"
            "{\"webpage_url\":\"https://a.example/2\"},{\"id\":\"xyz\"},{\"url\":\"abc123\",\"title\":\"Bare\"},{\"title\":\"nothing\"},"
            "{\"url\":5,\"id\":\"num\"},{\"url\":\"\",\"webpage_url\":\"https://a.example/3\",\"title\":7}]}", "",
            QStringLiteral("PL||||https://a.example/1>One,https://a.example/2>https://a.example/2,%1xyz>%1xyz,%1abc123>Bare,"
                           "%1num>%1num,https://a.example/3>https://a.example/3").arg(watch));
    }
    void jsonProbeOutput() { checkProbe(&YtDlp::parseProbeJSON); }
};

VORLIX_TEST_SUITE(YtDlpLinkTest)
#include "YtDlpLinkTest.moc"
