#include "FixtureSite.h"
#include "TestEnv.h"
#include "TestMain.h"

#include <QProcess>
#include <QTest>

// The fixture site underpins the network suites; check the behaviours they rely on.
class FixtureSiteTest : public QObject {
    Q_OBJECT
    static QByteArray curl(const QStringList &args) {
        QProcess p;
        p.start(QStringLiteral("python3"), QStringList{QStringLiteral("-c"), QStringLiteral(
            "import sys,urllib.request\n"
            "req=urllib.request.Request(sys.argv[1],headers=dict(h.split(': ',1) for h in sys.argv[2:]))\n"
            "try:\n r=urllib.request.urlopen(req)\n print(r.status,r.headers.get('Content-Type'),r.read().decode(),end='')\n"
            "except urllib.error.HTTPError as e:\n print(e.code,end='')\n")} + args);
        p.waitForFinished(20000);
        return p.readAllStandardOutput();
    }

private Q_SLOTS:
    void servesFilesAndControls() {
        FixtureSite site;
        QVERIFY(site.isRunning());
        site.put(QStringLiteral("a/b.json"), "{\"x\":1}");
        QCOMPARE(curl({site.url(QStringLiteral("/a/b.json"))}), QByteArray("200 application/json {\"x\":1}"));
        QCOMPARE(curl({site.url(QStringLiteral("/a/b.json?type=text/html"))}), QByteArray("200 text/html {\"x\":1}"));
        QCOMPARE(curl({site.url(QStringLiteral("/a/b.json?notype=1"))}), QByteArray("200 None {\"x\":1}"));
        QCOMPARE(curl({site.url(QStringLiteral("/missing"))}), QByteArray("404"));
        QCOMPARE(curl({site.url(QStringLiteral("/a/b.json?status=500"))}), QByteArray("500"));
        QCOMPARE(curl({site.url(QStringLiteral("/x?redirect=/a/b.json"))}), QByteArray("200 application/json {\"x\":1}"));
        QCOMPARE(curl({site.url(QStringLiteral("/a/b.json")), QStringLiteral("Range: bytes=2-4")}), QByteArray("206 application/json x\":"));
        QVERIFY(site.requests().size() >= 7);
    }
};

VORLIX_TEST_SUITE(FixtureSiteTest)
#include "FixtureSiteTest.moc"
