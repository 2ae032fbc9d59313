#include "TestMain.h"

#include "engine/YtDlp.h"

#include <QTest>

Q_DECLARE_METATYPE(std::optional<YtDlp::Progress>)
Q_DECLARE_METATYPE(std::optional<double>)

namespace {
YtDlp::Progress download(std::optional<double> fraction, const char *speed, const char *eta) {
    return YtDlp::Progress{fraction, QString::fromUtf8(speed), QString::fromUtf8(eta), std::nullopt};
}
YtDlp::Progress stage(const char *phase) {
    return YtDlp::Progress{std::nullopt, QString(), QString(), QString::fromUtf8(phase)};
}
QString repeated(const QString &unit, int times) {
    QString s;
    for (int i = 0; i < times; ++i)
        s += unit;
    return s;
}
} // namespace

class YtDlpTextTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void progressLines_data() {
        QTest::addColumn<QString>("line");
        QTest::addColumn<std::optional<YtDlp::Progress>>("expected");
        using P = std::optional<YtDlp::Progress>;

        QTest::newRow("typical") << QStringLiteral("VORLIX| 45.3%|2.10MiB/s|00:12") << P(download(0.453, "2.10MiB/s", "00:12"));
        QTest::newRow("unknown percentage") << QStringLiteral("VORLIX|N/A|Unknown B/s|Unknown")
                                            << P(download(std::nullopt, "Unknown B/s", "Unknown"));
        QTest::newRow("padded pieces") << QStringLiteral("VORLIX|  0.3%| \t Unknown B/s |Unknown\t")
                                       << P(download(0.003, "Unknown B/s", "Unknown"));
        QTest::newRow("whole hundred") << QStringLiteral("VORLIX|100%|1.45MiB/s|NA") << P(download(1.0, "1.45MiB/s", "NA"));
        QTest::newRow("over a hundred stays full") << QStringLiteral("VORLIX|100.4%|1KiB/s|00:00")
                                                   << P(download(1.0, "1KiB/s", "00:00"));
        QTest::newRow("empty pieces kept") << QStringLiteral("VORLIX|||") << P(download(std::nullopt, "", ""));
        QTest::newRow("extra pieces ignored") << QStringLiteral("VORLIX|12%|a|b|c|d") << P(download(0.12, "a", "b"));
        QTest::newRow("three pieces") << QStringLiteral("VORLIX|50%|x") << P();
        QTest::newRow("percent sign inside") << QStringLiteral("VORLIX|4%5%|s|e") << P(download(0.45, "s", "e"));
        QTest::newRow("number with text") << QStringLiteral("VORLIX|45.3 %x|s|e") << P(download(std::nullopt, "s", "e"));
        QTest::newRow("infinity is no number") << QStringLiteral("VORLIX|inf%|s|e") << P(download(std::nullopt, "s", "e"));
        QTest::newRow("nan is no number") << QStringLiteral("VORLIX|nan|s|e") << P(download(std::nullopt, "s", "e"));
        QTest::newRow("hex is no number") << QStringLiteral("VORLIX|0x10|s|e") << P(download(std::nullopt, "s", "e"));
        QTest::newRow("merger") << QStringLiteral("[Merger] Merging formats into \"a.mp4\"") << P(stage("Merging video + audio"));
        QTest::newRow("extract") << QStringLiteral("[ExtractAudio] Destination: a.mp3") << P(stage("Extracting audio"));
        QTest::newRow("artwork") << QStringLiteral("[EmbedThumbnail] ffmpeg: Adding thumbnail") << P(stage("Embedding artwork"));
        QTest::newRow("plain download line") << QStringLiteral("[download] 10%") << P();
        QTest::newRow("marker not at start") << QStringLiteral(" VORLIX|1%|a|b") << P();
        QTest::newRow("marker in lower case") << QStringLiteral("vorlix|1%|a|b") << P();
        QTest::newRow("stage in lower case") << QStringLiteral("[merger] x") << P();
        QTest::newRow("empty") << QString() << P();
        QTest::newRow("garbage") << QStringLiteral("\u00ff\u2603|||") << P();
    }

    void progressLines() {
        QFETCH(QString, line);
        QFETCH(std::optional<YtDlp::Progress>, expected);
        const auto actual = YtDlp::parseProgressLine(line);
        QCOMPARE(actual.has_value(), expected.has_value());
        if (!expected)
            return;
        QCOMPARE(actual->fraction.has_value(), expected->fraction.has_value());
        if (expected->fraction)
            QVERIFY2(qAbs(*actual->fraction - *expected->fraction) < 1e-12, qPrintable(QString::number(*actual->fraction)));
        QCOMPARE(actual->speed, expected->speed);
        QCOMPARE(actual->eta, expected->eta);
        QCOMPARE(actual->phase, expected->phase);
    }

    void friendlyErrors_data() {
        QTest::addColumn<QString>("output");
        QTest::addColumn<QString>("expected");
        const QString login = YtDlp::loginNeededMessage;

        QTest::newRow("last ERROR line wins")
            << QStringLiteral("WARNING: [youtube] throttled\nERROR: [youtube] abc: Video unavailable\n")
            << QStringLiteral("[youtube] abc: Video unavailable");
        QTest::newRow("later ERROR beats earlier")
            << QStringLiteral("ERROR: first\nERROR: second\nsome trailer") << QStringLiteral("second");
        QTest::newRow("no ERROR: the last line") << QStringLiteral("one\ntwo\r\nthree\n\n") << QStringLiteral("three");
        QTest::newRow("empty output") << QString() << QStringLiteral("Unknown error");
        QTest::newRow("only newlines") << QStringLiteral("\n\r\n\n") << QStringLiteral("Unknown error");
        QTest::newRow("nothing left after removing the prefix") << QStringLiteral("ERROR: ") << QStringLiteral("Unknown error");
        QTest::newRow("every prefix removed") << QStringLiteral("ERROR: x ERROR: y") << QStringLiteral("x y");
        QTest::newRow("ERROR is case-sensitive") << QStringLiteral("Error: a\nlast") << QStringLiteral("last");
        QTest::newRow("cookie hint") << QStringLiteral("ERROR: [instagram] x: use --cookies-from-browser or --cookies")
                                     << login;
        QTest::newRow("login required") << QStringLiteral("ERROR: [vimeo] 1: login required") << login;
        QTest::newRow("not available") << QStringLiteral("ERROR: [tiktok] Requested content is not available") << login;
        QTest::newRow("Login Required is not the phrase") << QStringLiteral("ERROR: Login Required")
                                                         << QStringLiteral("Login Required");
        QTest::newRow("exactly 220 kept") << repeated(QStringLiteral("a"), 220) << repeated(QStringLiteral("a"), 220);
        QTest::newRow("221 cut") << repeated(QStringLiteral("a"), 221) << repeated(QStringLiteral("a"), 220) + u'\u2026';
        QTest::newRow("300 cut after the prefix is gone")
            << QStringLiteral("ERROR: ") + repeated(QStringLiteral("b"), 300) << repeated(QStringLiteral("b"), 220) + u'\u2026';
        // An emoji flag is four UTF-16 units but one character to the reader.
        const QString flag = QStringLiteral("\U0001F1EB\U0001F1F7");
        QTest::newRow("220 flags kept whole") << repeated(flag, 220) << repeated(flag, 220);
        QTest::newRow("221 flags cut between flags") << repeated(flag, 221) << repeated(flag, 220) + u'\u2026';
        const QString accented = QStringLiteral("e\u0301");
        QTest::newRow("combining accents count once") << repeated(accented, 230) << repeated(accented, 220) + u'\u2026';
    }

    void friendlyErrors() {
        QFETCH(QString, output);
        QFETCH(QString, expected);
        QCOMPARE(YtDlp::friendlyError(output), expected);
    }

    void loginMessageIsExact() {
        QCOMPARE(YtDlp::loginNeededMessage,
                 QString::fromUtf8("This content needs a login. Turn on Settings \xE2\x96\xB8 Capture \xE2\x96\xB8 "
                                   "\xE2\x80\x9CUse Chrome login for private content\xE2\x80\x9D and try again."));
    }

    void selfHealing_data() {
        QTest::addColumn<QString>("message");
        QTest::addColumn<bool>("heals");

        QTest::newRow("unsupported URL") << QStringLiteral("Unsupported URL: https://x") << true;
        QTest::newRow("signature extraction") << QStringLiteral("[youtube] x: Unable to extract signature") << true;
        QTest::newRow("unknown") << QStringLiteral("Unknown error") << true;
        QTest::newRow("empty") << QString() << true;
        QTest::newRow("404") << QStringLiteral("HTTP Error 404: Not Found") << false;
        QTest::newRow("403 may be a stale engine") << QStringLiteral("HTTP Error 403: Forbidden") << true;
        QTest::newRow("mixed case") << QStringLiteral("Connection Reset by peer") << false;
        QTest::newRow("login message") << YtDlp::loginNeededMessage << false;

        const char *phrases[] = {"login", "cookies", "private", "members-only", "premium", "not available in your",
                                 "copyright", "removed", "deleted", "confirm your age", "timed out", "timeout",
                                 "network", "connection reset", "connection refused", "no space", "permission denied",
                                 "http error 404", "video unavailable", "this video is unavailable",
                                 "sign in to confirm", "only spotify track", "couldn't read track"};
        for (const char *phrase : phrases) {
            const QString upper = QString::fromUtf8(phrase).toUpper();
            QTest::addRow("phrase: %s", phrase) << QStringLiteral("[site] 42: ") + upper + QStringLiteral(" (details)")
                                                << false;
        }
    }

    void selfHealing() {
        QFETCH(QString, message);
        QFETCH(bool, heals);
        QCOMPARE(YtDlp::shouldSelfHeal(message), heals);
    }

    void durationTexts_data() {
        QTest::addColumn<std::optional<double>>("seconds");
        QTest::addColumn<QString>("expected");
        using D = std::optional<double>;
        QTest::newRow("unknown") << D() << QString();
        QTest::newRow("zero") << D(0) << QString();
        QTest::newRow("negative") << D(-3) << QString();
        QTest::newRow("half a second") << D(0.5) << QStringLiteral("0:00");
        QTest::newRow("under a minute") << D(59) << QStringLiteral("0:59");
        QTest::newRow("truncated") << D(212.9) << QStringLiteral("3:32");
        QTest::newRow("one hour") << D(3600) << QStringLiteral("1:00:00");
        QTest::newRow("long") << D(36000 + 61) << QStringLiteral("10:01:01");
    }

    void durationTexts() {
        QFETCH(std::optional<double>, seconds);
        QFETCH(QString, expected);
        ProbeResult probe;
        probe.durationSeconds = seconds;
        QCOMPARE(probe.durationText(), expected);
    }
};

VORLIX_TEST_SUITE(YtDlpTextTest)
#include "YtDlpTextTest.moc"
