#include "Await.h"
#include "CannedServer.h"
#include "FixtureSite.h"
#include "TestEnv.h"
#include "TestMain.h"

#include "core/AppSettings.h"
#include "discovery/Http.h"
#include "discovery/ImageSearch.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTest>
#include <QUuid>

using namespace Qt::StringLiterals;
using ImageSearch::ImageError;
using ImageSearch::Result;

namespace {

const QByteArray catalogueAnswer = R"({"result_count": 6, "results": [
  {"id": "a1", "title": "Sunset", "creator": "Ann", "license": "by", "license_version": "2.0", "source": "flickr",
   "provider": "other", "width": 1920, "height": 1080, "thumbnail": "https://img.example/t/a1.jpg",
   "url": "https://img.example/a1.jpg", "foreign_landing_url": "https://flickr.example/photos/a1"},
  {"title": "no identifier", "url": "https://img.example/x.jpg"},
  {"id": 17, "title": "numeric identifier"},
  {"id": "b2", "title": "", "license": "cc0", "provider": "wikimedia", "width": 640.5, "height": 480},
  {"id": "c3", "title": 5, "creator": null, "license": "by-sa", "license_version": "4.0", "width": 0, "height": 10,
   "url": "not a url at all"},
  {"id": "d4", "license": "pdm", "width": 3, "height": 2, "url": "https://img.example/d4.png"}]})";

QByteArray fileBytes(const QString &path) {
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

ImageSearch::Endpoint endpointAt(const QString &base, int timeoutMs = 5000) {
    ImageSearch::Endpoint e{QUrl(base)};
    e.searchTimeout = e.downloadTimeout = std::chrono::milliseconds(timeoutMs);
    return e;
}

Result pictureAt(const QString &url, const QString &title = u"Sunset"_s) {
    Result r;
    r.id = u"x"_s;
    r.title = title;
    r.creator = u"Ann Example"_s;
    r.license = u"CC BY 2.0"_s;
    r.sourceName = u"flickr"_s;
    r.fullURL = QUrl(url);
    r.landingURL = u"https://flickr.example/p/1"_s;
    return r;
}

QString freshFolder() {
    const QString dir = TestEnv::root() + u"/dl-"_s + QUuid::createUuid().toString(QUuid::Id128);
    QDir().mkpath(dir);
    return dir;
}

bool temporariesLeft() { return !TestEnv::filesContaining(QDir::tempPath(), u"vorlix-"_s).isEmpty(); }

} // namespace

class ImageSearchTest : public QObject {
    Q_OBJECT
    FixtureSite site;

    QString download(const Result &r, const QString &folder) {
        return vtest::await(ImageSearch::download(r, folder, endpointAt(QString())));
    }

private Q_SLOTS:
    void initTestCase() {
        QVERIFY(site.isRunning());
        site.put(u"api/v1/images/index.html"_s, catalogueAnswer);
        site.put(u"img/sunset.png"_s, "PNG-BYTES");
        site.put(u"img/photo.JPEG"_s, "JPEG-BYTES");
        site.put(u"img/plain"_s, "RAW-BYTES");
    }

