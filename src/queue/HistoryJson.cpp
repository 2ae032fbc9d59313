#include "queue/HistoryJson.h"

#include <QIODevice>

#include <charconv>
#include <functional>
#include <cstring>

namespace {

// ---------------------------------------------------------------------------------------------
// Writing

constexpr char hexDigits[] = "0123456789ABCDEF";

// A byte buffer written through a raw pointer; callers reserve before each entry. With a sink,
// full chunks are handed on as they fill, so a large history never sits in memory twice.
class Out {
public:
    using Sink = std::function<bool(QByteArrayView)>;
    explicit Out(Sink sink = {}) : m_sink(std::move(sink)) {}

    void reserveMore(qsizetype n) {
        if (m_sink && m_pos >= chunkSize)
            flush();
        if (m_pos + n <= m_bytes.size())
            return;
        m_bytes.resize(std::max(m_pos + n, m_bytes.size() * 2));
    }
    void put(char c) { m_bytes.data()[m_pos++] = c; }
    void put(const char *s, qsizetype n) {
        std::memcpy(m_bytes.data() + m_pos, s, size_t(n));
        m_pos += n;
    }
    template <qsizetype N> void lit(const char (&s)[N]) { put(s, N - 1); }

    // Without a sink: everything written. With one: the sink's verdict on all chunks.
    QByteArray finish() {
        m_bytes.resize(m_pos);
        return std::move(m_bytes);
    }
    bool finishToSink() {
        flush();
        return m_ok;
    }

private:
    static constexpr qsizetype chunkSize = 1 << 20;

    void flush() {
        if (m_ok && m_pos > 0)
            m_ok = m_sink(QByteArrayView(m_bytes.constData(), m_pos));
        m_pos = 0;
    }

    Sink m_sink;
    QByteArray m_bytes;
    qsizetype m_pos = 0;
    bool m_ok = true;
};

void putEscapeU(Out &out, char16_t u) {
    out.lit("\\u");
    out.put(hexDigits[(u >> 12) & 0xf]);
    out.put(hexDigits[(u >> 8) & 0xf]);
    out.put(hexDigits[(u >> 4) & 0xf]);
    out.put(hexDigits[u & 0xf]);
}

// Worst case 6 bytes per UTF-16 unit (a lone surrogate written as \uXXXX) plus the quotes.
qsizetype maxStringBytes(const QString &s) { return s.size() * 6 + 2; }

void putString(Out &out, const QString &text) {
    out.put('"');
    const char16_t *p = reinterpret_cast<const char16_t *>(text.constData());
    const char16_t *end = p + text.size();
    while (p < end) {
        const char16_t c = *p++;
        if (c < 0x80) {
            switch (c) {
            case u'"': out.lit("\\\""); break;
            case u'\\': out.lit("\\\\"); break;
            case u'\n': out.lit("\\n"); break;
            case u'\r': out.lit("\\r"); break;
            case u'\t': out.lit("\\t"); break;
            case u'\b': out.lit("\\b"); break;
            case u'\f': out.lit("\\f"); break;
            default:
                if (c < 0x20)
                    putEscapeU(out, c);
                else
                    out.put(char(c));
            }
        } else if (c < 0x800) {
            out.put(char(0xC0 | (c >> 6)));
            out.put(char(0x80 | (c & 0x3F)));
        } else if (QChar::isHighSurrogate(c) && p < end && QChar::isLowSurrogate(*p)) {
            const char32_t cp = QChar::surrogateToUcs4(c, *p++);
            out.put(char(0xF0 | (cp >> 18)));
            out.put(char(0x80 | ((cp >> 12) & 0x3F)));
            out.put(char(0x80 | ((cp >> 6) & 0x3F)));
            out.put(char(0x80 | (cp & 0x3F)));
        } else if (QChar::isSurrogate(c)) {
            // Not representable in UTF-8; the escape keeps the text exactly as it was.
            putEscapeU(out, c);
        } else {
            out.put(char(0xE0 | (c >> 12)));
            out.put(char(0x80 | ((c >> 6) & 0x3F)));
            out.put(char(0x80 | (c & 0x3F)));
        }
    }
    out.put('"');
}

void putUuid(Out &out, const QUuid &id) {
    // Canonical upper-case text, without going through two temporary strings per entry.
    const QByteArray bytes = id.toRfc4122();
    out.put('"');
    for (int i = 0; i < 16; ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10)
            out.put('-');
        const auto b = static_cast<unsigned char>(bytes[i]);
        out.put(hexDigits[b >> 4]);
        out.put(hexDigits[b & 0xf]);
    }
    out.put('"');
}

