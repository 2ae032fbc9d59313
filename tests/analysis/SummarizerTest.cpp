#include "TestEnv.h"
#include "TestMain.h"

#include "analysis/Summarizer.h"

#include <QDir>
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

QStringList list(std::initializer_list<const char *> items) {
    QStringList out;
    for (const char *item : items)
        out << QString::fromUtf8(item);
    return out;
}

} // namespace

class SummarizerTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
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

VORLIX_TEST_SUITE(SummarizerTest)
#include "SummarizerTest.moc"
