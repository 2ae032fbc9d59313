#include "analysis/PracticeMode.h"

#include <QFile>

#include <algorithm>
#include <cstdint>

namespace PracticeMode {
namespace {

quint32 readLE32(const char *p) {
    const auto *u = reinterpret_cast<const uchar *>(p);
    return quint32(u[0]) | quint32(u[1]) << 8 | quint32(u[2]) << 16 | quint32(u[3]) << 24;
}

bool readAt(QFile &file, quint64 offset, char *into, qint64 count) {
    return file.seek(qint64(offset)) && file.read(into, count) == count;
}

} // namespace

// Our own decoder wrote the file as 16-bit mono PCM, so the "fmt " chunk is not inspected; the
// chunk walk only has to survive whatever sizes the file claims. The samples are converted in
// blocks rather than from one copy of the whole file: it halves the memory an analysis needs.
std::optional<std::vector<float>> readMonoWav16(const QString &path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    const qint64 fileSize = file.size();
    if (fileSize < 45)
        return std::nullopt;
    const auto length = quint64(fileSize);

    quint64 p = 12; // past "RIFF", the RIFF size and "WAVE"
    quint64 begin = 0;
    quint64 end = 0;
    char header[8];
    for (;;) {
        if (!readAt(file, p, header, 8))
            return std::nullopt;
        const quint64 size = readLE32(header + 4);
        if (std::equal(header, header + 4, "data")) {
            begin = p + 8;
            end = std::min(begin + size, length);
            break;
        }
        p += 8 + size + (size & 1); // odd chunks are padded to an even length
        if (p + 8 > length)
            return std::nullopt;
    }

    std::vector<float> samples(size_t((end - begin) / 2));
    if (!file.seek(qint64(begin)))
        return std::nullopt;
    constexpr float scale = 1.0f / 32768.0f;
    constexpr qint64 blockBytes = 1 << 16;
    QByteArray block(blockBytes, Qt::Uninitialized);
    size_t next = 0;
    while (next < samples.size()) {
        const qint64 want = std::min<qint64>(blockBytes, qint64(samples.size() - next) * 2);
        if (file.read(block.data(), want) != want)
            return std::nullopt;
        const auto *bytes = reinterpret_cast<const uchar *>(block.constData());
        for (qint64 i = 0; i < want; i += 2)
            samples[next++] = float(std::int16_t(quint16(bytes[i]) | quint16(bytes[i + 1]) << 8)) * scale;
    }
    return samples;
}

} // namespace PracticeMode
