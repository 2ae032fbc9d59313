#include "TestMain.h"

#include "engine/YtDlp.h"

#include <QTest>

class YtDlpTextTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void progressLines_data() {
        QTest::addColumn<QString>("line");
        QTest::addColumn<QString>("expected"); // fraction|speed|eta|phase, "-" for none; null: no report
        const auto row = [](const char *name, const QString &line, const char *expected) {
            QTest::newRow(name) << line << (expected ? QString::fromUtf8(expected) : QString());
        };
        row("typical", QStringLiteral("VORLIX| 45.3%|2.10MiB/s|00:12"), "0.453|2.10MiB/s|00:12|-");
        row("unknown percentage", QStringLiteral("VORLIX|N/A|Unknown B/s|Unknown"), "-|Unknown B/s|Unknown|-");
        row("padded pieces", QStringLiteral("VORLIX|  0.3%| \t Unknown B/s |Unknown\t"), "0.003|Unknown B/s|Unknown|-");
        row("over a hundred stays full", QStringLiteral("VORLIX|100.4%|1KiB/s|00:00"), "1|1KiB/s|00:00|-");
        row("extra pieces ignored", QStringLiteral("VORLIX|12%|a|b|c|d"), "0.12|a|b|-");
        row("three pieces", QStringLiteral("VORLIX|50%|x"), nullptr);
        row("percent sign inside", QStringLiteral("VORLIX|4%5%|s|e"), "0.45|s|e|-");
        row("number with text", QStringLiteral("VORLIX|45.3 %x|s|e"), "-|s|e|-");
        row("infinity is no number", QStringLiteral("VORLIX|inf%|s|e"), "-|s|e|-");
        row("merger", QStringLiteral("[Merger] Merging formats into \"a.mp4\""), "-|||Merging video + audio");
        row("extract", QStringLiteral("[ExtractAudio] Destination: a.mp3"), "-|||Extracting audio");
        row("artwork", QStringLiteral("[EmbedThumbnail] ffmpeg: Adding thumbnail"), "-|||Embedding artwork");
        row("plain download line", QStringLiteral("[download] 10%"), nullptr);
        row("marker not at start", QStringLiteral(" VORLIX|1%|a|b"), nullptr);
        row("stage in lower case", QStringLiteral("[merger] x"), nullptr);
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
        const QString flag = QStringLiteral("\U0001F1EB\U0001F1F7"); // four UTF-16 units, one character to the reader
        QTest::newRow("last ERROR line wins") << QStringLiteral("WARNING: throttled\nERROR: [youtube] abc: Video unavailable\nERROR: second\ntrailer")
                                              << QStringLiteral("second");
        QTest::newRow("no ERROR: the last line") << QStringLiteral("one\ntwo\r\nthree\n\n") << QStringLiteral("three");
        QTest::newRow("empty output") << QString() << QStringLiteral("Unknown error");
        QTest::newRow("nothing after the prefix") << QStringLiteral("ERROR: ") << QStringLiteral("Unknown error");
        QTest::newRow("every prefix removed") << QStringLiteral("ERROR: x ERROR: y") << QStringLiteral("x y");
        QTest::newRow("ERROR is case-sensitive") << QStringLiteral("Error: a\nlast") << QStringLiteral("last");
        QTest::newRow("cookie hint") << QStringLiteral("ERROR: [instagram] x: use --cookies-from-browser or --cookies") << login;
        QTest::newRow("browser without a profile")
            << QStringLiteral("Traceback (most recent call last):\n  File \"x.py\", line 1\nFileNotFoundError: could not "
                              "find chromium cookies database in \"/home/u/.config/chromium\"")
            << QStringLiteral("No Chromium login found on this computer: sign in to Chromium, or turn off \u201CUse "
                              "Chromium login for private content\u201D in Settings.");
        QTest::newRow("not available") << QStringLiteral("ERROR: [tiktok] Requested content is not available") << login;
        QTest::newRow("Login Required is not the phrase") << QStringLiteral("ERROR: Login Required") << QStringLiteral("Login Required");
        QTest::newRow("exactly 220 kept") << QString(220, u'a') << QString(220, u'a');
        QTest::newRow("300 cut after the prefix") << QStringLiteral("ERROR: ") + QString(300, u'b') << QString(220, u'b') + u'\u2026';
        QTest::newRow("221 flags cut between flags") << flag.repeated(221) << flag.repeated(220) + u'\u2026';
        QTest::newRow("combining accents count once") << QStringLiteral("e\u0301").repeated(230)
                                                      << QStringLiteral("e\u0301").repeated(220) + u'\u2026';
    }
    void friendlyErrors() {
        QFETCH(QString, output);
        QFETCH(QString, expected);
        QCOMPARE(YtDlp::friendlyError(output), expected);
    }

    void selfHealing_data() {
        QTest::addColumn<QString>("message");
        QTest::addColumn<bool>("heals");
        QTest::newRow("unsupported URL") << QStringLiteral("Unsupported URL: https://x") << true;
        QTest::newRow("unknown") << QStringLiteral("Unknown error") << true;
        QTest::newRow("403 may be a stale engine") << QStringLiteral("HTTP Error 403: Forbidden") << true;
        QTest::newRow("login message") << YtDlp::loginNeededMessage << false;
        const char *phrases[] = {"login", "cookies", "private", "members-only", "premium", "not available in your",
                                 "copyright", "removed", "deleted", "confirm your age", "timed out", "timeout",
                                 "network", "connection reset", "connection refused", "no space", "permission denied",
                                 "http error 404", "video unavailable", "this video is unavailable",
                                 "sign in to confirm", "only spotify track", "couldn't read track"};
        for (const char *phrase : phrases) // matched whatever the case
            QTest::addRow("%s", phrase) << QStringLiteral("[site] 42: ") + QString::fromUtf8(phrase).toUpper() + QStringLiteral(" (x)") << false;
    }
    void selfHealing() {
        QFETCH(QString, message);
        QFETCH(bool, heals);
        QCOMPARE(YtDlp::shouldSelfHeal(message), heals);
    }

    void durationTexts() {
        const auto text = [](std::optional<double> seconds) {
            ProbeResult probe;
            probe.durationSeconds = seconds;
            return probe.durationText();
        };
        QCOMPARE(text(std::nullopt), QString());
        QCOMPARE(text(0), QString());
        QCOMPARE(text(0.5), QStringLiteral("0:00"));
        QCOMPARE(text(212.9), QStringLiteral("3:32"));
        QCOMPARE(text(36061), QStringLiteral("10:01:01"));
    }
};

VORLIX_TEST_SUITE(YtDlpTextTest)
#include "YtDlpTextTest.moc"
