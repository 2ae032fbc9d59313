#include "queue/HistoryJson.h"

#include <QIODevice>

#include <simdjson.h>

#include <algorithm>
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

// Worst case 6 bytes per byte (a control character written as \u00XX) plus the quotes.
qsizetype maxStringBytes(QByteArrayView s) { return s.size() * 6 + 2; }

// The entries hold valid UTF-8, so only quotes, backslashes and control characters need escapes.
void putString(Out &out, QByteArrayView text) {
    out.put('"');
    const char *p = text.data();
    const char *end = p + text.size();
    const char *plain = p;
    for (; p < end; ++p) {
        const auto c = static_cast<unsigned char>(*p);
        if (c >= 0x20 && c != '"' && c != '\\')
            continue;
        out.put(plain, p - plain);
        plain = p + 1;
        switch (c) {
        case '"': out.lit("\\\""); break;
        case '\\': out.lit("\\\\"); break;
        case '\n': out.lit("\\n"); break;
        case '\r': out.lit("\\r"); break;
        case '\t': out.lit("\\t"); break;
        case '\b': out.lit("\\b"); break;
        case '\f': out.lit("\\f"); break;
        default:
            out.lit("\\u00");
            out.put(hexDigits[c >> 4]);
            out.put(hexDigits[c & 0xf]);
        }
    }
    out.put(plain, p - plain);
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

void putSeconds(Out &out, qint64 dateMs) {
    // Whole milliseconds, written as seconds without trailing zeros: "700000000.5", "-86400".
    const qint64 ms = dateMs - HistoryEntry::referenceEpochMs;
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

using namespace simdjson;

enum Field : unsigned {
    fId = 1, fUrl = 2, fTitle = 4, fSource = 8, fCategory = 16, fMode = 32, fDate = 64, fArchived = 128,
    allRequired = 255
};

// The texts point into the input, or for text with escapes into the parser's string buffer;
// both live until the next document. Most text has no escapes and is taken as it stands.
bool text(ondemand::value &value, QByteArrayView &out) {
    const std::string_view token = value.raw_json_token(); // the quoted text and any space after it
    if (token.size() >= 2 && token.front() == '"') {
        const char *start = token.data() + 1;
        const auto *quote = static_cast<const char *>(std::memchr(start, '"', token.size() - 1));
        if (quote && !std::memchr(start, '\\', size_t(quote - start))) {
            out = QByteArrayView(start, quote - start); // unconsumed values are skipped by the parser
            return true;
        }
    }
    std::string_view s;
    if (value.get_string().get(s))
        return false;
    out = s.empty() ? QByteArrayView("", 0) : QByteArrayView(s.data(), qsizetype(s.size()));
    return true;
}

bool entry(ondemand::object object, HistoryEntry &e) {
    std::array<QByteArrayView, HistoryEntry::textCount> texts{};
    unsigned seen = 0;
    for (auto member : object) {
        std::string_view key;
        if (member.error())
            return false;
        ondemand::field field = std::move(member).value_unsafe();
        if (field.unescaped_key().get(key))
            return false;
        ondemand::value value = field.value();
        const auto textField = [&](HistoryEntry::Text which, Field bit) {
            seen |= bit;
            return text(value, texts[int(which)]);
        };
        bool ok = true;
        if (key == "id") {
            std::string_view s;
            const auto id = value.get_string().get(s) ? std::nullopt
                                                        : HistoryEntry::parseId(QUtf8StringView(s.data(), qsizetype(s.size())));
            ok = id.has_value();
            if (ok)
                e.setId(*id);
            seen |= fId;
        } else if (key == "url") {
            ok = textField(HistoryEntry::Text::url, fUrl);
        } else if (key == "title") {
            ok = textField(HistoryEntry::Text::title, fTitle);
        } else if (key == "source") {
            ok = textField(HistoryEntry::Text::source, fSource);
        } else if (key == "category") {
            ok = textField(HistoryEntry::Text::category, fCategory);
        } else if (key == "mode") {
            ok = textField(HistoryEntry::Text::mode, fMode);
        } else if (key == "date") {
            double seconds = 0;
            ok = !value.get_double().get(seconds);
            e.setDateMs(HistoryEntry::msFromReferenceSeconds(seconds));
            seen |= fDate;
        } else if (key == "archived") {
            bool archived = false;
            ok = !value.get_bool().get(archived);
            e.setArchived(archived);
            seen |= fArchived;
        } else if (key == "filePath") {
            bool isNull = false;
            ok = !value.is_null().get(isNull);
            if (ok && isNull)
                texts[int(HistoryEntry::Text::filePath)] = QByteArrayView();
            else if (ok)
                ok = text(value, texts[int(HistoryEntry::Text::filePath)]);
        } // anything else is skipped by the parser
        if (!ok)
            return false;
    }
    if ((seen & allRequired) != allRequired)
        return false;
    e.setUtf8(texts);
    return true;
}

std::optional<QList<HistoryEntry>> document(const padded_string_view json) {
    ondemand::parser parser;
    ondemand::document doc;
    ondemand::array array;
    if (parser.iterate(json).get(doc) || doc.get_array().get(array))
        return std::nullopt;
    QList<HistoryEntry> entries;
    for (auto element : array) {
        ondemand::object object;
        HistoryEntry e;
        if (element.get_object().get(object) || !entry(object, e))
            return std::nullopt;
        entries.append(std::move(e));
    }
    // Anything after the array, such as a second one, makes the file not ours.
    if (doc.current_location().error() != OUT_OF_BOUNDS)
        return std::nullopt;
    entries.squeeze();
    return entries;
}

} // namespace

namespace HistoryJson {

namespace {
void writeAll(Out &out, const QList<HistoryEntry> &entries) {
    out.reserveMore(8);
    out.put('[');
    bool first = true;
    for (const HistoryEntry &e : entries) {
        qsizetype room = 256;
        for (int i = 0; i < HistoryEntry::textCount; ++i)
            room += maxStringBytes(e.utf8(HistoryEntry::Text(i)));
        out.reserveMore(room);
        if (first)
            out.lit("\n  {\n    \"id\" : ");
        else
            out.lit(",\n  {\n    \"id\" : ");
        first = false;
        putUuid(out, e.id());
        out.lit(",\n    \"url\" : ");
        putString(out, e.utf8(HistoryEntry::Text::url));
        out.lit(",\n    \"title\" : ");
        putString(out, e.utf8(HistoryEntry::Text::title));
        out.lit(",\n    \"source\" : ");
        putString(out, e.utf8(HistoryEntry::Text::source));
        out.lit(",\n    \"category\" : ");
        putString(out, e.utf8(HistoryEntry::Text::category));
        out.lit(",\n    \"mode\" : ");
        putString(out, e.utf8(HistoryEntry::Text::mode));
        out.lit(",\n    \"date\" : ");
        putSeconds(out, e.dateMs());
        if (e.hasFilePath()) {
            out.lit(",\n    \"filePath\" : ");
            putString(out, e.utf8(HistoryEntry::Text::filePath));
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

std::optional<QList<HistoryEntry>> decode(QByteArrayView json, qsizetype readable) {
    const qsizetype slack = std::max<qsizetype>(readable - json.size(), 0);
    // Editors on some systems start a UTF-8 file with a byte-order mark.
    if (json.startsWith("\xEF\xBB\xBF"))
        json = json.sliced(3);
    // The parser reads a little past the end; without room there it gets a padded copy.
    if (slack >= qsizetype(SIMDJSON_PADDING))
        return document(padded_string_view(json.data(), size_t(json.size()), size_t(json.size() + slack)));
    const padded_string padded(json.data(), size_t(json.size()));
    return document(padded);
}

std::optional<QList<HistoryEntry>> decode(QByteArrayView json) { return decode(json, json.size()); }

} // namespace HistoryJson
