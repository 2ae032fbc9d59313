// Times the summarizer on a two-hour transcript (about 20,000 words) against a bare baseline in
// the same run: lower-casing the text and splitting it into words with one regular expression.
#include "TestEnv.h"

#include "analysis/Summarizer.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QRegularExpression>
#include <QTextStream>

#include <algorithm>
#include <cstdio>
#include <random>
#include <vector>

namespace {

// Spoken-style text: half the words are stop words, the rest come from a Zipf-like vocabulary of
// 3,000 words, in sentences of 6 to 25 words with the odd question and exclamation.
QString makeTranscript(int words) {
    std::mt19937 rng(20261122);
    const QStringList fillers{QStringLiteral("the"), QStringLiteral("and"), QStringLiteral("so"), QStringLiteral("you"),
                              QStringLiteral("it"),  QStringLiteral("is"),  QStringLiteral("that"), QStringLiteral("we"),
                              QStringLiteral("to"),  QStringLiteral("of"),  QStringLiteral("like"), QStringLiteral("really"),
                              QStringLiteral("just"), QStringLiteral("this"), QStringLiteral("was"), QStringLiteral("um")};
    QStringList vocabulary;
    const QString letters = QStringLiteral("aeioubcdfghklmnprstvz");
    std::uniform_int_distribution<int> letter(0, int(letters.size()) - 1);
    std::uniform_int_distribution<int> length(3, 10);
    for (int i = 0; i < 3000; ++i) {
        QString w;
        for (int n = length(rng); n > 0; --n)
            w += letters.at(letter(rng));
        vocabulary.append(w);
    }
    std::vector<double> weights;
    for (int i = 0; i < vocabulary.size(); ++i)
        weights.push_back(1.0 / (i + 1));
    std::discrete_distribution<int> pick(weights.begin(), weights.end());
    std::uniform_int_distribution<int> filler(0, int(fillers.size()) - 1);
    std::uniform_int_distribution<int> sentenceLength(6, 25);
    std::uniform_int_distribution<int> coin(0, 99);

    QString text;
    int written = 0;
    while (written < words) {
        const int n = sentenceLength(rng);
        for (int i = 0; i < n; ++i) {
            QString w = coin(rng) < 50 ? fillers.at(filler(rng)) : vocabulary.at(pick(rng));
            if (i == 0)
                w[0] = w[0].toUpper();
            text += w;
            text += i + 1 < n ? (coin(rng) < 8 ? QStringLiteral(", ") : QStringLiteral(" ")) : QString();
        }
        const int end = coin(rng);
        text += end < 85 ? u'.' : end < 95 ? u'?' : u'!';
        text += coin(rng) < 30 ? u'\n' : u' ';
        written += n;
    }
    return text;
}

template <typename F> double medianMs(F &&work, int runs) {
    std::vector<double> times;
    for (int i = 0; i < runs; ++i) {
        QElapsedTimer clock;
        clock.start();
        work();
        times.push_back(double(clock.nsecsElapsed()) / 1e6);
    }
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

} // namespace

int main(int argc, char **argv) {
    TestEnv::setUp();
    QCoreApplication app(argc, argv);

    const QString text = makeTranscript(20000);
    const int words = int(text.split(QRegularExpression(QStringLiteral("\\s+")), Qt::SkipEmptyParts).size());
    const auto sentences = Summarizer::splitSentences(text).size();

    qsizetype points = 0;
    const double summarize = medianMs([&] { points = Summarizer::summarize(text).size(); }, 15);

    const QRegularExpression nonWord(QStringLiteral("[^\\w]+"), QRegularExpression::UseUnicodePropertiesOption);
    qsizetype tokens = 0;
    const double baseline = medianMs([&] { tokens = text.toLower().split(nonWord, Qt::SkipEmptyParts).size(); }, 15);

    const QString transcript = TestEnv::root() + QStringLiteral("/Two Hour Talk.txt");
    {
        QFile f(transcript);
        if (!f.open(QIODevice::WriteOnly))
            return 1;
        f.write(text.toUtf8());
    }
    bool wrote = true;
    const double file = medianMs([&] { wrote = wrote && Summarizer::writeSummary(transcript, QStringLiteral("Two Hour Talk")).has_value(); }, 15);

    std::printf("transcript: %d words, %lld sentences, %lld tokens; %lld key points\n", words,
                static_cast<long long>(sentences), static_cast<long long>(tokens), static_cast<long long>(points));
    std::printf("summarize_ms %.2f (target < 50)\n", summarize);
    std::printf("write_summary_ms %.2f\n", file);
    std::printf("baseline_regex_split_ms %.2f\n", baseline);
    std::printf("summarize_vs_baseline %.2f\n", summarize / baseline);
    return wrote && points > 0 ? 0 : 1;
}
