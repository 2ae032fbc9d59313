#include "TestMain.h"

#include "core/SiteAddresses.h"
#include "engine/YtDlp.h"

#include <QTest>

Q_DECLARE_METATYPE(std::optional<double>)

namespace {
const QString pageLink = QStringLiteral("https://example.com/watch/7");
const QString watch = SiteAddresses::youTubeWatchPrefix;

struct Outcome {
    QString error; // the probeFailed message; empty when the parse succeeds
    ProbeResult result;
};

template <typename Parse> Outcome outcome(Parse parse, int status, const QString &out, const QString &err) {
    Tools::RunResult run;
    run.status = status;
    run.stdoutText = out;
    run.stderrText = err;
    try {
        return Outcome{QString(), parse(run, pageLink)};
    } catch (const YtDlpError &e) {
        if (e.kind() != YtDlpError::Kind::probeFailed)
            return Outcome{QStringLiteral("<wrong kind>"), {}};
        return Outcome{e.message(), {}};
    }
}

QStringList flatten(const QList<ProbeResult::Entry> &entries) {
    QStringList out;
    for (const auto &e : entries)
        out << e.url + u'|' + e.title;
    return out;
}

void addProbeColumns() {
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("out");
    QTest::addColumn<QString>("err");
    QTest::addColumn<QString>("error");
    QTest::addColumn<QString>("title");
    QTest::addColumn<std::optional<double>>("duration");
    QTest::addColumn<QString>("thumbnail");
    QTest::addColumn<QStringList>("categories");
    QTest::addColumn<QStringList>("entries");
}

void checkProbe(const Outcome &actual) {
    QFETCH(QString, error);
    QFETCH(QString, title);
    QFETCH(std::optional<double>, duration);
    QFETCH(QString, thumbnail);
    QFETCH(QStringList, categories);
    QFETCH(QStringList, entries);
    QCOMPARE(actual.error, error);
    if (!error.isEmpty())
        return;
    QCOMPARE(actual.result.title, title);
    QCOMPARE(actual.result.durationSeconds, duration);
    QCOMPARE(actual.result.thumbnail ? actual.result.thumbnail->toString() : QString(), thumbnail);
    QCOMPARE(actual.result.categories, categories);
    QCOMPARE(flatten(actual.result.playlistEntries), entries);
}
} // namespace

class YtDlpLinkTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void normalize_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("expected");

        QTest::newRow("share pageLink, spaces, only si") << QStringLiteral("  https://youtu.be/abc?si=XYZ \n")
                                                     << QStringLiteral("https://youtu.be/abc");
        QTest::newRow("names compare case-insensitively")
            << QStringLiteral("https://www.youtube.com/watch?v=1&UTM_Source=x&t=30")
            << QStringLiteral("https://www.youtube.com/watch?v=1&t=30");
        QTest::newRow("not a pageLink") << QStringLiteral("\t not a pageLink at all \n") << QStringLiteral("not a pageLink at all");
        QTest::newRow("no query") << QStringLiteral(" https://vimeo.com/76979871 ") << QStringLiteral("https://vimeo.com/76979871");
        QTest::newRow("kept values stay byte for byte")
            << QStringLiteral("https://x.com/p?q=a%2Bb&si=1&z=%E2%9C%93&e=a+b&s=%7e")
            << QStringLiteral("https://x.com/p?q=a%2Bb&z=%E2%9C%93&e=a+b&s=%7e");
        QTest::newRow("nothing removed, nothing re-encoded") << QStringLiteral("https://x.com/p?a=%7e&b=%20&c=a+b")
                                                             << QStringLiteral("https://x.com/p?a=%7e&b=%20&c=a+b");
        QTest::newRow("fragment kept") << QStringLiteral("https://x.com/p?fbclid=1&gclid=2#t=10")
                                       << QStringLiteral("https://x.com/p#t=10");
        QTest::newRow("percent-encoded name") << QStringLiteral("https://x.com/?%75tm_source=1&a=1")
                                              << QStringLiteral("https://x.com/?a=1");
        QTest::newRow("name without value") << QStringLiteral("https://x.com/?feature&v=2") << QStringLiteral("https://x.com/?v=2");
        QTest::newRow("similar names kept") << QStringLiteral("https://x.com/?referrer=a&ref=b&sid=c")
                                            << QStringLiteral("https://x.com/?referrer=a&sid=c");
        QTest::newRow("value equal to a tracking name") << QStringLiteral("https://x.com/?v=si") << QStringLiteral("https://x.com/?v=si");
        QTest::newRow("empty query untouched") << QStringLiteral("https://x.com/?") << QStringLiteral("https://x.com/?");
        QTest::newRow("question mark in the fragment") << QStringLiteral("https://x.com/#a?si=1")
                                                       << QStringLiteral("https://x.com/#a?si=1");
        QTest::newRow("order kept") << QStringLiteral("https://x.com/?c=3&pp=x&a=1&b=2") << QStringLiteral("https://x.com/?c=3&a=1&b=2");
        QTest::newRow("spaces inside: not a pageLink") << QStringLiteral("https://x.com/a b?si=1")
                                                   << QStringLiteral("https://x.com/a b?si=1");

        const char *names[] = {"si", "feature", "pp", "ab_channel", "embeds_referring_euri", "embeds_referring_origin",
                               "source", "ref", "utm_source", "utm_medium", "utm_campaign", "utm_content", "utm_term",
                               "fbclid", "gclid"};
        for (const char *name : names)
            QTest::addRow("drops %s", name) << QStringLiteral("https://m.example.org/v/1?keep=1&%1=zzz").arg(QString::fromUtf8(name).toUpper())
                                            << QStringLiteral("https://m.example.org/v/1?keep=1");
    }

    void normalize() {
        QFETCH(QString, text);
        QFETCH(QString, expected);
        QCOMPARE(YtDlp::normalizeURL(text), expected);
        QCOMPARE(YtDlp::normalizeURL(expected), expected); // settled links stay as they are
    }

    void playlistOrChannel_data() {
        QTest::addColumn<QString>("pageLink");
        QTest::addColumn<bool>("expected");
        QTest::newRow("watch with list") << QStringLiteral("https://www.youtube.com/watch?v=abc&list=PL1") << true;
        QTest::newRow("playlist page") << QStringLiteral("https://www.youtube.com/playlist?list=PL1") << true;
        QTest::newRow("channel id") << QStringLiteral("https://www.youtube.com/channel/UC123") << true;
        QTest::newRow("user") << QStringLiteral("https://www.youtube.com/user/someone") << true;
        QTest::newRow("custom name") << QStringLiteral("https://www.youtube.com/c/someone") << true;
        QTest::newRow("handle") << QStringLiteral("https://www.youtube.com/@Someone") << true;
        QTest::newRow("handle in capitals") << QStringLiteral("HTTPS://M.YOUTUBE.COM/@SOMEONE") << true;
        QTest::newRow("music handle") << QStringLiteral("https://music.youtube.com/@artist") << true;
        QTest::newRow("videos tab") << QStringLiteral("https://vimeo.com/someone/videos") << true;
        QTest::newRow("PLAYLIST in capitals") << QStringLiteral("https://x.com/PLAYLIST/1") << true;
        QTest::newRow("single video") << QStringLiteral("https://www.youtube.com/watch?v=abc") << false;
        QTest::newRow("handle elsewhere") << QStringLiteral("https://www.tiktok.com/@someone/video/1") << false;
        QTest::newRow("short pageLink") << QStringLiteral("https://youtu.be/abc?t=3") << false;
    }

    void playlistOrChannel() {
        QFETCH(QString, pageLink);
        QFETCH(bool, expected);
        QCOMPARE(YtDlp::isLikelyPlaylistOrChannel(pageLink), expected);
    }

    void lightProbeOutput_data() {
        addProbeColumns();
        using D = std::optional<double>;
        const QStringList none;

        QTest::newRow("song") << 0 << QStringLiteral("VORLIXMETA\tSong\t213\tNA\tMusic\n") << QString() << QString()
                              << QStringLiteral("Song") << D(213) << QString() << QStringList{QStringLiteral("Music")} << none;
        QTest::newRow("all NA") << 0 << QStringLiteral("VORLIXMETA\tNA\tNA\tNA\tNA\n") << QString() << QString() << pageLink
                                << D() << QString() << none << none;
        QTest::newRow("last marker line wins, noise ignored")
            << 0
            << QStringLiteral("[generic] Extracting\nVORLIXMETA\tOld\t1\tNA\tNA\nVORLIXMETA\tNew\t2.5\t"
                              "https://i.ytimg.com/vi/x/hq.jpg\tGaming\nDeleting\n")
            << QString() << QString() << QStringLiteral("New") << D(2.5) << QStringLiteral("https://i.ytimg.com/vi/x/hq.jpg")
            << QStringList{QStringLiteral("Gaming")} << none;
        QTest::newRow("four pieces with the marker") << 0 << QStringLiteral("VORLIXMETA\tT\t10\thttps://t.example/x.jpg")
                                                     << QString() << QString() << QStringLiteral("T") << D(10)
                                                     << QStringLiteral("https://t.example/x.jpg") << none << none;
        QTest::newRow("empty pieces") << 0 << QStringLiteral("VORLIXMETA\t\t\t\t\n") << QString() << QString() << pageLink << D()
                                      << QString() << none << none;
        QTest::newRow("unreadable duration and thumbnail")
            << 0 << QStringLiteral("VORLIXMETA\tT\t12abc\tnot a web address\tNA") << QString() << QString()
            << QStringLiteral("T") << D() << QString() << none << none;
        QTest::newRow("four pieces without the marker: plain text")
            << 0 << QStringLiteral("a\tb\tc\td\n") << QString() << QString() << QStringLiteral("a\tb\tc\td") << D()
            << QString() << none << none;
        QTest::newRow("unmarked output: its first line") << 0 << QStringLiteral("\n  \nJust a title\nsecond\n") << QString()
                                                         << QString() << QStringLiteral("Just a title") << D() << QString()
                                                         << none << none;
        QTest::newRow("marker with a space is no marker") << 0 << QStringLiteral("VORLIXMETA Song") << QString() << QString()
                                                          << QStringLiteral("VORLIXMETA Song") << D() << QString() << none
                                                          << none;
        QTest::newRow("blank output fails") << 0 << QStringLiteral(" \n\n") << QStringLiteral("WARNING: x\nERROR: boom\n")
                                            << QStringLiteral("boom") << QString() << D() << QString() << none << none;
        QTest::newRow("non-zero status fails whatever the output")
            << 1 << QStringLiteral("VORLIXMETA\tSong\t213\tNA\tMusic\n")
            << QStringLiteral("ERROR: [generic] Unable to download webpage: HTTP Error 404: Not Found")
            << QStringLiteral("[generic] Unable to download webpage: HTTP Error 404: Not Found") << QString() << D()
            << QString() << none << none;
    }

    void lightProbeOutput() {
        QFETCH(int, status);
        QFETCH(QString, out);
        QFETCH(QString, err);
        checkProbe(outcome(&YtDlp::parseProbeLight, status, out, err));
    }

    void jsonProbeOutput_data() {
        addProbeColumns();
        using D = std::optional<double>;
        const QStringList none;
        const QString err = QStringLiteral("ERROR: broken\n");
        const QString broken = QStringLiteral("broken");

        QTest::newRow("not JSON") << 0 << QStringLiteral("oops") << err << broken << QString() << D() << QString() << none << none;
        QTest::newRow("JSON array") << 0 << QStringLiteral("[{\"title\":\"x\"}]") << err << broken << QString() << D()
                                    << QString() << none << none;
        QTest::newRow("empty output") << 0 << QString() << QString() << QStringLiteral("Unknown error") << QString() << D()
                                      << QString() << none << none;
        QTest::newRow("failed run") << 2 << QStringLiteral("{\"title\":\"x\"}") << err << broken << QString() << D()
                                    << QString() << none << none;
        QTest::newRow("single video")
            << 0
            << QStringLiteral("{\"title\":\"T\",\"duration\":213,\"thumbnail\":\"https://i.example/x.jpg\",\"categories\":[\"Music\",\"Film\"]}")
            << QString() << QString() << QStringLiteral("T") << D(213) << QStringLiteral("https://i.example/x.jpg")
            << QStringList{QStringLiteral("Music"), QStringLiteral("Film")} << none;
        QTest::newRow("fractional duration") << 0 << QStringLiteral("{\"title\":\"T\",\"duration\":12.5}") << QString()
                                             << QString() << QStringLiteral("T") << D(12.5) << QString() << none << none;
        QTest::newRow("wrong types count as missing")
            << 0 << QStringLiteral("{\"title\":5,\"duration\":\"213\",\"thumbnail\":7,\"categories\":\"Music\"}") << QString()
            << QString() << pageLink << D() << QString() << none << none;
        QTest::newRow("categories with a non-text") << 0 << QStringLiteral("{\"title\":\"T\",\"categories\":[\"Music\",3]}")
                                                    << QString() << QString() << QStringLiteral("T") << D() << QString()
                                                    << none << none;
        QTest::newRow("empty entries: a single video")
            << 0 << QStringLiteral("{\"title\":\"P\",\"duration\":9,\"entries\":[]}") << QString() << QString()
            << QStringLiteral("P") << D(9) << QString() << none << none;
        QTest::newRow("entries that are not objects: a single video")
            << 0 << QStringLiteral("{\"title\":\"P\",\"entries\":[\"a\",\"b\"]}") << QString() << QString() << QStringLiteral("P")
            << D() << QString() << none << none;
        QTest::newRow("entries of every shape")
            << 0
            << QStringLiteral("{\"title\":\"PL\",\"duration\":99,\"thumbnail\":\"https://t/x.jpg\",\"categories\":[\"Music\"],\"entries\":["
                              "{\"url\":\"https://a.example/1\",\"title\":\"One\"},{\"webpage_url\":\"https://a.example/2\"},"
                              "{\"id\":\"xyz\"},{\"url\":\"abc123\",\"title\":\"Bare\"},{\"title\":\"nothing\"},{\"url\":5,\"id\":\"num\"},"
                              "{\"url\":\"\",\"webpage_url\":\"https://a.example/3\",\"title\":7}]}")
            << QString() << QString() << QStringLiteral("PL") << D() << QString() << none
            << QStringList{QStringLiteral("https://a.example/1|One"),
                           QStringLiteral("https://a.example/2|https://a.example/2"),
                           watch + QStringLiteral("xyz|") + watch + QStringLiteral("xyz"),
                           watch + QStringLiteral("abc123|Bare"),
                           watch + QStringLiteral("num|") + watch + QStringLiteral("num"),
                           QStringLiteral("https://a.example/3|https://a.example/3")};
        QTest::newRow("ids only, untitled playlist")
            << 0 << QStringLiteral("{\"entries\":[{\"id\":\"a1\"},{\"id\":\"b2\"}]}") << QString() << QString() << pageLink << D()
            << QString() << none
            << QStringList{watch + QStringLiteral("a1|") + watch + QStringLiteral("a1"),
                           watch + QStringLiteral("b2|") + watch + QStringLiteral("b2")};
    }

    void jsonProbeOutput() {
        QFETCH(int, status);
        QFETCH(QString, out);
        QFETCH(QString, err);
        checkProbe(outcome(&YtDlp::parseProbeJSON, status, out, err));
    }
};

VORLIX_TEST_SUITE(YtDlpLinkTest)
#include "YtDlpLinkTest.moc"
