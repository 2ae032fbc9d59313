#include "queue/BatchText.h"

#include <QRegularExpression>
#include <QSet>

namespace BatchView {

QStringList extractURLs(const QString &text)
{
    // Unicode-aware \s: a no-break, ideographic or line-separator space ends a link too.
    static const QRegularExpression linkPattern(QStringLiteral("https?://[^\\s<>\"']+"),
                                                QRegularExpression::UseUnicodePropertiesOption);
    if (!linkPattern.isValid())
        return {};

    static const QString trailing = QStringLiteral(".,;:)]}!?");
    QStringList found;
    QSet<QString> seen;
    auto it = linkPattern.globalMatch(text);
    while (it.hasNext()) {
        QString link = it.next().captured(0);
        // Punctuation that ends a sentence or closes a bracket is not part of the link, even
        // when the link has its own opening bracket.
        while (!link.isEmpty() && trailing.contains(link.back()))
            link.chop(1);
        if (link.isEmpty() || seen.contains(link))
            continue;
        seen.insert(link);
        found.append(link);
    }
    return found;
}

} // namespace BatchView
