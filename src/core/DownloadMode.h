#pragma once

#include <QString>

#include <array>
#include <optional>

// What to fetch for a link.
enum class DownloadMode { bestVideoAudio, videoOnly, audioOnly };

// Container/codec of audio-only downloads.
enum class AudioFormat { mp3, m4a };

namespace DownloadModes {
inline constexpr std::array<DownloadMode, 3> all{DownloadMode::bestVideoAudio, DownloadMode::videoOnly,
                                                 DownloadMode::audioOnly};
QString rawValue(DownloadMode mode);
std::optional<DownloadMode> fromRaw(const QString &raw);
// Falls back to bestVideoAudio, as readers of the stored default do.
DownloadMode fromRawOrDefault(const QString &raw);
QString label(DownloadMode mode);
// Symbol name; the interface maps it to an icon.
QString symbol(DownloadMode mode);
} // namespace DownloadModes

namespace AudioFormats {
inline constexpr std::array<AudioFormat, 2> all{AudioFormat::mp3, AudioFormat::m4a};
QString rawValue(AudioFormat format);
std::optional<AudioFormat> fromRaw(const QString &raw);
QString label(AudioFormat format);
} // namespace AudioFormats
