#include "TestEnv.h"
#include "TestMain.h"

#include "engine/CookieBrowser.h"

#include <QDir>
#include <QTemporaryDir>
#include <QTest>

class CookieBrowserTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void firstBrowserWithAProfile_data() {
        QTest::addColumn<QStringList>("folders"); // under the home; "config/" is the config home; "file:" makes a plain file
        QTest::addColumn<QString>("expected");
        const auto row = [](const char *name, const char *folders, const char *expected) {
            QTest::newRow(name) << QString::fromUtf8(folders).split(u',', Qt::SkipEmptyParts) << QString::fromUtf8(expected);
        };
        row("none", "", "");
        row("firefox as a snap", "snap/firefox/common/.mozilla/firefox", "firefox");
        row("chromium before chrome", "config/google-chrome,config/chromium", "chromium");
        row("firefox before all", "config/microsoft-edge,.mozilla/firefox", "firefox");
        row("brave as a flatpak", ".var/app/com.brave.Browser/config/BraveSoftware/Brave-Browser", "brave");
        row("a file is not a profile", "file:config/google-chrome", "");
    }
    void firstBrowserWithAProfile() {
        QFETCH(QStringList, folders);
        QFETCH(QString, expected);
        QTemporaryDir home(TestEnv::root() + QStringLiteral("/browsers-XXXXXX"));
        for (QString folder : folders) {
            const bool file = folder.startsWith(QLatin1String("file:"));
            const QString path = home.path() + u'/' + folder.remove(QStringLiteral("file:"));
            QVERIFY(file ? TestEnv::writeFile(path, "x") : QDir().mkpath(path));
        }
        const auto found = CookieBrowser::detect(home.path(), home.path() + QStringLiteral("/config"));
        QCOMPARE(found ? found->id : QString(), expected);
        if (found)
            QCOMPARE(CookieBrowser::labelFor(found->id), found->label);
    }
};

VORLIX_TEST_SUITE(CookieBrowserTest)
#include "CookieBrowserTest.moc"
