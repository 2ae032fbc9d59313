#include "discovery/ImageSearch.h"

#include "core/TextTrim.h"
#include "core/AppSettings.h"
#include "discovery/Http.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkRequest>
#include <QSaveFile>
#include <QUrlQuery>
#include <QUuid>

#include <cmath>
#include <optional>

namespace ImageSearch {
namespace {

const QByteArray userAgent = QByteArrayLiteral("Vorlix/1.0 (macOS media tool)");


QString stringMember(const QJsonObject &object, QLatin1String key) {
    const QJsonValue v = object.value(key);
    return v.isString() ? v.toString() : QString();
}

std::optional<qint64> integerMember(const QJsonObject &object, QLatin1String key) {
    const QJsonValue v = object.value(key);
    if (!v.isDouble())
        return std::nullopt;
    const double d = v.toDouble();
    if (!std::isfinite(d) || d != std::trunc(d) || std::fabs(d) > 9.0e15)
        return std::nullopt;
    return qint64(d);
}

QUrl addressMember(const QJsonObject &object, QLatin1String key) {
    const QJsonValue v = object.value(key);
    if (!v.isString() || v.toString().isEmpty())
        return {};
    const QUrl url(v.toString(), QUrl::StrictMode);
    return url.isValid() ? url : QUrl();
}

Result resultFrom(const QJsonObject &item) {
    Result r;
    r.id = item.value(QLatin1String("id")).toString();
    const QString code = stringMember(item, QLatin1String("license"));
    const QString version = stringMember(item, QLatin1String("license_version"));
    r.license = prettyLicense(code, version);
    r.licenseRequiresCredit = code != QLatin1String("cc0") && code != QLatin1String("pdm");

    const auto width = integerMember(item, QLatin1String("width"));
    const auto height = integerMember(item, QLatin1String("height"));
    if (width && height && *width >= 1 && *height >= 1)
        r.dimensions = QString::number(*width) + QChar(0x00D7) + QString::number(*height);

    const QString title = stringMember(item, QLatin1String("title"));
    r.title = title.isEmpty() ? QStringLiteral("Untitled") : title;
    r.creator = stringMember(item, QLatin1String("creator"));
    if (item.value(QLatin1String("source")).isString())
        r.sourceName = item.value(QLatin1String("source")).toString();
    else if (item.value(QLatin1String("provider")).isString())
        r.sourceName = item.value(QLatin1String("provider")).toString();
    else
        r.sourceName = QStringLiteral("openverse");
    r.thumbURL = addressMember(item, QLatin1String("thumbnail"));
    r.fullURL = addressMember(item, QLatin1String("url"));
    r.landingURL = stringMember(item, QLatin1String("foreign_landing_url"));
    return r;
}

QUrl searchAddress(const QUrl &apiBase, const QString &q, int page, int pageSize) {
    QUrl url = apiBase;
    QString path = url.path();
    while (path.endsWith(u'/'))
        path.chop(1);
    url.setPath(path + SiteAddresses::openverseImagesPath);

    QUrlQuery query;
    // A literal "+" would reach the server as a space ("c++" → "c  "), so it travels encoded.
    QString value = q;
    value.replace(u'%', QLatin1String("%25"));
    value.replace(u'+', QLatin1String("%2B"));
    query.addQueryItem(QStringLiteral("q"), value);
    query.addQueryItem(QStringLiteral("page"), QString::number(page));
    query.addQueryItem(QStringLiteral("page_size"), QString::number(pageSize));
    query.addQueryItem(QStringLiteral("license_type"), QStringLiteral("commercial,modification"));
    query.addQueryItem(QStringLiteral("mature"), QStringLiteral("false"));
    url.setQuery(query);
    return url;
}

// Removes the downloaded file on every way out unless it was moved into place.
struct TemporaryFile {
    QString path;
    ~TemporaryFile() {
        if (!path.isEmpty())
            QFile::remove(path);
    }
};

QString freeName(const QString &folder, const QString &base, const QString &ext) {
    QString name = base + u'.' + ext;
    for (int n = 2; QFileInfo::exists(folder + u'/' + name); ++n)
        name = base + u' ' + QString::number(n) + u'.' + ext;
    return name;
}

} // namespace

ImageError::ImageError(Kind kind) : m_kind(kind), m_what(description().toUtf8()) {}

QString ImageError::description() const {
    switch (m_kind) {
    case badResponse:
        return QStringLiteral("Couldn't reach the free-image library. Check your connection and try again.");
    case noDownloadURL:
        return QStringLiteral("That image has no downloadable file.");
    case saveFailed:
        return QStringLiteral("Couldn't save the image.");
    }
    return {};
}

QString prettyLicense(const QString &code, const QString &version) {
    if (code == QLatin1String("cc0"))
        return QStringLiteral("CC0 · public domain");
    if (code == QLatin1String("pdm"))
        return QStringLiteral("Public Domain");
    QString text = QStringLiteral("CC ") + code.toUpper();
    if (!version.isEmpty())
        text += u' ' + version;
    return text;
}

QString fileExtension(const QString &contentType, const QUrl &url) {
    if (!contentType.isNull()) {
        const QString type = contentType.toLower();
        if (type.contains(QLatin1String("png")))
            return QStringLiteral("png");
        if (type.contains(QLatin1String("gif")))
            return QStringLiteral("gif");
        if (type.contains(QLatin1String("webp")))
            return QStringLiteral("webp");
        if (type.contains(QLatin1String("svg")))
            return QStringLiteral("svg");
        if (type.contains(QLatin1String("jpeg")) || type.contains(QLatin1String("jpg")))
            return QStringLiteral("jpg");
    }
    const QString pathExt = QFileInfo(url.path()).suffix().toLower();
    static const QStringList known{QStringLiteral("png"), QStringLiteral("gif"), QStringLiteral("webp"),
                                   QStringLiteral("svg"), QStringLiteral("jpg"), QStringLiteral("jpeg")};
    if (known.contains(pathExt))
        return pathExt;
    return QStringLiteral("jpg");
}

QString sanitize(const QString &name) {
    static const QString forbidden = QStringLiteral("/:\\?%*|\"<>");
    QString out = name;
    for (QChar &c : out)
        if (forbidden.contains(c))
            c = u'-';
    if (out.size() > 70) {
        qsizetype keep = 70;
        if (out[keep - 1].isHighSurrogate())
            --keep; // never cut a character in half
        out.truncate(keep);
    }
    out = trimSpacesAndTabs(out).toString();
    return out.isEmpty() ? QStringLiteral("image") : out;
}

QString capitalizedWords(const QString &text) {
    QString out;
    out.reserve(text.size());
    bool atWordStart = true;
    for (const QChar c : text) {
        if (c.isLetterOrNumber()) {
            out += atWordStart ? c.toUpper() : c.toLower();
            atWordStart = false;
        } else {
            out += c;
            atWordStart = true;
        }
    }
    return out;
}

QString creditText(const Result &result) {
    QString text = result.title + u'\n';
    if (!result.creator.isEmpty())
        text += QStringLiteral("by ") + result.creator + u'\n';
    text += QStringLiteral("License: ") + result.license + u'\n';
    text += QStringLiteral("Source: ") + result.landingURL;
    text += QStringLiteral("\n\nAttribution required when reusing this image.");
    return text;
}

QCoro::Task<QList<Result>> search(QString query, int page, int pageSize, Endpoint endpoint) {
    const QString q = trimSpacesAndTabs(query).toString();
    if (q.isEmpty())
        co_return QList<Result>{};

    const QUrl url = searchAddress(endpoint.apiBase, q, page, pageSize);
    if (!url.isValid() || url.scheme().isEmpty() || url.host().isEmpty())
        throw ImageError(ImageError::badResponse);

    QNetworkRequest request(url);
    request.setRawHeader("User-Agent", userAgent);
    const Http::Response response = co_await Http::get(request, endpoint.searchTimeout);
    if (!response.transportError.isEmpty())
        throw Http::NetworkError(response.transportError.toStdString());
    if (response.status != 200)
        throw ImageError(ImageError::badResponse);
    co_return parseSearchResults(response.body);
}

QList<Result> parseSearchResults(const QByteArray &body) {
    QJsonParseError parseError;
    const QJsonDocument doc = QJsonDocument::fromJson(body, &parseError);
    if (parseError.error != QJsonParseError::NoError || !doc.isObject())
        throw ImageError(ImageError::badResponse);
    const QJsonValue results = doc.object().value(QLatin1String("results"));
    if (!results.isArray())
        throw ImageError(ImageError::badResponse);
    const QJsonArray items = results.toArray();
    for (const QJsonValue &item : items)
        if (!item.isObject())
            throw ImageError(ImageError::badResponse);

    QList<Result> found;
    for (const QJsonValue &item : items) {
        const QJsonObject object = item.toObject();
        if (!object.value(QLatin1String("id")).isString())
            continue;
        found.append(resultFrom(object));
    }
    return found;
}

QCoro::Task<QString> download(Result result) {
    return download(std::move(result), AppSettings::shared().downloadFolder());
}

QCoro::Task<QString> download(Result result, QString downloadFolder, Endpoint endpoint) {
    if (result.fullURL.isEmpty())
        throw ImageError(ImageError::noDownloadURL);

    TemporaryFile temporary{QDir::tempPath() + QStringLiteral("/vorlix-") +
                            QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper()};
    QNetworkRequest request(result.fullURL);
    request.setRawHeader("User-Agent", userAgent);
    const Http::Response response = co_await Http::download(request, temporary.path, endpoint.downloadTimeout);
    if (response.fileWriteFailed)
        throw ImageError(ImageError::saveFailed);
    if (!response.transportError.isEmpty())
        throw Http::NetworkError(response.transportError.toStdString());
    if (response.status != 200)
        throw ImageError(ImageError::badResponse);

    const QString ext = fileExtension(response.contentType, result.fullURL);
    const QString folder = downloadFolder + QStringLiteral("/Images/") + capitalizedWords(result.sourceName);
    if (!QDir().mkpath(folder))
        throw ImageError(ImageError::saveFailed); // the move could not succeed either

    const QString name = freeName(folder, sanitize(result.title), ext);
    const QString destination = folder + u'/' + name;
    if (!QFile::rename(temporary.path, destination))
        throw ImageError(ImageError::saveFailed);
    temporary.path.clear();

    if (result.licenseRequiresCredit) {
        const QString creditPath = folder + u'/' + QFileInfo(name).completeBaseName() + QStringLiteral(".credit.txt");
        QSaveFile credit(creditPath);
        if (credit.open(QIODevice::WriteOnly)) {
            credit.write(creditText(result).toUtf8());
            credit.commit(); // a missing credit file never costs the user the picture
        }
    }
    co_return destination;
}

} // namespace ImageSearch