    void searchMapsCatalogueItems() {
        const auto results = vtest::await(ImageSearch::search(u"sunset"_s, 1, 20, endpointAt(site.url(u"/api"_s))));
        QStringList ids;
        for (const Result &r : results)
            ids << r.id;
        // items without a string id are left out, the rest keep the catalogue's order
        QCOMPARE(ids, (QStringList{u"a1"_s, u"b2"_s, u"c3"_s, u"d4"_s}));

        const Result &a = results[0];
        QCOMPARE((QStringList{a.title, a.creator, a.license, a.sourceName, a.dimensions, a.landingURL}),
                 (QStringList{u"Sunset"_s, u"Ann"_s, u"CC BY 2.0"_s, u"flickr"_s, u"1920×1080"_s, u"https://flickr.example/photos/a1"_s}));
        QVERIFY(a.licenseRequiresCredit);
        QCOMPARE(a.thumbURL, QUrl(u"https://img.example/t/a1.jpg"_s));
        QCOMPARE(a.fullURL, QUrl(u"https://img.example/a1.jpg"_s));

        const Result &b = results[1]; // empty title, provider only, fractional width, no addresses
        QCOMPARE((QStringList{b.title, b.license, b.sourceName, b.dimensions, b.landingURL}),
                 (QStringList{u"Untitled"_s, u"CC0 · public domain"_s, u"wikimedia"_s, QString(), QString()}));
        QVERIFY(!b.licenseRequiresCredit);
        QVERIFY(b.fullURL.isEmpty() && b.thumbURL.isEmpty());

        const Result &c = results[2]; // wrong member types, zero width, unparsable address
        QCOMPARE((QStringList{c.title, c.creator, c.license, c.sourceName, c.dimensions}),
                 (QStringList{u"Untitled"_s, QString(), u"CC BY-SA 4.0"_s, u"openverse"_s, QString()}));
        QVERIFY(c.fullURL.isEmpty());

        const Result &d = results[3];
        QCOMPARE((QStringList{d.license, d.dimensions}), (QStringList{u"Public Domain"_s, u"3×2"_s}));
        QVERIFY(!d.licenseRequiresCredit);
    }

    void searchSendsItsQueryItemsInOrder_data() {
        QTest::addColumn<QString>("query");
        QTest::addColumn<QString>("expected");
        QTest::newRow("trimmed") << u"  red fox\t"_s << u"red fox"_s;
        QTest::newRow("delimiters") << u"cats & dogs = 1#2"_s << u"cats & dogs = 1#2"_s;
        QTest::newRow("plus and percent") << u"c++ 100%41"_s << u"c++ 100%41"_s;
        QTest::newRow("unicode") << u"café · 東京"_s << u"café · 東京"_s;
    }
    void searchSendsItsQueryItemsInOrder() {
        QFETCH(QString, query);
        QFETCH(QString, expected);
        const int before = site.requests().size();
        vtest::await(ImageSearch::search(query, 3, 40, endpointAt(site.url(u"/api"_s))));
        const QStringList log = site.requests().mid(before);
        QCOMPARE(log.size(), 1);
        const QString q = log.first().section(u"?q="_s, 1).section(u'&', 0, 0);
        QCOMPARE(log.first(), u"GET /api/v1/images/?q="_s + q +
                                  u"&page=3&page_size=40&license_type=commercial,modification&mature=false"
                                  u" UA=Vorlix/1.0 (macOS media tool)"_s);
        // a server reads "+" as a space, so what travels must decode to the query itself
        QVERIFY2(!q.contains(u'+') && !q.contains(u' '), qPrintable(q));
        QCOMPARE(QUrl::fromPercentEncoding(q.toUtf8()), expected);
    }

    void blankQueryAsksNothing() {
        const int before = site.requests().size();
        for (const QString &blank : {QString(), u" \t  "_s})
            QVERIFY(vtest::await(ImageSearch::search(blank, 1, 20, endpointAt(site.url(u"/api"_s)))).isEmpty());
        QCOMPARE(site.requests().size(), before);
    }

    void badAnswersAreBadResponse_data() {
        QTest::addColumn<QByteArray>("answer");
        QTest::newRow("http 500") << CannedServer::status(500, R"({"results": []})");
        QTest::newRow("malformed json") << CannedServer::status(200, R"({"results": [)");
        QTest::newRow("top-level list") << CannedServer::status(200, R"([{"id": "a"}])");
        QTest::newRow("results holds a non-object") << CannedServer::status(200, R"({"results": [{"id": "a"}, 3]})");
    }
    void badAnswersAreBadResponse() {
        QFETCH(QByteArray, answer);
        CannedServer server(CannedServer::Answer, answer);
        try {
            vtest::await(ImageSearch::search(u"fox"_s, 1, 20, endpointAt(server.url(QString()))));
            QFAIL("expected badResponse");
        } catch (const ImageError &e) {
            QCOMPARE(e.kind(), ImageError::badResponse);
            QCOMPARE(QString::fromUtf8(e.what()), u"Couldn't reach the free-image library. Check your connection and try again."_s);
        }
    }

