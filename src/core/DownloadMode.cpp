#include "core/DownloadMode.h"

namespace DownloadModes {
QString rawValue(DownloadMode mode) {
    switch (mode) {
    case DownloadMode::bestVideoAudio: return QStringLiteral("bestVideoAudio");
    case DownloadMode::videoOnly: return QStringLiteral("videoOnly");
    case DownloadMode::audioOnly: return QStringLiteral("audioOnly");
    }
    return {};
}

std::optional<DownloadMode> fromRaw(const QString &raw) {
    for (DownloadMode m : all)
        if (rawValue(m) == raw)
            return m;
    return std::nullopt;
}

DownloadMode fromRawOrDefault(const QString &raw) { return fromRaw(raw).value_or(DownloadMode::bestVideoAudio); }

QString label(DownloadMode mode) {
    switch (mode) {
    case DownloadMode::bestVideoAudio: return QStringLiteral("Video (best quality)");
    case DownloadMode::videoOnly: return QStringLiteral("Video only (no audio)");
    case DownloadMode::audioOnly: return QStringLiteral("Audio only");
    }
    return {};
}

QString symbol(DownloadMode mode) {
    switch (mode) {
    case DownloadMode::bestVideoAudio: return QStringLiteral("film");
    case DownloadMode::videoOnly: return QStringLiteral("video.slash");
    case DownloadMode::audioOnly: return QStringLiteral("music.note");
    }
    return {};
}
} // namespace DownloadModes

namespace AudioFormats {
QString rawValue(AudioFormat format) {
    return format == AudioFormat::mp3 ? QStringLiteral("mp3") : QStringLiteral("m4a");
}

std::optional<AudioFormat> fromRaw(const QString &raw) {
    for (AudioFormat f : all)
        if (rawValue(f) == raw)
            return f;
    return std::nullopt;
}

QString label(AudioFormat format) {
    return format == AudioFormat::mp3 ? QStringLiteral("MP3 (plays everywhere)")
                                      : QStringLiteral("M4A (better quality/size)");
}
} // namespace AudioFormats
