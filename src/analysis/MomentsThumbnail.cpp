#include "analysis/MomentsThumbnail.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

namespace MomentsThumbnail {
namespace {

// Far beyond any thumbnail; keeps a hostile header from asking for gigabytes of block means.
constexpr qint64 largestPicture = 40'000'000;

struct Huffman {
    bool defined = false;
    std::array<int, 17> minCode{};
    std::array<int, 18> maxCode{}; // -1 where no code of that length
    std::array<int, 17> valPtr{};
    std::vector<quint8> values;
};

struct Component {
    int id = 0;
    int h = 1;
    int v = 1;
    int quant = 0;
    int dcTable = 0;
    int acTable = 0;
    int blocksAcross = 0;
    int blocksDown = 0;
    std::vector<int> dc; // dequantised DC per block
};

// Entropy-coded data with 0xFF00 stuffing; a marker ends the data (reads as zero bits).
class BitReader {
public:
    BitReader(const QByteArray &data, qsizetype pos) : m_data(data), m_pos(pos) {}

    int bit() {
        if (m_count == 0) {
            m_byte = nextByte();
            m_count = 8;
        }
        --m_count;
        return (m_byte >> m_count) & 1;
    }
    int bits(int n) {
        int value = 0;
        for (int i = 0; i < n; ++i)
            value = (value << 1) | bit();
        return value;
    }
    // Drops the partial byte and steps over the restart marker that must follow.
    void restart() {
        m_count = 0;
        m_atMarker = false;
        while (m_pos + 1 < m_data.size()) {
            if (quint8(m_data[m_pos]) == 0xFF && quint8(m_data[m_pos + 1]) >= 0xD0 && quint8(m_data[m_pos + 1]) <= 0xD7) {
                m_pos += 2;
                return;
            }
            ++m_pos;
        }
    }
    bool exhausted() const { return m_pos >= m_data.size(); }

private:
    int nextByte() {
        if (m_atMarker || m_pos >= m_data.size())
            return 0;
        const quint8 b = quint8(m_data[m_pos]);
        if (b != 0xFF) {
            ++m_pos;
            return b;
        }
        if (m_pos + 1 < m_data.size() && quint8(m_data[m_pos + 1]) == 0x00) {
            m_pos += 2;
            return 0xFF;
        }
        m_atMarker = true;
        return 0;
    }