    void transportFailuresPassThePlatformError_data() {
        QTest::addColumn<int>("behaviour"); // -1: nobody listening
        QTest::addColumn<QString>("message");
        QTest::newRow("time-out") << int(CannedServer::Silent) << u"The request timed out."_s;
        QTest::newRow("redirect loop") << int(CannedServer::RedirectToSelf) << QString();
        QTest::newRow("nobody listening") << -1 << QString();
    }
    void transportFailuresPassThePlatformError() {
        QFETCH(int, behaviour);
        QFETCH(QString, message);
        std::unique_ptr<CannedServer> server;
        if (behaviour >= 0)
            server = std::make_unique<CannedServer>(CannedServer::Behaviour(behaviour));
        const QString base = server ? server->url(QString()) : u"http://127.0.0.1:1"_s;
        try {
            vtest::await(ImageSearch::search(u"fox"_s, 1, 20, endpointAt(base, 400)));
            QFAIL("expected a network error");
        } catch (const Http::NetworkError &e) {
            QVERIFY(!e.message().isEmpty());
            if (!message.isEmpty())
                QCOMPARE(e.message(), message);
        }
    }

    void fileNames_data() {
        QTest::addColumn<QString>("contentType"); // null: no header
        QTest::addColumn<QString>("url");
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("expected");
        QTest::newRow("type wins over path") << u"IMAGE/JPEG"_s << u"https://x/a.png"_s << u"a/b:c?"_s << u"a-b-c-.jpg"_s;
        QTest::newRow("unknown type, path") << u"application/octet-stream"_s << u"https://x/a.GIF"_s << u"x"_s << u"x.gif"_s;
        QTest::newRow("jpeg path kept") << QString() << u"https://x/photo.JPEG?w=2"_s << u"x"_s << u"x.jpeg"_s;
        QTest::newRow("nothing to go on") << QString() << u"https://x/photo.tiff"_s << u"x"_s << u"x.jpg"_s;
        QTest::newRow("only spaces") << QString() << u"https://x/a"_s << u" \t "_s << u"image.jpg"_s;
        QTest::newRow("no broken surrogate") << QString() << u"https://x/a"_s << QString(QString(69, u'a') + u"😀b"_s)
                                             << QString(QString(69, u'a') + u".jpg"_s);
    }
    void fileNames() {
        QFETCH(QString, contentType);
        QFETCH(QString, url);
        QFETCH(QString, title);
        QFETCH(QString, expected);
        QCOMPARE(ImageSearch::sanitize(title) + u'.' + ImageSearch::fileExtension(contentType, QUrl(url)), expected);
    }

    void downloadFilesBySource_data() {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("source");
        QTest::addColumn<QString>("creator");
        QTest::addColumn<bool>("credit");
        QTest::addColumn<QString>("expectedFile");
        QTest::addColumn<QString>("creditText");
        const QString tail = u"License: CC BY 2.0\nSource: https://flickr.example/p/1\n\nAttribution required when reusing this image."_s;
        QTest::newRow("content type") << u"/img/sunset.png?type=image/png"_s << u"flickr"_s << u"Ann"_s << true
                                      << u"Images/Flickr/Sunset.png"_s << QString(u"Sunset\nby Ann\n"_s + tail);
        QTest::newRow("no type, upper-case path") << u"/img/photo.JPEG?notype=1"_s << u"WIKIMEDIA commons"_s << u"Ann"_s << false
                                                  << u"Images/Wikimedia Commons/Sunset.jpeg"_s << QString();
        QTest::newRow("no type, bare path") << u"/img/plain?notype=1"_s << u"met_museum"_s << QString() << true
                                            << u"Images/Met_Museum/Sunset.jpg"_s << QString(u"Sunset\n"_s + tail);
    }
    void downloadFilesBySource() {
        QFETCH(QString, path);
        QFETCH(QString, source);
        QFETCH(QString, creator);
        QFETCH(bool, credit);
        QFETCH(QString, expectedFile);
        QFETCH(QString, creditText);
        const QString folder = freshFolder();
        Result r = pictureAt(site.url(path));
        r.sourceName = source;
        r.creator = creator;
        r.licenseRequiresCredit = credit;
        const QString saved = download(r, folder);
        QCOMPARE(saved, folder + u'/' + expectedFile);
        QCOMPARE(fileBytes(saved), fileBytes(site.root() + QUrl(path).path()));
        const QFileInfo info(saved);
        QCOMPARE(QFileInfo::exists(info.absolutePath() + u"/Sunset.credit.txt"_s), credit);
        QCOMPARE(QString::fromUtf8(fileBytes(info.absolutePath() + u"/Sunset.credit.txt"_s)), creditText);
        QVERIFY(!temporariesLeft());
        QVERIFY(site.requests().last().endsWith(u"UA=Vorlix/1.0 (macOS media tool)"_s));
    }

