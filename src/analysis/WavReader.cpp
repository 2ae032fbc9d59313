#include "analysis/PracticeMode.h"

#include <QFile>

#include <algorithm>
#include <cstdint>

namespace PracticeMode {
namespace {
quint32 readLE32(const uchar *p) { return quint32(p[0]) | quint32(p[1]) << 8 | quint32(p[2]) << 16 | quint32(p[3]) << 24; }
} // namespace

// Our own decoder wrote the file as 16-bit mono PCM, so the "fmt " chunk is not inspected; the
// chunk walk only has to survive whatever sizes the file claims.
std::optional<std::vector<float>> readMonoWav16(const QString &path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    const QByteArray bytes = file.readAll();
    if (file.error() != QFileDevice::NoError || bytes.size() < 45)
        return std::nullopt;

    const auto *data = reinterpret_cast<const uchar *>(bytes.constData());
    const quint64 length = quint64(bytes.size());
    quint64 p = 12; // past "RIFF", the RIFF size and "WAVE"
    quint64 begin = 0;
    quint64 end = 0;
    for (;;) {
        const quint64 size = readLE32(data + p + 4);
        if (std::equal(data + p, data + p + 4, "data")) {
            begin = p + 8;
            end = std::min(begin + size, length);
            break;
        }
        p += 8 + size + (size & 1); // odd chunks are padded to an even length
        if (p + 8 > length)
            return std::nullopt;
    }

    std::vector<float> samples;
    samples.reserve(size_t((end - begin) / 2));
    constexpr float scale = 1.0f / 32768.0f;
    for (quint64 i = begin; i + 1 < end; i += 2) {
        const auto s = std::int16_t(quint16(data[i]) | quint16(data[i + 1]) << 8);
        samples.push_back(float(s) * scale);
    }
    return samples;
}

} // namespace PracticeMode
