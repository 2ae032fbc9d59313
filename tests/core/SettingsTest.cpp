#include "TestEnv.h"
#include "TestMain.h"

#include "core/AppSettings.h"

#include <QDir>
#include <QFile>
#include <QTest>

class SettingsTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void defaultsAreReadNotWritten() {
        AppSettings s(TestEnv::root() + QStringLiteral("/fresh.conf"));
        QCOMPARE(s.downloadFolderPath(), QDir::homePath() + QStringLiteral("/Downloads/Vorlix"));
        QVERIFY(s.preferMP4() && !s.useBrowserCookies());
        // Defaults are never written into the store.
        QVERIFY(!QFile::exists(s.fileName()) || QFile(s.fileName()).size() == 0);
    }

    void writesAreSeenByEveryReaderWithoutRestart() {
        const QString path = TestEnv::root() + QStringLiteral("/persist.conf");
        AppSettings b(path);
        {
            AppSettings a(path);
            a.setMaxConcurrent(7);
            a.setSmartMode(false);
            a.setLastEngineUpdateCheck(1700000000.25);
            a.setDefaultModeRaw(QStringLiteral("not-a-mode"));
            QCOMPARE(b.smartMode(), false);
            a.setSmartMode(true);
            QCOMPARE(b.smartMode(), true);
        }
        AppSettings again(path);
        QCOMPARE(again.maxConcurrent(), 7);
        QCOMPARE(again.lastEngineUpdateCheck(), 1700000000.25);
        QCOMPARE(again.defaultModeRaw(), QStringLiteral("not-a-mode")); // readers fall back themselves
    }

    void downloadFolderIsCreatedWhenPossible() {
        AppSettings s(TestEnv::root() + QStringLiteral("/folders.conf"));
        const QString deep = TestEnv::root() + QStringLiteral("/a/b/c/Vorlix");
        s.setDownloadFolderPath(deep);
        QCOMPARE(s.downloadFolder(), deep);
        QVERIFY(QDir(deep).exists());
    }
};

VORLIX_TEST_SUITE(SettingsTest)
#include "SettingsTest.moc"
