#pragma once

#include <QByteArrayView>
#include <QString>

#include <optional>

// Strict UTF-8: no value when the bytes are not valid UTF-8 (no lossy replacement).
std::optional<QString> decodeUtf8Strict(QByteArrayView bytes);

// For a tool's messages: each invalid byte becomes U+FFFD and the rest is kept, so one stray
// Latin-1 title in ffmpeg's log never hides the lines around it. Never for text used as a path.
QString decodeUtf8Lossy(QByteArrayView bytes);
