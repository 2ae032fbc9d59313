#include "discovery/Http.h"

#include <QCoreApplication>
#include <QFile>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QThread>

#include <QCoroNetworkReply>

#include <climits>
#include <memory>

namespace Http {
namespace {

// The reply's handlers point into the coroutine frame: cut them before the frame goes.
struct DeleteLater {
    void operator()(QNetworkReply *reply) const {
        if (!reply)
            return;
        QObject::disconnect(reply, nullptr, nullptr, nullptr);
        reply->abort();
        reply->deleteLater();
    }
};
using ReplyPtr = std::unique_ptr<QNetworkReply, DeleteLater>;

// A manager must be used on the thread that made it: the shared one serves the main thread,
// any other thread gets one of its own for the length of the request.
QNetworkAccessManager *managerForThisThread(std::unique_ptr<QNetworkAccessManager> &own) {
    QCoreApplication *app = QCoreApplication::instance();
    if (app && QThread::currentThread() == app->thread())
        return &manager();
    own = std::make_unique<QNetworkAccessManager>();
    return own.get();
}

int clampedMilliseconds(std::chrono::milliseconds timeout) {
    const auto ms = timeout.count();
    return ms <= 0 ? 0 : ms >= INT_MAX ? INT_MAX : int(ms);
}

// What the reply tells once it has finished: the HTTP answer, or why there is none.
Response finish(QNetworkReply *reply, bool tooLarge, bool writeFailed) {
    Response response;
    const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    const QVariant type = reply->header(QNetworkRequest::ContentTypeHeader);
    if (reply->hasRawHeader("Content-Type"))
        response.contentType = QString::fromLatin1(reply->rawHeader("Content-Type"));
    else if (type.isValid())
        response.contentType = type.toString();

    switch (reply->error()) {
    case QNetworkReply::NoError:
        break;
    case QNetworkReply::OperationCanceledError:
        // Only the transfer time-out and our own size guard abort a request.
        response.transportError = tooLarge      ? QStringLiteral("The response was too large.")
                                  : writeFailed ? QStringLiteral("Couldn't write the downloaded file.")
                                                : QStringLiteral("The request timed out.");
        return response;
    case QNetworkReply::TimeoutError:
        response.transportError = QStringLiteral("The request timed out.");
        return response;
    case QNetworkReply::TooManyRedirectsError:
    case QNetworkReply::InsecureRedirectError:
        response.transportError = reply->errorString();
        return response;
    default:
        // An HTTP error page is still an answer; only a missing status means no answer came.
        if (!status.isValid()) {
            response.transportError = reply->errorString();
            return response;
        }
        break;
    }
    response.status = status.toInt();
    if (response.status <= 0)
        response.transportError = reply->errorString().isEmpty() ? QStringLiteral("No HTTP response.")
                                                                  : reply->errorString();
    return response;
}

} // namespace

QNetworkAccessManager &manager() {
    // Parented to the application so it goes away before Qt's own teardown.
    static QNetworkAccessManager *shared = new QNetworkAccessManager(QCoreApplication::instance());
    return *shared;
}

QCoro::Task<Response> get(QNetworkRequest request, std::chrono::milliseconds timeout, qint64 maxBytes) {
    std::unique_ptr<QNetworkAccessManager> own;
    QNetworkAccessManager *nam = managerForThisThread(own);
    request.setTransferTimeout(clampedMilliseconds(timeout));
    ReplyPtr reply(nam->get(request));

    QByteArray body;
    bool tooLarge = false;
    QNetworkReply *r = reply.get();
    QObject::connect(r, &QIODevice::readyRead, r, [r, &body, &tooLarge, maxBytes] {
        body += r->readAll();
        if (body.size() > maxBytes && !tooLarge) {
            tooLarge = true;
            r->abort();
        }
    });
    if (!r->isFinished())
        co_await r;
    if (!tooLarge && r->isOpen())
        body += r->readAll();

    Response response = finish(r, tooLarge, false);
    if (response.transportError.isEmpty())
        response.body = std::move(body);
    co_return response;
}

QCoro::Task<Response> download(QNetworkRequest request, QString filePath, std::chrono::milliseconds timeout) {
    QFile file(filePath);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        Response failed;
        failed.transportError = QStringLiteral("Couldn't write the downloaded file.");
        failed.fileWriteFailed = true;
        co_return failed;
    }

    std::unique_ptr<QNetworkAccessManager> own;
    QNetworkAccessManager *nam = managerForThisThread(own);
    request.setTransferTimeout(clampedMilliseconds(timeout));
    ReplyPtr reply(nam->get(request));

    bool writeFailed = false;
    QNetworkReply *r = reply.get();
    QObject::connect(r, &QIODevice::readyRead, r, [r, &file, &writeFailed] {
        const QByteArray chunk = r->readAll();
        if (!writeFailed && file.write(chunk) != chunk.size()) {
            writeFailed = true;
            r->abort();
        }
    });
    if (!r->isFinished())
        co_await r;
    if (!writeFailed && r->isOpen()) {
        const QByteArray rest = r->readAll();
        if (file.write(rest) != rest.size())
            writeFailed = true;
    }
    if (!file.flush())
        writeFailed = true;
    file.close();

    Response response = finish(r, false, writeFailed);
    response.fileWriteFailed = writeFailed;
    if (response.transportError.isEmpty() && writeFailed)
        response.transportError = QStringLiteral("Couldn't write the downloaded file.");
    co_return response;
}

} // namespace Http
