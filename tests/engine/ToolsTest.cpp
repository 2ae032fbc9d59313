#include "Await.h"
#include "TestEnv.h"
#include "TestMain.h"

#include "core/AppSettings.h"
#include "engine/Tools.h"

#include <QCoroTask>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <vector>
#include <sys/stat.h>
#include <utime.h>

namespace {
Tools::RunResult runSync(const QString &exe, const QStringList &args, double timeout = 30) {
    return vtest::await(Tools::run(exe, args, timeout));
}

QString launchError(const QString &exe) {
    try {
        runSync(exe, {});
    } catch (const Tools::LaunchError &e) {
        return e.message();
    }
    return QStringLiteral("<no error>");
}

void writeFile(const QString &path, const QByteArray &content, qint64 mtime) {
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
    f.write(content);
    f.close();
    f.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    struct utimbuf times { mtime, mtime };
    QCOMPARE(::utime(QFile::encodeName(path).constData(), &times), 0);
}

QByteArray contents(const QString &path) {
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

bool processAlive(qint64 pid) { return ::kill(pid_t(pid), 0) == 0; }
} // namespace

class ToolsTest : public QObject {
    Q_OBJECT
    const QString sh = QStringLiteral("/bin/sh");

private Q_SLOTS:
    void runDrainsLargeStderrWithoutDeadlock() {
        const QStringList args{QStringLiteral("-c"),
                               QStringLiteral("head -c 6000000 /dev/zero | tr '\\000' e >&2; printf out")};
        const auto r = runSync(sh, args);
        QCOMPARE(r.status, 0);
        QCOMPARE(r.stderrText.size(), 6000000);
        QCOMPARE(r.stdoutText, QStringLiteral("out"));
    }

    void runPassesArgumentsVerbatim() {
        const QStringList args{QStringLiteral("-c"), QStringLiteral("for a in \"$@\"; do printf '[%s]' \"$a\"; done; exit 4"),
                               QStringLiteral("x"), QStringLiteral("two words"), QString(), QStringLiteral("'\"$HOME\"'"),
                               QStringLiteral("ü·…")};
        const auto r = runSync(sh, args);
        QCOMPARE(r.status, 4);
        QCOMPARE(r.stdoutText, QStringLiteral("[two words][]['\"$HOME\"'][ü·…]"));
    }

    void timeoutTerminatesTheWholeGroup() {
        const QString pidFile = TestEnv::root() + QStringLiteral("/grandchild.pid");
        const QStringList args{QStringLiteral("-c"), QStringLiteral("sleep 60 & echo $! > '%1'; wait").arg(pidFile)};
        QElapsedTimer clock;
        clock.start();
        const auto r = runSync(sh, args, 0.5);
        QCOMPARE(r.status, 15);
        QVERIFY2(clock.elapsed() < 10000, "the run should end soon after its time-out");
        const qint64 grandchild = contents(pidFile).trimmed().toLongLong();
        QVERIFY(grandchild > 0);
        QTRY_VERIFY_WITH_TIMEOUT(!processAlive(grandchild), 5000);
    }

    void childExitingEarlyIsNeverSignalled() {
        const QString marker = TestEnv::root() + QStringLiteral("/signalled");
        const QStringList args{QStringLiteral("-c"), QStringLiteral("trap 'touch \"%1\"' TERM; sleep 0.2; exit 3").arg(marker)};
        const auto r = runSync(sh, args, 0.6);
        QCOMPARE(r.status, 3);
        QTest::qWait(900); // past the would-be deadline
        QVERIFY(!QFile::exists(marker));
    }

    void invalidUtf8EmptiesOnlyThatStream() {
        const QStringList args{QStringLiteral("-c"), QStringLiteral("printf 'ok\\377' ; printf 'fine' >&2")};
        const auto r = runSync(sh, args);
        QCOMPARE(r.stdoutText, QString());
        QCOMPARE(r.stderrText, QStringLiteral("fine"));
    }

