#pragma once

#include <QByteArray>

#include <optional>

// Tiny reductions of a thumbnail for the duplicate test. The thumbnails are ffmpeg's baseline
// JPEGs, and a reduction to 9 × 8 or 4 × 4 needs only each 8 × 8 block's mean, which is the
// block's DC coefficient: decoding stops there (no inverse DCT), then the block means are
// area-averaged down. Progressive or arithmetic-coded files are not read.
namespace MomentsThumbnail {

struct Reduced {
    int width = 0;
    int height = 0;
    int channels = 0; // 1 = grey (luma), 3 = RGB
    QByteArray pixels;
};

// Area-averaged reduction of the JPEG in `bytes` to width × height; none when it cannot be read.
std::optional<Reduced> reduce(const QByteArray &bytes, int width, int height, bool grey);

} // namespace MomentsThumbnail
