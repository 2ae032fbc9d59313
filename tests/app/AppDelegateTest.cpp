#include "TestEnv.h"
#include "TestMain.h"

#include "app/AppDelegate.h"
#include "queue/InboxWatcher.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

namespace {

using TestEnv::readFile;

QStringList logLines(const QString &dir) {
    return QString::fromUtf8(readFile(dir + QStringLiteral("/launch.log"))).split(u'\n', Qt::SkipEmptyParts);
}

} // namespace

class AppDelegateTest : public QObject {
    Q_OBJECT
    std::unique_ptr<QTemporaryDir> m_dir;

    // A support folder of its own for each test, gone afterwards (other suites look for strays).
    QString freshDir() {
        m_dir = std::make_unique<QTemporaryDir>(TestEnv::root() + QStringLiteral("/delegate-XXXXXX"));
        return m_dir->path();
    }

    // Runs the launch with steps that note how many log lines existed when each ran.
    QStringList launch(const QString &dir, const QString &executable, const QDateTime &at) {
        QStringList ran;
        auto note = [&ran, dir](const char *name) {
            return [&ran, dir, name] { ran << QString::fromLatin1(name) + u':' + QString::number(logLines(dir).size()); };
        };
        AppDelegate::Steps steps{note("dark"), note("tools"), note("healer"), note("clipboard"), note("inbox"),
                                 note("permission")};
        AppDelegate delegate(dir, executable, steps, [at] { return at; });
        delegate.applicationDidFinishLaunching();
        return ran;
    }

private Q_SLOTS:
    // The steps run in order around the log lines; a second start appends, in UTC, and replaces
    // a stale help file whole.
    void firstAndSecondStart() {
        const QString dir = freshDir();
        const QDateTime first(QDate(2026, 11, 16), QTime(13, 10, 10), Qt::UTC);
        QCOMPARE(launch(dir, QStringLiteral("/usr/bin/vorlix"), first),
                 (QStringList{QStringLiteral("dark:1"), QStringLiteral("tools:1"), QStringLiteral("healer:2"),
                              QStringLiteral("clipboard:2"), QStringLiteral("inbox:2"), QStringLiteral("permission:3")}));
        const auto startLines = [](const char *at) {
            QStringList lines;
            for (const char *what : {"didFinishLaunching start (translocated=false)", "tools installed", "watchers started", "didFinishLaunching end"})
                lines << QLatin1String(at) + QStringLiteral(" +0000 ") + QLatin1String(what);
            return lines;
        };
        QCOMPARE(logLines(dir), startLines("2026-11-16 13:10:10"));

        const QString help = dir + QStringLiteral("/Phone Hand-off Setup.txt");
        QVERIFY(TestEnv::writeFile(help, QByteArray(5000, 'x')));
        launch(dir, QStringLiteral("/usr/bin/vorlix"), QDateTime(QDate(2026, 11, 17), QTime(9, 5, 1), Qt::OffsetFromUTC, 7200));
        QCOMPARE(logLines(dir), startLines("2026-11-16 13:10:10") + startLines("2026-11-17 07:05:01"));
        QVERIFY(readFile(dir + QStringLiteral("/launch.log")).endsWith('\n'));
        QCOMPARE(readFile(help), AppDelegate::shortcutInstructions(InboxWatcher::defaultInboxPath()));
        QCOMPARE(QDir(dir).entryList(QDir::Files | QDir::Hidden).size(), 2);
    }

    void unwritableFolderIsIgnored() {
        // A support "folder" below a plain file can never be created.
        const QString blocker = freshDir() + QStringLiteral("/file");
        QVERIFY(TestEnv::writeFile(blocker, {}));
        QCOMPARE(launch(blocker + QStringLiteral("/Vorlix"), QStringLiteral("/usr/bin/vorlix"), QDateTime::currentDateTimeUtc()).size(), 6);
        QVERIFY(!QFile::exists(blocker + QStringLiteral("/Vorlix/launch.log")));
    }
};

VORLIX_TEST_SUITE(AppDelegateTest)
#include "AppDelegateTest.moc"
