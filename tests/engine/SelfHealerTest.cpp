#include "Await.h"
#include "TestEnv.h"
#include "TestMain.h"

#include "core/AppSettings.h"
#include "engine/SelfHealer.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QPointer>
#include <QSignalSpy>
#include <QTest>

#include <memory>

namespace {
// Single-quoted for /bin/sh.
QString quoted(const QString &text) { return u'\'' + QString(text).replace(QStringLiteral("'"), QStringLiteral("'\\''")) + u'\''; }
} // namespace

class SelfHealerTest : public QObject {
    Q_OBJECT
    QString m_dir;
    QString m_tool;
    QString m_log;
    double m_now = 1'800'000'000;
    std::unique_ptr<AppSettings> m_settings;
    int m_case = 0;

    std::unique_ptr<SelfHealer> makeHealer(const QString &tool) {
        return std::make_unique<SelfHealer>(*m_settings, [tool] { return tool; }, [this] { return m_now; });
    }

    // A downloader that logs its arguments, answers --version with `version` (and with
    // `versionAfter` once -U has run), and answers -U as scripted.
    void writeDownloader(const QString &version, const QString &updateOut, const QString &updateErr = QString(),
                         int updateStatus = 0, double updateSleep = 0, const QString &versionAfter = QString(),
                         int versionStatus = 0) {
        const QString state = m_dir + QStringLiteral("/updated");
        QFile::remove(state);
        const QString body =
            QStringLiteral("#!/bin/sh\necho \"$*\" >> %1\n"
                           "if [ \"$1\" = --version ]; then\n"
                           "  if [ -e %2 ]; then printf '%s' %3; else printf '%s' %4; fi\n"
                           "  exit %5\nfi\n"
                           "if [ \"$1\" = -U ]; then\n"
                           "  sleep %6\n  printf '%s' %7\n  printf '%s' %8 >&2\n  touch %2\n  exit %9\nfi\nexit 2\n")
                .arg(quoted(m_log), quoted(state), quoted(versionAfter.isNull() ? version : versionAfter), quoted(version))
                .arg(versionStatus)
                .arg(updateSleep)
                .arg(quoted(updateOut), quoted(updateErr))
                .arg(updateStatus);
        QVERIFY(!TestEnv::writeScript(m_tool, body).isEmpty());
    }

    QStringList calls() const { return QString::fromUtf8(TestEnv::readFile(m_log)).split(u'\n', Qt::SkipEmptyParts); }
    int calls(const QString &argument) const { return int(calls().count(argument)); }

private Q_SLOTS:
    void init() {
        m_dir = TestEnv::root() + QStringLiteral("/healer-") + QString::number(++m_case);
        QDir().mkpath(m_dir);
        m_tool = m_dir + QStringLiteral("/yt-dlp");
        m_log = m_dir + QStringLiteral("/calls.log");
        m_settings = std::make_unique<AppSettings>(m_dir + QStringLiteral("/settings.ini"));
        m_now = 1'800'000'000;
    }

    void updateOutcomes_data() {
        QTest::addColumn<QString>("out");
        QTest::addColumn<QString>("err");
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("result");
        QTest::addColumn<bool>("updated");

        QTest::newRow("up to date") << QStringLiteral("Latest version: 2025.01.01\nyt-dlp is up to date (2025.01.01)\n")
                                    << QString() << 0 << QStringLiteral("Engine up to date") << false;
        QTest::newRow("updated") << QStringLiteral("Updating to 2025.02.01 ...\nUpdated yt-dlp to 2025.02.01\n") << QString()
                                 << 0 << QStringLiteral("Engine updated") << true;
        QTest::newRow("updated, told on stderr, bad status")
            << QString() << QStringLiteral("Updated yt-dlp to 2025.02.01") << 1 << QStringLiteral("Engine updated") << true;
        QTest::newRow("both phrases: the update wins")
            << QStringLiteral("yt-dlp is up to date\nUpdated yt-dlp to 2") << QString() << 0 << QStringLiteral("Engine updated")
            << true;
        QTest::newRow("error, failed status") << QString() << QStringLiteral("ERROR: Unable to obtain version info") << 1
                                              << QStringLiteral("Update check finished") << false;
        QTest::newRow("phrases are case-sensitive") << QStringLiteral("YT-DLP IS UP TO DATE; updated YT-DLP TO 2") << QString()
                                                   << 0 << QStringLiteral("Update check finished") << false;
    }

    void updateOutcomes() {
        QFETCH(QString, out);
        QFETCH(QString, err);
        QFETCH(int, status);
        QFETCH(QString, result);
        QFETCH(bool, updated);

        writeDownloader(QStringLiteral("2025.01.01"), out, err, status, 0, QStringLiteral("2025.02.01\n"));
        auto healer = makeHealer(m_tool);
        QSignalSpy updating(healer.get(), &SelfHealer::isUpdatingChanged);
        QSignalSpy results(healer.get(), &SelfHealer::lastUpdateResultChanged);

        QCOMPARE(vtest::await(healer->updateEngine()), updated);
        QCOMPARE(healer->lastUpdateResult(), std::optional<QString>(result));
        QVERIFY(!healer->isUpdating());
        QCOMPARE(updating.count(), 2); // on, then off
        QCOMPARE(results.count(), 1);
        QCOMPARE(m_settings->lastEngineUpdateCheck(), m_now);
        // The version is asked again after every update.
        QCOMPARE(calls(), (QStringList{QStringLiteral("-U"), QStringLiteral("--version")}));
        QCOMPARE(healer->engineVersion(), QStringLiteral("2025.02.01"));
    }

