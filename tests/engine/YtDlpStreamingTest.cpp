#include "Await.h"
#include "TestEnv.h"
#include "TestMain.h"
#include "engine_media.h"

#include "engine/YtDlp.h"

#include <QElapsedTimer>
#include <QTest>

#include <csignal>
#include <unistd.h>

namespace {
struct Run {
    YtDlp::StreamResult result;
    QStringList lines;
    QList<YtDlp::ChildProcess> registered;
};

// Runs `script` under /bin/sh through runStreaming; `onLine` may act on the run (e.g. cancel it).
QCoro::Task<> runScript(Run &run, QString script, std::function<void(Run &, const QString &)> onLine = {}) {
    const QStringList args{QStringLiteral("-c"), script};
    run.result = co_await YtDlp::runStreaming(
        QStringLiteral("/bin/sh"), args, [&run](YtDlp::ChildProcess child) { run.registered << child; },
        [&run, onLine](const QString &line) {
            run.lines << line;
            if (onLine)
                onLine(run, line);
        });
}
} // namespace

class YtDlpStreamingTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void linesAreCutAtNewlines_data() {
        QTest::addColumn<QString>("script");
        QTest::addColumn<QStringList>("expected");
        QTest::newRow("line split across writes") << QStringLiteral("printf 'VORLIX|1'; sleep 0.3; printf '0%%|a|b\\nsecond\\n'")
                                                  << QStringList{QStringLiteral("VORLIX|10%|a|b"), QStringLiteral("second")};
        QTest::newRow("trailing partial line discarded") << QStringLiteral("printf 'whole\\npartial'") << QStringList{QStringLiteral("whole")};
        QTest::newRow("character split across writes") << QStringLiteral("printf 'wait\\342\\200'; sleep 0.3; printf '\\246\\n'")
                                                       << QStringList{QStringLiteral("wait\u2026")};
    }
    void linesAreCutAtNewlines() {
        QFETCH(QString, script);
        QFETCH(QStringList, expected);
        Run run;
        vtest::await(runScript(run, script));
        QCOMPARE(run.result.status, 0);
        QCOMPARE(run.lines, expected);
    }

    void statusAndWholeErrorOutput() {
        Run run;
        vtest::await(runScript(run, QStringLiteral("echo out; head -c 3000000 /dev/zero | tr '\\000' e >&2; printf 'ü' >&2; exit 3")));
        QCOMPARE(run.result.status, 3);
        QCOMPARE(run.result.errorText.size(), 3000001);
        QVERIFY(run.result.errorText.endsWith(QStringLiteral("eü")));
        QCOMPARE(run.lines, QStringList{QStringLiteral("out")});
    }

    void registersOnceInItsOwnGroupAndLaunchFailuresCallNothing() {
        Run run;
        auto task = runScript(run, QStringLiteral("sleep 0.2; echo done"));
        QTRY_COMPARE(run.registered.size(), 1);
        const auto pid = pid_t(run.registered.first().pid());
        QTRY_COMPARE(::getpgid(pid), pid); // the child leaves our group right after the fork
        vtest::await(std::move(task));
        QCOMPARE(run.registered.size(), 1);
        QVERIFY(!run.registered.first().isRunning()); // the run has returned: the handle is spent
        int calls = 0;
        const QString missing = TestEnv::root() + QStringLiteral("/no-such-downloader");
        QVERIFY(!vtest::failure(YtDlp::runStreaming(missing, {}, [&](YtDlp::ChildProcess) { ++calls; }, [&](const QString &) { ++calls; })).isEmpty());
        QCOMPARE(calls, 0);
    }

    void terminateEndsTheWholeGroup() {
        const QString pidFile = TestEnv::root() + QStringLiteral("/stream-grandchild.pid");
        QElapsedTimer clock;
        clock.start();
        int ticksAfterCancel = -1;
        Run run;
        vtest::await(runScript(run, QStringLiteral("sleep 120 & echo $! > '%1'; while :; do echo tick; sleep 0.05; done").arg(pidFile),
                               [&](Run &r, const QString &) {
                                   if (++ticksAfterCancel == 0)
                                       r.registered.first().terminate();
                               }));
        QVERIFY2(clock.elapsed() < 10000, "a terminated run ends promptly");
        QCOMPARE(run.result.status, SIGTERM);
        QVERIFY(ticksAfterCancel <= 5);
        const qint64 grandchild = TestEnv::readFile(pidFile).trimmed().toLongLong();
        QVERIFY(grandchild > 0);
        QTRY_VERIFY_WITH_TIMEOUT(EngineMedia::commandLine(grandchild).isEmpty(), 5000);
        QTRY_VERIFY_WITH_TIMEOUT(EngineMedia::liveGroupMembers(run.registered.first().pid()).isEmpty(), 5000);
        run.registered.first().terminate(); // a spent handle never signals again: its pid may be reused by now
    }

};

VORLIX_TEST_SUITE(YtDlpStreamingTest)
#include "YtDlpStreamingTest.moc"
