#pragma once

#include <QByteArrayView>
#include <QString>

#include <optional>

// Strict UTF-8: no value when the bytes are not valid UTF-8 (no lossy replacement).
std::optional<QString> decodeUtf8Strict(QByteArrayView bytes);
