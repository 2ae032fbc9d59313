#include "TestEnv.h"
#include "TestMain.h"

#include "analysis/Summarizer.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

namespace {
// n sentences that each carry content words of their own, so every one of them gets a score.
QString distinctSentences(int n) {
    QString text;
    for (int i = 0; i < n; ++i)
        text += QStringLiteral("Speaker mentions topic%1 and detail%1 here. ").arg(i);
    return text;
}
} // namespace

class SummarizerTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void splitSentences_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QStringList>("expected");

        QTest::newRow("12 characters are dropped, 13 kept")
            << QStringLiteral("Hello world. Hello worlds.") << QStringList{QStringLiteral("Hello worlds.")};
        QTest::newRow("question and exclamation marks end sentences")
            << QStringLiteral("Is this working now? Yes it works fine!")
            << QStringList{QStringLiteral("Is this working now?"), QStringLiteral("Yes it works fine!")};
        QTest::newRow("a Windows line end is one space")
            << QStringLiteral("One sentence here\r\ncontinues fine.\r\nAnd another one follows.")
            << QStringList{QStringLiteral("One sentence here continues fine."),
                           QStringLiteral("And another one follows.")};
        QTest::newRow("ellipsis fragments vanish")
            << QStringLiteral("Wait... this is how it ends!") << QStringList{QStringLiteral("this is how it ends!")};
        QTest::newRow("a 12-character tail is dropped")
            << QStringLiteral("A real sentence here. Tail is long") << QStringList{QStringLiteral("A real sentence here.")};
        QTest::newRow("a long unterminated tail stays")
            << QStringLiteral("A real sentence here. And the tail goes on")
            << QStringList{QStringLiteral("A real sentence here."), QStringLiteral("And the tail goes on")};
        QTest::newRow("combining accents count as one character")
            << QStringLiteral("Hello wo\u0301rld. Voila\u0300 re\u0301sume\u0301.")
            << QStringList{QStringLiteral("Voila\u0300 re\u0301sume\u0301.")};
        QTest::newRow("empty") << QString() << QStringList{};
        QTest::newRow("terminators only") << QStringLiteral("...!?. \n .") << QStringList{};
    }

    void splitSentences() {
        QFETCH(QString, text);
        QFETCH(QStringList, expected);
        QCOMPARE(Summarizer::splitSentences(text), expected);
    }

    void tokenize_data() {
        QTest::addColumn<QString>("sentence");
        QTest::addColumn<QStringList>("expected");

        QTest::newRow("punctuation splits, single characters go")
            << QStringLiteral("Don't STOP—the 2nd café's über-fast x")
            << QStringList{QStringLiteral("don"), QStringLiteral("stop"), QStringLiteral("the"), QStringLiteral("2nd"),
                           QStringLiteral("café"), QStringLiteral("über"), QStringLiteral("fast")};
        QTest::newRow("combining marks stay inside the word")
            << QStringLiteral("cafe\u0301 e\u0301 ok")
            << QStringList{QStringLiteral("cafe\u0301"), QStringLiteral("ok")};
    }

    void tokenize() {
        QFETCH(QString, sentence);
        QFETCH(QStringList, expected);
        QCOMPARE(Summarizer::tokenize(sentence), expected);
    }

    void numberOfPoints_data() {
        QTest::addColumn<int>("sentences");
        QTest::addColumn<int>("maxSentences"); // -1: no limit
        QTest::addColumn<int>("expected");

        QTest::newRow("2 sentences come back whole") << 2 << -1 << 2;
        QTest::newRow("2 sentences ignore a limit of 1") << 2 << 1 << 2;
        QTest::newRow("19") << 19 << -1 << 3;
        QTest::newRow("20") << 20 << -1 << 4;
        QTest::newRow("25") << 25 << -1 << 5;
        QTest::newRow("40") << 40 << -1 << 7;
        QTest::newRow("limit below the rule") << 40 << 2 << 2;
        QTest::newRow("limit above the rule") << 19 << 10 << 10;
        QTest::newRow("limit of zero") << 10 << 0 << 0;
    }

    void numberOfPoints() {
        QFETCH(int, sentences);
        QFETCH(int, maxSentences);
        QFETCH(int, expected);
        const QString text = distinctSentences(sentences);
        QCOMPARE(Summarizer::splitSentences(text).size(), sentences);
        const QStringList points =
            Summarizer::summarize(text, maxSentences < 0 ? std::nullopt : std::optional<int>(maxSentences));
        QCOMPARE(points.size(), expected);
    }

    void chosenPoints_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QStringList>("expected");
        // The "tempo" sentences share the most frequent words; they win and keep their order.
        QTest::newRow("frequent words, document order")
            << QStringLiteral("Tempo practice builds steady tempo control. Weather tomorrow looks cloudy overall. Lunch options include soup. "
                              "Metronome tempo practice keeps tempo honest. Parking downtown costs extra. Slow tempo practice first, then raise the tempo.")
            << QStringList{QStringLiteral("Tempo practice builds steady tempo control."), QStringLiteral("Metronome tempo practice keeps tempo honest."),
                           QStringLiteral("Slow tempo practice first, then raise the tempo.")};
        // Only two sentences carry content: the limit of three is not filled with stop-word lines.
        QTest::newRow("content-free sentences never chosen")
            << QStringLiteral("I was there and so were you. Amber basil cedar dune. We would not have been here. Ember fern grove heath.")
            << QStringList{QStringLiteral("Amber basil cedar dune."), QStringLiteral("Ember fern grove heath.")};

        // Every word once: every sentence scores the same, so the first three win.
        QTest::newRow("all tied") << QStringLiteral("Amber basil cedar dune. Ember fern grove heath. "
                                                    "Iris jade kelp lotus. Maple nutmeg olive pine. "
                                                    "Quill reed sage thyme.")
                                  << QStringList{QStringLiteral("Amber basil cedar dune."),
                                                 QStringLiteral("Ember fern grove heath."),
                                                 QStringLiteral("Iris jade kelp lotus.")};
        // The last sentence scores 1.0, the four others tie at 0.5: the earliest two of them join it.
        QTest::newRow("tie behind a leader") << QStringLiteral("Amber basil cedar dune. Ember fern grove heath. "
                                                               "Iris jade kelp lotus. Maple nutmeg olive pine. "
                                                               "Guitar guitar chord chord.")
                                             << QStringList{QStringLiteral("Amber basil cedar dune."),
                                                            QStringLiteral("Ember fern grove heath."),
                                                            QStringLiteral("Guitar guitar chord chord.")};
        // Four content words of frequency 1 beat one alone: the divisor is at least four.
        QTest::newRow("one rare word cannot win alone")
            << QStringLiteral("And so it was, zebra. Amber basil cedar dune. It was what it was, yak. "
                              "Ember fern grove heath. Iris jade kelp lotus. So it is, then, xylophone.")
            << QStringList{QStringLiteral("Amber basil cedar dune."), QStringLiteral("Ember fern grove heath."),
                           QStringLiteral("Iris jade kelp lotus.")};
        // Stop words only: the first sentences stand in.
        const QStringList five{QStringLiteral("I was there and so were you."), QStringLiteral("We would not have been here."),
                               QStringLiteral("Yeah, okay, um, it is what it is."), QStringLiteral("You know, they did, uh, well."),
                               QStringLiteral("X y z, a b c, and then some.")};
        QTest::newRow("more than three: the first three") << five.join(u' ') << five.mid(0, 3);
        QTest::newRow("exactly three: all") << five.mid(0, 3).join(u' ') << five.mid(0, 3);
        // "don't" splits into "don" and "t": both are stop words.
        QTest::newRow("contractions split into stop words")
            << QStringLiteral("I don't, you don't. ") + five.mid(0, 4).join(u' ')
            << QStringList{QStringLiteral("I don't, you don't."), five.at(0), five.at(1)};
    }

    void chosenPoints() {
        QFETCH(QString, text);
        QFETCH(QStringList, expected);
        QCOMPARE(Summarizer::summarize(text), expected);
    }

    void ruleLength_data() {
        QTest::addColumn<QString>("title");
        QTest::addColumn<int>("rule");
        QTest::newRow("empty") << QString() << 10;
        QTest::newRow("50") << QString(50, u'x') << 60;
        QTest::newRow("60") << QString(60, u'x') << 60;
        QTest::newRow("emoji count once") << QStringLiteral("\U0001F3B8 Solo") << 16;
    }

    void ruleLength() {
        QFETCH(QString, title);
        QFETCH(int, rule);
        const QStringList lines = Summarizer::summaryText(title, {QStringLiteral("Point.")}).split(u'\n');
        QCOMPARE(lines.at(0), QStringLiteral("SUMMARY — ") + title);
        QCOMPARE(lines.at(1), QString(rule, QChar(0x2500)));
    }

    void writeSummaryWritesTheFile() {
        QTemporaryDir dir(TestEnv::root() + QStringLiteral("/summary-XXXXXX"));
        const QString transcript = dir.path() + QStringLiteral("/Guitar Lesson.txt");
        QVERIFY(TestEnv::writeFile(transcript, QByteArrayLiteral(" First chosen sentence.\n Second chosen sentence.\n")));
        const QString output = dir.path() + QStringLiteral("/Guitar Lesson.summary.txt");
        QVERIFY(TestEnv::writeFile(output, QByteArrayLiteral("an older summary that must be replaced")));

        const std::optional<QString> written = Summarizer::writeSummary(transcript, QStringLiteral("Guitar Lesson"));
        QVERIFY(written);
        QCOMPARE(*written, output);
        QCOMPARE(TestEnv::readFile(output), QStringLiteral("SUMMARY — Guitar Lesson\n"
                                                 "───────────────────────\n\n"
                                                 "• First chosen sentence.\n\n"
                                                 "• Second chosen sentence.\n\n"
                                                 "(2 key points, generated on-device by Vorlix)")
                                      .toUtf8());
        QCOMPARE(TestEnv::filesContaining(dir.path(), QStringLiteral("vorlix")), QStringList());
    }

    void summaryFileName_data() {
        QTest::addColumn<QString>("transcript");
        QTest::addColumn<QString>("summary");
        QTest::newRow("dots in the name") << QStringLiteral("v1.2 Talk.final.txt") << QStringLiteral("v1.2 Talk.final.summary.txt");
        QTest::newRow("no extension") << QStringLiteral("notes") << QStringLiteral("notes.summary.txt");
    }

    void summaryFileName() {
        QFETCH(QString, transcript);
        QFETCH(QString, summary);
        QTemporaryDir dir(TestEnv::root() + QStringLiteral("/summary-XXXXXX"));
        QVERIFY(TestEnv::writeFile(dir.filePath(transcript), QByteArrayLiteral("A sentence long enough to keep.")));
        QCOMPARE(Summarizer::writeSummary(dir.filePath(transcript), QStringLiteral("T")), dir.filePath(summary));
        QVERIFY(QFileInfo::exists(dir.filePath(summary)));
    }

    void noSummaryForUnusableTranscripts_data() {
        QTest::addColumn<QByteArray>("content");
        QByteArray random(4096, '\0');
        for (int i = 0; i < random.size(); ++i)
            random[i] = char((i * 131 + 7) % 256);
        QTest::newRow("empty") << QByteArray();
        QTest::newRow("binary, not UTF-8") << random;
        QTest::newRow("text with a NUL in it") << QByteArrayLiteral("A perfectly fine sentence.\0 And more text here.");
        QTest::newRow("only short fragments") << QByteArrayLiteral("Hi. Okay. Yes. Sure thing.");
    }

    void noSummaryForUnusableTranscripts() {
        QFETCH(QByteArray, content);
        QTemporaryDir dir(TestEnv::root() + QStringLiteral("/summary-XXXXXX"));
        const QString transcript = dir.filePath(QStringLiteral("Talk.txt"));
        QVERIFY(TestEnv::writeFile(transcript, content));
        QCOMPARE(Summarizer::writeSummary(transcript, QStringLiteral("Talk")), std::nullopt);
        QCOMPARE(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden), QStringList{QStringLiteral("Talk.txt")});
    }

    void noSummaryForMissingOrOddPaths() {
        QTemporaryDir dir(TestEnv::root() + QStringLiteral("/summary-XXXXXX"));
        QCOMPARE(Summarizer::writeSummary(dir.filePath(QStringLiteral("absent.txt")), QStringLiteral("x")), std::nullopt);
        QDir(dir.path()).mkdir(QStringLiteral("folder.txt"));
        QCOMPARE(Summarizer::writeSummary(dir.filePath(QStringLiteral("folder.txt")), QStringLiteral("x")), std::nullopt);
        QCOMPARE(Summarizer::writeSummary(QString(), QStringLiteral("x")), std::nullopt);
        QVERIFY(TestEnv::filesContaining(dir.path(), QStringLiteral("summary")).isEmpty());
    }
};

VORLIX_TEST_SUITE(SummarizerTest)
#include "SummarizerTest.moc"