    const QByteArray &m_data;
    qsizetype m_pos;
    int m_byte = 0;
    int m_count = 0;
    bool m_atMarker = false;
};

bool buildHuffman(Huffman &table, const quint8 *counts, const quint8 *symbols, int total) {
    table.values.assign(symbols, symbols + total);
    int code = 0;
    int k = 0;
    for (int len = 1; len <= 16; ++len) {
        table.valPtr[len] = k;
        table.minCode[len] = code;
        code += counts[len - 1];
        k += counts[len - 1];
        table.maxCode[len] = counts[len - 1] ? code - 1 : -1;
        code <<= 1;
    }
    table.maxCode[17] = 0x7fffffff;
    table.defined = true;
    return true;
}

std::optional<int> decodeSymbol(BitReader &reader, const Huffman &table) {
    int code = 0;
    for (int len = 1; len <= 16; ++len) {
        code = (code << 1) | reader.bit();
        if (table.maxCode[len] >= 0 && code <= table.maxCode[len]) {
            const int index = table.valPtr[len] + code - table.minCode[len];
            if (index < 0 || index >= int(table.values.size()))
                return std::nullopt;
            return table.values[size_t(index)];
        }
    }
    return std::nullopt;
}

int extend(int value, int size) { return size && value < (1 << (size - 1)) ? value - (1 << size) + 1 : value; }

int readU16(const QByteArray &data, qsizetype pos) { return (quint8(data[pos]) << 8) | quint8(data[pos + 1]); }

struct Image {
    int width = 0;
    int height = 0;
    std::vector<Component> components;
};

// Reads markers and the one interleaved baseline scan, keeping each block's DC value.
std::optional<Image> decodeBlockMeans(const QByteArray &data) {
    if (data.size() < 4 || quint8(data[0]) != 0xFF || quint8(data[1]) != 0xD8)
        return std::nullopt;
    std::array<std::array<int, 64>, 4> quant{};
    std::array<Huffman, 4> dcTables;
    std::array<Huffman, 4> acTables;
    Image image;
    int restartInterval = 0;
    qsizetype pos = 2;
    while (pos + 4 <= data.size()) {
        if (quint8(data[pos]) != 0xFF)
            return std::nullopt;
        const quint8 marker = quint8(data[pos + 1]);
        if (marker == 0xFF) { // fill byte
            ++pos;
            continue;
        }
        pos += 2;
        if (marker == 0xD9)
            return std::nullopt; // end of image before any scan
        const int length = readU16(data, pos);
        if (length < 2 || pos + length > data.size())
            return std::nullopt;
        const qsizetype segment = pos + 2;
        const qsizetype segmentEnd = pos + length;
        switch (marker) {
        case 0xC0:
        case 0xC1: {
            if (length < 8 || quint8(data[segment]) != 8)
                return std::nullopt;
            image.height = readU16(data, segment + 1);
            image.width = readU16(data, segment + 3);
            const int count = quint8(data[segment + 5]);
            if (image.width <= 0 || image.height <= 0 || (count != 1 && count != 3) || length < 8 + 3 * count)
                return std::nullopt;
            if (qint64(image.width) * image.height > largestPicture)
                return std::nullopt;
            for (int i = 0; i < count; ++i) {
                Component c;
                const qsizetype at = segment + 6 + 3 * i;
                c.id = quint8(data[at]);
                c.h = quint8(data[at + 1]) >> 4;
                c.v = quint8(data[at + 1]) & 15;
                c.quant = quint8(data[at + 2]) & 3;
                if (c.h < 1 || c.h > 4 || c.v < 1 || c.v > 4)
                    return std::nullopt;
                image.components.push_back(c);
            }
            if (count == 1) // a lone component is never subsampled
                image.components[0].h = image.components[0].v = 1;
            break;
        }
        case 0xC4: {
            qsizetype at = segment;
            while (at + 17 <= segmentEnd) {
                const int cls = quint8(data[at]) >> 4;
                const int id = quint8(data[at]) & 3;
                const auto *counts = reinterpret_cast<const quint8 *>(data.constData() + at + 1);
                int total = 0;
                for (int i = 0; i < 16; ++i)
                    total += counts[i];
                if (total > 256 || at + 17 + total > segmentEnd)
                    return std::nullopt;
                buildHuffman(cls == 0 ? dcTables[size_t(id)] : acTables[size_t(id)], counts,
                             reinterpret_cast<const quint8 *>(data.constData() + at + 17), total);
                at += 17 + total;
            }
            break;
        }
        case 0xDB: {
            qsizetype at = segment;
            while (at < segmentEnd) {
                const bool wide = quint8(data[at]) >> 4;
                const int id = quint8(data[at]) & 3;
                const int size = wide ? 128 : 64;
                if (at + 1 + size > segmentEnd)
                    return std::nullopt;
                for (int i = 0; i < 64; ++i)
                    quant[size_t(id)][size_t(i)] = wide ? readU16(data, at + 1 + 2 * i) : quint8(data[at + 1 + i]);
                at += 1 + size;
            }
            break;
        }
        case 0xDD:
            if (length >= 4)
                restartInterval = readU16(data, segment);
            break;
        case 0xDA: {
            if (image.components.empty())
                return std::nullopt;
            const int count = quint8(data[segment]);
            if (count != int(image.components.size()) || length < 6 + 2 * count)
                return std::nullopt; // one interleaved scan with every component is all ffmpeg writes
            for (int i = 0; i < count; ++i) {
                const int id = quint8(data[segment + 1 + 2 * i]);
                auto it = std::find_if(image.components.begin(), image.components.end(),
                                       [id](const Component &c) { return c.id == id; });
                if (it == image.components.end())
                    return std::nullopt;
                it->dcTable = quint8(data[segment + 2 + 2 * i]) >> 4 & 3;
                it->acTable = quint8(data[segment + 2 + 2 * i]) & 3;
                if (!dcTables[size_t(it->dcTable)].defined || !acTables[size_t(it->acTable)].defined)
                    return std::nullopt;
            }
            int hMax = 1;
            int vMax = 1;
            for (const Component &c : image.components) {
                hMax = std::max(hMax, c.h);
                vMax = std::max(vMax, c.v);
            }
            const bool single = image.components.size() == 1;
            const int mcusAcross = single ? (image.width + 7) / 8 : (image.width + 8 * hMax - 1) / (8 * hMax);
            const int mcusDown = single ? (image.height + 7) / 8 : (image.height + 8 * vMax - 1) / (8 * vMax);
            for (Component &c : image.components) {
                const int h = single ? 1 : c.h;
                const int v = single ? 1 : c.v;
                c.blocksAcross = mcusAcross * h;
                c.blocksDown = mcusDown * v;
                c.dc.assign(size_t(c.blocksAcross) * size_t(c.blocksDown), 0);
            }
            BitReader reader(data, segmentEnd);
            std::vector<int> predictors(image.components.size(), 0);
            const int mcuCount = mcusAcross * mcusDown;
            for (int mcu = 0; mcu < mcuCount; ++mcu) {
                if (restartInterval > 0 && mcu > 0 && mcu % restartInterval == 0) {
                    reader.restart();
                    std::fill(predictors.begin(), predictors.end(), 0);
                }
                if (reader.exhausted())
                    return std::nullopt; // truncated file
                const int mx = mcu % mcusAcross;
                const int my = mcu / mcusAcross;
                for (size_t ci = 0; ci < image.components.size(); ++ci) {
                    Component &c = image.components[ci];
                    const int h = single ? 1 : c.h;
                    const int v = single ? 1 : c.v;
                    for (int by = 0; by < v; ++by) {
                        for (int bx = 0; bx < h; ++bx) {
                            const auto size = decodeSymbol(reader, dcTables[size_t(c.dcTable)]);
                            if (!size || *size > 11)
                                return std::nullopt;
                            predictors[ci] += extend(reader.bits(*size), *size);
                            for (int k = 1; k < 64;) {
                                const auto rs = decodeSymbol(reader, acTables[size_t(c.acTable)]);
                                if (!rs)
                                    return std::nullopt;
                                const int run = *rs >> 4;
                                const int bitsToSkip = *rs & 15;
                                if (bitsToSkip == 0) {
                                    if (run != 15)
                                        break;
                                    k += 16;
                                    continue;
                                }
                                reader.bits(bitsToSkip);
                                k += run + 1;
                            }
                            const size_t index =
                                size_t(my * v + by) * size_t(c.blocksAcross) + size_t(mx * h + bx);
                            c.dc[index] = predictors[ci] * quant[size_t(c.quant)][0];
                        }
                    }
                }
            }
            return image;
        }
        default:
            if ((marker >= 0xC2 && marker <= 0xCF))
                return std::nullopt; // progressive, lossless or arithmetic coding
            break;
        }
        pos = segmentEnd;
    }
    return std::nullopt;
}

// Mean sample of a component over the image rectangle [x0,x1) × [y0,y1), from its block means.
double areaMean(const Component &c, int hMax, int vMax, const Image &image, double x0, double x1, double y0,
                double y1) {
    // Component sample grid: one block covers 8 * hMax / h image pixels across.
    const double blockW = 8.0 * hMax / c.h;
    const double blockH = 8.0 * vMax / c.v;
    const int bx0 = int(x0 / blockW);
    const int bx1 = std::min(c.blocksAcross - 1, int(std::ceil(x1 / blockW)) - 1);
    const int by0 = int(y0 / blockH);
    const int by1 = std::min(c.blocksDown - 1, int(std::ceil(y1 / blockH)) - 1);
    double sum = 0;
    double weight = 0;
    for (int by = by0; by <= by1; ++by) {
        const double oy = std::min(y1, std::min((by + 1) * blockH, double(image.height))) - std::max(y0, by * blockH);
        if (oy <= 0)
            continue;
        for (int bx = bx0; bx <= bx1; ++bx) {
            const double ox =
                std::min(x1, std::min((bx + 1) * blockW, double(image.width))) - std::max(x0, bx * blockW);
            if (ox <= 0)
                continue;
            sum += ox * oy * (c.dc[size_t(by) * size_t(c.blocksAcross) + size_t(bx)] / 8.0 + 128.0);
            weight += ox * oy;
        }
    }
    return weight > 0 ? sum / weight : 128.0;
}

quint8 clampByte(double value) { return quint8(std::clamp(std::lround(value), 0L, 255L)); }

} // namespace

std::optional<Reduced> reduce(const QByteArray &bytes, int width, int height, bool grey) {
    if (width <= 0 || height <= 0)
        return std::nullopt;
    const auto image = decodeBlockMeans(bytes);
    if (!image)
        return std::nullopt;
    int hMax = 1;
    int vMax = 1;
    for (const Component &c : image->components) {
        hMax = std::max(hMax, c.h);
        vMax = std::max(vMax, c.v);
    }
    Reduced out;
    out.width = width;
    out.height = height;
    out.channels = grey ? 1 : 3;
    out.pixels.reserve(width * height * out.channels);
    const double stepX = double(image->width) / width;
    const double stepY = double(image->height) / height;
    for (int ty = 0; ty < height; ++ty) {
        for (int tx = 0; tx < width; ++tx) {
            const double x0 = tx * stepX, x1 = (tx + 1) * stepX, y0 = ty * stepY, y1 = (ty + 1) * stepY;
            const double y = areaMean(image->components[0], hMax, vMax, *image, x0, x1, y0, y1);
            if (grey || image->components.size() == 1) {
                for (int ch = 0; ch < out.channels; ++ch)
                    out.pixels.append(char(clampByte(y)));
                continue;
            }
            const double cb = areaMean(image->components[1], hMax, vMax, *image, x0, x1, y0, y1) - 128.0;
            const double cr = areaMean(image->components[2], hMax, vMax, *image, x0, x1, y0, y1) - 128.0;
            out.pixels.append(char(clampByte(y + 1.402 * cr)));
            out.pixels.append(char(clampByte(y - 0.344136 * cb - 0.714136 * cr)));
            out.pixels.append(char(clampByte(y + 1.772 * cb)));
        }
    }
    return out;
}

} // namespace MomentsThumbnail
