#include "analysis/Summarizer.h"

#include "core/TextTrim.h"

#include "analysis/Transcriber.h"
#include "core/Utf8.h"

#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QSaveFile>
#include <QTextBoundaryFinder>

#include <algorithm>
#include <utility>
#include <vector>

namespace Summarizer {
namespace {

constexpr qsizetype kMinSentenceLength = 13;
constexpr qsizetype kMinTokenLength = 2;
constexpr int kShortTextPoints = 3;
constexpr int kMaxPoints = 7;
constexpr int kMaxRuleLength = 60;
// Transcripts are text; anything this large is not one.
constexpr qint64 kMaxTranscriptBytes = 64 * 1024 * 1024;

// Characters as a reader counts them (grapheme clusters), so "é" written with a combining
// accent is one character, like its precomposed form.
qsizetype characterCount(QStringView text) {
    const bool simple = std::all_of(text.begin(), text.end(), [](QChar c) { return c.unicode() < 0x300; });
    if (simple)
        return text.size();
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text.data(), text.size());
    qsizetype count = 0;
    while (finder.toNextBoundary() != -1)
        ++count;
    return count;
}


void keepIfLongEnough(QStringList &sentences, QStringView piece) {
    const QStringView trimmed = trimSpacesAndTabs(piece);
    // Cheap test first: a text never has more characters than UTF-16 units.
    if (trimmed.size() >= kMinSentenceLength && characterCount(trimmed) >= kMinSentenceLength)
        sentences.append(trimmed.toString());
}

bool isWordCharacter(char32_t c) {
    if (QChar::isLetterOrNumber(c))
        return true;
    switch (QChar::category(c)) {
    case QChar::Mark_NonSpacing:
    case QChar::Mark_SpacingCombining:
    case QChar::Mark_Enclosing:
        return true;
    default:
        return false;
    }
}

bool isMark(char32_t c) {
    const QChar::Category category = QChar::category(c);
    return category == QChar::Mark_NonSpacing || category == QChar::Mark_SpacingCombining ||
           category == QChar::Mark_Enclosing;
}

} // namespace

const QSet<QString> &stopwords() {
    static const QSet<QString> words = [] {
        const char *const list[] = {
            "a", "an", "the", "and", "or", "but", "so", "of", "to", "in", "on", "at", "for", "with", "by", "from",
            "up", "down", "out", "off", "over", "under", "again", "i", "you", "he", "she", "it", "we", "they",
            "me", "him", "her", "us", "them", "my", "your", "his", "its", "our", "their", "this", "that", "these",
            "those", "is", "am", "are", "was", "were", "be", "been", "being", "have", "has", "had", "do", "does",
            "did", "will", "would", "can", "could", "should", "shall", "may", "might", "must", "not", "no", "nor",
            "as", "if", "then", "than", "too", "very", "just", "about", "into", "through", "there", "here", "when",
            "where", "why", "how", "all", "any", "both", "each", "few", "more", "most", "some", "such", "what",
            "which", "who", "whom", "because", "while", "during", "before", "after", "s", "t", "don", "now",
            "also", "like", "get", "got", "one", "really", "know", "going", "yeah", "okay", "um", "uh", "well",
            "gonna", "thing", "things"};
        QSet<QString> set;
        set.reserve(int(std::size(list)));
        for (const char *word : list)
            set.insert(QString::fromLatin1(word));
        return set;
    }();
    return words;
}

QStringList splitSentences(const QString &text) {
    // Line breaks read as spaces; a Windows line end counts as one break, not two.
    QString flat;
    flat.reserve(text.size());
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text.at(i);
        if (c == u'\r' && i + 1 < text.size() && text.at(i + 1) == u'\n')
            continue;
        flat.append(c == u'\n' || c == u'\r' ? QChar(u' ') : c);
    }

    QStringList sentences;
    const QStringView view(flat);
    qsizetype start = 0;
    for (qsizetype i = 0; i < view.size(); ++i) {
        const QChar c = view[i];
        if (c == u'.' || c == u'!' || c == u'?') {
            keepIfLongEnough(sentences, view.sliced(start, i + 1 - start));
            start = i + 1;
        }
    }
    keepIfLongEnough(sentences, view.sliced(start));
    return sentences;
}

