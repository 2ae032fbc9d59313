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
#include <QUrlQuery>
#include <QUuid>

#include <functional>

using ImageSearch::ImageError;
using ImageSearch::Result;

namespace {

const QByteArray catalogueAnswer = R"({
  "result_count": 6,
  "results": [
    {"id": "a1", "title": "Sunset", "creator": "Ann", "license": "by", "license_version": "2.0",
     "source": "flickr", "provider": "flickr-provider", "width": 1920, "height": 1080,
     "thumbnail": "https://img.example/t/a1.jpg", "url": "https://img.example/a1.jpg",
     "foreign_landing_url": "https://flickr.example/photos/a1"},
    {"title": "no identifier", "url": "https://img.example/x.jpg"},
    {"id": 17, "title": "numeric identifier"},
    {"id": "b2", "title": "", "license": "cc0", "provider": "wikimedia", "width": 640.5, "height": 480},
    {"id": "c3", "title": 5, "creator": null, "license": "by-sa", "license_version": "4.0", "width": 0,
     "height": 10, "url": "not a url at all"},
    {"id": "d4", "license": "pdm", "width": 3, "height": 2, "url": "https://img.example/d4.png"}
  ]
})";

QByteArray fileBytes(const QString &path) {
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

ImageSearch::Endpoint endpointAt(const QString &base, int timeoutMs = 5000) {
    ImageSearch::Endpoint e{QUrl(base)};
    e.searchTimeout = std::chrono::milliseconds(timeoutMs);
    e.downloadTimeout = std::chrono::milliseconds(timeoutMs);
    return e;
}

// The value of one query key exactly as it travelled, and as the server decodes it.
QString rawQueryValue(const QString &requestLine, const QString &key) {
    const QString path = requestLine.section(u' ', 1, 1);
    const QStringList pairs = path.section(u'?', 1).split(u'&');
    for (const QString &pair : pairs)
        if (pair.section(u'=', 0, 0) == key)
            return pair.section(u'=', 1);
    return QStringLiteral("<missing>");
}

Result pictureAt(const QString &url, const QString &title = QStringLiteral("Sunset")) {
    Result r;
    r.id = QStringLiteral("x");
    r.title = title;
    r.creator = QStringLiteral("Ann Example");
    r.license = QStringLiteral("CC BY 2.0");
    r.licenseRequiresCredit = true;
    r.sourceName = QStringLiteral("flickr");
    r.fullURL = QUrl(url);
    r.landingURL = QStringLiteral("https://flickr.example/p/1");
    return r;
}

QString freshFolder() {
    const QString dir = TestEnv::root() + QStringLiteral("/dl-") + QUuid::createUuid().toString(QUuid::Id128);
    QDir().mkpath(dir);
    return dir;
}

QStringList leftoverTemporaries() { return TestEnv::filesContaining(QDir::tempPath(), QStringLiteral("vorlix-")); }

} // namespace

class ImageSearchTest : public QObject {
    Q_OBJECT
    FixtureSite site;

private Q_SLOTS:
    void initTestCase() {
        QVERIFY(site.isRunning());
        site.put(QStringLiteral("api/v1/images/index.html"), catalogueAnswer);
        site.put(QStringLiteral("img/sunset.png"), "PNG-BYTES");
        site.put(QStringLiteral("img/photo.JPEG"), "JPEG-BYTES");
        site.put(QStringLiteral("img/plain"), "RAW-BYTES");
    }