    void sameTitleTwiceIsNumbered() {
        const QString folder = freshFolder();
        const Result r = pictureAt(site.url(u"/img/sunset.png?type=image/jpeg"_s));
        QStringList names;
        for (int i = 0; i < 3; ++i)
            names << QFileInfo(download(r, folder)).fileName();
        QCOMPARE(names, (QStringList{u"Sunset.jpg"_s, u"Sunset 2.jpg"_s, u"Sunset 3.jpg"_s}));
        QCOMPARE(QDir(folder + u"/Images/Flickr"_s).entryList(QDir::Files, QDir::Name),
                 (QStringList{u"Sunset 2.credit.txt"_s, u"Sunset 2.jpg"_s, u"Sunset 3.credit.txt"_s, u"Sunset 3.jpg"_s,
                              u"Sunset.credit.txt"_s, u"Sunset.jpg"_s}));
    }

    void defaultFolderIsTheSettingsDownloadFolder() {
        const QString folder = freshFolder() + u"/Library"_s;
        AppSettings::shared().setDownloadFolderPath(folder);
        const QString saved = vtest::await(ImageSearch::download(pictureAt(site.url(u"/img/sunset.png"_s))));
        QCOMPARE(saved, folder + u"/Images/Flickr/Sunset.png"_s);
        QVERIFY(QFileInfo::exists(saved));
    }

    void failedDownloadsLeaveNothingBehind_data() {
        QTest::addColumn<QString>("path");
        QTest::addColumn<bool>("folderIsAFile");
        QTest::addColumn<int>("kind");
        QTest::addColumn<QString>("message");
        QTest::newRow("no full-size address") << QString() << false << int(ImageError::noDownloadURL)
                                              << u"That image has no downloadable file."_s;
        QTest::newRow("http 404") << u"/img/missing.png"_s << false << int(ImageError::badResponse)
                                  << u"Couldn't reach the free-image library. Check your connection and try again."_s;
        QTest::newRow("http 500") << u"/img/sunset.png?status=500"_s << false << int(ImageError::badResponse)
                                  << u"Couldn't reach the free-image library. Check your connection and try again."_s;
        QTest::newRow("folder cannot exist") << u"/img/sunset.png"_s << true << int(ImageError::saveFailed) << u"Couldn't save the image."_s;
    }
    void failedDownloadsLeaveNothingBehind() {
        QFETCH(QString, path);
        QFETCH(bool, folderIsAFile);
        QFETCH(int, kind);
        QFETCH(QString, message);
        QString folder = freshFolder();
        if (folderIsAFile) {
            folder += u"/plain-file"_s;
            QFile f(folder);
            QVERIFY(f.open(QIODevice::WriteOnly));
        }
        try {
            download(pictureAt(path.isEmpty() ? QString() : site.url(path)), folder);
            QFAIL("expected an ImageError");
        } catch (const ImageError &e) {
            QCOMPARE(int(e.kind()), kind);
            QCOMPARE(QString::fromUtf8(e.what()), message);
        }
        QVERIFY(!temporariesLeft());
        QVERIFY(!QFileInfo::exists(folder + u"/Images/Flickr/Sunset.png"_s));
    }
};

VORLIX_TEST_SUITE(ImageSearchTest)
#include "ImageSearchTest.moc"
