#pragma once

#include <QString>

#include <array>

// The site a link comes from. Its raw value is the display name, which is also the library
// folder name and what the history records. Decided on the link's host alone.
class MediaSource {
public:
    // Declaration order is the order in which detect() tests the sites.
    enum Value { youtube, spotify, instagram, tiktok, vimeo, soundcloud, twitch, facebook, x, other };

    constexpr MediaSource(Value value = other) : m_value(value) {}
    constexpr operator Value() const { return m_value; }

    static constexpr std::array<Value, 10> allCases{youtube, spotify, instagram, tiktok, vimeo,
                                                    soundcloud, twitch, facebook, x, other};

    // "YouTube", "Spotify", …, "Other".
    QString rawValue() const;
    // The case whose display name is exactly `raw`, else `other`.
    static MediaSource fromRawValue(const QString &raw);

    // The first site one of whose domains the link's host equals or is a sub-domain of;
    // `other` for unknown hosts and for text that is not a link with a host.
    static MediaSource detect(const QString &link);

    // True when `host` (already lower-case) is `domain` itself or any sub-domain of it.
    static bool hostBelongs(const QString &host, QLatin1String domain);

private:
    Value m_value;
};