    void searchMapsCatalogueItems() {
        const auto results = vtest::await(ImageSearch::search(QStringLiteral("sunset"), 1, 20, endpointAt(site.url(QStringLiteral("/api")))));
        QStringList ids;
        for (const Result &r : results)
            ids << r.id;
        // items without a string id are left out, the rest keep the catalogue's order
        QCOMPARE(ids, (QStringList{QStringLiteral("a1"), QStringLiteral("b2"), QStringLiteral("c3"), QStringLiteral("d4")}));

        const Result &a = results[0];
        QCOMPARE(a.title, QStringLiteral("Sunset"));
        QCOMPARE(a.creator, QStringLiteral("Ann"));
        QCOMPARE(a.license, QStringLiteral("CC BY 2.0"));
        QVERIFY(a.licenseRequiresCredit);
        QCOMPARE(a.sourceName, QStringLiteral("flickr")); // source wins over provider
        QCOMPARE(a.dimensions, QStringLiteral("1920×1080"));
        QCOMPARE(a.thumbURL, QUrl(QStringLiteral("https://img.example/t/a1.jpg")));
        QCOMPARE(a.fullURL, QUrl(QStringLiteral("https://img.example/a1.jpg")));
        QCOMPARE(a.landingURL, QStringLiteral("https://flickr.example/photos/a1"));

        const Result &b = results[1];
        QCOMPARE(b.title, QStringLiteral("Untitled"));
        QCOMPARE(b.license, QStringLiteral("CC0 · public domain"));
        QVERIFY(!b.licenseRequiresCredit);
        QCOMPARE(b.sourceName, QStringLiteral("wikimedia"));
        QCOMPARE(b.dimensions, QString()); // a fractional width is no width
        QVERIFY(b.fullURL.isEmpty());
        QCOMPARE(b.landingURL, QString());

        const Result &c = results[2];
        QCOMPARE(c.title, QStringLiteral("Untitled")); // not a string
        QCOMPARE(c.creator, QString());
        QCOMPARE(c.license, QStringLiteral("CC BY-SA 4.0"));
        QCOMPARE(c.sourceName, QStringLiteral("openverse"));
        QCOMPARE(c.dimensions, QString());
        QVERIFY(c.fullURL.isEmpty()); // unparsable address

        const Result &d = results[3];
        QCOMPARE(d.license, QStringLiteral("Public Domain"));
        QVERIFY(!d.licenseRequiresCredit);
        QCOMPARE(d.dimensions, QStringLiteral("3×2"));
    }

    void searchSendsItsQueryItemsInOrder_data() {
        QTest::addColumn<QString>("query");
        QTest::addColumn<QString>("expected");
        QTest::newRow("words") << QStringLiteral("  red fox\t") << QStringLiteral("red fox");
        QTest::newRow("delimiters") << QStringLiteral("cats & dogs = 1#2") << QStringLiteral("cats & dogs = 1#2");
        QTest::newRow("plus and percent") << QStringLiteral("c++ 100%") << QStringLiteral("c++ 100%");
        QTest::newRow("unicode") << QStringLiteral("café · 東京") << QStringLiteral("café · 東京");
    }
    void searchSendsItsQueryItemsInOrder() {
        QFETCH(QString, query);
        QFETCH(QString, expected);
        const int before = site.requests().size();
        vtest::await(ImageSearch::search(query, 3, 40, endpointAt(site.url(QStringLiteral("/api")))));
        const QStringList log = site.requests().mid(before);
        QCOMPARE(log.size(), 1);
        const QString line = log.first();
        QVERIFY2(line.startsWith(QStringLiteral("GET /api/v1/images/?q=")), qPrintable(line));
        QVERIFY2(line.contains(QStringLiteral("&page=3&page_size=40&license_type=commercial,modification&mature=false UA=")),
                 qPrintable(line));
        QVERIFY2(line.endsWith(QStringLiteral("UA=Vorlix/1.0 (macOS media tool)")), qPrintable(line));
        // a server reads "+" as a space, so what travels must decode to the query itself
        const QString raw = rawQueryValue(line, QStringLiteral("q"));
        QVERIFY2(!raw.contains(u'+') && !raw.contains(u'&') && !raw.contains(u' '), qPrintable(raw));
        QCOMPARE(QUrl::fromPercentEncoding(raw.toUtf8()), expected);
    }

    void blankQueryAsksNothing_data() {
        QTest::addColumn<QString>("query");
        QTest::newRow("empty") << QString();
        QTest::newRow("spaces and tabs") << QStringLiteral(" \t  ");
    }
    void blankQueryAsksNothing() {
        QFETCH(QString, query);
        const int before = site.requests().size();
        const auto results = vtest::await(ImageSearch::search(query, 1, 20, endpointAt(site.url(QStringLiteral("/api")))));
        QVERIFY(results.isEmpty());
        QCOMPARE(site.requests().size(), before);
    }

