#include "Await.h"
#include "TestEnv.h"
#include "TestMain.h"
#include "engine_media.h"

#include "engine/YtDlp.h"

#include <QElapsedTimer>
#include <QTest>

#include <csignal>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {
struct Run {
    YtDlp::StreamResult result;
    QStringList lines;
    QList<YtDlp::ChildProcess> registered;
};

// Runs `script` under /bin/sh through runStreaming; `onLine` may act on the run (e.g. cancel it).
QCoro::Task<> runScript(Run &run, QString script, std::function<void(Run &, const QString &)> onLine = {}) {
    const QStringList args{u"-c"_s, script};
    const auto onChild = [&run](YtDlp::ChildProcess child) { run.registered << child; };
    run.result = co_await YtDlp::runStreaming(QStringLiteral("/bin/sh"), args, onChild, [&run, onLine](const QString &line) {
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
        QTest::newRow("line split across writes") << u"printf 'VORLIX|1'; sleep 0.3; printf '0%%|a|b\\nsecond\\n'"_s
                                                  << QStringList{u"VORLIX|10%|a|b"_s, u"second"_s};
        QTest::newRow("trailing partial line discarded") << u"printf 'whole\\npartial'"_s << QStringList{u"whole"_s};
        QTest::newRow("character split across writes") << u"printf 'wait\\342\\200'; sleep 0.3; printf '\\246\\n'"_s
                                                       << QStringList{u"wait\u2026"_s};
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
        vtest::await(runScript(run, u"echo out; head -c 3000000 /dev/zero | tr '\\000' e >&2; printf 'ü' >&2; exit 3"_s));
        QCOMPARE(run.result.status, 3);
        QCOMPARE(run.result.errorText.size(), 3000001);
        QVERIFY(run.result.errorText.endsWith(u"eü"_s));
        QCOMPARE(run.lines, QStringList{u"out"_s});
    }

    void registersOnceInItsOwnGroupAndLaunchFailuresCallNothing() {
        Run run;
        auto task = runScript(run, u"sleep 0.2; echo done"_s);
        QTRY_COMPARE(run.registered.size(), 1);
        const auto pid = pid_t(run.registered.first().pid());
        QTRY_COMPARE(::getpgid(pid), pid); // the child leaves our group right after the fork
        vtest::await(std::move(task));
        QCOMPARE(run.registered.size(), 1);
        QVERIFY(!run.registered.first().isRunning()); // the run has returned: the handle is spent
        int calls = 0;
        const QString missing = TestEnv::root() + u"/no-such-downloader"_s;
        QVERIFY(!vtest::failure(YtDlp::runStreaming(missing, {}, [&](YtDlp::ChildProcess) { ++calls; }, [&](const QString &) { ++calls; })).isEmpty());
        QCOMPARE(calls, 0);
    }

    void terminateEndsTheWholeGroup() {
        const QString pidFile = TestEnv::root() + u"/stream-grandchild.pid"_s;
        QElapsedTimer clock;
        clock.start();
        int ticksAfterCancel = -1;
        Run run;
        vtest::await(runScript(run, u"sleep 120 & echo $! > '%1'; while :; do echo tick; sleep 0.05; done"_s.arg(pidFile),
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
