#include "TestMain.h"

#include "queue/HistoryJson.h"

#include <QBuffer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRandomGenerator>
#include <QTest>

#include <initializer_list>

namespace {
// What the file means, decoded through Qt's own JSON parser: the yardstick for the fast reader.
std::optional<QList<HistoryEntry>> referenceDecode(const QByteArray &json) {
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(json, &error);
    if (error.error != QJsonParseError::NoError || !doc.isArray())
        return std::nullopt;
    QList<HistoryEntry> list;
    for (const QJsonValue &v : doc.array()) {
        if (!v.isObject())
            return std::nullopt;
        const QJsonObject o = v.toObject();
        HistoryEntry e;
        for (const char *key : {"id", "url", "title", "source", "category", "mode"})
            if (!o.value(QLatin1String(key)).isString())
                return std::nullopt;
        if (!o.value(QLatin1String("date")).isDouble() || !o.value(QLatin1String("archived")).isBool())
            return std::nullopt;
        const QJsonValue path = o.value(QLatin1String("filePath"));
        if (!path.isUndefined() && !path.isNull() && !path.isString())
            return std::nullopt;
        const auto id = HistoryEntry::parseId(o.value(QLatin1String("id")).toString());
        if (!id)
            return std::nullopt;
        e.setId(*id);
        e.setUrl(o.value(QLatin1String("url")).toString());
        e.setTitle(o.value(QLatin1String("title")).toString());
        e.setSource(o.value(QLatin1String("source")).toString());
        e.setCategory(o.value(QLatin1String("category")).toString());
        e.setMode(o.value(QLatin1String("mode")).toString());
        e.setDate(HistoryEntry::fromReferenceSeconds(o.value(QLatin1String("date")).toDouble()));
        if (path.isString())
            e.setFilePath(path.toString());
        e.setArchived(o.value(QLatin1String("archived")).toBool());
        list.append(e);
    }
    return list;
}

// Text from raw UTF-16 units (lone surrogates cannot be written as literals).
QString units(std::initializer_list<char16_t> list) {
    QString s;
    for (char16_t u : list)
        s += QChar(u);
    return s;
}

// Qt's parser lets through what JSON forbids: escapes JSON does not define ("\\l"), raw control
// characters inside strings and a decimal point without digits after it ("1.e5"). The history
// reader, like any strict JSON reader, refuses such a file.
bool onlyQtWouldAccept(const QByteArray &json) {
    bool inString = false;
    for (qsizetype i = 0; i < json.size(); ++i) {
        const char c = json[i];
        if (!inString) {
            inString = c == '"';
            if (c == '.' && (i + 1 >= json.size() || json[i + 1] < '0' || json[i + 1] > '9'))
                return true;
        } else if (c == '"') {
            inString = false;
        } else if (c == '\\') {
            if (i + 1 >= json.size() || !QByteArrayView("\"\\/bfnrtu").contains(json[i + 1]))
                return true;
            ++i;
        } else if (static_cast<unsigned char>(c) < 0x20) {
            return true;
        }
    }
    return false;
}

HistoryEntry entry(const QString &title, std::optional<QString> path = std::nullopt) {
    HistoryEntry e;
    e.setId(QUuid::createUuid());
    e.setUrl(QStringLiteral("https://youtu.be/") + QString::number(qHash(title)));
    e.setTitle(title);
    e.setSource(QStringLiteral("YouTube"));
    e.setCategory(QStringLiteral("Music"));
    e.setMode(QStringLiteral("Audio only"));
    e.setDate(QDateTime(QDate(2025, 7, 1), QTime(8, 30, 0, 125), Qt::UTC));
    e.setFilePath(std::move(path));
    return e;
}

QByteArray oneEntryWithTitle(const QByteArray &titleJson) {
    return R"([{"id":"0B4F2B4E-1C1A-4C8E-9E0B-5B8C3A9D7E11","url":"u","title":)" + titleJson +
           R"(,"source":"s","category":"c","mode":"m","date":1,"archived":false}])";
}

QByteArray oneEntryWithDate(const QByteArray &dateJson) {
    return R"([{"id":"0B4F2B4E-1C1A-4C8E-9E0B-5B8C3A9D7E11","url":"u","title":"t","source":"s",)"
           R"("category":"c","mode":"m","date":)" +
           dateJson + R"(,"archived":false}])";
}
} // namespace

class HistoryJsonTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void strings_data() {
        QTest::addColumn<QByteArray>("json");
        QTest::addColumn<bool>("valid");
        QTest::addColumn<QString>("text");
        const auto ok = [](const char *name, const QByteArray &json, const QString &text) {
            QTest::newRow(name) << json << true << text;
        };
        const auto bad = [](const char *name, const QByteArray &json) {
            QTest::newRow(name) << json << false << QString();
        };
        ok("plain", R"("abc")", QStringLiteral("abc"));
        ok("empty", R"("")", QString());
        ok("all simple escapes", "\"\\\"\\\\\\/\\b\\f\\n\\r\\t\"", QStringLiteral("\"\\/\b\f\n\r\t"));
        ok("unicode escape", R"("caf\u00e9 \u00E9")", QStringLiteral("café é"));
        ok("surrogate pair escape", R"("\ud83c\udfb8")", QStringLiteral("🎸"));
        ok("lone surrogate escape", R"("a\ud800b")", units({u'a', 0xD800, u'b'}));
        ok("escaped NUL", R"("a\u0000b")", QString(QChar(u'a')) + QChar(0) + QChar(u'b'));
        ok("raw UTF-8", "\"ü·… — 日本 🎸\"", QStringLiteral("ü·… — 日本 🎸"));
        ok("highest code point", "\"\xf4\x8f\xbf\xbf\"", QString::fromUcs4(U"\U0010FFFF", 1));
        bad("unknown escape", R"("\x41")");
        bad("short unicode escape", R"("\u12")");
        bad("non-hex unicode escape", R"("\u12g4")");
        bad("raw tab", "\"a\tb\"");
        bad("raw line break", "\"a\nb\"");
        bad("unterminated", R"("abc)");
        bad("backslash at the end", R"("abc\)");
        bad("overlong slash", "\"\xc0\xaf\"");
        bad("overlong three bytes", "\"\xe0\x80\xaf\"");
        bad("UTF-8 surrogate", "\"\xed\xa0\x80\"");
        bad("beyond U+10FFFF", "\"\xf4\x90\x80\x80\"");
        bad("stray continuation byte", "\"\x80\"");
        bad("truncated sequence", "\"\xe6\x97\"");
        bad("latin-1 byte", "\"caf\xe9\"");
        bad("single quotes", "'abc'");
    }
    void strings() {
        QFETCH(QByteArray, json);
        QFETCH(bool, valid);
        QFETCH(QString, text);
        const auto decoded = HistoryJson::decode(oneEntryWithTitle(json));
        QCOMPARE(decoded.has_value(), valid);
        if (valid)
            QCOMPARE(decoded->first().title(), text);
    }

    void numbers_data() {
        QTest::addColumn<QByteArray>("json");
        QTest::addColumn<bool>("valid");
        QTest::addColumn<double>("seconds");
        const auto ok = [](const char *n, const char *json, double s) { QTest::newRow(n) << QByteArray(json) << true << s; };
        const auto bad = [](const char *n, const char *json) { QTest::newRow(n) << QByteArray(json) << false << 0.0; };
        ok("integer", "700000000", 700000000);
        ok("fraction", "700000000.25", 700000000.25);
        ok("negative", "-86400.5", -86400.5);
        ok("minus zero", "-0", 0);
        ok("exponent", "7E+8", 700000000);
        ok("negative exponent", "5e-1", 0.5);
        ok("sub-millisecond is rounded", "1.0004", 1.0);
        ok("absurdly large is clamped", "1e300", 100000.0 * 365.25 * 86400.0);
        bad("leading zero", "0700");
        bad("bare point", "1.");
        bad("leading point", ".5");
        bad("plus sign", "+1");
        bad("lonely minus", "-");
        bad("empty exponent", "1e");
        bad("hexadecimal", "0x10");
        bad("not a number", "NaN");
        bad("infinity", "Infinity");
        bad("out of range", "1e999");
        bad("string", "\"1\"");
    }
    void numbers() {
        QFETCH(QByteArray, json);
        QFETCH(bool, valid);
        QFETCH(double, seconds);
        const auto decoded = HistoryJson::decode(oneEntryWithDate(json));
        QCOMPARE(decoded.has_value(), valid);
        if (valid)
            QCOMPARE(HistoryEntry::referenceSeconds(decoded->first().date()), seconds);
    }

    void documentShape_data() {
        QTest::addColumn<QByteArray>("json");
        QTest::addColumn<int>("count"); // -1: refused
        const QByteArray one = oneEntryWithDate("1");
        const QByteArray obj = one.mid(1, one.size() - 2);
        QTest::newRow("empty array with spaces") << QByteArray(" \r\n\t[ \n ] \n") << 0;
        QTest::newRow("two entries") << QByteArray('[' + obj + " , " + obj + ']') << 2;
        QTest::newRow("trailing comma") << QByteArray('[' + obj + ",]") << -1;
        QTest::newRow("missing comma") << QByteArray('[' + obj + obj + ']') << -1;
        QTest::newRow("text after the array") << QByteArray(one + " x") << -1;
        QTest::newRow("two arrays") << QByteArray(one + one) << -1;
        QTest::newRow("byte-order mark") << QByteArray("\xef\xbb\xbf" + one) << -1;
        // The one entry with an extra key-value pair in front of its own keys.
        const auto withExtra = [&obj](const QByteArray &pair) { return QByteArray("[{" + pair + ',' + obj.mid(1) + ']'); };
        QTest::newRow("unknown nested value") << withExtra(R"("extra":{"a":[1,{"b":null}],"c":true})") << 1;
        QTest::newRow("deep but reasonable") << withExtra("\"x\":" + QByteArray(30, '[') + QByteArray(30, ']')) << 1;
        QTest::newRow("absurdly deep") << withExtra("\"x\":" + QByteArray(100000, '[') + QByteArray(100000, ']')) << -1;
        QTest::newRow("unknown value malformed") << withExtra(R"("x":[1,,2])") << -1;
        // Wrong types and spellings anywhere refuse the whole file.
        const auto edited = [&one](const char *from, const char *to) { return QByteArray(one).replace(from, to); };
        QTest::newRow("array of numbers") << QByteArray("[1, 2]") << -1;
        QTest::newRow("archived as number") << edited("false", "0") << -1;
        QTest::newRow("title as null") << edited("\"t\"", "null") << -1;
        QTest::newRow("url as array") << edited("\"u\"", "[\"u\"]") << -1;
        QTest::newRow("id not a UUID") << edited("0B4F2B4E-", "0B4F2B4E") << -1;
        QTest::newRow("id in braces") << edited("\"0B4F2B4E-1C1A-4C8E-9E0B-5B8C3A9D7E11\"",
                                                 "\"{0B4F2B4E-1C1A-4C8E-9E0B-5B8C3A9D7E11}\"")
                                      << -1;
        // And what a tolerant reader of this format accepts.
        QTest::newRow("lower-case id") << edited("0B4F2B4E", "0b4f2b4e") << 1;
        QTest::newRow("null filePath") << edited("\"date\"", "\"filePath\":null,\"date\"") << 1;
        QTest::newRow("keys in another order")
            << QByteArray(R"([{"archived":true,"date":1,"mode":"m","category":"c","source":"s","title":"t",)"
                          R"("url":"u","id":"0B4F2B4E-1C1A-4C8E-9E0B-5B8C3A9D7E11"}])")
            << 1;
        QTest::newRow("escaped key") << QByteArray(QByteArray(one).replace("\"url\"", R"("\u0075rl")")) << 1;
        QTest::newRow("null archived") << QByteArray(QByteArray(one).replace("false", "null")) << -1;
        QTest::newRow("capitalised literal") << QByteArray(QByteArray(one).replace("false", "False")) << -1;
        QTest::newRow("truncated literal") << QByteArray(QByteArray(one).replace("false", "fals")) << -1;
    }
    void documentShape() {
        QFETCH(QByteArray, json);
        QFETCH(int, count);
        const auto decoded = HistoryJson::decode(json);
        QCOMPARE(decoded ? int(decoded->size()) : -1, count);
    }

    // Random damage to a valid file: the fast reader must accept exactly what Qt's parser plus
    // the entry rules accept, and read the same entries from it.
    void damagedFilesAgreeWithQtsParser() {
        QList<HistoryEntry> list{entry(QStringLiteral("Plain")),
                                 entry(QStringLiteral("Esc \"q\" \\ \n ü 🎸"), QStringLiteral("/m/a b.mp3")),
                                 entry(QString(), QStringLiteral("/m/ü.mp4"))};
        list[1].setArchived(true);
        const QByteArray valid = HistoryJson::encode(list);
        QCOMPARE(HistoryJson::decode(valid), std::optional<QList<HistoryEntry>>(list));

        const quint32 seed = QRandomGenerator::global()->generate();
        QRandomGenerator random(seed);
        const QByteArray alphabet("\"\\{}[],: 0123456789.eE-+truefalsn\xc3\xa9\xff\x01\t\n");
        int accepted = 0;
        for (int round = 0; round < 4000; ++round) {
            QByteArray damaged = valid;
            const int edits = 1 + int(random.bounded(3));
            for (int i = 0; i < edits && !damaged.isEmpty(); ++i) {
                const qsizetype at = qsizetype(random.bounded(quint32(damaged.size())));
                const char c = alphabet.at(qsizetype(random.bounded(quint32(alphabet.size()))));
                switch (random.bounded(4)) {
                case 0: damaged[at] = c; break;
                case 1: damaged.remove(at, 1); break;
                case 2: damaged.insert(at, c); break;
                default: damaged.truncate(at); break;
                }
            }
            const auto fast = HistoryJson::decode(damaged);
            const auto reference = onlyQtWouldAccept(damaged) ? std::nullopt : referenceDecode(damaged);
            QVERIFY2(fast == reference, qPrintable(QStringLiteral("seed %1, round %2, accepted %3/%4: %5")
                                                       .arg(seed)
                                                       .arg(round)
                                                       .arg(fast.has_value())
                                                       .arg(reference.has_value())
                                                       .arg(QString::fromUtf8(damaged.toPercentEncoding(" {}[]:,\"")))));
            accepted += fast.has_value();
        }
        // Some damage is harmless (a digit of a date, a letter of a title): both sides must meet it.
        QVERIFY(accepted > 0);
    }

    void encodingRoundTripsAnyText_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("qtReadsItToo");
        QString controls;
        for (char16_t c = 0; c < 0x20; ++c)
            controls += QChar(c);
        QTest::newRow("control characters") << controls << true;
        QTest::newRow("quotes and backslashes") << QStringLiteral("\\\"\\\\\" \\u0041 / \\/") << true;
        QTest::newRow("DEL and non-characters") << units({0x7F, 0xFFFE, 0xFFFF}) << true;
        QTest::newRow("astral") << QString::fromUcs4(U"\U0001F3B8\U0010FFFF", 2) << true;
        QTest::newRow("mixed scripts") << QStringLiteral("ü·… “x” — 日本語 Ελληνικά") << true;
        // Qt's own parser replaces lone surrogates; ours keeps the text as it was.
        QTest::newRow("lone surrogates") << units({u'a', 0xD800, u' ', 0xDFFF, u'c', 0xDC00, 0xD800}) << false;
    }
    void encodingRoundTripsAnyText() {
        QFETCH(QString, text);
        QFETCH(bool, qtReadsItToo);
        auto e = entry(text, text);
        e.setUrl(text);
        const QByteArray json = HistoryJson::encode({e});
        const auto back = HistoryJson::decode(json);
        QVERIFY(back);
        QCOMPARE(back->first(), e);
        if (qtReadsItToo)
            QCOMPARE(referenceDecode(json), back);
    }

    void streamingWriteMatchesEncode() {
        QList<HistoryEntry> many;
        for (int i = 0; i < 8000; ++i)
            many.append(entry(QStringLiteral("Entry %1 — ü").arg(i), QStringLiteral("/media/%1.mp4").arg(i)));
        const QByteArray whole = HistoryJson::encode(many);
        QVERIFY(whole.size() > 2 * (1 << 20)); // several chunks of 1 MiB
        QBuffer buffer;
        buffer.open(QIODevice::WriteOnly);
        QVERIFY(HistoryJson::write(buffer, many));
        QCOMPARE(buffer.data(), whole);
        QCOMPARE(HistoryJson::encode({}), QByteArray("[]\n"));

        QBuffer readOnly;
        readOnly.open(QIODevice::ReadOnly);
        QVERIFY(!HistoryJson::write(readOnly, many));
    }
};

VORLIX_TEST_SUITE(HistoryJsonTest)
#include "HistoryJsonTest.moc"