    void badAnswersAreBadResponse_data() {
        QTest::addColumn<QByteArray>("answer");
        QTest::newRow("http 500") << CannedServer::status(500, R"({"results": []})");
        QTest::newRow("http 404") << CannedServer::status(404);
        QTest::newRow("malformed json") << CannedServer::status(200, R"({"results": [)");
        QTest::newRow("top-level list") << CannedServer::status(200, R"([{"id": "a"}])");
        QTest::newRow("results not a list") << CannedServer::status(200, R"({"results": {"id": "a"}})");
        QTest::newRow("results holds a non-object") << CannedServer::status(200, R"({"results": [{"id": "a"}, 3]})");
        QTest::newRow("html page") << CannedServer::status(200, "<html>maintenance</html>");
    }
    void badAnswersAreBadResponse() {
        QFETCH(QByteArray, answer);
        CannedServer server(CannedServer::Answer, answer);
        try {
            vtest::await(ImageSearch::search(QStringLiteral("fox"), 1, 20, endpointAt(server.url(QString()))));
            QFAIL("expected badResponse");
        } catch (const ImageError &e) {
            QCOMPARE(e.kind(), ImageError::badResponse);
            QCOMPARE(QString::fromUtf8(e.what()),
                     QStringLiteral("Couldn't reach the free-image library. Check your connection and try again."));
        }
    }

    void transportFailuresPassThePlatformError_data() {
        QTest::addColumn<int>("behaviour");
        QTest::addColumn<QString>("message");
        QTest::newRow("time-out") << int(CannedServer::Silent) << QStringLiteral("The request timed out.");
        QTest::newRow("redirect loop") << int(CannedServer::RedirectToSelf) << QString();
        QTest::newRow("nobody listening") << -1 << QString();
    }
    void transportFailuresPassThePlatformError() {
        QFETCH(int, behaviour);
        QFETCH(QString, message);
        std::unique_ptr<CannedServer> server;
        QString base = QStringLiteral("http://127.0.0.1:1");
        if (behaviour >= 0) {
            server = std::make_unique<CannedServer>(CannedServer::Behaviour(behaviour));
            base = server->url(QString());
        }
        try {
            vtest::await(ImageSearch::search(QStringLiteral("fox"), 1, 20, endpointAt(base, 400)));
            QFAIL("expected a network error");
        } catch (const Http::NetworkError &e) {
            QVERIFY(!e.message().isEmpty());
            if (!message.isEmpty())
                QCOMPARE(e.message(), message);
        }
    }

    void prettyLicense_data() {
        QTest::addColumn<QString>("code");
        QTest::addColumn<QString>("version");
        QTest::addColumn<QString>("expected");
        QTest::newRow("cc0") << QStringLiteral("cc0") << QStringLiteral("1.0") << QStringLiteral("CC0 · public domain");
        QTest::newRow("pdm") << QStringLiteral("pdm") << QString() << QStringLiteral("Public Domain");
        QTest::newRow("by-sa 4.0") << QStringLiteral("by-sa") << QStringLiteral("4.0") << QStringLiteral("CC BY-SA 4.0");
        QTest::newRow("by, no version") << QStringLiteral("by") << QString() << QStringLiteral("CC BY");
        QTest::newRow("comparisons are exact") << QStringLiteral("CC0") << QString() << QStringLiteral("CC CC0");
        QTest::newRow("no code") << QString() << QString() << QStringLiteral("CC ");
    }
    void prettyLicense() {
        QFETCH(QString, code);
        QFETCH(QString, version);
        QFETCH(QString, expected);
        QCOMPARE(ImageSearch::prettyLicense(code, version), expected);
    }

    void fileExtension_data() {
        QTest::addColumn<QString>("contentType");
        QTest::addColumn<QString>("url");
        QTest::addColumn<QString>("expected");
        const QString none; // no header at all
        QTest::newRow("jpeg type") << QStringLiteral("image/jpeg") << QStringLiteral("https://x/a.png") << QStringLiteral("jpg");
        QTest::newRow("upper-case type") << QStringLiteral("IMAGE/PNG") << QStringLiteral("https://x/a") << QStringLiteral("png");
        QTest::newRow("svg type") << QStringLiteral("image/svg+xml; charset=utf-8") << QStringLiteral("https://x/a.jpg") << QStringLiteral("svg");
        QTest::newRow("webp type") << QStringLiteral("image/webp") << QStringLiteral("https://x/a") << QStringLiteral("webp");
        QTest::newRow("unknown type falls to url") << QStringLiteral("application/octet-stream") << QStringLiteral("https://x/a.GIF") << QStringLiteral("gif");
        QTest::newRow("no type, JPEG path") << none << QStringLiteral("https://x/p/photo.JPEG?w=2") << QStringLiteral("jpeg");
        QTest::newRow("no type, odd path") << none << QStringLiteral("https://x/p/photo.tiff") << QStringLiteral("jpg");
        QTest::newRow("no type, no path ext") << none << QStringLiteral("https://x/p/photo") << QStringLiteral("jpg");
    }
    void fileExtension() {
        QFETCH(QString, contentType);
        QFETCH(QString, url);
        QFETCH(QString, expected);
        QCOMPARE(ImageSearch::fileExtension(contentType, QUrl(url)), expected);
    }

