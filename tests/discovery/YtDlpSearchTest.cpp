#include "Await.h"
#include "TestEnv.h"
#include "TestMain.h"

#include "discovery/YtDlpSearch.h"
#include "engine/YtDlp.h"

#include <QFile>
#include <QTest>

using namespace Qt::StringLiterals;
using YtDlp::SearchMode;
using YtDlp::SearchResult;

namespace {

QString argsFile() { return TestEnv::root() + u"/search-args.txt"_s; }

// A downloader that records its arguments, one per line, then runs `body`.
void stubDownloader(const QString &body) {
    QFile::remove(argsFile());
    TestEnv::writeStubTool(u"yt-dlp"_s, u"printf '%s\\n' \"$@\" > '"_s + argsFile() + u"'\n"_s + body);
}

QString lastArgument() {
    QFile f(argsFile());
    const QStringList args = f.open(QIODevice::ReadOnly) ? QString::fromUtf8(f.readAll()).split(u'\n', Qt::SkipEmptyParts) : QStringList();
    return args.isEmpty() ? QString() : args.last();
}

QStringList titles(const QList<SearchResult> &results) {
    QStringList out;
    for (const SearchResult &r : results)
        out << r.title;
    return out;
}

} // namespace

class YtDlpSearchTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void modes() {
        QStringList raws;
        for (const SearchMode mode : YtDlp::allSearchModes) {
            raws << YtDlp::rawValue(mode);
            QCOMPARE(YtDlp::searchModeFromRaw(YtDlp::rawValue(mode)), std::optional<SearchMode>(mode));
        }
        QCOMPARE(raws, (QStringList{u"Videos"_s, u"Music"_s, u"CC only"_s}));
        QVERIFY(!YtDlp::searchModeFromRaw(u"videos"_s));
    }

    void arguments_data() {
        QTest::addColumn<int>("mode");
        QTest::addColumn<QString>("query");
        QTest::addColumn<int>("count");
        QTest::addColumn<QStringList>("tail");
        QTest::newRow("videos, unencoded") << int(SearchMode::videos) << u"lofi beats & rain"_s << 20
                                           << QStringList{u"ytsearch20:lofi beats & rain"_s};
        QTest::newRow("music") << int(SearchMode::music) << u"lofi beats"_s << 20
                               << QStringList{u"-I"_s, u"1:20"_s, u"https://music.youtube.com/search?q=lofi%20beats#songs"_s};
        QTest::newRow("music, unicode and reserved") << int(SearchMode::music) << u"café #1 50%"_s << 5
                                                     << QStringList{u"-I"_s, u"1:5"_s, u"https://music.youtube.com/search?q=caf%C3%A9%20%231%2050%25#songs"_s};
        QTest::newRow("cc only, query set kept") << int(SearchMode::ccOnly) << u"rock & roll/live?=+'!"_s << 12
                                                 << QStringList{u"-I"_s, u"1:12"_s,
                                                                u"https://www.youtube.com/results?search_query=rock%20&%20roll/live?=+'!&sp=EgIwAQ%253D%253D"_s};
        QTest::newRow("cc only, brackets") << int(SearchMode::ccOnly) << u"\"a\" [b] {c} <d>"_s << 1
                                           << QStringList{u"-I"_s, u"1:1"_s,
                                                          u"https://www.youtube.com/results?search_query=%22a%22%20%5Bb%5D%20%7Bc%7D%20%3Cd%3E&sp=EgIwAQ%253D%253D"_s};
    }
    void arguments() {
        QFETCH(int, mode);
        QFETCH(QString, query);
        QFETCH(int, count);
        QFETCH(QStringList, tail);
        const QStringList head{u"--flat-playlist"_s, u"--no-warnings"_s, u"--print"_s,
                               u"VORLIXSR\t%(id)s\t%(title)s\t%(channel,uploader)s\t%(duration)s\t%(view_count)s"_s};
        QCOMPARE(YtDlp::searchArguments(query, SearchMode(mode), count), head + tail);
    }

    void lines_data() {
        QTest::addColumn<QString>("line");
        QTest::addColumn<QString>("expected"); // title|channel|duration text|seconds|views, or null: no result
        QTest::newRow("complete") << u"VORLIXSR\tdQw4w9WgXcQ\tNever\tRick Astley\t212.4\t2450000"_s << u"Never|Rick Astley|3:32|212.4|2.5M views"_s;
        QTest::newRow("all NA") << u"VORLIXSR\tabc\tNA\tNA\tNA\tNA"_s << u"abc||||"_s;
        QTest::newRow("extra pieces ignored") << u"VORLIXSR\tabc\tT\tC\t3725\t1000\tmore"_s << u"T|C|1:02:05|3725|1K views"_s;
        QTest::newRow("empty pieces kept") << u"VORLIXSR\tabc\t\t\t0\t0"_s << u"|||0|"_s;
        QTest::newRow("five pieces") << u"VORLIXSR\tabc\tT\tC\t10"_s << QString();
        QTest::newRow("NA id") << u"VORLIXSR\tNA\tT\tC\t10\t10"_s << QString();
        QTest::newRow("empty id") << u"VORLIXSR\t\tT\tC\t10\t10"_s << QString();
        QTest::newRow("marker without tab") << u"VORLIXSRabc\tT\tC\t10\t10\t1"_s << QString();
        QTest::newRow("warning") << u"WARNING: [youtube] falling back"_s << QString();
    }
    void lines() {
        QFETCH(QString, line);
        QFETCH(QString, expected);
        const auto r = YtDlp::parseSearchLine(line);
        QCOMPARE(r.has_value(), !expected.isNull());
        if (!r)
            return;
        const QString seconds = r->durationSeconds ? QString::number(*r->durationSeconds) : QString();
        QCOMPARE(QStringList({r->title, r->channel, r->durationText, seconds, r->viewsText}).join(u'|'), expected);
        QCOMPARE(r->id, line.section(u'\t', 1, 1));
        QCOMPARE(r->url, u"https://www.youtube.com/watch?v="_s + r->id);
    }

    void durations_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("expected");
        QTest::newRow("fraction truncated") << u"212.4"_s << u"3:32"_s;
        QTest::newRow("under a minute") << u"59"_s << u"0:59"_s;
        QTest::newRow("one hour") << u"3600"_s << u"1:00:00"_s;
        QTest::newRow("long stream") << u"362439"_s << u"100:40:39"_s;
        QTest::newRow("half a second") << u"0.5"_s << u"0:00"_s;
        QTest::newRow("zero") << u"0"_s << QString();
        QTest::newRow("NA") << u"NA"_s << QString();
    }
    void durations() {
        QFETCH(QString, text);
        QFETCH(QString, expected);
        QCOMPARE(YtDlp::dur(text), expected);
    }

    void viewCounts_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("expected");
        QTest::newRow("millions") << u"2450000"_s << u"2.5M views"_s;
        QTest::newRow("billions stay millions") << u"1234567890"_s << u"1234.6M views"_s;
        QTest::newRow("format rounding, no unit change") << u"999999"_s << u"1000K views"_s;
        QTest::newRow("tie rounds to even, down") << u"12500"_s << u"12K views"_s;
        QTest::newRow("tie rounds to even, up") << u"1500"_s << u"2K views"_s;
        QTest::newRow("one thousand") << u"1000"_s << u"1K views"_s;
        QTest::newRow("one, no singular") << u"1"_s << u"1 views"_s;
        QTest::newRow("zero") << u"0"_s << QString();
        QTest::newRow("NA") << u"NA"_s << QString();
    }
    void viewCounts() {
        QFETCH(QString, text);
        QFETCH(QString, expected);
        QCOMPARE(YtDlp::views(text), expected);
    }

    void resultsArriveWhileTheSearchRuns() {
        const QString mark = TestEnv::root() + u"/first-result-seen"_s;
        QFile::remove(mark);
        // The second hit is printed only once the first one has reached the caller; a caller that
        // got nothing before the end makes the downloader give up waiting and say "Late".
        stubDownloader(u"echo '[youtube:search] Downloading page 1'\n"
                       u"printf 'VORLIXSR\\tid1\\tFirst\\tChan\\t212.4\\t2450000\\n'\n"
                       u"i=0; while [ ! -f '%1' ] && [ $i -lt 100 ]; do sleep 0.05; i=$((i+1)); done\n"
                       u"if [ -f '%1' ]; then t=Second; else t=Late; fi\n"
                       u"printf 'VORLIXSR\\tid2\\t%s\\tNA\\tNA\\tNA\\n' \"$t\"\n"
                       u"printf 'VORLIXSR\\tNA\\tno id\\tx\\t1\\t1\\n'\n"
                       u"printf 'VORLIXSR\\tid3\\tshort\\t1\\n'\n"
                       u"echo 'WARNING: unrelated' >&2\n"
                       u"printf 'VORLIXSR\\tid4\\tFourth\\tC\\t59\\t1000\\textra\\n'\n"_s.arg(mark));
        QList<SearchResult> seen;
        const YtDlp::SearchResultFn onResult = [&seen, &mark](const SearchResult &r) {
            seen.append(r);
            QFile f(mark);
            f.open(QIODevice::WriteOnly);
        };
        vtest::await(YtDlp::searchStream(u"  lofi beats\t"_s, SearchMode::videos, 20, onResult));
        QCOMPARE(titles(seen), (QStringList{u"First"_s, u"Second"_s, u"Fourth"_s}));
        QCOMPARE(lastArgument(), u"ytsearch20:lofi beats"_s);
    }

    void failedSearchKeepsDeliveredResults() {
        const QString error = u"ERROR: [youtube:search] Unable to download webpage: HTTP Error 429: Too Many Requests"_s;
        stubDownloader(u"printf 'VORLIXSR\\ta\\tOne\\tC\\t1\\t1\\nVORLIXSR\\tb\\tTwo\\tC\\t1\\t1\\n'\necho '%1' >&2\nexit 1\n"_s.arg(error));
        QList<SearchResult> seen;
        const YtDlp::SearchResultFn onResult = [&seen](const SearchResult &r) { seen.append(r); };
        for (const SearchMode mode : YtDlp::allSearchModes) {
            try {
                vtest::await(YtDlp::searchStream(u"x"_s, mode, 3, onResult));
                QFAIL("expected a YtDlpError");
            } catch (const YtDlpError &e) {
                QCOMPARE(e.kind(), YtDlpError::Kind::probeFailed);
                QVERIFY(!e.message().isEmpty());
                QCOMPARE(e.message(), YtDlp::friendlyError(error + u'\n'));
            }
        }
        QCOMPARE(titles(seen), (QStringList{u"One"_s, u"Two"_s, u"One"_s, u"Two"_s, u"One"_s, u"Two"_s}));
    }

    void blankQueryStartsNothing() {
        stubDownloader(u"printf 'VORLIXSR\\ta\\tOne\\tC\\t1\\t1\\n'\n"_s);
        for (const QString &blank : {QString(), u" \t "_s})
            QVERIFY(vtest::await(YtDlp::search(blank, SearchMode::music, 5)).isEmpty());
        QVERIFY(!QFile::exists(argsFile()));
    }

    void searchCollectsInOrder() {
        stubDownloader(u"for i in 1 2 3 4 5 6 7 8; do printf 'VORLIXSR\\tv%s\\tHit %s\\tC\\t%s0\\tNA\\n' $i $i $i; done\n"_s);
        const auto results = vtest::await(YtDlp::search(u"anything"_s, SearchMode::videos, 8));
        QCOMPARE(titles(results), (QStringList{u"Hit 1"_s, u"Hit 2"_s, u"Hit 3"_s, u"Hit 4"_s, u"Hit 5"_s, u"Hit 6"_s, u"Hit 7"_s, u"Hit 8"_s}));
        QCOMPARE(results[7].durationSeconds, std::optional<double>(80));
        // nothing printed is an empty search, not an error
        stubDownloader(u"echo 'nothing found'\n"_s);
        QVERIFY(vtest::await(YtDlp::search(u"zzzz"_s, SearchMode::videos, 8)).isEmpty());
    }

    void cleanupTestCase() { TestEnv::removeStubTool(u"yt-dlp"_s); }
};

VORLIX_TEST_SUITE(YtDlpSearchTest)
#include "YtDlpSearchTest.moc"