    void launchFailuresCarryThePlatformText() {
        QCOMPARE(launchError(TestEnv::root() + QStringLiteral("/missing-tool")), QStringLiteral("No such file or directory"));
        const QString plain = TestEnv::root() + QStringLiteral("/not-executable");
        writeFile(plain, "#!/bin/sh\n", 1000);
        QFile::setPermissions(plain, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
        // root may read anything, but exec still needs an x bit
        QCOMPARE(launchError(plain), QStringLiteral("Permission denied"));
        QCOMPARE(launchError(TestEnv::root()), QStringLiteral("Permission denied"));
    }

    void concurrentRunsKeepTheirOwnOutput() {
        std::vector<QCoro::Task<Tools::RunResult>> tasks;
        for (int i = 0; i < 8; ++i) {
            const QStringList args{QStringLiteral("-c"), QStringLiteral("sleep 0.%1; echo %1").arg(8 - i)};
            tasks.push_back(Tools::run(sh, args, 10));
        }
        for (int i = 0; i < 8; ++i)
            QCOMPARE(vtest::await(std::move(tasks[size_t(i)])).stdoutText, QString::number(8 - i) + u'\n');
    }

    void installRules() {
        QTemporaryDir dir;
        Tools::Layout layout;
        layout.packagedDir = dir.path() + QStringLiteral("/pkg");
        layout.toolDir = dir.path() + QStringLiteral("/support/Vorlix/bin");

        writeFile(layout.packagedDir + QStringLiteral("/yt-dlp"), "ytdlp-v2", 2000);
        writeFile(layout.packagedDir + QStringLiteral("/ffmpeg"), "ffmpeg-v2", 2000);
        writeFile(layout.packagedDir + QStringLiteral("/whisper-cli"), "whisper-v1", 1000);
        QFile::setPermissions(layout.packagedDir + QStringLiteral("/ffmpeg"), QFileDevice::ReadOwner);

        // First install: everything copied with 755.
        Tools::installBundledTools(layout);
        for (const QString &name : {Tools::ytDlpName, Tools::ffmpegName, Tools::whisperName}) {
            struct stat st {};
            QCOMPARE(::stat(QFile::encodeName(layout.toolDir + u'/' + name).constData(), &st), 0);
            QCOMPARE(int(st.st_mode & 07777), 0755);
        }

        // Installed copies older than the packaged ones.
        writeFile(layout.toolDir + QStringLiteral("/yt-dlp"), "ytdlp-self-updated", 1000);
        writeFile(layout.toolDir + QStringLiteral("/ffmpeg"), "ffmpeg-v1", 1000);
        writeFile(layout.toolDir + QStringLiteral("/whisper-cli"), "whisper-local", 1000); // equal time
        Tools::installBundledTools(layout);
        QCOMPARE(contents(layout.toolDir + QStringLiteral("/yt-dlp")), QByteArray("ytdlp-self-updated"));
        QCOMPARE(contents(layout.toolDir + QStringLiteral("/ffmpeg")), QByteArray("ffmpeg-v2"));
        QCOMPARE(contents(layout.toolDir + QStringLiteral("/whisper-cli")), QByteArray("whisper-local"));

        // A newer installed copy stays.
        writeFile(layout.toolDir + QStringLiteral("/ffmpeg"), "ffmpeg-v3", 3000);
        Tools::installBundledTools(layout);
        QCOMPARE(contents(layout.toolDir + QStringLiteral("/ffmpeg")), QByteArray("ffmpeg-v3"));

        // No packaged copy: nothing happens, nothing breaks.
        Tools::Layout empty{dir.path() + QStringLiteral("/other/bin"), dir.path() + QStringLiteral("/nopkg"), {}};
        Tools::installBundledTools(empty);
        QVERIFY(QDir(empty.toolDir).isEmpty());
    }

    void locationPrecedence() {
        QTemporaryDir dir;
        Tools::Layout layout;
        layout.packagedDir = dir.path() + QStringLiteral("/pkg");
        layout.toolDir = dir.path() + QStringLiteral("/bin");
        const QString brew = dir.path() + QStringLiteral("/brew");
        const QString usr = dir.path() + QStringLiteral("/usr");
        for (const QString &name : {Tools::ytDlpName, Tools::ffmpegName, Tools::whisperName})
            layout.candidates[name] = {brew + u'/' + name, usr + u'/' + name};

        // Nothing anywhere: the downloader is the tool folder's path; the others are absent.
        QCOMPARE(Tools::ytDlpURL(layout), layout.toolDir + QStringLiteral("/yt-dlp"));
        QCOMPARE(Tools::systemFirstURL(Tools::ffmpegName, layout), QString());

        writeFile(usr + QStringLiteral("/ffmpeg"), "x", 1000);
        writeFile(layout.toolDir + QStringLiteral("/ffmpeg"), "x", 1000);
        QCOMPARE(Tools::systemFirstURL(Tools::ffmpegName, layout), usr + QStringLiteral("/ffmpeg"));
        writeFile(brew + QStringLiteral("/ffmpeg"), "x", 1000);
        QCOMPARE(Tools::systemFirstURL(Tools::ffmpegName, layout), brew + QStringLiteral("/ffmpeg"));
        QFile::remove(brew + QStringLiteral("/ffmpeg"));
        QFile::remove(usr + QStringLiteral("/ffmpeg"));
        QCOMPARE(Tools::systemFirstURL(Tools::ffmpegName, layout), layout.toolDir + QStringLiteral("/ffmpeg"));
        // A non-executable installed file does not count; the packaged copy is the last resort.
        QFile::setPermissions(layout.toolDir + QStringLiteral("/ffmpeg"), QFileDevice::ReadOwner);
        writeFile(layout.packagedDir + QStringLiteral("/whisper-cli"), "x", 1000);
        QCOMPARE(Tools::systemFirstURL(Tools::ffmpegName, layout), QString());
        QCOMPARE(Tools::systemFirstURL(Tools::whisperName, layout), layout.packagedDir + QStringLiteral("/whisper-cli"));

        // The downloader: the installed copy beats a system-wide one.
        writeFile(brew + QStringLiteral("/yt-dlp"), "x", 1000);
        QCOMPARE(Tools::ytDlpURL(layout), brew + QStringLiteral("/yt-dlp"));
        writeFile(layout.packagedDir + QStringLiteral("/yt-dlp"), "pkg", 1000);
        QCOMPARE(Tools::ytDlpURL(layout), layout.toolDir + QStringLiteral("/yt-dlp")); // installed on demand
        QCOMPARE(contents(layout.toolDir + QStringLiteral("/yt-dlp")), QByteArray("pkg"));
    }

    void packagedToolsRunAndTheDownloaderCanUpdateItself() {
        // The real layout: the build's share/vorlix/bin and this suite's private data home.
        QVERIFY2(QFileInfo::exists(Tools::packagedDir() + QStringLiteral("/yt-dlp")), qPrintable(Tools::packagedDir()));
        QVERIFY(QFileInfo::exists(Tools::packagedDir() + QStringLiteral("/whisper-cli")));
        Tools::installBundledTools();
        const QString ytdlp = Tools::ytDlpURL();
        QCOMPARE(ytdlp, AppSettings::appSupportDir() + QStringLiteral("/bin/yt-dlp"));
        QVERIFY(Tools::whisperURL().endsWith(QStringLiteral("/whisper-cli")));

        const auto version = runSync(ytdlp, {QStringLiteral("--version")});
        QCOMPARE(version.status, 0);
        QVERIFY(QRegularExpression(QStringLiteral("^\\d{4}\\.\\d{2}\\.\\d{2}")).match(version.stdoutText).hasMatch());

        const auto help = runSync(Tools::whisperURL(), {QStringLiteral("--help")});
        QVERIFY(help.stdoutText.contains(QStringLiteral("usage:")) || help.stderrText.contains(QStringLiteral("usage:")));

        // Offline the self-update cannot reach its release feed, but it must try (Debian's copy refuses).
        const auto update = runSync(ytdlp, {QStringLiteral("-U")}, 120);
        const QString said = update.stdoutText + update.stderrText;
        QVERIFY2(!said.contains(QStringLiteral("apt")), qPrintable(said));
        QVERIFY2(said.contains(QStringLiteral("Unable to obtain version info")) || said.contains(QStringLiteral("Updat")),
                 qPrintable(said));
    }
};

VORLIX_TEST_SUITE(ToolsTest)
#include "ToolsTest.moc"