    void sanitize_data() {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("expected");
        QTest::newRow("forbidden characters") << QStringLiteral("a/b:c?") << QStringLiteral("a-b-c-");
        QTest::newRow("all ten") << QStringLiteral("/:\\?%*|\"<>") << QStringLiteral("----------");
        QTest::newRow("only spaces") << QStringLiteral("  \t ") << QStringLiteral("image");
        QTest::newRow("forbidden and spaces") << QStringLiteral(" ? ") << QStringLiteral("-");
        QTest::newRow("trimmed after the cut") << QString(QString(69, u'x') + QStringLiteral(" yyy")) << QString(69, u'x');
        QTest::newRow("cut at 70") << QString(80, u'z') << QString(70, u'z');
        QTest::newRow("no broken surrogate") << QString(QString(69, u'a') + QStringLiteral("😀b")) << QString(69, u'a');
    }
    void sanitize() {
        QFETCH(QString, name);
        QFETCH(QString, expected);
        QCOMPARE(ImageSearch::sanitize(name), expected);
    }

    void downloadNamesFilesAndWritesCredits_data() {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("source");
        QTest::addColumn<bool>("credit");
        QTest::addColumn<QString>("expectedFile");
        QTest::newRow("content type wins") << QStringLiteral("/img/sunset.png?type=image/png") << QStringLiteral("a/b:c?")
                                           << QStringLiteral("flickr") << true << QStringLiteral("Images/Flickr/a-b-c-.png");
        QTest::newRow("no type, upper-case path") << QStringLiteral("/img/photo.JPEG?notype=1") << QStringLiteral("Photo")
                                                  << QStringLiteral("WIKIMEDIA commons") << false
                                                  << QStringLiteral("Images/Wikimedia Commons/Photo.jpeg");
        QTest::newRow("nothing to go on") << QStringLiteral("/img/plain?notype=1") << QStringLiteral("   ")
                                          << QStringLiteral("met_museum") << true << QStringLiteral("Images/Met_Museum/image.jpg");
    }
    void downloadNamesFilesAndWritesCredits() {
        QFETCH(QString, path);
        QFETCH(QString, title);
        QFETCH(QString, source);
        QFETCH(bool, credit);
        QFETCH(QString, expectedFile);
        const QString folder = freshFolder();
        Result r = pictureAt(site.url(path), title);
        r.sourceName = source;
        r.licenseRequiresCredit = credit;
        const QString saved = vtest::await(ImageSearch::download(r, folder, endpointAt(QString())));
        QCOMPARE(saved, folder + u'/' + expectedFile);
        QVERIFY(!fileBytes(saved).isEmpty());
        QCOMPARE(fileBytes(saved), fileBytes(site.root() + QUrl(path).path()));
        const QFileInfo info(saved);
        const QString creditPath = info.absolutePath() + u'/' + info.completeBaseName() + QStringLiteral(".credit.txt");
        QCOMPARE(QFileInfo::exists(creditPath), credit);
        QVERIFY(leftoverTemporaries().isEmpty());
        QVERIFY(site.requests().last().endsWith(QStringLiteral("UA=Vorlix/1.0 (macOS media tool)")));
    }

