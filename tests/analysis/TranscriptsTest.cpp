#include "Await.h"
#include "TestEnv.h"
#include "TestMain.h"
#include "analysis_music.h"

#include "analysis/Summarizer.h"
#include "analysis/TranscriptSearch.h"

#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

#include <cmath>

using TranscriptSearch::Hit;

namespace {

QByteArray cue(int index, double start, double end, const QString &text) {
    const auto stamp = [](double seconds) {
        const int ms = int(std::lround(seconds * 1000));
        return QString::asprintf("%02d:%02d:%02d,%03d", ms / 3600000, ms / 60000 % 60, ms / 1000 % 60, ms % 1000);
    };
    return QStringLiteral("%1\n%2 --> %3\n%4\n\n").arg(index).arg(stamp(start), stamp(end), text).toUtf8();
}

// n cues that all mention the phrase, one second apart.
QByteArray repeatedCues(int n, const QString &phrase) {
    QByteArray out;
    for (int i = 0; i < n; ++i)
        out += cue(i + 1, i, i + 0.5, QStringLiteral("line %1 with %2").arg(i).arg(phrase));
    return out;
}

QStringList described(const QList<Hit> &hits) {
    QStringList out;
    for (const Hit &hit : hits)
        out << QStringLiteral("%1@%2-%3 %4").arg(hit.videoName).arg(hit.start).arg(hit.end).arg(hit.text);
    return out;
}


// n sentences that each carry content words of their own, so every one of them gets a score.
QString distinctSentences(int n) {
    QString text;
    for (int i = 0; i < n; ++i)
        text += QStringLiteral("Speaker mentions topic%1 and detail%1 here. ").arg(i);
    return text;
}

QStringList list(std::initializer_list<const char *> items) {
    QStringList out;
    for (const char *item : items)
        out << QString::fromUtf8(item);
    return out;
}

} // namespace

class TranscriptsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void srtTimestamps() {
        // Empty and unreadable pieces are dropped; fewer than three is no time (-1).
        for (const auto &[stamp, seconds] : {std::pair{"01:02:05,250", 3725.25}, {"01:02", -1.0}, {"00::01:02", 62.0}, {"00:xx:01:02", 62.0}})
            QCOMPARE(TranscriptSearch::seconds(QString::fromLatin1(stamp)).value_or(-1), seconds);
    }

    void cuesAreParsedAndMatched() {
        const QByteArray two = cue(1, 1, 4, QStringLiteral("Let's talk about\nchord voicing")) + cue(2, 5, 7, QStringLiteral("and rhythm")) +
                               cue(3, 3725.25, 3726, QStringLiteral("more Chord shapes"));
        const QStringList both{QStringLiteral("Talk@1-4 Let's talk about chord voicing"), QStringLiteral("Talk@3725.25-3726 more Chord shapes")};
        const std::tuple<QByteArray, QString, QStringList> rows[] = {
            {two, QStringLiteral("Chord"), both}, // case ignored, lines joined
            {QByteArray(two).replace("\n", "\r\n"), QStringLiteral("chord"), both},
            {QByteArray("1\nchord without a time line\n\n2\n00:00:02,000 --> \nchord\n\n3\n00:00:xx --> 00:00:04,000\nchord\n\n"
                        "chord alone\n\n4\n00:00:01 --> 00:00:02 --> 00:00:03\nchord\n\n") + cue(5, 9, 10, QStringLiteral("  the good chord  ")),
             QStringLiteral("chord"), {QStringLiteral("Talk@9-10 the good chord")}}, // malformed cues skipped
            // Case folding maps the Kelvin sign onto an ASCII k.
            {cue(1, 2, 3, QStringLiteral("20 \u212Aelvin")), QStringLiteral("kelvin"), {QStringLiteral("Talk@2-3 20 \u212Aelvin")}},
            {QByteArray("\xff\xfe\x00\x01chord\x80\x81\n\n\xc3\x28", 14), QStringLiteral("chord"), {}}};
        QTemporaryDir dir;
        const QString srt = dir.filePath(QStringLiteral("Talk.srt"));
        for (const auto &[content, query, expected] : rows) {
            QVERIFY(TestEnv::writeFile(srt, content));
            const QList<Hit> hits = TranscriptSearch::matches(query, srt);
            QCOMPARE(described(hits), expected);
            QVERIFY(std::all_of(hits.begin(), hits.end(), [&](const Hit &hit) { return hit.srtFile == srt && !hit.videoFile; }));
        }
    }

    void siblingMedia() {
        QTemporaryDir dir;
        const QString srt = dir.filePath(QStringLiteral("Talk.srt"));
        QVERIFY(TestEnv::writeFile(srt, cue(1, 1, 2, QStringLiteral("hello"))));
        QVERIFY(TestEnv::writeFile(dir.filePath(QStringLiteral("Talk.avi")), "x")); // not a media extension of ours
        QCOMPARE(TranscriptSearch::siblingMedia(srt), std::nullopt);
        QVERIFY(TestEnv::writeFile(dir.filePath(QStringLiteral("Talk.mp3")), "x") && TestEnv::writeFile(dir.filePath(QStringLiteral("Talk.mkv")), "x"));
        QCOMPARE(TranscriptSearch::siblingMedia(srt), dir.filePath(QStringLiteral("Talk.mkv"))); // video before audio
        QCOMPARE(TranscriptSearch::matches(QStringLiteral("hello"), srt).value(0).videoFile, dir.filePath(QStringLiteral("Talk.mkv")));
    }

    void searchWalksTheFolder() {
        QTemporaryDir dir;
        // B may come first in directory order; the result is sorted by video name, then time.
        QVERIFY(TestEnv::writeFile(dir.filePath(QStringLiteral("z/B.srt")), cue(1, 5, 6, QStringLiteral("the phrase")) + cue(2, 1, 2, QStringLiteral("the phrase"))));
        QVERIFY(TestEnv::writeFile(dir.filePath(QStringLiteral("a/A.srt")), cue(1, 30, 31, QStringLiteral("THE PHRASE")) + cue(2, 10, 11, QStringLiteral("the phrase"))));
        const QByteArray other = cue(1, 1, 2, QStringLiteral("the phrase"));
        for (const char *skipped : {".hidden.srt", ".cache/inside.srt", "notes.txt"})
            QVERIFY(TestEnv::writeFile(dir.filePath(QString::fromUtf8(skipped)), other));
        QDir().mkpath(dir.filePath(QStringLiteral("folder.srt"))); // a folder, not a file
        // Exactly at the size cap is read; one byte more is not.
        const QByteArray atCap = cue(1, 3, 4, QStringLiteral("the phrase")).leftJustified(8'000'000, ' ');
        QVERIFY(TestEnv::writeFile(dir.filePath(QStringLiteral("deep/er/CAP.SRT")), atCap));
        QVERIFY(TestEnv::writeFile(dir.filePath(QStringLiteral("over.srt")), atCap + ' '));
        QCOMPARE(described(TranscriptSearch::search(QStringLiteral(" \tphrase\t "), dir.path())),
                 (QStringList{QStringLiteral("A@10-11 the phrase"), QStringLiteral("A@30-31 THE PHRASE"), QStringLiteral("B@1-2 the phrase"),
                              QStringLiteral("B@5-6 the phrase"), QStringLiteral("CAP@3-4 the phrase")}));
        QVERIFY(TranscriptSearch::search(QStringLiteral("e"), dir.path()).isEmpty()); // one character is no query
        QVERIFY(TranscriptSearch::search(QStringLiteral("phrase"), QStringLiteral("/nonexistent/vorlix-nowhere")).isEmpty());
    }

    void hitLimits() {
        QTemporaryDir dir;
        for (int i = 0; i < 6; ++i)
            QVERIFY(TestEnv::writeFile(dir.filePath(QStringLiteral("f%1.srt").arg(i)), repeatedCues(60, QStringLiteral("needle"))));
        const QList<Hit> one = TranscriptSearch::matches(QStringLiteral("needle"), dir.filePath(QStringLiteral("f0.srt")));
        QVERIFY(one.size() == 41 && one.last().start == 40.0); // the first 41 cues, in file order
        // 41 per file: the fourth file takes the total past 150 and ends the scan.
        QCOMPARE(TranscriptSearch::search(QStringLiteral("needle"), dir.path()).size(), 164);
    }

    void clipNamesAndWindows() {
        Hit hit;
        hit.videoName = QStringLiteral("Guitar Talk");
        const std::tuple<QString, double, QString> names[] = {
            {QStringLiteral("AC/DC: live"), 5.9, QStringLiteral("Guitar Talk — “AC-DC- live” @ 0m05s.mp4")},
            {QStringLiteral("late"), 3725.0, QStringLiteral("Guitar Talk — “late” @ 1m02m05s.mp4")},
            // Cut at 32 characters, never inside a surrogate pair.
            {QStringLiteral("0123456789012345678901234567890🎸🎸"), 0.0, QStringLiteral("Guitar Talk — “0123456789012345678901234567890🎸” @ 0m00s.mp4")}};
        for (const auto &[text, start, expected] : names) {
            std::tie(hit.text, hit.start) = std::tie(text, start);
            QCOMPARE(TranscriptSearch::clipFileName(hit), expected);
        }
        // cue start, cue end → clip start, clip length: 0.8 s lead-in (not before 0), 2 s after the
        // cue, 2 s at least and 15 s at most.
        for (const auto &[start, end, clipStart, length] : {std::tuple{3.0, 4.5, 2.2, 3.5}, {0.5, 1.5, 0.0, 3.0}, {30.0, 50.0, 29.2, 15.0}, {4.0, 3.0, 3.2, 2.0}}) {
            std::tie(hit.start, hit.end) = std::tie(start, end);
            const TranscriptSearch::ClipWindow window = TranscriptSearch::clipWindow(hit);
            QVERIFY2(qFuzzyCompare(window.start + 1, clipStart + 1) && qFuzzyCompare(window.length, length),
                     qPrintable(QStringLiteral("%1 → %2 + %3").arg(start).arg(window.start).arg(window.length)));
        }
    }

    void clipExport() {
        QTemporaryDir dir;
        const QString media = AnalysisMusic::copyOfRamp(dir.filePath(QStringLiteral("Guitar Talk [abcd1234].mp4")));
        const QString srt = dir.filePath(QStringLiteral("Guitar Talk [abcd1234].srt"));
        QVERIFY(!media.isEmpty() && TestEnv::writeFile(srt, cue(1, 3.0, 3.5, QStringLiteral("chord: voicing"))));
        const QList<Hit> hits = TranscriptSearch::matches(QStringLiteral("chord"), srt);
        QCOMPARE(described(hits), QStringList{QStringLiteral("Guitar Talk@3-3.5 chord: voicing")});

        const auto clip = vtest::await(TranscriptSearch::exportClip(hits[0]));
        QCOMPARE(clip, dir.filePath(QStringLiteral("Guitar Talk — Quotes/Guitar Talk — “chord- voicing” @ 0m03s.mp4")));
        QVERIFY2(std::abs(AnalysisMusic::duration(*clip) - 2.5) < 0.1, qPrintable(QString::number(AnalysisMusic::duration(*clip))));
        // The picture brightens with time: the clip opens on the frame 0.8 s before the cue.
        const double opening = AnalysisMusic::brightness(*clip);
        QVERIFY2(std::abs(opening - AnalysisMusic::brightness(media, 2.2)) < 3.0, qPrintable(QString::number(opening)));
        QVERIFY(TestEnv::filesContaining(TestEnv::root(), QStringLiteral("vorlix-")).isEmpty());

        // No media beside the subtitles, or media that is not media: no clip, nothing claimed.
        Hit broken;
        broken.videoName = QStringLiteral("Gone");
        QCOMPARE(vtest::await(TranscriptSearch::exportClip(broken)), std::nullopt);
        broken.videoFile = dir.filePath(QStringLiteral("Gone.mp4"));
        QVERIFY(TestEnv::writeFile(*broken.videoFile, "not a video at all"));
        QCOMPARE(vtest::await(TranscriptSearch::exportClip(broken)), std::nullopt);
        QVERIFY(QDir(dir.filePath(QStringLiteral("Gone — Quotes"))).entryList(QDir::Files).isEmpty());
    }

    void splitAndTokenize() {
        const std::pair<const char *, QStringList> rows[] = {
            {"Hello world. Hello worlds.", list({"Hello worlds."})}, // 12 characters are dropped, 13 kept
            {"Is this working now? Yes it works fine!", list({"Is this working now?", "Yes it works fine!"})},
            {"One sentence here\r\ncontinues fine.", list({"One sentence here continues fine."})},
            {"Wait... this is how it ends!", list({"this is how it ends!"})},
            {"A real sentence here. Tail is long", list({"A real sentence here."})},
            {"A real sentence here. And the tail goes on", list({"A real sentence here.", "And the tail goes on"})},
            {"Hello wo\u0301rld. Voila\u0300 re\u0301sume\u0301.", list({"Voila\u0300 re\u0301sume\u0301."})}, // marks are not characters
            {"...!?. \n .", {}},
        };
        for (const auto &[text, expected] : rows)
            QCOMPARE(Summarizer::splitSentences(QString::fromUtf8(text)), expected);
        QCOMPARE(Summarizer::tokenize(QStringLiteral("Don't STOP—the 2nd cafe\u0301's über-fast x")),
                 list({"don", "stop", "the", "2nd", "cafe\u0301", "über", "fast"}));
    }

    void numberOfPoints() {
        // sentences, limit (-1: none), points
        const int rows[][3] = {{2, -1, 2}, {2, 1, 2}, {19, -1, 3}, {20, -1, 4}, {40, -1, 7}, {40, 2, 2}, {19, 10, 10}, {10, 0, 0}};
        for (const auto &row : rows) {
            const auto limit = row[1] < 0 ? std::nullopt : std::optional<int>(row[1]);
            QVERIFY2(Summarizer::summarize(distinctSentences(row[0]), limit).size() == row[2],
                     qPrintable(QStringLiteral("%1 sentences, limit %2").arg(row[0]).arg(row[1])));
        }
    }

    void chosenPoints() {
        const std::pair<QString, QStringList> rows[] = {
            // The "tempo" sentences share the most frequent words; they win and keep their order.
            {QStringLiteral("Tempo practice builds steady tempo control. Weather tomorrow looks cloudy overall. Lunch options include soup. "
                            "Metronome tempo practice keeps tempo honest. Parking downtown costs extra. Slow tempo practice first, then raise the tempo."),
             list({"Tempo practice builds steady tempo control.", "Metronome tempo practice keeps tempo honest.", "Slow tempo practice first, then raise the tempo."})},
            // Only two sentences carry content: the limit of three is not filled with stop-word lines.
            {QStringLiteral("I was there and so were you. Amber basil cedar dune. We would not have been here. Ember fern grove heath."),
             list({"Amber basil cedar dune.", "Ember fern grove heath."})},
            // The last sentence scores 1.0, the four others tie at 0.5: the earliest two of them join it.
            {QStringLiteral("Amber basil cedar dune. Ember fern grove heath. Iris jade kelp lotus. Maple nutmeg olive pine. Guitar guitar chord chord."),
             list({"Amber basil cedar dune.", "Ember fern grove heath.", "Guitar guitar chord chord."})},
            // Four content words of frequency 1 beat one alone: the divisor is at least four.
            {QStringLiteral("And so it was, zebra. Amber basil cedar dune. It was what it was, yak. Ember fern grove heath. Iris jade kelp lotus. So it is, then, xylophone."),
             list({"Amber basil cedar dune.", "Ember fern grove heath.", "Iris jade kelp lotus."})},
            // Stop words only ("don't" splits into two of them): the first three stand in.
            {QStringLiteral("I don't, you don't. I was there and so were you. We would not have been here. Yeah, okay, it is what it is."),
             list({"I don't, you don't.", "I was there and so were you.", "We would not have been here."})}};
        for (const auto &[text, expected] : rows)
            QCOMPARE(Summarizer::summarize(text), expected);
    }

    void summaryFile() {
        // The rule under the title is as long as the heading, at least 10 and at most 60 characters.
        for (const auto &[title, rule] : {std::pair{QString(), 10}, {QString(60, u'x'), 60}, {QStringLiteral("\U0001F3B8 Solo"), 16}})
            QCOMPARE(Summarizer::summaryText(title, {QStringLiteral("Point.")}).section(u'\n', 1, 1), QString(rule, QChar(0x2500)));

        QTemporaryDir dir(TestEnv::root() + QStringLiteral("/summary-XXXXXX"));
        const QString transcript = dir.filePath(QStringLiteral("v1.2 Lesson.final.txt"));
        QVERIFY(TestEnv::writeFile(transcript, QByteArrayLiteral(" First chosen sentence.\n Second chosen sentence.\n")));
        const QString output = dir.filePath(QStringLiteral("v1.2 Lesson.final.summary.txt"));
        QVERIFY(TestEnv::writeFile(output, QByteArrayLiteral("an older summary that must be replaced")));
        QCOMPARE(Summarizer::writeSummary(transcript, QStringLiteral("Guitar Lesson")), output);
        QCOMPARE(TestEnv::readFile(output), QStringLiteral("SUMMARY — Guitar Lesson\n───────────────────────\n\n"
                                                           "• First chosen sentence.\n\n• Second chosen sentence.\n\n"
                                                           "(2 key points, generated on-device by Vorlix)").toUtf8());
        QVERIFY(TestEnv::writeFile(dir.filePath(QStringLiteral("notes")), QByteArrayLiteral("A sentence long enough to keep.")));
        QCOMPARE(Summarizer::writeSummary(dir.filePath(QStringLiteral("notes")), QStringLiteral("T")), dir.filePath(QStringLiteral("notes.summary.txt")));
        QCOMPARE(TestEnv::filesContaining(dir.path(), QStringLiteral("vorlix")), QStringList());
    }

    void noSummaryForUnusableTranscripts() {
        QTemporaryDir dir(TestEnv::root() + QStringLiteral("/summary-XXXXXX"));
        QByteArray binary(4096, '\0');
        for (int i = 0; i < binary.size(); ++i)
            binary[i] = char((i * 131 + 7) % 256);
        // Empty, binary, a NUL inside text, and sentences too short to keep.
        for (const QByteArray &content : {QByteArray(), binary, QByteArrayLiteral("A perfectly fine sentence.\0 And more text here."), QByteArrayLiteral("Hi. Okay. Yes. Sure thing.")})
            QVERIFY(TestEnv::writeFile(dir.filePath(QStringLiteral("Talk.txt")), content) && !Summarizer::writeSummary(dir.filePath(QStringLiteral("Talk.txt")), QStringLiteral("Talk")));
        QDir(dir.path()).mkdir(QStringLiteral("folder.txt"));
        for (const QString &odd : {dir.filePath(QStringLiteral("absent.txt")), dir.filePath(QStringLiteral("folder.txt")), QString()})
            QCOMPARE(Summarizer::writeSummary(odd, QStringLiteral("x")), std::nullopt);
        QCOMPARE(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden), QStringList{QStringLiteral("Talk.txt")});
    }
};

VORLIX_TEST_SUITE(TranscriptsTest)
#include "TranscriptsTest.moc"