void putSeconds(Out &out, const QDateTime &date) {
    // Whole milliseconds, written as seconds without trailing zeros: "700000000.5", "-86400".
    const qint64 ms = date.toMSecsSinceEpoch() - HistoryEntry::referenceEpochMs;
    const quint64 magnitude = ms < 0 ? quint64(0) - quint64(ms) : quint64(ms);
    if (ms < 0)
        out.put('-');
    char digits[24];
    const auto r = std::to_chars(digits, digits + sizeof digits, magnitude / 1000);
    out.put(digits, r.ptr - digits);
    unsigned fraction = unsigned(magnitude % 1000);
    if (fraction) {
        out.put('.');
        char frac[3] = {char('0' + fraction / 100), char('0' + fraction / 10 % 10), char('0' + fraction % 10)};
        int n = 3;
        while (frac[n - 1] == '0')
            --n;
        out.put(frac, n);
    }
}

// ---------------------------------------------------------------------------------------------
// Reading

// Nesting allowed inside unknown values; deeper input is refused rather than risking the stack.
constexpr int maxDepth = 64;

class Reader {
public:
    explicit Reader(QByteArrayView json) : p(json.data()), end(json.data() + json.size()) {}

    std::optional<QList<HistoryEntry>> document() {
        QList<HistoryEntry> entries;
        skipSpace();
        if (!take('['))
            return std::nullopt;
        skipSpace();
        if (!take(']')) {
            do {
                skipSpace();
                HistoryEntry e;
                if (!entry(e))
                    return std::nullopt;
                entries.append(std::move(e));
                skipSpace();
            } while (take(','));
            if (!take(']'))
                return std::nullopt;
        }
        skipSpace();
        if (p != end)
            return std::nullopt;
        return entries;
    }

private:
    enum Field : unsigned {
        fId = 1, fUrl = 2, fTitle = 4, fSource = 8, fCategory = 16, fMode = 32, fDate = 64, fArchived = 128,
        allRequired = 255
    };

    const char *p;
    const char *end;
    QByteArray keyScratch;

    void skipSpace() {
        while (p < end && (*p == ' ' || *p == '\n' || *p == '\r' || *p == '\t'))
            ++p;
    }
    bool take(char c) {
        if (p < end && *p == c) {
            ++p;
            return true;
        }
        return false;
    }
    bool takeWord(const char *word, size_t n) {
        if (size_t(end - p) < n || std::memcmp(p, word, n) != 0)
            return false;
        p += n;
        return true;
    }

    // Length of the valid UTF-8 sequence starting at p (a byte >= 0x80), or 0.
    qsizetype utf8Sequence(const char *s) const {
        const auto b0 = static_cast<unsigned char>(s[0]);
        const auto at = [&](qsizetype i) { return s + i < end ? static_cast<unsigned char>(s[i]) : 0u; };
        const auto cont = [](unsigned b) { return (b & 0xC0) == 0x80; };
        if (b0 >= 0xC2 && b0 <= 0xDF)
            return cont(at(1)) ? 2 : 0;
        if (b0 >= 0xE0 && b0 <= 0xEF) {
            const unsigned b1 = at(1);
            if (!cont(b1) || !cont(at(2)))
                return 0;
            if ((b0 == 0xE0 && b1 < 0xA0) || (b0 == 0xED && b1 >= 0xA0)) // overlong, surrogate
                return 0;
            return 3;
        }
        if (b0 >= 0xF0 && b0 <= 0xF4) {
            const unsigned b1 = at(1);
            if (!cont(b1) || !cont(at(2)) || !cont(at(3)))
                return 0;
            if ((b0 == 0xF0 && b1 < 0x90) || (b0 == 0xF4 && b1 >= 0x90)) // overlong, beyond U+10FFFF
                return 0;
            return 4;
        }
        return 0;
    }

    bool hex4(char16_t &out) {
        if (end - p < 4)
            return false;
        unsigned v = 0;
        for (int i = 0; i < 4; ++i) {
            const char c = *p++;
            v <<= 4;
            if (c >= '0' && c <= '9')
                v |= unsigned(c - '0');
            else if (c >= 'a' && c <= 'f')
                v |= unsigned(c - 'a' + 10);
            else if (c >= 'A' && c <= 'F')
                v |= unsigned(c - 'A' + 10);
            else
                return false;
        }
        out = char16_t(v);
        return true;
    }

