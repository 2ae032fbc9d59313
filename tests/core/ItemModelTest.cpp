#include "TestMain.h"

#include "core/ClipRange.h"
#include "core/DownloadItem.h"

#include <QSignalSpy>
#include <QTest>

#include <limits>

Q_DECLARE_METATYPE(std::optional<qint64>)

class ItemModelTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void seconds_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<std::optional<qint64>>("expected");
        const std::optional<qint64> none;
        QTest::newRow("plain") << QStringLiteral("90") << std::optional<qint64>(90);
        QTest::newRow("padded") << QStringLiteral("  90 ") << std::optional<qint64>(90);
        QTest::newRow("tabs") << QStringLiteral("\t1:30\t") << std::optional<qint64>(90);
        QTest::newRow("h:m:s") << QStringLiteral("1:02:15") << std::optional<qint64>(3735);
        QTest::newRow("unbounded minutes") << QStringLiteral("2:75") << std::optional<qint64>(195);
        QTest::newRow("double colon") << QStringLiteral("1::30") << std::optional<qint64>(90);
        QTest::newRow("leading colon") << QStringLiteral(":90") << std::optional<qint64>(90);
        QTest::newRow("signs") << QStringLiteral("+1:-30") << std::optional<qint64>(30);
        QTest::newRow("empty") << QString() << none;
        QTest::newRow("blank") << QStringLiteral("   ") << none;
        QTest::newRow("newline kept") << QStringLiteral("90\n") << none;
        QTest::newRow("four pieces") << QStringLiteral("1:2:3:4") << none;
        QTest::newRow("letters") << QStringLiteral("1:x") << none;
        QTest::newRow("bare sign") << QStringLiteral("+") << none;
        QTest::newRow("decimal") << QStringLiteral("1.5") << none;
        QTest::newRow("arabic digits") << QStringLiteral("\u0661\u0662") << none;
        QTest::newRow("only colons") << QStringLiteral("::") << none;
        QTest::newRow("int64 max") << QStringLiteral("9223372036854775807") << std::optional<qint64>(9223372036854775807LL);
        QTest::newRow("digits overflow") << QStringLiteral("9223372036854775808") << none;
        QTest::newRow("power overflow") << QStringLiteral("9223372036854775807:0") << none;
        QTest::newRow("int64 min") << QStringLiteral("-9223372036854775808") << std::optional<qint64>(std::numeric_limits<qint64>::min());
        QTest::newRow("sum overflow") << QStringLiteral("153722867280912930:8") << none;
    }
    void seconds() {
        QFETCH(QString, text);
        QFETCH(std::optional<qint64>, expected);
        QCOMPARE(ClipRange::seconds(text), expected);
    }

    void sectionExpression_data() {
        QTest::addColumn<QString>("start");
        QTest::addColumn<QString>("end");
        QTest::addColumn<QString>("expected"); // empty = none
        QTest::newRow("open end") << QStringLiteral("1:20") << QString() << QStringLiteral("*80-inf");
        QTest::newRow("open start") << QString() << QStringLiteral("45") << QStringLiteral("*0-45");
        QTest::newRow("both") << QStringLiteral("60") << QStringLiteral("1:02:15") << QStringLiteral("*60-3735");
        QTest::newRow("bad start") << QStringLiteral("abc") << QStringLiteral("10") << QStringLiteral("*0-10");
        QTest::newRow("bad end") << QStringLiteral("90") << QStringLiteral("soon") << QStringLiteral("*90-inf");
        QTest::newRow("blank but typed") << QStringLiteral(" ") << QString() << QStringLiteral("*0-inf");
        QTest::newRow("none") << QString() << QString() << QString();
    }
    void sectionExpression() {
        QFETCH(QString, start);
        QFETCH(QString, end);
        QFETCH(QString, expected);
        const ClipRange range{start, end};
        QCOMPARE(range.isValid(), !expected.isEmpty());
        QCOMPARE(range.sectionExpression().value_or(QString()), expected);
    }

    void clipJsonRoundTrip() {
        const ClipRange range{QStringLiteral("1:00"), QString()};
        QCOMPARE(ClipRange::fromJson(range.toJson()), std::optional<ClipRange>(range));
        QVERIFY(!ClipRange::fromJson(QJsonObject{{QStringLiteral("start"), 5}}).has_value());
    }

    void newItemStartsQueued() {
        const auto item = DownloadItem::make(QStringLiteral("https://example.com/v"), DownloadMode::audioOnly);
        QCOMPARE(item->state(), ItemState::queued());
        QCOMPARE(item->progress(), 0.0);
        QVERIFY(item->speedText().isEmpty());
        QVERIFY(item->etaText().isEmpty());
        QCOMPARE(item->title(), QStringLiteral("https://example.com/v"));
        QVERIFY(!item->clip().has_value());
        QVERIFY(!item->wantsMoments());
        QVERIFY(item->finalFileURL().isEmpty());
        const QString id = item->idString();
        QCOMPARE(id, id.toUpper());
        QCOMPARE(id.size(), 36);
        const auto titled = DownloadItem::make(QStringLiteral("u"), DownloadMode::videoOnly, std::nullopt, QStringLiteral("Song"));
        QCOMPARE(titled->title(), QStringLiteral("Song"));
        QVERIFY(titled->id() != item->id());
    }

    void observedFieldsSignalOnlyRealChanges() {
        const auto item = DownloadItem::make(QStringLiteral("u"), DownloadMode::bestVideoAudio);
        QSignalSpy spy(item.get(), &DownloadItem::changed);
        item->setProgress(0.5);
        item->setProgress(0.5);
        item->setState(ItemState::processing(QStringLiteral("Merging…")));
        item->setState(ItemState::processing(QStringLiteral("Merging…")));
        item->setState(ItemState::processing(QStringLiteral("Tagging…")));
        item->setDetectedBPM(120.0);
        QCOMPARE(spy.count(), 4);
    }

    void statesAndModes() {
        QVERIFY(ItemState::failed(QStringLiteral("x")) != ItemState::failed(QStringLiteral("y")));
        QVERIFY(ItemState::done().isTerminal());
        QVERIFY(ItemState::cancelled().isTerminal());
        QVERIFY(!ItemState::processing(QString()).isTerminal());
        for (DownloadMode m : DownloadModes::all)
            QCOMPARE(DownloadModes::fromRaw(DownloadModes::rawValue(m)), std::optional<DownloadMode>(m));
        QVERIFY(!DownloadModes::fromRaw(QStringLiteral("BestVideoAudio")).has_value());
        QCOMPARE(DownloadModes::fromRawOrDefault(QStringLiteral("junk")), DownloadMode::bestVideoAudio);
        QCOMPARE(DownloadModes::label(DownloadMode::videoOnly), QStringLiteral("Video only (no audio)"));
        QCOMPARE(AudioFormats::fromRaw(QStringLiteral("m4a")), std::optional<AudioFormat>(AudioFormat::m4a));
        QVERIFY(!AudioFormats::fromRaw(QStringLiteral("ogg")).has_value());
    }
};

VORLIX_TEST_SUITE(ItemModelTest)
#include "ItemModelTest.moc"
