#pragma once

#include "core/ClipRange.h"
#include "core/DownloadMode.h"
#include "core/ItemState.h"
#include "core/SpotifyTrack.h"

#include <QDateTime>
#include <QObject>
#include <QUrl>
#include <QUuid>

#include <memory>
#include <optional>

// One link the user asked for. Held by std::shared_ptr: the queue's list and every running
// pipeline keep their own reference, so removing a row never leaves a dangling item.
// Observed fields emit changed() on every real change; all changes happen on the main thread.
class DownloadItem : public QObject {
    Q_OBJECT
public:
    DownloadItem(QString url, DownloadMode mode, std::optional<ClipRange> clip = std::nullopt,
                 std::optional<QString> title = std::nullopt);

    static std::shared_ptr<DownloadItem> make(QString url, DownloadMode mode,
                                              std::optional<ClipRange> clip = std::nullopt,
                                              std::optional<QString> title = std::nullopt) {
        return std::make_shared<DownloadItem>(std::move(url), mode, std::move(clip), std::move(title));
    }

    const QUuid &id() const { return m_id; }
    // Upper-case, hyphenated, no braces.
    QString idString() const;
    const QString &url() const { return m_url; }
    const QDateTime &addedAt() const { return m_addedAt; }

    DownloadMode mode() const { return m_mode; }
    void setMode(DownloadMode mode) { m_mode = mode; }
    const std::optional<ClipRange> &clip() const { return m_clip; }
    void setClip(std::optional<ClipRange> clip) { m_clip = std::move(clip); }
    bool wantsMoments() const { return m_wantsMoments; }
    void setWantsMoments(bool on) { m_wantsMoments = on; }
    const std::optional<SpotifyTrack> &spotifyTags() const { return m_spotifyTags; }
    void setSpotifyTags(std::optional<SpotifyTrack> tags) { m_spotifyTags = std::move(tags); }

    const QString &title() const { return m_title; }
    void setTitle(const QString &v) { assign(m_title, v); }
    const QUrl &thumbnailURL() const { return m_thumbnailURL; }
    void setThumbnailURL(const QUrl &v) { assign(m_thumbnailURL, v); }
    const QString &durationText() const { return m_durationText; }
    void setDurationText(const QString &v) { assign(m_durationText, v); }
    const std::optional<QString> &category() const { return m_category; }
    void setCategory(const std::optional<QString> &v) { assign(m_category, v); }
    const ItemState &state() const { return m_state; }
    void setState(const ItemState &v) { assign(m_state, v); }
    double progress() const { return m_progress; }
    void setProgress(double v) { assign(m_progress, v); }
    const QString &speedText() const { return m_speedText; }
    void setSpeedText(const QString &v) { assign(m_speedText, v); }
    const QString &etaText() const { return m_etaText; }
    void setEtaText(const QString &v) { assign(m_etaText, v); }
    // File locations are file: URLs; an empty URL means none.
    const QUrl &finalFileURL() const { return m_finalFileURL; }
    void setFinalFileURL(const QUrl &v) { assign(m_finalFileURL, v); }
    const std::optional<double> &detectedBPM() const { return m_detectedBPM; }
    void setDetectedBPM(const std::optional<double> &v) { assign(m_detectedBPM, v); }
    const std::optional<QString> &detectedKey() const { return m_detectedKey; }
    void setDetectedKey(const std::optional<QString> &v) { assign(m_detectedKey, v); }
    const QUrl &transcriptURL() const { return m_transcriptURL; }
    void setTranscriptURL(const QUrl &v) { assign(m_transcriptURL, v); }
    const QUrl &summaryURL() const { return m_summaryURL; }
    void setSummaryURL(const QUrl &v) { assign(m_summaryURL, v); }
    bool didSelfHeal() const { return m_didSelfHeal; }
    void setDidSelfHeal(bool v) { assign(m_didSelfHeal, v); }

Q_SIGNALS:
    void changed();

private:
    template <typename T> void assign(T &field, const T &value) {
        if (field == value)
            return;
        field = value;
        Q_EMIT changed();
    }

    const QUuid m_id;
    const QString m_url;
    const QDateTime m_addedAt;
    DownloadMode m_mode;
    std::optional<ClipRange> m_clip;
    bool m_wantsMoments = false;
    std::optional<SpotifyTrack> m_spotifyTags;

    QString m_title;
    QUrl m_thumbnailURL;
    QString m_durationText;
    std::optional<QString> m_category;
    ItemState m_state = ItemState::queued();
    double m_progress = 0;
    QString m_speedText;
    QString m_etaText;
    QUrl m_finalFileURL;
    std::optional<double> m_detectedBPM;
    std::optional<QString> m_detectedKey;
    QUrl m_transcriptURL;
    QUrl m_summaryURL;
    bool m_didSelfHeal = false;
};

using DownloadItemPtr = std::shared_ptr<DownloadItem>;
