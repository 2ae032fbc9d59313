#include "Await.h"
#include "TestEnv.h"
#include "TestMain.h"
#include "engine_media.h"

#include "engine/ChildRegistry.h"
#include "engine/Tools.h"
#include "engine/YtDlp.h"

#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>

using namespace Qt::StringLiterals;

namespace {
// Writes an owner-executable file with the given modification time.
void writeFile(const QString &path, const QByteArray &content, qint64 mtime) {
    QVERIFY(TestEnv::writeFile(path, content));
    QFile::setPermissions(path, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    struct utimbuf times { mtime, mtime };
    QCOMPARE(::utime(QFile::encodeName(path).constData(), &times), 0);
}
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
QCoro::Task<int> twoLongSteps(QString sh) {
    const QStringList sleep{QStringLiteral("-c"), QStringLiteral("sleep 600")};
    co_await Tools::run(sh, sleep, 600);
    co_return (co_await Tools::run(sh, sleep, 600)).status;
}
} // namespace

// Running the helper programs: output, process groups, ending them; installing and finding them.
class ToolsTest : public QObject {
    Q_OBJECT
    const QString sh = u"/bin/sh"_s;

private Q_SLOTS:
    // A time-out or quitting ends a child with whatever it started, also one that ignores SIGTERM.
    void groupsEndWithEverythingInThem_data() {
        QTest::addColumn<QString>("prelude");
        QTest::addColumn<double>("timeout");
        QTest::addColumn<int>("graceMs"); // < 0: no quit; ample for a group that goes, short for one that never will
        QTest::addColumn<int>("status");
        QTest::newRow("time-out") << QString() << 0.5 << -1 << 15;
        QTest::newRow("quit") << QString() << 600.0 << 5000 << 15;
        QTest::newRow("quit, ignores SIGTERM") << u"trap '' TERM; "_s << 600.0 << 200 << 9;
    }
    void groupsEndWithEverythingInThem() {
        QFETCH(QString, prelude);
        QFETCH(double, timeout);
        QFETCH(int, graceMs);
        const QString pidFile = TestEnv::root() + u"/left-behind.pid"_s;
        QFile::remove(pidFile);
        QElapsedTimer clock;
        clock.start();
        auto task = Tools::run(sh, {u"-c"_s, prelude + u"sleep 600 & echo $! > '%1'; wait"_s.arg(pidFile)}, timeout);
        QTRY_VERIFY(!TestEnv::readFile(pidFile).trimmed().isEmpty());
        if (graceMs >= 0) {
            QCOMPARE(ChildRegistry::running().size(), 1);
            QCOMPARE(ChildRegistry::endAll(graceMs), prelude.isEmpty());
        }
        QTEST(vtest::await(std::move(task)).status, "status");
        QVERIFY2(clock.elapsed() < 10000, "the run should end soon after its time-out");
        QVERIFY(ChildRegistry::running().isEmpty());
        const qint64 grandchild = TestEnv::readFile(pidFile).trimmed().toLongLong();
        QTRY_VERIFY_WITH_TIMEOUT(EngineMedia::commandLine(grandchild).isEmpty(), 5000); // a zombie counts as gone
    }

    // A child started while quitting is under way (a pipeline's next step) is ended as well.
    void quittingEndsWhatStartsMeanwhile() {
        auto task = twoLongSteps(sh);
        QTRY_COMPARE(ChildRegistry::running().size(), 1);
        QVERIFY(ChildRegistry::endAll(5000));
        QVERIFY(ChildRegistry::running().isEmpty());
        QCOMPARE(vtest::await(std::move(task)), 15);
    }

