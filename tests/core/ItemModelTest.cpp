#include "TestMain.h"

#include "core/ClipRange.h"
#include "core/DownloadItem.h"

#include <QTest>

#include <limits>

Q_DECLARE_METATYPE(std::optional<qint64>)

class ItemModelTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void seconds_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<std::optional<qint64>>("expected");
        const auto row = [](const char *text, std::optional<qint64> v) { QTest::newRow(text) << QString::fromUtf8(text) << v; };
        const std::optional<qint64> none;
        row(" \t1:30\t", 90);
        row("1:02:15", 3735);
        row("", none);
        row("\u0661\u0662", none); // Arabic-Indic digits are not ASCII digits
        row("9223372036854775807", std::numeric_limits<qint64>::max());
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
        QTest::newRow("bad start") << QStringLiteral("abc") << QStringLiteral("10") << QStringLiteral("*0-10");
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
        QCOMPARE(ClipRange::fromJson(range.toJson()), std::optional<ClipRange>(range));
    }

    void newItemIdIsUpperCase() {
        const auto item = DownloadItem::make(QStringLiteral("https://example.com/v"), DownloadMode::audioOnly);
        QCOMPARE(item->idString(), item->idString().toUpper());
        QCOMPARE(item->idString().size(), 36);
    }
};

VORLIX_TEST_SUITE(ItemModelTest)
#include "ItemModelTest.moc"
