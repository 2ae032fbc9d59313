#include "Await.h"
#include "FixtureSite.h"
#include "TestEnv.h"
#include "TestMain.h"

#include "core/AppSettings.h"
#include "discovery/ImageSearch.h"

#include <QDir>
#include <QFileInfo>
#include <QTest>
#include <QUuid>

using namespace Qt::StringLiterals;
using ImageSearch::ImageError;
using ImageSearch::Result;

namespace {
const QByteArray catalogue = QByteArray(
    "{'result_count': 4, 'results': ["
    "{'id': 'a1', 'title': 'Sunset', 'creator': 'Ann', 'license': 'by', 'license_version': '2.0', 'source': 'flickr',"
    "'width': 1920, 'height': 1080, 'url': 'https://img.example/a1.jpg'},"
    "{'title': 'no identifier', 'url': 'https://img.example/x.jpg'},"
    "{'id': 17, 'title': 'numeric identifier'},"
    "{'id': 'b2', 'title': '', 'license': 'cc0', 'provider': 'wikimedia', 'width': 640.5, 'height': 480},"
    "{'id': 'c3', 'title': 5, 'creator': null, 'license': 'by-sa', 'license_version': '4.0', 'url': 'not a url'}]}")
    .replace('\'', '"');
const QString unreachable = u"Couldn't reach the free-image library. Check your connection and try again."_s;

ImageSearch::Endpoint endpointAt(const QString &base, int timeoutMs = 5000) {
    ImageSearch::Endpoint e{QUrl(base)};
    e.searchTimeout = e.downloadTimeout = std::chrono::milliseconds(timeoutMs);
    return e;
}

Result pictureAt(const QString &url) {
    return {u"x"_s, u"Sunset"_s, u"Ann"_s, u"CC BY 2.0"_s, true, u"flickr"_s, QUrl(), QUrl(url), u"https://flickr.example/p/1"_s, QString()};
}

QString freshFolder() { return TestEnv::root() + u"/dl-"_s + QUuid::createUuid().toString(QUuid::Id128); }

} // namespace

class ImageSearchTest : public QObject {
    Q_OBJECT
    FixtureSite site;

private Q_SLOTS:
    void initTestCase() {
        QVERIFY(site.isRunning());
        site.put(u"api/v1/images/index.html"_s, catalogue);
        site.put(u"malformed/v1/images/index.html"_s, R"({"results": [)");
        site.put(u"img/sunset.png"_s, "PNG-BYTES");
        site.put(u"img/photo.JPEG"_s, "JPEG-BYTES");
    }

    void searchMapsCatalogueItems() {
        const auto results = vtest::await(ImageSearch::search(u"sunset"_s, 1, 20, endpointAt(site.url(u"/api"_s))));
        QStringList shown; // items without a string id are left out
        for (const Result &r : results)
            shown << QStringList{r.id, r.title, r.creator, r.license, r.sourceName, r.dimensions, r.fullURL.toString(),
                                 QString::number(r.licenseRequiresCredit)}.join(u'|');
        QCOMPARE(shown, (QStringList{u"a1|Sunset|Ann|CC BY 2.0|flickr|1920×1080|https://img.example/a1.jpg|1"_s,
                                     u"b2|Untitled||CC0 · public domain|wikimedia|||0"_s, u"c3|Untitled||CC BY-SA 4.0|openverse|||1"_s}));
    }

    void failedSearches() {
        QCOMPARE(vtest::failure(ImageSearch::search(u"fox"_s, 1, 20, endpointAt(site.url(u"/gone"_s)))), unreachable);
        QCOMPARE(vtest::failure(ImageSearch::search(u"fox"_s, 1, 20, endpointAt(site.url(u"/malformed"_s)))), unreachable);
        QVERIFY(!vtest::failure(ImageSearch::search(u"fox"_s, 1, 20, endpointAt(u"http://127.0.0.1:1"_s))).isEmpty());
        const int before = site.requests().size();
        QVERIFY(vtest::await(ImageSearch::search(u" \t "_s, 1, 20, endpointAt(site.url(u"/api"_s)))).isEmpty());
        QCOMPARE(site.requests().size(), before); // a blank query asks nothing
    }

    void downloadsAreFiledBySourceWithCredit() {
        const QString folder = freshFolder();
        Result r = pictureAt(site.url(u"/img/sunset.png?type=image/jpeg"_s));
        vtest::await(ImageSearch::download(r, folder, endpointAt(QString())));
        QCOMPARE(vtest::await(ImageSearch::download(r, folder, endpointAt(QString()))), folder + u"/Images/Flickr/Sunset 2.jpg"_s);
        QCOMPARE(TestEnv::readFile(folder + u"/Images/Flickr/Sunset 2.jpg"_s), QByteArray("PNG-BYTES"));
        QCOMPARE(TestEnv::readFile(folder + u"/Images/Flickr/Sunset 2.credit.txt"_s),
                 QByteArray("Sunset\nby Ann\nLicense: CC BY 2.0\nSource: https://flickr.example/p/1\n\n"
                            "Attribution required when reusing this image."));
        QVERIFY(site.requests().last().endsWith(u"UA=Vorlix/1.0 (macOS media tool)"_s));

        QVERIFY(TestEnv::filesContaining(QDir::tempPath(), u"vorlix-"_s).isEmpty());
    }

    void failedDownloadsLeaveNothingBehind_data() {
        QTest::addColumn<QString>("path");
        QTest::addColumn<bool>("folderIsAFile");
        QTest::addColumn<QString>("message");
        QTest::newRow("http 404") << u"/img/missing.png"_s << false << unreachable;
        QTest::newRow("time-out") << u"/img/sunset.png?delay=2"_s << false << u"The request timed out."_s;
        QTest::newRow("folder cannot exist") << u"/img/sunset.png"_s << true << u"Couldn't save the image."_s;
    }
    void failedDownloadsLeaveNothingBehind() {
        QFETCH(QString, path);
        QFETCH(bool, folderIsAFile);
        QFETCH(QString, message);
        QString folder = freshFolder();
        if (folderIsAFile) {
            folder += u"/plain-file"_s;
            QVERIFY(TestEnv::writeFile(folder, "x"));
        }
        const Result r = pictureAt(path.isEmpty() ? QString() : site.url(path));
        QCOMPARE(vtest::failure(ImageSearch::download(r, folder, endpointAt(QString(), 500))), message);
        QVERIFY(TestEnv::filesContaining(QDir::tempPath(), u"vorlix-"_s).isEmpty());
        QVERIFY(!QFileInfo::exists(folder + u"/Images"_s));
    }
};

VORLIX_TEST_SUITE(ImageSearchTest)
#include "ImageSearchTest.moc"