    // A string after its opening quote; `out` may be null to validate and skip. With `raw`, a
    // string without escapes is only pointed at (raw set, out untouched); one with escapes is
    // decoded into `out` and leaves raw null.
    bool string(QString *out, QByteArrayView *raw = nullptr) {
        const char *segment = p;
        QString built;
        bool escaped = false;
        for (;;) {
            if (p >= end)
                return false;
            const auto c = static_cast<unsigned char>(*p);
            if (c == '"') {
                if (!escaped) {
                    if (raw)
                        *raw = QByteArrayView(segment, p - segment);
                    else if (out)
                        *out = QString::fromUtf8(segment, p - segment);
                } else if (out) {
                    built += QString::fromUtf8(segment, p - segment);
                    *out = std::move(built);
                }
                ++p;
                return true;
            }
            if (c == '\\') {
                if (out)
                    built += QString::fromUtf8(segment, p - segment);
                escaped = true;
                if (++p >= end)
                    return false;
                char16_t u = 0;
                switch (*p++) {
                case '"': u = u'"'; break;
                case '\\': u = u'\\'; break;
                case '/': u = u'/'; break;
                case 'b': u = u'\b'; break;
                case 'f': u = u'\f'; break;
                case 'n': u = u'\n'; break;
                case 'r': u = u'\r'; break;
                case 't': u = u'\t'; break;
                case 'u':
                    if (!hex4(u))
                        return false;
                    break;
                default: return false;
                }
                if (out)
                    built += QChar(u);
                segment = p;
            } else if (c < 0x20) {
                return false;
            } else if (c < 0x80) {
                ++p;
            } else {
                const qsizetype n = utf8Sequence(p);
                if (n == 0)
                    return false;
                p += n;
            }
        }
    }

    // A number in JSON's grammar.
    bool number(double *out) {
        const char *start = p;
        take('-');
        if (take('0')) {
        } else if (p < end && *p >= '1' && *p <= '9') {
            while (p < end && *p >= '0' && *p <= '9')
                ++p;
        } else {
            return false;
        }
        if (take('.')) {
            if (!(p < end && *p >= '0' && *p <= '9'))
                return false;
            while (p < end && *p >= '0' && *p <= '9')
                ++p;
        }
        if (p < end && (*p == 'e' || *p == 'E')) {
            ++p;
            if (!take('+'))
                take('-');
            if (!(p < end && *p >= '0' && *p <= '9'))
                return false;
            while (p < end && *p >= '0' && *p <= '9')
                ++p;
        }
        double value = 0;
        const auto r = std::from_chars(start, p, value);
        if (r.ec != std::errc() || r.ptr != p)
            return false;
        if (out)
            *out = value;
        return true;
    }

    bool skipValue(int depth) {
        if (depth > maxDepth || p >= end)
            return false;
        switch (*p) {
        case '"': ++p; return string(nullptr);
        case 't': return takeWord("true", 4);
        case 'f': return takeWord("false", 5);
        case 'n': return takeWord("null", 4);
        case '[':
            ++p;
            skipSpace();
            if (take(']'))
                return true;
            do {
                skipSpace();
                if (!skipValue(depth + 1))
                    return false;
                skipSpace();
            } while (take(','));
            return take(']');
        case '{':
            ++p;
            skipSpace();
            if (take('}'))
                return true;
            do {
                skipSpace();
                if (!take('"') || !string(nullptr))
                    return false;
                skipSpace();
                if (!take(':'))
                    return false;
                skipSpace();
                if (!skipValue(depth + 1))
                    return false;
                skipSpace();
            } while (take(','));
            return take('}');
        default: return number(nullptr);
        }
    }

    bool stringValue(QString &out) { return take('"') && string(&out); }

    bool entry(HistoryEntry &e) {
        if (!take('{'))
            return false;
        unsigned seen = 0;
        skipSpace();
        if (!take('}')) {
            do {
                skipSpace();
                QByteArrayView key;
                QString decodedKey;
                if (!take('"') || !string(&decodedKey, &key))
                    return false;
                if (key.isNull()) { // the key had escapes
                    keyScratch = decodedKey.toUtf8();
                    key = keyScratch;
                }
                skipSpace();
                if (!take(':'))
                    return false;
                skipSpace();
                if (!field(e, key, seen))
                    return false;
                skipSpace();
            } while (take(','));
            if (!take('}'))
                return false;
        }
        return (seen & allRequired) == allRequired;
    }

