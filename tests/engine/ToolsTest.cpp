#include "Await.h"
#include "TestEnv.h"
#include "TestMain.h"
#include "engine_media.h"

#include "engine/ChildRegistry.h"
#include "engine/Tools.h"

#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>
#include <utime.h>

namespace {
Tools::RunResult runSync(const QString &exe, const QStringList &args, double timeout = 30) {
    return vtest::await(Tools::run(exe, args, timeout));
}

// Writes an owner-executable file with the given modification time.
void writeFile(const QString &path, const QByteArray &content, qint64 mtime) {
    QVERIFY(TestEnv::writeFile(path, content));
    QFile::setPermissions(path, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    struct utimbuf times { mtime, mtime };
    QCOMPARE(::utime(QFile::encodeName(path).constData(), &times), 0);
}
} // namespace

class ToolsTest : public QObject {
    Q_OBJECT
    const QString sh = QStringLiteral("/bin/sh");

private Q_SLOTS:
    void runKeepsOutputsWhole() {
        // Several megabytes on stderr and nothing else must not deadlock.
        const auto r = runSync(sh, {QStringLiteral("-c"), QStringLiteral("head -c 6000000 /dev/zero | tr '\\000' e >&2; printf out; exit 4")});
        QCOMPARE(r.status, 4);
        QCOMPARE(r.stderrText.size(), 6000000);
        QCOMPARE(r.stdoutText, QStringLiteral("out"));
    }

    void timeoutTerminatesTheWholeGroup() {
        const QString pidFile = TestEnv::root() + QStringLiteral("/grandchild.pid");
        const QStringList args{QStringLiteral("-c"), QStringLiteral("sleep 60 & echo $! > '%1'; wait").arg(pidFile)};
        QElapsedTimer clock;
        clock.start();
        const auto r = runSync(sh, args, 0.5);
        QCOMPARE(r.status, 15);
        QVERIFY2(clock.elapsed() < 10000, "the run should end soon after its time-out");
        const qint64 grandchild = TestEnv::readFile(pidFile).trimmed().toLongLong();
        QVERIFY(grandchild > 0);
        QTRY_VERIFY_WITH_TIMEOUT(EngineMedia::commandLine(grandchild).isEmpty(), 5000); // a zombie counts as gone
    }

    // Quitting ends every child with whatever it started, also one that ignores SIGTERM.
    void endAllEndsEveryGroup_data() {
        QTest::addColumn<QString>("prelude");
        QTest::addColumn<int>("status");
        QTest::addColumn<int>("graceMs"); // ample for a group that goes; short for one that never will
        QTest::newRow("ordinary") << QString() << 15 << 5000;
        QTest::newRow("ignores SIGTERM") << QStringLiteral("trap '' TERM; ") << 9 << 200;
    }
    void endAllEndsEveryGroup() {
        QFETCH(QString, prelude);
        QFETCH(int, graceMs);
        const QString pidFile = TestEnv::root() + QStringLiteral("/left-behind.pid");
        QFile::remove(pidFile);
        const QStringList args{QStringLiteral("-c"), prelude + QStringLiteral("sleep 600 & echo $! > '%1'; wait").arg(pidFile)};
        auto task = Tools::run(sh, args, 600);
        QTRY_VERIFY(!TestEnv::readFile(pidFile).trimmed().isEmpty());
        QCOMPARE(ChildRegistry::running().size(), 1);
        QCOMPARE(ChildRegistry::endAll(graceMs), prelude.isEmpty());
        QTEST(vtest::await(std::move(task)).status, "status");
        QVERIFY(ChildRegistry::running().isEmpty());
        const qint64 grandchild = TestEnv::readFile(pidFile).trimmed().toLongLong();
        QTRY_VERIFY(EngineMedia::commandLine(grandchild).isEmpty());
    }

    void installRules() {
        QTemporaryDir dir;
        const Tools::Layout layout{dir.path() + QStringLiteral("/bin"), dir.path() + QStringLiteral("/pkg"), {}};
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
        Tools::Layout layout{dir.path() + QStringLiteral("/bin"), dir.path() + QStringLiteral("/pkg"), {}};
        const QString local = dir.path() + QStringLiteral("/local/"), usr = dir.path() + QStringLiteral("/usr/");
        for (const QString &name : {Tools::ytDlpName, Tools::ffmpegName, Tools::whisperName})
            layout.candidates[name] = {local + name, usr + name};
        const auto ffmpeg = [&] { return Tools::systemFirstURL(Tools::ffmpegName, layout); };
        const QString installed = layout.toolDir + QStringLiteral("/ffmpeg");

        // Nothing anywhere: the downloader is the tool folder's path; the others are absent.
        QCOMPARE(Tools::ytDlpURL(layout), layout.toolDir + QStringLiteral("/yt-dlp"));
        QCOMPARE(ffmpeg(), QString());
        // System copies first, in the candidates' order, then the installed one.
        writeFile(usr + QStringLiteral("ffmpeg"), "x", 1000);
        writeFile(installed, "x", 1000);
        QCOMPARE(ffmpeg(), usr + QStringLiteral("ffmpeg"));
        QFile::remove(usr + QStringLiteral("ffmpeg"));
        QCOMPARE(ffmpeg(), installed);

        // The downloader: the installed copy beats a system-wide one, and is installed on demand.
        writeFile(local + QStringLiteral("yt-dlp"), "x", 1000);
        QCOMPARE(Tools::ytDlpURL(layout), local + QStringLiteral("yt-dlp"));
        writeFile(layout.packagedDir + QStringLiteral("/yt-dlp"), "pkg", 1000);
        QCOMPARE(Tools::ytDlpURL(layout), layout.toolDir + QStringLiteral("/yt-dlp"));
        QCOMPARE(TestEnv::readFile(layout.toolDir + QStringLiteral("/yt-dlp")), QByteArray("pkg"));
    }
};

VORLIX_TEST_SUITE(ToolsTest)
#include "ToolsTest.moc"