    void versionQuery() {
        writeDownloader(QStringLiteral(" \n2025.01.01\r\n\n"), QString());
        auto healer = makeHealer(m_tool);
        QCOMPARE(healer->engineVersion(), QStringLiteral("\u2026"));
        QSignalSpy changed(healer.get(), &SelfHealer::engineVersionChanged);
        vtest::await(healer->refreshVersion());
        QCOMPARE(healer->engineVersion(), QStringLiteral("2025.01.01"));
        vtest::await(healer->refreshVersion());
        QCOMPARE(changed.count(), 1); // no news, no signal

        writeDownloader(QStringLiteral("2025.01.01"), QString(), QString(), 0, 0, QString(), 1);
        vtest::await(healer->refreshVersion());
        QCOMPARE(healer->engineVersion(), QStringLiteral("not found")); // a failing status
    }

    void missingDownloader() {
        auto healer = makeHealer(m_dir + QStringLiteral("/not-installed/yt-dlp"));
        vtest::await(healer->refreshVersion());
        QCOMPARE(healer->engineVersion(), QStringLiteral("not found"));
        QCOMPARE(vtest::await(healer->updateEngine()), false);
        QCOMPARE(healer->lastUpdateResult(), std::optional<QString>(QStringLiteral("Update check failed")));
        QCOMPARE(m_settings->lastEngineUpdateCheck(), m_now); // the attempt still counts
    }

    void overlappingUpdatesRunOnce() {
        writeDownloader(QStringLiteral("1"), QStringLiteral("Updated yt-dlp to 2"), QString(), 0, 1.0);
        auto healer = makeHealer(m_tool);
        QSignalSpy written(m_settings.get(), &AppSettings::changed);

        auto first = healer->updateEngine();
        QVERIFY(healer->isUpdating());
        QElapsedTimer clock;
        clock.start();
        QCOMPARE(vtest::await(healer->updateEngine()), false);
        QVERIFY2(clock.elapsed() < 500, "the second caller must not wait for the running update");
        QVERIFY(healer->isUpdating());

        QCOMPARE(vtest::await(std::move(first)), true);
        QVERIFY(!healer->isUpdating());
        QCOMPARE(calls(QStringLiteral("-U")), 1);
        QCOMPARE(written.count(), 1);
        QCOMPARE(written.first().first().toString(), QStringLiteral("lastEngineUpdateCheck"));

        // Once it has finished, the next update runs again.
        QCOMPARE(vtest::await(healer->updateEngine()), true);
        QCOMPARE(calls(QStringLiteral("-U")), 2);
    }

    void dailyCheckNeedsMoreThanADay_data() {
        QTest::addColumn<double>("lastCheckAgo");
        QTest::addColumn<bool>("updates");
        QTest::newRow("exactly a day") << 86400.0 << false;
        QTest::newRow("a day and a second") << 86401.0 << true;
        QTest::newRow("clock set back") << -5000.0 << false;
    }

    void dailyCheckNeedsMoreThanADay() {
        QFETCH(double, lastCheckAgo);
        QFETCH(bool, updates);
        writeDownloader(QStringLiteral("1"), QStringLiteral("yt-dlp is up to date"));
        m_settings->setLastEngineUpdateCheck(m_now - lastCheckAgo);
        auto healer = makeHealer(m_tool);
        vtest::await(healer->dailyCheck());
        QCOMPARE(calls(QStringLiteral("-U")), updates ? 1 : 0);
        QCOMPARE(m_settings->lastEngineUpdateCheck(), updates ? m_now : m_now - lastCheckAgo);
    }

    void startChecksNowAndEverySixHours() {
        writeDownloader(QStringLiteral("2025.01.01"), QStringLiteral("yt-dlp is up to date"));
        auto healer = makeHealer(m_tool);
        QVERIFY(!healer->dailyTimer());
        // A fresh installation has never updated: the first start-up does.
        healer->start();
        QTRY_COMPARE_WITH_TIMEOUT(healer->lastUpdateResult(), std::optional<QString>(QStringLiteral("Engine up to date")), 20000);
        QTRY_VERIFY_WITH_TIMEOUT(!healer->isUpdating(), 20000);
        QCOMPARE(healer->engineVersion(), QStringLiteral("2025.01.01"));
        QCOMPARE(calls(QStringLiteral("-U")), 1);

        QPointer<QTimer> timer = healer->dailyTimer();
        QVERIFY(timer);
        QCOMPARE(timer->interval(), 6 * 60 * 60 * 1000);
        QVERIFY(!timer->isSingleShot());
        QVERIFY(timer->isActive());

        // A second start replaces the timer; it fires later and updates once a day has passed.
        healer->start();
        QTRY_VERIFY_WITH_TIMEOUT(calls(QStringLiteral("--version")) >= 3, 20000);
        QVERIFY(!timer);
        QVERIFY(healer->dailyTimer());
        QCOMPARE(calls(QStringLiteral("-U")), 1); // only minutes have passed

        m_now += 86400.5;
        healer->dailyTimer()->setInterval(50);
        QTRY_COMPARE_WITH_TIMEOUT(calls(QStringLiteral("-U")), 2, 20000);
        QTRY_VERIFY_WITH_TIMEOUT(!healer->isUpdating(), 20000);
        QTest::qWait(300); // further firings within the same day do nothing
        QCOMPARE(calls(QStringLiteral("-U")), 2);
    }

    void destroyedWhileUpdating() {
        writeDownloader(QStringLiteral("1"), QStringLiteral("yt-dlp is up to date"), QString(), 0, 0.5);
        auto healer = makeHealer(m_tool);
        auto task = healer->updateEngine();
        healer.reset();
        // The run finishes after its owner is gone; nothing may touch the dead object.
        QCOMPARE(vtest::await(std::move(task)), false);
    }
};

VORLIX_TEST_SUITE(SelfHealerTest)
#include "SelfHealerTest.moc"
