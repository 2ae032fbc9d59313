#pragma once

#include "analysis/BeatGrid.h"
#include "analysis/Moment.h"
#include "analysis/MomentsEngine.h"

#include <QList>
#include <QObject>
#include <QString>

#include <optional>

// One export of approved moments: clips, GIFs and stills into the video's Moments folder. The
// review screen creates it with its current choices, starts it and observes it: statusText while
// it works, then finished() with the line for the status bar (the screen opens the folder and
// closes itself). Cancelling, or deleting the object, ends the running ffmpeg and removes the
// product it was writing.
class MomentsExport : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString statusText READ statusText NOTIFY statusTextChanged)
    Q_PROPERTY(bool exporting READ isExporting NOTIFY exportingChanged)

public:
    struct Choices {
        QString video;
        QList<Moment> moments; // in display order
        double clipLength = 10.0;
        MomentsEngine::Aspect aspect = MomentsEngine::Aspect::original;
        bool deleteVideoAfter = false;
        std::optional<PracticeMode::BeatGrid> beatGrid; // set when cutting on the beat
    };

    explicit MomentsExport(Choices choices, QObject *parent = nullptr);
    ~MomentsExport() override;

    // Starts the run; ignored while one is going.
    void start(bool clips, bool stills, bool gifs);
    // Stops the run for good: no finished() follows.
    void cancel();

    QString statusText() const { return m_statusText; }
    bool isExporting() const { return m_exporting; }
    int savedCount() const { return m_saved; }
    QString folder() const { return m_folder; }

    // "Saved 3 files to Song — Moments"
    static QString savedMessage(int saved, const QString &folder);
    // "Song Title — Moment 03 (Reels 9x16)"
    static QString productName(const QString &base, int number, MomentsEngine::Aspect aspect);

Q_SIGNALS:
    void statusTextChanged(const QString &text);
    void exportingChanged(bool exporting);
    void finished(const QString &message, const QString &folder);

private:
    friend struct MomentsExportRunner;
    void setStatusText(const QString &text);
    void finish(int saved);

    Choices m_choices;
    Tools::CancellationPtr m_cancellation = std::make_shared<Tools::Cancellation>();
    QString m_folder;
    QString m_statusText;
    bool m_exporting = false;
    int m_saved = 0;
};
