#pragma once

#include "core/SiteAddresses.h"

#include <QCoroTask>
#include <QList>
#include <QString>
#include <QUrl>

#include <chrono>
#include <exception>

// Openly licensed pictures from the Openverse catalogue: search, and save with a credit file.
namespace ImageSearch {

struct Result {
    QString id;
    QString title;   // "Untitled" when the catalogue has none
    QString creator; // empty when unknown
    QString license; // as shown to the user
    bool licenseRequiresCredit = true;
    QString sourceName;
    QUrl thumbURL;      // empty when absent
    QUrl fullURL;       // empty when absent: nothing to download
    QString landingURL; // empty when unknown
    QString dimensions; // "1920×1080", or empty
};

class ImageError : public std::exception {
public:
    enum Kind { badResponse, noDownloadURL, saveFailed };
    explicit ImageError(Kind kind);
    Kind kind() const { return m_kind; }
    QString description() const;
    const char *what() const noexcept override { return m_what.constData(); }

private:
    Kind m_kind;
    QByteArray m_what;
};

// Where the catalogue lives and how long to wait; real() is what the application uses.
struct Endpoint {
    QUrl apiBase;
    std::chrono::milliseconds searchTimeout{20000};
    std::chrono::milliseconds downloadTimeout{60000};
    static Endpoint real() { return {QUrl(SiteAddresses::openverseApiBase)}; }
};

// Pictures for a query, in the catalogue's order. A blank query asks nothing and finds nothing.
// Throws ImageError (badResponse) or Http::NetworkError.
QCoro::Task<QList<Result>> search(QString query, int page, int pageSize, Endpoint endpoint = Endpoint::real());

// Saves the full-size picture under <download folder>/Images/<Source>/ and returns its path.
// Throws ImageError or Http::NetworkError.
QCoro::Task<QString> download(Result result);
QCoro::Task<QString> download(Result result, QString downloadFolder, Endpoint endpoint = Endpoint::real());

// The results of one answer of the search service; throws ImageError(badResponse) when the answer
// is not the service's JSON.
QList<Result> parseSearchResults(const QByteArray &body);

// Helpers behind the two operations.
QString prettyLicense(const QString &code, const QString &version);
// contentType is null when the answer carried no Content-Type header.
QString fileExtension(const QString &contentType, const QUrl &url);
QString sanitize(const QString &name);
QString capitalizedWords(const QString &text);
QString creditText(const Result &result);

} // namespace ImageSearch
