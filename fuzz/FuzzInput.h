#pragma once

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QString>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <unistd.h>

// Helpers shared by the libFuzzer harnesses.
namespace fuzz {

inline QByteArray bytes(const uint8_t *data, size_t size) {
    return QByteArray(reinterpret_cast<const char *>(data), qsizetype(size));
}
// Text as a tool or a web page would hand it over: invalid UTF-8 becomes U+FFFD.
inline QString text(const uint8_t *data, size_t size) { return QString::fromUtf8(bytes(data, size)); }

// The input written to a scratch file in a folder of its own (parsers may look at its siblings).
inline QString asFile(const uint8_t *data, size_t size, const char *suffix) {
    const QString folder = QDir::tempPath() + QStringLiteral("/vorlix-fuzz-") + QString::number(::getpid());
    QDir().mkpath(folder);
    const QString path = folder + QStringLiteral("/input") + QString::fromLatin1(suffix);
    QFile file(path);
    if (file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        file.write(reinterpret_cast<const char *>(data), qint64(size));
    return path;
}

// A broken invariant is a finding: crash so libFuzzer keeps the input.
inline void check(bool holds) {
    if (!holds)
        std::abort();
}

} // namespace fuzz
