#include "TestEnv.h"
#include "TestMain.h"

#include "core/AppSettings.h"

#include <QDir>
#include <QFile>
#include <QSignalSpy>
#include <QTest>

class SettingsTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void freshStoreReadsDefaults() {
        AppSettings s(TestEnv::root() + QStringLiteral("/fresh.conf"));
        QCOMPARE(s.downloadFolderPath(), QDir::homePath() + QStringLiteral("/Downloads/Vorlix"));
        QCOMPARE(s.defaultModeRaw(), QStringLiteral("bestVideoAudio"));
        QCOMPARE(s.audioFormatRaw(), QStringLiteral("mp3"));
        QCOMPARE(s.preferMP4(), true);
        QCOMPARE(s.smartMode(), true);
        QCOMPARE(s.watchiCloudInbox(), true);
        QCOMPARE(s.maxConcurrent(), 3);
        QCOMPARE(s.whisperModel(), QStringLiteral("base"));
        QCOMPARE(s.lastEngineUpdateCheck(), 0.0);
        QCOMPARE(s.organizeDownloads(), true);
        QCOMPARE(s.useBrowserCookies(), false);
        QCOMPARE(s.autoAnalyzeAudio(), false);
        QCOMPARE(s.momentsCount(), 8);
        // Defaults are never written into the store.
        QVERIFY(!QFile::exists(s.fileName()) || QFile(s.fileName()).size() == 0);
    }

    void valuesPersistAcrossObjects() {
        const QString path = TestEnv::root() + QStringLiteral("/persist.conf");
        {
            AppSettings s(path);
            QSignalSpy spy(&s, &AppSettings::changed);
            s.setMaxConcurrent(7);
            s.setPreferMP4(false);
            s.setAudioFormatRaw(QStringLiteral("m4a"));
            s.setLastEngineUpdateCheck(1700000000.25);
            s.setWhisperModel(QStringLiteral("small.en"));
            s.setDefaultModeRaw(QStringLiteral("not-a-mode"));
            QCOMPARE(spy.count(), 6);
            QCOMPARE(spy.at(0).at(0).toString(), QStringLiteral("maxConcurrent"));
        }
        AppSettings again(path);
        QCOMPARE(again.maxConcurrent(), 7);
        QCOMPARE(again.preferMP4(), false);
        QCOMPARE(again.audioFormatRaw(), QStringLiteral("m4a"));
        QCOMPARE(again.lastEngineUpdateCheck(), 1700000000.25);
        QCOMPARE(again.whisperModel(), QStringLiteral("small.en"));
        // Stored as written; readers fall back themselves.
        QCOMPARE(again.defaultModeRaw(), QStringLiteral("not-a-mode"));
    }

    void writesAreSeenByOtherObjectsWithoutRestart() {
        const QString path = TestEnv::root() + QStringLiteral("/shared.conf");
        AppSettings a(path), b(path);
        QCOMPARE(b.smartMode(), true);
        a.setSmartMode(false);
        QCOMPARE(b.smartMode(), false);
        a.setSmartMode(true);
        QCOMPARE(b.smartMode(), true);
    }

    void downloadFolderIsCreatedWithParents() {
        AppSettings s(TestEnv::root() + QStringLiteral("/folders.conf"));
        const QString deep = TestEnv::root() + QStringLiteral("/a/b/c/Vorlix");
        s.setDownloadFolderPath(deep);
        QVERIFY(!QDir(deep).exists());
        QCOMPARE(s.downloadFolder(), deep);
        QVERIFY(QDir(deep).exists());
    }

    void uncreatableDownloadFolderIsStillReturned() {
        AppSettings s(TestEnv::root() + QStringLiteral("/blocked.conf"));
        const QString file = TestEnv::root() + QStringLiteral("/a-file");
        QFile f(file);
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.close();
        const QString blocked = file + QStringLiteral("/Vorlix");
        s.setDownloadFolderPath(blocked);
        QCOMPARE(s.downloadFolder(), blocked);
        QVERIFY(!QDir(blocked).exists());
    }

    void appSupportDirLivesInTheDataHome() {
        const QString dir = AppSettings::appSupportDir();
        QCOMPARE(dir, TestEnv::dataHome() + QStringLiteral("/Vorlix"));
        QVERIFY(QDir(dir).exists());
    }

    void sharedStoreIsTheUserConfigFile() {
        QCOMPARE(AppSettings::shared().fileName(), TestEnv::home() + QStringLiteral("/.config/Vorlix/Vorlix.conf"));
    }
};

VORLIX_TEST_SUITE(SettingsTest)
#include "SettingsTest.moc"
