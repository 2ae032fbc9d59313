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


class YtDlpSearchTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void arguments_data() {
        QTest::addColumn<int>("mode");
        QTest::addColumn<QString>("query");
        QTest::addColumn<int>("count");
        QTest::addColumn<QStringList>("tail");
        QTest::newRow("music, encoded") << int(SearchMode::music) << u"café #1 50%"_s << 20
                                        << QStringList{u"-I"_s, u"1:20"_s, u"https://music.youtube.com/search?q=caf%C3%A9%20%231%2050%25#songs"_s};
        QTest::newRow("cc only, query set kept") << int(SearchMode::ccOnly) << u"rock & roll/live?=+'! <d>"_s << 12
                                                 << QStringList{u"-I"_s, u"1:12"_s,
                                                                u"https://www.youtube.com/results?search_query=rock%20&%20roll/live?=+'!%20%3Cd%3E&sp=EgIwAQ%253D%253D"_s};
    }
    void arguments() {
        QFETCH(int, mode);
        QFETCH(QString, query);
        QFETCH(int, count);
        QFETCH(QStringList, tail);
        const QStringList head{u"--flat-playlist"_s, u"--no-warnings"_s, u"--print"_s, YtDlp::searchTemplate};
        QCOMPARE(YtDlp::searchArguments(query, SearchMode(mode), count), head + tail);
    }

    void displayTexts() {
        QCOMPARE(YtDlp::dur(u"3600"_s), u"1:00:00"_s);
        QCOMPARE(YtDlp::views(u"1234567890"_s), u"1234.6M views"_s); // no billions
        QCOMPARE(YtDlp::views(u"999999"_s), u"1000K views"_s);       // the unit is picked before rounding
        QCOMPARE(YtDlp::views(u"12500"_s), u"12K views"_s);          // ties round to even
    }

    void resultsArriveWhileTheSearchRuns() {
        const QString mark = TestEnv::root() + u"/first-result-seen"_s;
        const QString error = u"ERROR: [youtube:search] Unable to download webpage: HTTP Error 429: Too Many Requests"_s;
        QFile::remove(mark);
        // The second hit is printed only once the first one has reached the caller; a caller that
        // got nothing before the end makes the downloader give up waiting and say "Late".
        TestEnv::standIn(u"yt-dlp"_s, u"printf 'VORLIXSR\\tid1\\tFirst\\tChan\\t212.4\\t2450000\\n'\n"
                       u"i=0; while [ ! -f '%1' ] && [ $i -lt 100 ]; do sleep 0.05; i=$((i+1)); done\n"
                       u"if [ -f '%1' ]; then c=Second; else c=Late; fi\n"
                       u"printf 'VORLIXSR\\tid2\\tNA\\t%s\\tNA\\tNA\\n' \"$c\"\n"
                       u"printf 'VORLIXSR\\tid3\\tfive\\tpieces\\t1\\nVORLIXSR\\tNA\\tno id\\tC\\t1\\t1\\n'\n"
                       u"echo 'WARNING: unrelated' >&2\nprintf 'VORLIXSR\\tid4\\tFourth\\tC\\t3725\\t1000\\textra\\n'\n"
                       u"echo '%2' >&2; exit 1\n"_s.arg(mark, error));
        QStringList seen;
        const YtDlp::SearchResultFn onResult = [&seen, &mark](const SearchResult &r) {
            const QString seconds = r.durationSeconds ? QString::number(*r.durationSeconds) : u"-"_s;
            seen << QStringList({r.url, r.title, r.channel, r.durationText, seconds, r.viewsText}).join(u'|');
            QFile(mark).open(QIODevice::WriteOnly);
        };
        // A failed search still keeps what it delivered.
        QCOMPARE(vtest::failure(YtDlp::searchStream(u"  lofi beats\t"_s, SearchMode::videos, 20, onResult)),
                 YtDlp::friendlyError(error + u'\n'));
        const QString watch = u"https://www.youtube.com/watch?v="_s;
        QCOMPARE(seen, (QStringList{watch + u"id1|First|Chan|3:32|212.4|2.5M views"_s, watch + u"id2|id2|Second||-|"_s,
                                    watch + u"id4|Fourth|C|1:02:05|3725|1K views"_s}));
        QCOMPARE(TestEnv::standInArgs(u"yt-dlp"_s).last(), u"ytsearch20:lofi beats"_s);
    }

    void cleanupTestCase() { TestEnv::removeStubTool(u"yt-dlp"_s); }
};

VORLIX_TEST_SUITE(YtDlpSearchTest)
#include "YtDlpSearchTest.moc"
