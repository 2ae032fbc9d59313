#pragma once

#include "analysis/BeatGrid.h"
#include "analysis/Moment.h"
#include "analysis/MomentsEngine.h"
#include "core/DownloadItem.h"
#include "engine/Tools.h"

#include <QDialog>
#include <QHash>
#include <QList>
#include <QPixmap>
#include <QPointer>
#include <QSet>
#include <QUuid>

#include <functional>
#include <optional>

class AppSettings;
class DownloadQueue;
class MomentCell;
class MomentsExport;
class QAbstractButton;
class QButtonGroup;
class QCheckBox;
class QGridLayout;
class QLabel;
class QPushButton;
class QSpinBox;
class QStackedWidget;
class StatusChip;

// The Smart Moments review sheet: analyses one finished video as soon as it is shown, streams
// the moments into a grid as they are found, lets the user pick how many to show and which to
// keep, and exports the approved ones as clips, stills or GIFs.
class MomentsView : public QDialog {
    Q_OBJECT
public:
    // The long operations the sheet awaits; real() wires the engine, the beat detector and the
    // file manager, tests replace single members.
    struct Engines {
        std::function<QCoro::Task<QList<Moment>>(QString file, MomentsEngine::ThumbnailCallback onThumbnail,
                                                 Tools::CancellationPtr cancellation)>
            analyze;
        std::function<QCoro::Task<std::optional<PracticeMode::BeatGrid>>(QUrl file, Tools::CancellationPtr cancellation)> beatGrid;
        std::function<void(const QString &folder)> openFolder;
        static Engines real();
    };

    static constexpr QSize thumbnailSize{164, 92};
    static constexpr int fewestShown = 5;
    static constexpr int mostShown = 20;
    static constexpr double strongScore = 0.3;
    static constexpr std::array<double, 3> clipLengths{2.0, 2.5, 3.0};

    MomentsView(DownloadItemPtr item, DownloadQueue &queue, AppSettings &settings, Engines engines = Engines::real(),
                QWidget *parent = nullptr);
    ~MomentsView() override;

    const DownloadItemPtr &item() const { return m_item; }
    const QList<Moment> &allMoments() const { return m_allMoments; }
    // The best momentsCount moments by score, in time order.
    QList<Moment> displayed() const;
    static QList<Moment> displayed(const QList<Moment> &all, int count);
    const QSet<QUuid> &selection() const { return m_selection; }
    bool isAnalyzing() const { return m_analyzing; }
    bool isExporting() const { return m_exporting; }
    bool isFindingBeat() const { return m_findingBeat; }
    const QString &statusText() const { return m_statusText; }
    const std::optional<PracticeMode::BeatGrid> &beatGrid() const { return m_beatGrid; }
    int momentsCount() const;
    void setMomentsCount(int count);

    void selectAllDisplayed();
    void selectNone();
    void toggle(const QUuid &id);
    // Finds the beat grid once, when cutting on the beat is asked for.
    void detectBeat();
    // Exports the selected moments in display order with the footer's choices.
    void exportSelected(bool clips, bool stills, bool gifs);

    // Where the sheet's own coroutines report back (main thread).
    void addMoment(const Moment &moment);
    void finishAnalysis(const QList<Moment> &moments);
    void setThumbnail(const QUuid &id, const QPixmap &pixmap);
    void finishBeat(const std::optional<PracticeMode::BeatGrid> &grid);

    bool hasThumbnail(const QUuid &id) const { return m_thumbnails.contains(id); }

    // Closing ends the analysis and any export; no moment or thumbnail arrives afterwards.
    void done(int result) override;

Q_SIGNALS:
    void analysisFinished();
    void thumbnailShown(const QUuid &id);

protected:
    void showEvent(QShowEvent *event) override;

private:
    QWidget *buildHeader();
    QWidget *buildContent();
    QWidget *buildFooter();
    void analyze();
    void setStatusText(const QString &text);
    void exportFinished(const QString &message, const QString &folder);
    void refreshGrid();
    void refreshSelection();
    void refreshState();
    void refreshBeat();

    DownloadItemPtr m_item;
    DownloadQueue &m_queue;
    AppSettings &m_settings;
    Engines m_engines;
    Tools::CancellationPtr m_cancellation = std::make_shared<Tools::Cancellation>();

    QList<Moment> m_allMoments;
    QSet<QUuid> m_selection;
    bool m_analyzing = true;
    bool m_started = false;
    bool m_closed = false;
    bool m_exporting = false;
    QString m_statusText;
    double m_clipLength = 2.5;
    bool m_deleteOriginal = false;
    MomentsEngine::Aspect m_aspect = MomentsEngine::Aspect::original;
    bool m_snapToBeat = false;
    std::optional<PracticeMode::BeatGrid> m_beatGrid;
    bool m_findingBeat = false;
    QHash<QUuid, QPixmap> m_thumbnails;
    QSet<QUuid> m_loading;
    QPointer<MomentsExport> m_export;

    QWidget *m_stepperBox = nullptr;
    QLabel *m_stepperLabel = nullptr;
    QSpinBox *m_stepper = nullptr;
    QStackedWidget *m_content = nullptr;
    QWidget *m_scanSpinner = nullptr;
    QLabel *m_scanStatus = nullptr;
    QLabel *m_scanNote = nullptr;
    QWidget *m_gridHost = nullptr;
    QGridLayout *m_grid = nullptr;
    QWidget *m_findingMore = nullptr;
    QList<MomentCell *> m_cells;
    QButtonGroup *m_lengths = nullptr;
    QButtonGroup *m_aspects = nullptr;
    QCheckBox *m_snap = nullptr;
    QWidget *m_beatSpinner = nullptr;
    StatusChip *m_beatChip = nullptr;
    QCheckBox *m_delete = nullptr;
    QLabel *m_status = nullptr;
    QPushButton *m_gifs = nullptr;
    QPushButton *m_stills = nullptr;
    QPushButton *m_clips = nullptr;
    QPushButton *m_both = nullptr;
};
