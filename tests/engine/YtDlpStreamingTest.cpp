#include "Await.h"
#include "TestEnv.h"
#include "TestMain.h"
#include "engine_media.h"

#include "engine/YtDlp.h"

#include <QElapsedTimer>
#include <QFile>
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
Run runScript(const QString &script, std::function<void(Run &, const QString &)> onLine = {}) {
    Run run;
    const QStringList args{QStringLiteral("-c"), script};
    run.result = vtest::await(YtDlp::runStreaming(
        QStringLiteral("/bin/sh"), args, [&run](YtDlp::ChildProcess child) { run.registered << child; },
        [&run, onLine](const QString &line) {
            run.lines << line;
            if (onLine)
                onLine(run, line);
        }));
    return run;
}

QByteArray contents(const QString &path) {
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

bool alive(qint64 pid) { return !EngineMedia::commandLine(pid).isEmpty(); }

} // namespace

class YtDlpStreamingTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void linesAreCutAtNewlines_data() {
        QTest::addColumn<QString>("script");
        QTest::addColumn<QStringList>("expected");

        QTest::newRow("line split across writes")
            << QStringLiteral("printf 'VORLIX|1'; sleep 0.3; printf '0%%|a|b\\nsecond\\n'")
            << QStringList{QStringLiteral("VORLIX|10%|a|b"), QStringLiteral("second")};
        QTest::newRow("two lines in one write, in order")
            << QStringLiteral("printf 'one\\ntwo\\n'") << QStringList{QStringLiteral("one"), QStringLiteral("two")};
        QTest::newRow("spaces and tabs trimmed, empty lines kept")
            << QStringLiteral("printf ' \\t a b \\t\\n\\n\\t\\nend\\n'")
            << QStringList{QStringLiteral("a b"), QString(), QString(), QStringLiteral("end")};
        QTest::newRow("carriage return is not trimmed") << QStringLiteral("printf 'x\\r\\n'") << QStringList{QStringLiteral("x\r")};
        QTest::newRow("trailing partial line discarded")
            << QStringLiteral("printf 'whole\\npartial'") << QStringList{QStringLiteral("whole")};
        QTest::newRow("invalid UTF-8 line dropped")
            << QStringLiteral("printf 'good\\n\\377bad\\nafter\\n'") << QStringList{QStringLiteral("good"), QStringLiteral("after")};
        QTest::newRow("character split across writes")
            << QStringLiteral("printf 'wait\\342\\200'; sleep 0.3; printf '\\246\\n'") << QStringList{QStringLiteral("wait\u2026")};
        QTest::newRow("no output") << QStringLiteral("exit 0") << QStringList{};
    }

    void linesAreCutAtNewlines() {
        QFETCH(QString, script);
        QFETCH(QStringList, expected);
        const Run run = runScript(script);
        QCOMPARE(run.result.status, 0);
        QCOMPARE(run.lines, expected);
    }

    void manyLinesArriveInOrder() {
        const Run run = runScript(QStringLiteral("seq 1 20000"));
        QCOMPARE(run.lines.size(), 20000);
        for (int i = 0; i < run.lines.size(); ++i)
            QCOMPARE(run.lines[i], QString::number(i + 1));
    }

    void statusAndWholeErrorOutput() {
        const Run run = runScript(QStringLiteral("echo out; head -c 3000000 /dev/zero | tr '\\000' e >&2; printf 'ü' >&2; exit 3"));
        QCOMPARE(run.result.status, 3);
        QCOMPARE(run.result.errorText.size(), 3000001);
        QVERIFY(run.result.errorText.endsWith(QStringLiteral("eü")));
        QCOMPARE(run.lines, QStringList{QStringLiteral("out")});

        const Run invalid = runScript(QStringLiteral("printf 'bad\\377' >&2; exit 1"));
        QCOMPARE(invalid.result.status, 1);
        QCOMPARE(invalid.result.errorText, QString());
    }

    void registersOnceInItsOwnGroup() {
        qint64 groupAtRegistration = -1;
        bool runningAtRegistration = false;
        const QStringList args{QStringLiteral("-c"), QStringLiteral("sleep 0.2; echo done")};
        int calls = 0;
        YtDlp::ChildProcess handle;
        const auto result = vtest::await(YtDlp::runStreaming(
            QStringLiteral("/bin/sh"), args,
            [&](YtDlp::ChildProcess child) {
                ++calls;
                handle = child;
                runningAtRegistration = child.isRunning();
                groupAtRegistration = ::getpgid(pid_t(child.pid()));
            },
            {}));
        QCOMPARE(result.status, 0);
        QCOMPARE(calls, 1);
        QVERIFY(handle.pid() > 0);
        QVERIFY(runningAtRegistration);
        QCOMPARE(groupAtRegistration, handle.pid());
        QVERIFY(!handle.isRunning()); // the run has returned: the handle is spent
    }

    void launchFailureCallsNothing() {
        int registered = 0;
        int lines = 0;
        const QString missing = TestEnv::root() + QStringLiteral("/no-such-downloader");
        try {
            vtest::await(YtDlp::runStreaming(missing, {}, [&](YtDlp::ChildProcess) { ++registered; },
                                             [&](const QString &) { ++lines; }));
            QFAIL("a missing tool must not run");
        } catch (const Tools::LaunchError &e) {
            QCOMPARE(e.message(), QStringLiteral("No such file or directory"));
        }
        QCOMPARE(registered, 0);
        QCOMPARE(lines, 0);
    }

    void terminateEndsTheWholeGroup() {
        const QString pidFile = TestEnv::root() + QStringLiteral("/stream-grandchild.pid");
        QFile::remove(pidFile);
        const QString script =
            QStringLiteral("sleep 120 & echo $! > '%1'; echo started; while :; do echo tick; sleep 0.05; done").arg(pidFile);
        QElapsedTimer clock;
        clock.start();
        int ticksAfterCancel = 0;
        bool cancelled = false;
        const Run run = runScript(script, [&](Run &r, const QString &line) {
            if (cancelled && line == QLatin1String("tick"))
                ++ticksAfterCancel;
            if (line == QLatin1String("tick") && !cancelled) {
                cancelled = true;
                r.registered.first().terminate();
            }
        });
        QVERIFY2(clock.elapsed() < 10000, "a terminated run ends promptly");
        QCOMPARE(run.result.status, SIGTERM);
        QCOMPARE(run.registered.size(), 1);
        QVERIFY(ticksAfterCancel <= 5);

        const qint64 grandchild = contents(pidFile).trimmed().toLongLong();
        QVERIFY(grandchild > 0);
        QTRY_VERIFY_WITH_TIMEOUT(!alive(grandchild), 5000);
        QTRY_VERIFY_WITH_TIMEOUT(EngineMedia::liveGroupMembers(run.registered.first().pid()).isEmpty(), 5000);

        // A spent handle never signals again: its pid may be reused by now.
        run.registered.first().terminate();
    }

    void concurrentRunsKeepTheirOwnLines() {
        Run a, b;
        const QStringList argsA{QStringLiteral("-c"), QStringLiteral("for i in 1 2 3 4 5; do echo a$i; sleep 0.05; done")};
        const QStringList argsB{QStringLiteral("-c"), QStringLiteral("for i in 1 2 3 4 5; do echo b$i; sleep 0.03; done")};
        auto taskA = YtDlp::runStreaming(QStringLiteral("/bin/sh"), argsA, {}, [&a](const QString &l) { a.lines << l; });
        auto taskB = YtDlp::runStreaming(QStringLiteral("/bin/sh"), argsB, {}, [&b](const QString &l) { b.lines << l; });
        QCOMPARE(vtest::await(std::move(taskA)).status, 0);
        QCOMPARE(vtest::await(std::move(taskB)).status, 0);
        QCOMPARE(a.lines, (QStringList{QStringLiteral("a1"), QStringLiteral("a2"), QStringLiteral("a3"), QStringLiteral("a4"),
                                       QStringLiteral("a5")}));
        QCOMPARE(b.lines, (QStringList{QStringLiteral("b1"), QStringLiteral("b2"), QStringLiteral("b3"), QStringLiteral("b4"),
                                       QStringLiteral("b5")}));
    }
};

VORLIX_TEST_SUITE(YtDlpStreamingTest)
#include "YtDlpStreamingTest.moc"
