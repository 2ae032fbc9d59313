#include "TestMain.h"
#include "PrivateHome.h"

#include "app/Bootstrap.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QProcess>
#include <QTest>

namespace {

QString vorlix() { return QCoreApplication::applicationDirPath() + QStringLiteral("/../bin/vorlix"); }

struct Run {
    int status = -1;
    QString out;
};

Run runVorlix(const QStringList &args, const QProcessEnvironment &env = QProcessEnvironment::systemEnvironment()) {
    QProcess p;
    p.setProcessEnvironment(env);
    p.start(vorlix(), args);
    Run run;
    if (!p.waitForStarted(10000) || !p.waitForFinished(240000)) {
        p.kill();
        p.waitForFinished();
        return run;
    }
    run.status = p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
    run.out = QString::fromUtf8(p.readAllStandardOutput());
    return run;
}

} // namespace

// The command line of the real program: commands never start the application or touch its files.
class BootstrapTest : public QObject {
    Q_OBJECT
    QTemporaryDir m_dir;

    QString path(const QString &name) const { return m_dir.filePath(name); }

private Q_SLOTS:
    // Commands need no display (a GUI start would abort on the missing X server), and failures
    // still exit 0.
    void commandsRunWithoutTheApplication() {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.remove(QStringLiteral("DISPLAY"));
        env.remove(QStringLiteral("WAYLAND_DISPLAY"));
        env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
        QVERIFY(TestEnv::writeFile(path(QStringLiteral("empty.txt")), QByteArray()));
        QVERIFY(TestEnv::writeFile(path(QStringLiteral("garbage.bin")), QByteArray("\xff\xfe\x00garbage\x80", 11)));
        const std::pair<const char *, QString> expected[] = {{"moments", QStringLiteral("0 moments\n")},
                                                             {"beatgrid", QStringLiteral("no beat grid detected\n")},
                                                             {"analyze", QStringLiteral("bpm=none key=none\n")},
                                                             {"summarize", QString()}};
        for (const auto &[command, out] : expected)
            for (const char *file : {"missing.wav", "garbage.bin", "empty.txt"}) {
                const Run run = runVorlix({QLatin1String(command), path(QLatin1String(file))}, env);
                QCOMPARE(run.status, 0);
                QCOMPARE(run.out, out);
            }
        for (const auto &[option, out] : {std::pair(QStringLiteral("--help"), Bootstrap::usageText()),
                                          std::pair(QStringLiteral("--version"), QStringLiteral("vorlix " VORLIX_VERSION "\n"))}) {
            const Run run = runVorlix({option}, env);
            QCOMPARE(run.status, 0);
            QCOMPARE(run.out, out);
        }
        // No command touches the settings, the tool folder or the launch log.
        QVERIFY(!QFileInfo::exists(TestEnv::home() + QStringLiteral("/.config/Vorlix")));
        for (const char *tool : {"yt-dlp", "ffmpeg", "whisper-cli"})
            QVERIFY(!QFileInfo::exists(TestEnv::toolDir() + u'/' + QLatin1String(tool)));
        QVERIFY(TestEnv::filesContaining(TestEnv::root(), QStringLiteral("launch.log")).isEmpty());
    }

    // A command name in the wrong case is no command: the application launches (a command would
    // have ended without a launch log) and keeps running until asked to quit.
    void otherArgumentsStartTheApplication() {
        PrivateHome home;
        QProcess p;
        p.setProcessEnvironment(home.environment());
        p.start(vorlix(), {QStringLiteral("Moments"), path(QStringLiteral("x.mp4"))});
        QVERIFY(p.waitForStarted(10000));
        QTRY_VERIFY_WITH_TIMEOUT(QFileInfo(home.data() + QStringLiteral("/Vorlix/launch.log")).size() > 0, 30000);
        QCOMPARE(p.state(), QProcess::Running);
        QCOMPARE(p.readAllStandardOutput(), QByteArray());
        p.terminate();
        QVERIFY(p.waitForFinished(10000));
    }
};

VORLIX_TEST_SUITE(BootstrapTest)
#include "BootstrapTest.moc"