    void installRules() {
        QTemporaryDir dir;
        const Tools::Layout layout{dir.path() + u"/bin"_s, dir.path() + u"/pkg"_s, {}};
        const auto pkg = [&](const char *name) -> QString { return layout.packagedDir + u'/' + QLatin1String(name); };
        const auto installed = [&](const char *name) -> QString { return layout.toolDir + u'/' + QLatin1String(name); };
        writeFile(pkg("yt-dlp"), "ytdlp-v2", 2000);
        writeFile(pkg("ffmpeg"), "ffmpeg-v2", 2000);
        writeFile(pkg("whisper-cli"), "whisper-v1", 1000);
        QFile::setPermissions(pkg("ffmpeg"), QFileDevice::ReadOwner);
        Tools::installBundledTools(layout);
        struct stat st {};
        QCOMPARE(::stat(QFile::encodeName(installed("ffmpeg")).constData(), &st), 0);
        QCOMPARE(int(st.st_mode & 07777), 0755);

        // The downloader updates itself, so it is never replaced; the others are when the packaged copy is newer.
        writeFile(installed("yt-dlp"), "ytdlp-self-updated", 1000);
        writeFile(installed("ffmpeg"), "ffmpeg-v1", 1000);
        writeFile(installed("whisper-cli"), "whisper-local", 1000); // equal time
        Tools::installBundledTools(layout);
        QCOMPARE(TestEnv::readFile(installed("yt-dlp")), QByteArray("ytdlp-self-updated"));
        QCOMPARE(TestEnv::readFile(installed("ffmpeg")), QByteArray("ffmpeg-v2"));
        QCOMPARE(TestEnv::readFile(installed("whisper-cli")), QByteArray("whisper-local"));
    }

    void locationPrecedence() {
        QTemporaryDir dir;
        Tools::Layout layout{dir.path() + u"/bin"_s, dir.path() + u"/pkg"_s, {}};
        const QString local = dir.path() + u"/local/"_s, usr = dir.path() + u"/usr/"_s;
        for (const QString &name : {Tools::ytDlpName, Tools::ffmpegName, Tools::whisperName})
            layout.candidates[name] = {local + name, usr + name};
        const auto ffmpeg = [&] { return Tools::systemFirstURL(Tools::ffmpegName, layout); };
        const QString installed = layout.toolDir + u"/ffmpeg"_s;

        // Nothing anywhere: the downloader is the tool folder's path; the others are absent.
        QCOMPARE(Tools::ytDlpURL(layout), layout.toolDir + u"/yt-dlp"_s);
        QCOMPARE(ffmpeg(), QString());
        // System copies first, in the candidates' order, then the installed one.
        writeFile(usr + u"ffmpeg"_s, "x", 1000);
        writeFile(installed, "x", 1000);
        QCOMPARE(ffmpeg(), usr + u"ffmpeg"_s);
        QFile::remove(usr + u"ffmpeg"_s);
        QCOMPARE(ffmpeg(), installed);

        // The downloader: the installed copy beats a system-wide one, and is installed on demand.
        writeFile(local + u"yt-dlp"_s, "x", 1000);
        QCOMPARE(Tools::ytDlpURL(layout), local + u"yt-dlp"_s);
        writeFile(layout.packagedDir + u"/yt-dlp"_s, "pkg", 1000);
        QCOMPARE(Tools::ytDlpURL(layout), layout.toolDir + u"/yt-dlp"_s);
        QCOMPARE(TestEnv::readFile(layout.toolDir + u"/yt-dlp"_s), QByteArray("pkg"));
    }

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
        Run run;
        vtest::await(runScript(run, script));
        QCOMPARE(run.result.status, 0);
        QTEST(run.lines, "expected");
    }

    // Megabytes on stderr must not deadlock either runner, nor cut a character in two.
    void bothRunnersKeepOutputsWhole() {
        const QString script = u"echo out; head -c 3000000 /dev/zero | tr '\\000' e >&2; printf 'ü' >&2; exit 3"_s;
        const auto r = vtest::await(Tools::run(sh, {u"-c"_s, script}, 30));
        Run run;
        vtest::await(runScript(run, script));
        QCOMPARE(QList<int>({r.status, run.result.status}), QList<int>({3, 3}));
        QVERIFY(r.stderrText.size() == 3000001 && run.result.errorText.size() == 3000001 && run.result.errorText.endsWith(u"eü"_s));
        QCOMPARE(QStringList({r.stdoutText, run.lines.join(u'|')}), QStringList({u"out\n"_s, u"out"_s}));
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

VORLIX_TEST_SUITE(ToolsTest)
#include "ToolsTest.moc"
