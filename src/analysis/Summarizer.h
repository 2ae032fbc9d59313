#pragma once

#include <QSet>
#include <QString>
#include <QStringList>

#include <optional>

// Key points of a transcript without a language model: sentences are scored by how frequent
// their content words are across the whole text, and the best few are kept in their original order.
namespace Summarizer {

// The lower-case English words that never count as content.
const QSet<QString> &stopwords();

// Sentences ending at ".", "!" or "?" (line breaks read as spaces); pieces shorter than 13
// characters are dropped, which also discards most fragments of abbreviations and decimals.
QStringList splitSentences(const QString &text);

// The lower-case words of `sentence` with at least two characters (letters, marks and digits).
QStringList tokenize(const QString &sentence);

// The best sentences in document order: at most `maxSentences` when given, otherwise 3 for short
// texts and up to 7 for long ones.
QStringList summarize(const QString &text, std::optional<int> maxSentences = std::nullopt);

// The summary file's text for `title` and `points`.
QString summaryText(const QString &title, const QStringList &points);

// Writes "<transcript without extension>.summary.txt" and answers its path; nothing for an
// unreadable, binary or empty transcript.
std::optional<QString> writeSummary(const QString &transcriptPath, const QString &title);

} // namespace Summarizer
