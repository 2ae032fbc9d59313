#include "TestEnv.h"
#include "TestMain.h"

#include "engine/CookieBrowser.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

class CookieBrowserTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void firstBrowserWithAProfile_data() {
        QTest::addColumn<QStringList>("folders"); // under the home; "config/" is the config home
        QTest::addColumn<QString>("expected");
        QTest::newRow("none") << QStringList{} << QString();
        QTest::newRow("firefox") << QStringList{QStringLiteral(".mozilla/firefox")} << QStringLiteral("firefox");
        QTest::newRow("firefox as a snap") << QStringList{QStringLiteral("snap/firefox/common/.mozilla/firefox")}
                                           << QStringLiteral("firefox");
        QTest::newRow("chromium before chrome")
            << QStringList{QStringLiteral("config/google-chrome"), QStringLiteral("config/chromium")}
            << QStringLiteral("chromium");
        QTest::newRow("firefox before all") << QStringList{QStringLiteral("config/microsoft-edge"), QStringLiteral(".mozilla/firefox")}
                                            << QStringLiteral("firefox");
        QTest::newRow("brave as a flatpak")
            << QStringList{QStringLiteral(".var/app/com.brave.Browser/config/BraveSoftware/Brave-Browser")}
            << QStringLiteral("brave");
        QTest::newRow("a file is not a profile") << QStringList{QStringLiteral("file:config/google-chrome")} << QString();
    }
    void firstBrowserWithAProfile() {
        QFETCH(QStringList, folders);
        QFETCH(QString, expected);
        QTemporaryDir home(TestEnv::root() + QStringLiteral("/browsers-XXXXXX"));
        const QString config = home.path() + QStringLiteral("/config");
        for (QString folder : folders) {
            const bool file = folder.startsWith(QLatin1String("file:"));
            const QString path = home.path() + u'/' + folder.remove(QStringLiteral("file:"));
            if (file) {
                QVERIFY(QDir().mkpath(QFileInfo(path).path()));
                QFile f(path);
                QVERIFY(f.open(QIODevice::WriteOnly));
            } else {
                QVERIFY(QDir().mkpath(path));
            }
        }
        const auto found = CookieBrowser::detect(home.path(), config);
        QCOMPARE(found ? found->id : QString(), expected);
        if (found)
            QCOMPARE(CookieBrowser::labelFor(found->id), found->label);
    }
};

VORLIX_TEST_SUITE(CookieBrowserTest)
#include "CookieBrowserTest.moc"
