#include "FixtureSite.h"
#include "TestMain.h"
#include "engine_media.h"
#include "PrivateHome.h"

#include <QCoreApplication>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QStandardPaths>
#include <QTest>

#include <memory>

namespace {

// A process that is ended (and reaped) when the test leaves, however it leaves.
struct Child {
    std::unique_ptr<QProcess> process = std::make_unique<QProcess>();
    ~Child() {
        if (process->state() == QProcess::NotRunning)
            return;
        process->terminate();
        if (!process->waitForFinished(5000)) {
            process->kill();
            process->waitForFinished(5000);
        }
    }
};

using TestEnv::readFile;

} // namespace

// The real program under a private X server: a link typed into the link bar downloads into
// ~/Downloads/Vorlix and lands in the history.
class StartupEndToEndTest : public QObject {
    Q_OBJECT
    QString m_display;

    QString xdotool(const QStringList &args, int timeoutMs = 10000) {
        QProcess p;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("DISPLAY"), m_display);
        p.setProcessEnvironment(env);
        p.start(QStringLiteral("xdotool"), args);
        if (!p.waitForFinished(timeoutMs))
            p.kill();
        return QString::fromUtf8(p.readAllStandardOutput()).trimmed();
    }
    QString visibleMainWindow() {
        return xdotool({QStringLiteral("search"), QStringLiteral("--onlyvisible"), QStringLiteral("--name"), QStringLiteral("^Vorlix$")})
            .section(u'\n', 0, 0);
    }
    // The link bar has the focus from the start.
    void submitLink(const QString &window, const QString &link) {
        xdotool({QStringLiteral("windowfocus"), QStringLiteral("--sync"), window});
        xdotool({QStringLiteral("type"), QStringLiteral("--delay"), QStringLiteral("10"), link});
        xdotool({QStringLiteral("key"), QStringLiteral("Return")});
    }

private Q_SLOTS:
    void linkBarDownloadsIntoLibraryAndHistory() {
        for (const char *tool : {"Xvfb", "xdotool", "dbus-daemon"})
            if (QStandardPaths::findExecutable(QLatin1String(tool)).isEmpty())
                QSKIP("needs Xvfb, xdotool and dbus-daemon (scripts/setup.sh installs them)");

        FixtureSite site;
        QVERIFY(site.isRunning());
        QVERIFY(TestEnv::runFfmpeg({QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
                                    QStringLiteral("testsrc2=size=320x240:duration=2"), site.root() + QStringLiteral("/clip.mp4")}));
        const QString link = site.url(QStringLiteral("/clip.mp4"));

        Child xvfb;
        // No reset when the last client leaves: a program connecting at that moment would be refused.
        xvfb.process->start(QStringLiteral("Xvfb"), QString::fromLatin1("-displayfd 1 -screen 0 1280x800x24 -nolisten tcp -noreset").split(u' '));
        QVERIFY(xvfb.process->waitForReadyRead(15000));
        m_display = u':' + QString::fromLatin1(xvfb.process->readLine().trimmed());

        // A bus of its own: the second start below finds the first one there.
        Child bus;
        bus.process->start(QStringLiteral("dbus-daemon"), QString::fromLatin1("--session --nofork --print-address=1").split(u' '));
        QVERIFY(bus.process->waitForReadyRead(15000));
        PrivateHome home;
        QProcessEnvironment env = home.environment();
        env.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), QString::fromLatin1(bus.process->readLine().trimmed()));
        env.insert(QStringLiteral("DISPLAY"), m_display);
        env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));

        Child vorlix;
        vorlix.process->setProcessEnvironment(env);
        vorlix.process->setProcessChannelMode(QProcess::ForwardedErrorChannel);
        vorlix.process->start(QCoreApplication::applicationDirPath() + QStringLiteral("/../bin/vorlix"), QStringList());
        QVERIFY(vorlix.process->waitForStarted(10000));

        QString window;
        // Generous: the machine may be busy with other builds.
        QTRY_VERIFY_WITH_TIMEOUT(!(window = visibleMainWindow()).isEmpty(), 60000);
        submitLink(window, link);

        const auto findSaved = [&] {
            QDirIterator it(home.home() + QStringLiteral("/Downloads/Vorlix"), {QStringLiteral("*.mp4")}, QDir::Files,
                            QDirIterator::Subdirectories);
            return it.hasNext() && QFileInfo(it.next()).size() == QFileInfo(site.root() + QStringLiteral("/clip.mp4")).size();
        };
        const auto inHistory = [&](const QString &url) {
            const QJsonArray entries = QJsonDocument::fromJson(readFile(home.data() + QStringLiteral("/Vorlix/history.json"))).array();
            for (const QJsonValue &entry : entries)
                if (entry.toObject().value(QStringLiteral("url")).toString() == url)
                    return true;
            return false;
        };
        QTRY_VERIFY_WITH_TIMEOUT(findSaved() && inHistory(link), 120000);

        // Closing the window leaves the application running.
        xdotool({QStringLiteral("windowfocus"), QStringLiteral("--sync"), window});
        xdotool({QStringLiteral("key"), QStringLiteral("ctrl+w")});
        QTRY_VERIFY_WITH_TIMEOUT(visibleMainWindow().isEmpty(), 10000);

        // Starting the program again brings the running one's window back and ends at once (had
        // the first one quit with its window, this start would stay); a link given to it is
        // downloaded by the running one.
        const QString handedOver = site.url(QStringLiteral("/clip.mp4?n=handed-over"));
        QProcess again;
        again.setProcessEnvironment(env);
        again.start(vorlix.process->program(), QStringList{handedOver});
        QVERIFY(again.waitForFinished(15000));
        QCOMPARE(again.exitCode(), 0);
        QTRY_VERIFY_WITH_TIMEOUT(!visibleMainWindow().isEmpty(), 10000);
        QTRY_VERIFY_WITH_TIMEOUT(inHistory(handedOver), 120000);
        // The second start handed over and launched nothing.
        QCOMPARE(QString::fromUtf8(readFile(home.data() + QStringLiteral("/Vorlix/launch.log"))).count(u'\n'), 4);

        // Ending the program (as a logout does) ends a download in progress with it.
        const QString slow = site.url(QStringLiteral("/clip.mp4?rate=5000&n=slow"));
        submitLink(visibleMainWindow(), slow);
        const auto running = [](const QString &what) { return !EngineMedia::liveProcessesMentioning(QStringLiteral("n=slow"), {what}).isEmpty(); };
        const auto downloading = [&] { return running(QStringLiteral("yt-dlp")); };
        // Once seen stays seen: the wait reads its condition more than once, and a process reads as
        // gone for a moment between the probe and the download, or while it replaces its image.
        bool seen = false;
        QTRY_VERIFY_WITH_TIMEOUT(seen = seen || running(QStringLiteral("--progress-template")), 30000);
        vorlix.process->terminate();
        QVERIFY(vorlix.process->waitForFinished(10000));
        QCOMPARE(vorlix.process->exitStatus() == QProcess::NormalExit ? vorlix.process->exitCode() : -1, 0);
        QTRY_VERIFY_WITH_TIMEOUT(!downloading(), 10000);
    }
};

VORLIX_TEST_SUITE(StartupEndToEndTest)
#include "StartupEndToEndTest.moc"
