#include "Await.h"
#include "MomentsMedia.h"
#include "TestEnv.h"
#include "TestMain.h"

#include "analysis/TranscriptSearch.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

#include <cmath>
#include <optional>

using TranscriptSearch::Hit;

namespace {

QString stamp(double seconds) {
    const int ms = int(std::lround(seconds * 1000));
    return QString::asprintf("%02d:%02d:%02d,%03d", ms / 3600000, ms / 60000 % 60, ms / 1000 % 60, ms % 1000);
}

QByteArray cue(int index, double start, double end, const QString &text) {
    return (QString::number(index) + u'\n' + stamp(start) + QStringLiteral(" --> ") + stamp(end) + u'\n' + text +
            QStringLiteral("\n\n"))
        .toUtf8();
}

void write(const QString &path, const QByteArray &bytes) {
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
    QCOMPARE(f.write(bytes), bytes.size());
}

void touch(const QString &path) { write(path, QByteArray("x")); }

// n cues that all mention the phrase, one second apart.
QByteArray repeatedCues(int n, const QString &phrase) {
    QByteArray out;
    for (int i = 0; i < n; ++i)
        out += cue(i + 1, i, i + 0.5, QStringLiteral("line %1 with %2").arg(i).arg(phrase));
    return out;
}

} // namespace

class TranscriptSearchTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void srtTimestamps() {
        QCOMPARE(TranscriptSearch::seconds(QStringLiteral("01:02:05,250")), std::optional<double>(3725.25));
        QCOMPARE(TranscriptSearch::seconds(QStringLiteral("01:02")), std::nullopt);
        QCOMPARE(TranscriptSearch::seconds(QStringLiteral("00::01:02")), std::optional<double>(62.0));   // empty pieces dropped
        QCOMPARE(TranscriptSearch::seconds(QStringLiteral("00:xx:01:02")), std::optional<double>(62.0)); // so are unreadable ones
    }

    void cuesAreParsedAndMatched_data() {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QString>("query");
        QTest::addColumn<QStringList>("expected"); // "<start>-<end> <text>" per hit

        const QByteArray two = cue(1, 1, 4, QStringLiteral("Let's talk about\nchord voicing")) +
                               cue(2, 5, 7, QStringLiteral("and rhythm")) +
                               cue(3, 3725.25, 3726, QStringLiteral("more Chord shapes"));
        const QStringList both{QStringLiteral("1-4 Let's talk about chord voicing"), QStringLiteral("3725.25-3726 more Chord shapes")};
        QTest::newRow("case ignored, lines joined") << two << QStringLiteral("Chord") << both;
        QByteArray crlf = two;
        crlf.replace("\n", "\r\n");
        QTest::newRow("CRLF line ends") << crlf << QStringLiteral("chord") << both;
        const QByteArray malformed = QByteArray("1\nchord without a time line\n\n") + "2\n00:00:02,000 --> \nchord\n\n" +
                                     "3\n00:00:xx --> 00:00:04,000\nchord\n\n" + "chord alone\n\n" +
                                     "4\n00:00:01 --> 00:00:02 --> 00:00:03\nchord\n\n" +
                                     cue(5, 9, 10, QStringLiteral("  the good chord  "));
        QTest::newRow("malformed cues skipped") << malformed << QStringLiteral("chord")
                                                << QStringList{QStringLiteral("9-10 the good chord")};
        // Case folding maps this non-ASCII letter onto an ASCII one.
        QTest::newRow("Kelvin sign matches k") << cue(1, 2, 3, QStringLiteral("20 \u212Aelvin")) << QStringLiteral("kelvin")
                                               << QStringList{QStringLiteral("2-3 20 \u212Aelvin")};
        QTest::newRow("binary garbage") << QByteArray("\xff\xfe\x00\x01chord\x80\x81\n\n\xc3\x28", 14)
                                        << QStringLiteral("chord") << QStringList{};
    }
    void cuesAreParsedAndMatched() {
        QFETCH(QByteArray, content);
        QFETCH(QString, query);
        QFETCH(QStringList, expected);
        QTemporaryDir dir;
        const QString srt = dir.filePath(QStringLiteral("Talk.srt"));
        write(srt, content);
        QStringList got;
        for (const Hit &hit : TranscriptSearch::matches(query, srt)) {
            got << QStringLiteral("%1-%2 %3").arg(hit.start).arg(hit.end).arg(hit.text);
            QVERIFY(hit.srtFile == srt && !hit.videoFile && hit.videoName == QStringLiteral("Talk"));
        }
        QCOMPARE(got, expected);
    }

    void oneFileGivesAtMost41Hits() {
        QTemporaryDir dir;
        const QString srt = dir.filePath(QStringLiteral("long.srt"));
        write(srt, repeatedCues(60, QStringLiteral("needle")));
        const QList<Hit> hits = TranscriptSearch::matches(QStringLiteral("needle"), srt);
        QCOMPARE(hits.size(), 41);
        QCOMPARE(hits.last().start, 40.0); // the first 41 cues, in file order
    }

    void siblingMediaPreferenceOrder_data() {
        QTest::addColumn<QStringList>("present");
        QTest::addColumn<QString>("expected");
        QTest::newRow("mkv before mp3") << QStringList{QStringLiteral("mp3"), QStringLiteral("mkv")} << QStringLiteral("mkv");
        QTest::newRow("unknown extension") << QStringList{QStringLiteral("avi")} << QString();
    }
    void siblingMediaPreferenceOrder() {
        QFETCH(QStringList, present);
        QFETCH(QString, expected);
        QTemporaryDir dir;
        const QString srt = dir.filePath(QStringLiteral("Talk.srt"));
        write(srt, cue(1, 1, 2, QStringLiteral("hello")));
        for (const QString &ext : present)
            touch(dir.filePath(QStringLiteral("Talk.") + ext));
        const auto media = TranscriptSearch::siblingMedia(srt);
        QCOMPARE(media.value_or(QString()), expected.isEmpty() ? QString() : dir.filePath(QStringLiteral("Talk.") + expected));
        // The display name follows the media file when there is one.
        const QList<Hit> hits = TranscriptSearch::matches(QStringLiteral("hello"), srt);
        QCOMPARE(hits.size(), 1);
        QCOMPARE(hits[0].videoFile, media);
    }

    void searchSortsByVideoThenTime() {
        QTemporaryDir dir;
        // B is found first on disk order in some runs; the result must not depend on that.
        write(dir.filePath(QStringLiteral("z/B.srt")), cue(1, 5, 6, QStringLiteral("the phrase")) +
                                                            cue(2, 1, 2, QStringLiteral("the phrase")));
        write(dir.filePath(QStringLiteral("a/A.srt")), cue(1, 30, 31, QStringLiteral("THE PHRASE")) +
                                                            cue(2, 10, 11, QStringLiteral("the phrase")));
        touch(dir.filePath(QStringLiteral("a/A.mp4")));
        const QList<Hit> hits = TranscriptSearch::search(QStringLiteral(" \tphrase\t "), dir.path());
        QStringList order;
        for (const Hit &hit : hits)
            order << hit.videoName + u'@' + QString::number(hit.start);
        QCOMPARE(order, (QStringList{QStringLiteral("A@10"), QStringLiteral("A@30"), QStringLiteral("B@1"),
                                     QStringLiteral("B@5")}));
        QCOMPARE(hits[0].videoFile.value_or(QString()), dir.filePath(QStringLiteral("a/A.mp4")));
    }

    void searchSkipsWhatItShould() {
        QTemporaryDir dir;
        const QByteArray hit = cue(1, 1, 2, QStringLiteral("findme"));
        write(dir.filePath(QStringLiteral("visible.srt")), hit);
        write(dir.filePath(QStringLiteral("UPPER.SRT")), hit);
        write(dir.filePath(QStringLiteral(".hidden.srt")), hit);
        write(dir.filePath(QStringLiteral(".cache/inside.srt")), hit);
        write(dir.filePath(QStringLiteral("notes.txt")), hit);
        write(dir.filePath(QStringLiteral("deep/er/still.srt")), hit);
        QDir().mkpath(dir.filePath(QStringLiteral("folder.srt"))); // a folder, not a file

        // Exactly at the size cap is read; one byte more is not.
        QByteArray atCap = hit;
        atCap += QByteArray(8'000'000 - atCap.size(), ' ');
        write(dir.filePath(QStringLiteral("atcap.srt")), atCap);
        write(dir.filePath(QStringLiteral("overcap.srt")), atCap + ' ');
        // A 2 GB sparse file must be skipped by its size, not read.
        QFile big(dir.filePath(QStringLiteral("huge.srt")));
        QVERIFY(big.open(QIODevice::WriteOnly));
        QVERIFY(big.resize(qint64(2) << 30));
        big.close();

        QElapsedTimer timer;
        timer.start();
        const QList<Hit> hits = TranscriptSearch::search(QStringLiteral("FINDME"), dir.path());
        QVERIFY2(timer.elapsed() < 10000, "the sparse file was read");
        QStringList names;
        for (const Hit &h : hits)
            names << QFileInfo(h.srtFile).fileName();
        names.sort();
        QCOMPARE(names, (QStringList{QStringLiteral("UPPER.SRT"), QStringLiteral("atcap.srt"),
                                     QStringLiteral("still.srt"), QStringLiteral("visible.srt")}));
    }

    void searchStopsOnceEnoughHits() {
        QTemporaryDir dir;
        for (int i = 0; i < 6; ++i)
            write(dir.filePath(QStringLiteral("f%1.srt").arg(i)), repeatedCues(60, QStringLiteral("needle")));
        // 41 per file: the fourth file takes the total past 150 and ends the scan.
        QCOMPARE(TranscriptSearch::search(QStringLiteral("needle"), dir.path()).size(), 164);
    }

    void shortOrMissingInputsGiveNothing() {
        QTemporaryDir dir;
        write(dir.filePath(QStringLiteral("a.srt")), cue(1, 1, 2, QStringLiteral("a hello")));
        QVERIFY(TranscriptSearch::search(QStringLiteral("a"), dir.path()).isEmpty()); // one character
        QVERIFY(!TranscriptSearch::search(QStringLiteral("he"), dir.path()).isEmpty());
        QVERIFY(TranscriptSearch::search(QStringLiteral("hello"), QStringLiteral("/nonexistent/vorlix-nowhere")).isEmpty());
    }

    void clipNames_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<double>("start");
        QTest::addColumn<QString>("expected");
        QTest::newRow("slash and colon") << QStringLiteral("AC/DC: live") << 5.9
                                         << QStringLiteral("Guitar Talk — “AC-DC- live” @ 0m05s.mp4");
        QTest::newRow("hours") << QStringLiteral("late") << 3725.0 << QStringLiteral("Guitar Talk — “late” @ 1m02m05s.mp4");
        QTest::newRow("no broken surrogate") << QStringLiteral("0123456789012345678901234567890🎸🎸") << 0.0
                                             << QStringLiteral("Guitar Talk — “0123456789012345678901234567890🎸” @ 0m00s.mp4");
    }
    void clipNames() {
        QFETCH(QString, text);
        QFETCH(double, start);
        QFETCH(QString, expected);
        Hit hit;
        hit.videoName = QStringLiteral("Guitar Talk");
        hit.text = text;
        hit.start = start;
        QCOMPARE(TranscriptSearch::clipFileName(hit), expected);
    }

    void clipWindow_data() {
        QTest::addColumn<double>("start");
        QTest::addColumn<double>("end");
        QTest::addColumn<double>("clipStart");
        QTest::addColumn<double>("clipLength");
        QTest::newRow("0.8 s lead-in, 2 s after the cue") << 3.0 << 4.5 << 2.2 << 3.5;
        QTest::newRow("lead-in clamped at zero") << 0.5 << 1.5 << 0.0 << 3.0;
        QTest::newRow("long cue capped at 15 s") << 30.0 << 50.0 << 29.2 << 15.0;
        QTest::newRow("an empty cue still gets 2 s") << 4.0 << 3.0 << 3.2 << 2.0;
    }
    void clipWindow() {
        QFETCH(double, start);
        QFETCH(double, end);
        QFETCH(double, clipStart);
        QFETCH(double, clipLength);
        Hit hit;
        hit.start = start;
        hit.end = end;
        const TranscriptSearch::ClipWindow window = TranscriptSearch::clipWindow(hit);
        QCOMPARE(window.start, clipStart);
        QCOMPARE(window.length, clipLength);
    }

    void clipExport() {
        QTemporaryDir dir;
        const QString media = MomentsMedia::copyOfRamp(dir.filePath(QStringLiteral("Guitar Talk [abcd1234].mp4")));
        QVERIFY(!media.isEmpty());
        const QString srt = dir.filePath(QStringLiteral("Guitar Talk [abcd1234].srt"));
        write(srt, cue(1, 3.0, 3.5, QStringLiteral("chord: voicing")));
        const QList<Hit> hits = TranscriptSearch::matches(QStringLiteral("chord"), srt);
        QCOMPARE(hits.size(), 1);
        QCOMPARE(hits[0].videoName, QStringLiteral("Guitar Talk"));

        const auto clip = vtest::await(TranscriptSearch::exportClip(hits[0]));
        QCOMPARE(clip, dir.filePath(QStringLiteral("Guitar Talk — Quotes/Guitar Talk — “chord- voicing” @ 0m03s.mp4")));
        QVERIFY2(std::abs(MomentsMedia::duration(*clip) - 2.5) < 0.1, qPrintable(QString::number(MomentsMedia::duration(*clip))));
        // The picture brightens with time: the clip opens on the frame 0.8 s before the cue.
        const double opening = MomentsMedia::brightness(*clip);
        QVERIFY2(std::abs(opening - MomentsMedia::brightness(media, 2.2)) < 3.0, qPrintable(QString::number(opening)));
        QVERIFY(TestEnv::filesContaining(TestEnv::root(), QStringLiteral("vorlix-")).isEmpty());
    }

    void clipExportFailures() {
        QTemporaryDir dir;
        Hit noMedia;
        noMedia.videoName = QStringLiteral("Gone");
        noMedia.text = QStringLiteral("hello");
        QVERIFY(!vtest::await(TranscriptSearch::exportClip(noMedia)));

        // A media file that is not media: the cut fails and nothing is claimed.
        Hit broken = noMedia;
        broken.videoFile = dir.filePath(QStringLiteral("Gone.mp4"));
        write(*broken.videoFile, QByteArray("not a video at all"));
        QVERIFY(!vtest::await(TranscriptSearch::exportClip(broken)));
        QDir quotes(dir.filePath(QStringLiteral("Gone — Quotes")));
        QVERIFY(quotes.entryList(QDir::Files).isEmpty());
    }
};

VORLIX_TEST_SUITE(TranscriptSearchTest)
#include "TranscriptSearchTest.moc"
