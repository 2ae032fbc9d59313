#pragma once

#include <QByteArray>
#include <QCoroTask>
#include <QNetworkRequest>
#include <QString>

#include <chrono>
#include <stdexcept>

class QNetworkAccessManager;

// The discovery services' one way onto the network: a GET awaited as a coroutine, with the
// transport failures (no route, DNS, time-out, redirect loop) kept apart from HTTP answers.
namespace Http {

// A request that got no HTTP answer at all. what() is the platform's description.
class NetworkError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
    QString message() const { return QString::fromUtf8(what()); }
};

struct Response {
    int status = 0;         // HTTP status; 0 when no answer arrived
    QString contentType;    // null when the answer had no Content-Type header
    QByteArray body;        // empty for downloads to a file
    QString transportError; // non-empty when no usable answer arrived
    bool fileWriteFailed = false; // download(): the local file could not be written
    bool isHTTP() const { return transportError.isEmpty() && status > 0; }
};

// The application's manager on the main thread; a private one elsewhere.
QNetworkAccessManager &manager();

// GET with an inactivity time-out. Never throws: failures are in Response::transportError.
// A body longer than maxBytes ends the transfer as a failure.
QCoro::Task<Response> get(QNetworkRequest request, std::chrono::milliseconds timeout,
                          qint64 maxBytes = 64 * 1024 * 1024);

// GET streamed into filePath (created or truncated). The file is left for the caller to remove.
QCoro::Task<Response> download(QNetworkRequest request, QString filePath, std::chrono::milliseconds timeout);

} // namespace Http