QStringList tokenize(const QString &sentence) {
    const QString lower = sentence.toLower();
    QStringList tokens;
    qsizetype pieceStart = -1;
    qsizetype pieceLength = 0; // in characters: combining marks belong to the letter before them
    auto finish = [&](qsizetype end) {
        if (pieceStart >= 0 && pieceLength >= kMinTokenLength)
            tokens.append(lower.mid(pieceStart, end - pieceStart));
        pieceStart = -1;
        pieceLength = 0;
    };
    for (qsizetype i = 0; i < lower.size();) {
        char32_t c = lower.at(i).unicode();
        qsizetype width = 1;
        if (lower.at(i).isHighSurrogate() && i + 1 < lower.size() && lower.at(i + 1).isLowSurrogate()) {
            c = QChar::surrogateToUcs4(lower.at(i), lower.at(i + 1));
            width = 2;
        }
        if (isWordCharacter(c)) {
            if (pieceStart < 0)
                pieceStart = i;
            if (!isMark(c) || pieceLength == 0)
                ++pieceLength;
        } else {
            finish(i);
        }
        i += width;
    }
    finish(lower.size());
    return tokens;
}

QStringList summarize(const QString &text, std::optional<int> maxSentences) {
    const QStringList sentences = splitSentences(text);
    const qsizetype n = sentences.size();
    if (n < 3)
        return sentences;

    const QSet<QString> &stop = stopwords();
    std::vector<QStringList> content(static_cast<size_t>(n));
    QHash<QString, double> frequency;
    for (qsizetype i = 0; i < n; ++i) {
        QStringList &words = content[size_t(i)];
        for (QString &token : tokenize(sentences.at(i))) {
            if (stop.contains(token))
                continue;
            frequency[token] += 1.0;
            words.append(std::move(token));
        }
    }
    if (frequency.isEmpty())
        return n > kShortTextPoints ? sentences.first(kShortTextPoints) : sentences;

    double highest = 0.0;
    for (const double count : std::as_const(frequency))
        highest = std::max(highest, count);
    for (double &count : frequency)
        count /= highest;

    std::vector<std::pair<qsizetype, double>> scored;
    scored.reserve(size_t(n));
    for (qsizetype i = 0; i < n; ++i) {
        const QStringList &words = content[size_t(i)];
        if (words.isEmpty())
            continue;
        double sum = 0.0;
        for (const QString &word : words)
            sum += frequency.value(word);
        // Short sentences are divided as if they had four words, so one rare word cannot win alone.
        scored.emplace_back(i, sum / double(std::max<qsizetype>(words.size(), 4)));
    }

    qsizetype keep = 0;
    if (maxSentences)
        keep = std::max(0, *maxSentences);
    else
        keep = n < 20 ? kShortTextPoints : std::min<qsizetype>(n / 5, kMaxPoints);

    std::stable_sort(scored.begin(), scored.end(), [](const auto &a, const auto &b) { return a.second > b.second; });
    if (qsizetype(scored.size()) > keep)
        scored.resize(size_t(keep));
    std::sort(scored.begin(), scored.end(), [](const auto &a, const auto &b) { return a.first < b.first; });

    QStringList chosen;
    chosen.reserve(qsizetype(scored.size()));
    for (const auto &entry : scored)
        chosen.append(sentences.at(entry.first));
    return chosen;
}

QString summaryText(const QString &title, const QStringList &points) {
    const qsizetype ruleLength = std::min<qsizetype>(characterCount(title) + 10, kMaxRuleLength);
    QString text = QStringLiteral("SUMMARY — ") + title + u'\n' + QString(ruleLength, QChar(0x2500)) +
                   QStringLiteral("\n\n");
    for (qsizetype i = 0; i < points.size(); ++i) {
        if (i > 0)
            text += QStringLiteral("\n\n");
        text += QStringLiteral("• ") + points.at(i);
    }
    text += QStringLiteral("\n\n(") + QString::number(points.size()) +
            QStringLiteral(" key points, generated on-device by Vorlix)");
    return text;
}

std::optional<QString> writeSummary(const QString &transcriptPath, const QString &title) {
    if (transcriptPath.isEmpty())
        return std::nullopt;
    QFile in(transcriptPath);
    if (!in.open(QIODevice::ReadOnly) || in.size() > kMaxTranscriptBytes)
        return std::nullopt;
    const std::optional<QString> text = decodeUtf8Strict(in.read(kMaxTranscriptBytes));
    // Valid UTF-8 with NUL bytes in it is a binary file, not a transcript.
    if (!text || text->contains(QChar(0)) || text->trimmed().isEmpty())
        return std::nullopt;

    const QStringList points = summarize(*text);
    if (points.isEmpty())
        return std::nullopt;

    const QString output = Transcriber::pathWithoutExtension(transcriptPath) + QStringLiteral(".summary.txt");
    QSaveFile out(output);
    if (out.open(QIODevice::WriteOnly)) {
        out.write(summaryText(title, points).toUtf8());
        out.commit();
    }
    if (!QFileInfo::exists(output))
        return std::nullopt;
    return output;
}

} // namespace Summarizer
