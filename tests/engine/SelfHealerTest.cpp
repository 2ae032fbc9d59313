#include "Await.h"
#include "TestEnv.h"
#include "TestMain.h"

#include "core/AppSettings.h"
#include "engine/SelfHealer.h"

#include <QDir>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;

namespace {
// Single-quoted for /bin/sh.
QString quoted(const QString &text) { return u'\'' + QString(text).replace(u"'"_s, u"'\\''"_s) + u'\''; }

} // namespace

class SelfHealerTest : public QObject {
    Q_OBJECT
    QString m_dir;
    QString m_tool;
    double m_now = 1'800'000'000;
    std::unique_ptr<AppSettings> m_settings;
    int m_case = 0;

    std::unique_ptr<SelfHealer> makeHealer(const QString &tool) {
        return std::make_unique<SelfHealer>(*m_settings, [tool] { return tool; }, [this] { return m_now; });
    }

    // The recording stand-in downloader; every call passes exactly one argument.
    void writeDownloader(const QString &version, const QString &updateOut = {}, const QString &updateErr = {}, int updateStatus = 0,
                         double firstUpdateSleep = 0, const QString &versionAfter = {}) {
        const QString state = quoted(m_dir + u"/updated"_s);
        m_tool = TestEnv::standIn(u"yt-dlp"_s,
            QStringLiteral("case \"$1\" in\n"
                           "--version) if [ -e %1 ]; then printf '%s' %2; else printf '%s' %3; fi; exit 0;;\n"
                           "-U) [ -e %1 ] || sleep %4; printf '%s' %5; printf '%s' %6 >&2; touch %1; exit %7;;\n"
                           "esac\nexit 2")
                .arg(state, quoted(versionAfter.isNull() ? version : versionAfter), quoted(version))
                .arg(firstUpdateSleep).arg(quoted(updateOut), quoted(updateErr)).arg(updateStatus));
        QVERIFY(!m_tool.isEmpty());
    }
    static int calls(const QString &argument) { return int(TestEnv::standInArgs(u"yt-dlp"_s).count(argument)); }

private Q_SLOTS:
    void init() {
        m_dir = TestEnv::root() + u"/healer-"_s + QString::number(++m_case);
        QDir().mkpath(m_dir);
        m_settings = std::make_unique<AppSettings>(m_dir + u"/settings.ini"_s);
        m_now = 1'800'000'000;
    }

    // One row per way the answer is read: which phrase, on which stream, which wins, their case.
    void updateOutcomes_data() {
        QTest::addColumn<QString>("out");
        QTest::addColumn<QString>("err");
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("result");
        QTest::addColumn<bool>("updated");
        QTest::newRow("up to date") << u"Latest version: 2025.01.01\nyt-dlp is up to date (2025.01.01)\n"_s
                                    << QString() << 0 << u"Engine up to date"_s << false;
        QTest::newRow("updated, told on stderr, bad status")
            << QString() << u"Updated yt-dlp to 2025.02.01"_s << 1 << u"Engine updated"_s << true;
        QTest::newRow("both phrases: the update wins")
            << u"yt-dlp is up to date\nUpdated yt-dlp to 2"_s << QString() << 0 << u"Engine updated"_s << true;
        QTest::newRow("error, failed status") << QString() << u"ERROR: Unable to obtain version info"_s << 1
                                              << u"Update check finished"_s << false;
        QTest::newRow("phrases are case-sensitive") << u"YT-DLP IS UP TO DATE; updated YT-DLP TO 2"_s << QString()
                                                   << 0 << u"Update check finished"_s << false;
    }
    void updateOutcomes() {
        QFETCH(QString, out);
        QFETCH(QString, err);
        QFETCH(int, status);
        QFETCH(QString, result);
        writeDownloader(u"2025.01.01"_s, out, err, status, 0, u"2025.02.01\n"_s);
        auto healer = makeHealer(m_tool);

        QTEST(vtest::await(healer->updateEngine()), "updated");
        QCOMPARE(healer->lastUpdateResult(), std::optional<QString>(result));
        QVERIFY(!healer->isUpdating());
        QCOMPARE(m_settings->lastEngineUpdateCheck(), m_now);
        // The version is asked again after every update.
        QCOMPARE(TestEnv::standInArgs(u"yt-dlp"_s), (QStringList{u"-U"_s, u"--version"_s}));
        QCOMPARE(healer->engineVersion(), u"2025.02.01"_s);
    }

    void overlappingUpdatesRunOnce() {
        writeDownloader(u"1"_s, u"Updated yt-dlp to 2"_s, {}, 0, 0.5);
        auto healer = makeHealer(m_tool);
        auto first = healer->updateEngine();
        QVERIFY(healer->isUpdating());
        QCOMPARE(vtest::await(healer->updateEngine()), false);
        QVERIFY2(healer->isUpdating(), "the second caller must not wait for the running update");

        QCOMPARE(vtest::await(std::move(first)), true);
        QVERIFY(!healer->isUpdating());
        QCOMPARE(calls(u"-U"_s), 1);
        // Once it has finished, the next update runs again.
        QCOMPARE(vtest::await(healer->updateEngine()), true);
        QCOMPARE(calls(u"-U"_s), 2);
    }

    void destroyedWhileUpdating() {
        writeDownloader(u"1"_s, u"yt-dlp is up to date"_s, {}, 0, 0.5);
        auto healer = makeHealer(m_tool);
        auto task = healer->updateEngine();
        healer.reset();
        // The run finishes after its owner is gone; nothing may touch the dead object.
        QCOMPARE(vtest::await(std::move(task)), false);
    }

    void cleanupTestCase() { TestEnv::removeStubTool(u"yt-dlp"_s); }
};

VORLIX_TEST_SUITE(SelfHealerTest)
#include "SelfHealerTest.moc"