    bool field(HistoryEntry &e, QByteArrayView key, unsigned &seen) {
        const auto is = [&key](const char *name) { return key == QByteArrayView(name); };
        const auto text = [this, &e](void (HistoryEntry::*set)(const QString &)) {
            QString value;
            if (!stringValue(value))
                return false;
            (e.*set)(value);
            return true;
        };
        if (is("id")) {
            QByteArrayView raw;
            QString decoded;
            if (!take('"') || !string(&decoded, &raw))
                return false;
            const auto id = raw.isNull() ? HistoryEntry::parseId(decoded)
                                         : HistoryEntry::parseId(QUtf8StringView(raw.data(), raw.size()));
            if (!id)
                return false;
            e.setId(*id);
            seen |= fId;
        } else if (is("url")) {
            seen |= fUrl;
            return text(&HistoryEntry::setUrl);
        } else if (is("title")) {
            seen |= fTitle;
            return text(&HistoryEntry::setTitle);
        } else if (is("source")) {
            seen |= fSource;
            return text(&HistoryEntry::setSource);
        } else if (is("category")) {
            seen |= fCategory;
            return text(&HistoryEntry::setCategory);
        } else if (is("mode")) {
            seen |= fMode;
            return text(&HistoryEntry::setMode);
        } else if (is("date")) {
            double seconds = 0;
            if (!number(&seconds))
                return false;
            e.setDate(HistoryEntry::fromReferenceSeconds(seconds));
            seen |= fDate;
        } else if (is("archived")) {
            if (takeWord("true", 4))
                e.setArchived(true);
            else if (takeWord("false", 5))
                e.setArchived(false);
            else
                return false;
            seen |= fArchived;
        } else if (is("filePath")) {
            if (takeWord("null", 4)) {
                e.setFilePath(std::nullopt);
                return true;
            }
            QString path;
            if (!stringValue(path))
                return false;
            e.setFilePath(std::move(path));
        } else {
            return skipValue(1);
        }
        return true;
    }
};

} // namespace

namespace HistoryJson {

namespace {
void writeAll(Out &out, const QList<HistoryEntry> &entries) {
    out.reserveMore(8);
    out.put('[');
    bool first = true;
    for (const HistoryEntry &e : entries) {
        out.reserveMore(256 + maxStringBytes(e.url()) + maxStringBytes(e.title()) + maxStringBytes(e.source()) +
                        maxStringBytes(e.category()) + maxStringBytes(e.mode()) +
                        (e.filePath() ? maxStringBytes(*e.filePath()) : 0));
        if (first)
            out.lit("\n  {\n    \"id\" : ");
        else
            out.lit(",\n  {\n    \"id\" : ");
        first = false;
        putUuid(out, e.id());
        out.lit(",\n    \"url\" : ");
        putString(out, e.url());
        out.lit(",\n    \"title\" : ");
        putString(out, e.title());
        out.lit(",\n    \"source\" : ");
        putString(out, e.source());
        out.lit(",\n    \"category\" : ");
        putString(out, e.category());
        out.lit(",\n    \"mode\" : ");
        putString(out, e.mode());
        out.lit(",\n    \"date\" : ");
        putSeconds(out, e.date());
        if (e.filePath()) {
            out.lit(",\n    \"filePath\" : ");
            putString(out, *e.filePath());
        }
        if (e.archived())
            out.lit(",\n    \"archived\" : true\n  }");
        else
            out.lit(",\n    \"archived\" : false\n  }");
    }
    out.reserveMore(4);
    if (entries.isEmpty())
        out.lit("]\n");
    else
        out.lit("\n]\n");
}
} // namespace

QByteArray encode(const QList<HistoryEntry> &entries) {
    Out out;
    out.reserveMore(qsizetype(entries.size()) * 420 + 8);
    writeAll(out, entries);
    return out.finish();
}

bool write(QIODevice &device, const QList<HistoryEntry> &entries) {
    Out out([&device](QByteArrayView chunk) { return device.write(chunk.data(), chunk.size()) == chunk.size(); });
    writeAll(out, entries);
    return out.finishToSink();
}

std::optional<QList<HistoryEntry>> decode(QByteArrayView json) {
    // Editors on some systems start a UTF-8 file with a byte-order mark.
    if (json.startsWith("\xEF\xBB\xBF"))
        json = json.sliced(3);
    return Reader(json).document();
}

} // namespace HistoryJson