    void sameTitleTwiceIsNumbered() {
        const QString folder = freshFolder();
        const Result r = pictureAt(site.url(QStringLiteral("/img/sunset.png?type=image/jpeg")));
        const QString first = vtest::await(ImageSearch::download(r, folder, endpointAt(QString())));
        const QString second = vtest::await(ImageSearch::download(r, folder, endpointAt(QString())));
        const QString third = vtest::await(ImageSearch::download(r, folder, endpointAt(QString())));
        QCOMPARE(QFileInfo(first).fileName(), QStringLiteral("Sunset.jpg"));
        QCOMPARE(QFileInfo(second).fileName(), QStringLiteral("Sunset 2.jpg"));
        QCOMPARE(QFileInfo(third).fileName(), QStringLiteral("Sunset 3.jpg"));
        QStringList files = QDir(folder + QStringLiteral("/Images/Flickr")).entryList(QDir::Files, QDir::Name);
        QCOMPARE(files, (QStringList{QStringLiteral("Sunset 2.credit.txt"), QStringLiteral("Sunset 2.jpg"),
                                     QStringLiteral("Sunset 3.credit.txt"), QStringLiteral("Sunset 3.jpg"),
                                     QStringLiteral("Sunset.credit.txt"), QStringLiteral("Sunset.jpg")}));
    }

    void creditFileText_data() {
        QTest::addColumn<QString>("creator");
        QTest::addColumn<QString>("expected");
        QTest::newRow("with creator") << QStringLiteral("Ann Example")
                                      << QStringLiteral("Sunset\nby Ann Example\nLicense: CC BY 2.0\nSource: https://flickr.example/p/1\n\n"
                                                        "Attribution required when reusing this image.");
        QTest::newRow("without creator") << QString()
                                         << QStringLiteral("Sunset\nLicense: CC BY 2.0\nSource: https://flickr.example/p/1\n\n"
                                                           "Attribution required when reusing this image.");
    }
    void creditFileText() {
        QFETCH(QString, creator);
        QFETCH(QString, expected);
        const QString folder = freshFolder();
        Result r = pictureAt(site.url(QStringLiteral("/img/sunset.png")));
        r.creator = creator;
        vtest::await(ImageSearch::download(r, folder, endpointAt(QString())));
        QCOMPARE(QString::fromUtf8(fileBytes(folder + QStringLiteral("/Images/Flickr/Sunset.credit.txt"))), expected);
    }

    void defaultFolderIsTheSettingsDownloadFolder() {
        const QString folder = freshFolder() + QStringLiteral("/Library");
        AppSettings::shared().setDownloadFolderPath(folder);
        const QString saved = vtest::await(ImageSearch::download(pictureAt(site.url(QStringLiteral("/img/sunset.png")))));
        QCOMPARE(saved, folder + QStringLiteral("/Images/Flickr/Sunset.png"));
        QVERIFY(QFileInfo::exists(saved));
    }

    void failedDownloadsLeaveNothingBehind_data() {
        QTest::addColumn<QString>("url");
        QTest::addColumn<bool>("folderIsAFile");
        QTest::addColumn<int>("kind");
        QTest::newRow("no full-size address") << QString() << false << int(ImageError::noDownloadURL);
        QTest::newRow("http 404") << QStringLiteral("/img/missing.png") << false << int(ImageError::badResponse);
        QTest::newRow("http 500") << QStringLiteral("/img/sunset.png?status=500") << false << int(ImageError::badResponse);
        QTest::newRow("folder cannot exist") << QStringLiteral("/img/sunset.png") << true << int(ImageError::saveFailed);
    }
    void failedDownloadsLeaveNothingBehind() {
        QFETCH(QString, url);
        QFETCH(bool, folderIsAFile);
        QFETCH(int, kind);
        QString folder = freshFolder();
        if (folderIsAFile) {
            folder += QStringLiteral("/plain-file");
            QFile f(folder);
            QVERIFY(f.open(QIODevice::WriteOnly));
        }
        const Result r = pictureAt(url.isEmpty() ? QString() : site.url(url));
        try {
            vtest::await(ImageSearch::download(r, folder, endpointAt(QString())));
            QFAIL("expected an ImageError");
        } catch (const ImageError &e) {
            QCOMPARE(int(e.kind()), kind);
            QCOMPARE(QString::fromUtf8(e.what()), e.description());
        }
        QVERIFY(leftoverTemporaries().isEmpty());
        QVERIFY(!QFileInfo::exists(folder + QStringLiteral("/Images/Flickr/Sunset.png")));
    }

    void errorTexts() {
        QCOMPARE(ImageError(ImageError::noDownloadURL).description(), QStringLiteral("That image has no downloadable file."));
        QCOMPARE(ImageError(ImageError::saveFailed).description(), QStringLiteral("Couldn't save the image."));
    }
};

VORLIX_TEST_SUITE(ImageSearchTest)
#include "ImageSearchTest.moc"
