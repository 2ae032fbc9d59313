#include "TestMain.h"

#include "engine/YtDlp.h"

#include <QTest>

class YtDlpTextTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void progressLines_data() {
        QTest::addColumn<QString>("line");
        QTest::addColumn<QString>("expected"); // fraction|speed|eta|phase, "-" for none; null: no report
        const auto row = [](const char *name, const char *line, const char *expected) {
            QTest::newRow(name) << QString::fromUtf8(line) << (expected ? QString::fromUtf8(expected) : QString());
        };
        row("typical", "VORLIX| 45.3%|2.10MiB/s|00:12", "0.453|2.10MiB/s|00:12|-");
        row("padded pieces, unknown percentage", "VORLIX|N/A| \t Unknown B/s |Unknown\t", "-|Unknown B/s|Unknown|-");
        row("three pieces", "VORLIX|50%|x", nullptr);
        row("merger", "[Merger] Merging formats into \"a.mp4\"", "-|||Merging video + audio");
        row("extract", "[ExtractAudio] Destination: a.mp3", "-|||Extracting audio");
    }
    void progressLines() {
        QFETCH(QString, line);
        QFETCH(QString, expected);
        const auto p = YtDlp::parseProgressLine(line);
        QCOMPARE(p.has_value(), !expected.isNull());
        if (p)
            QCOMPARE(QStringList({p->fraction ? QString::number(*p->fraction) : QStringLiteral("-"), p->speed, p->eta,
                                  p->phase.value_or(QStringLiteral("-"))}).join(u'|'), expected);
    }

    void friendlyErrors_data() {
        QTest::addColumn<QString>("output");
        QTest::addColumn<QString>("expected");
        const QString login = YtDlp::loginNeededMessage;
        QTest::newRow("last ERROR line wins") << QStringLiteral("WARNING: throttled\nERROR: first\nERROR: second\ntrailer")
                                              << QStringLiteral("second");
        QTest::newRow("no ERROR: the last line") << QStringLiteral("one\ntwo\r\nthree\n\n") << QStringLiteral("three");
        QTest::newRow("cookie hint") << QStringLiteral("ERROR: [instagram] x: use --cookies-from-browser or --cookies") << login;
        QTest::newRow("browser without a profile")
            << QStringLiteral("Traceback (most recent call last):\nFileNotFoundError: could not find chromium cookies database in \"/x\"")
            << QStringLiteral("No Chromium login found on this computer: sign in to Chromium, or turn off \u201CUse "
                              "Chromium login for private content\u201D in Settings.");
        QTest::newRow("300 cut after the prefix") << QStringLiteral("ERROR: ") + QString(300, u'b') << QString(220, u'b') + u'\u2026';
    }
    void friendlyErrors() {
        QFETCH(QString, output);
        QFETCH(QString, expected);
        QCOMPARE(YtDlp::friendlyError(output), expected);
    }

    // One case per matching rule: a known phrase in any case, anywhere in the message, stops healing.
    void selfHealing() {
        QVERIFY(YtDlp::shouldSelfHeal(QStringLiteral("Unsupported URL: https://x")));
        QVERIFY(YtDlp::shouldSelfHeal(QStringLiteral("HTTP Error 403: Forbidden"))); // may be a stale engine
        QVERIFY(!YtDlp::shouldSelfHeal(QStringLiteral("[site] 42: THIS VIDEO IS UNAVAILABLE (x)")));
        QVERIFY(!YtDlp::shouldSelfHeal(QStringLiteral("Read timeout after 20s")));
        QVERIFY(!YtDlp::shouldSelfHeal(YtDlp::loginNeededMessage));
    }
};

VORLIX_TEST_SUITE(YtDlpTextTest)
#include "YtDlpTextTest.moc"
