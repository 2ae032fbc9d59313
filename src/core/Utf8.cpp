#include "core/Utf8.h"

#include <QStringDecoder>

QString decodeUtf8Lossy(QByteArrayView bytes) { return QString::fromUtf8(bytes); }

std::optional<QString> decodeUtf8Strict(QByteArrayView bytes) {
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decoder.decode(bytes);
    if (decoder.hasError())
        return std::nullopt;
    return text;
}
