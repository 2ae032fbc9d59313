#include "ui/MomentsView.h"

#include "analysis/MomentsExport.h"
#include "analysis/PracticeMode.h"
#include "core/AppSettings.h"
#include "queue/DownloadQueue.h"
#include "ui/Brand.h"
#include "ui/Desktop.h"
#include "ui/EmberButtonStyle.h"
#include "ui/ScreenParts.h"
#include "ui/SheetParts.h"
#include "ui/StatusChip.h"
#include "ui/Symbols.h"

#include <QAbstractButton>
#include <QButtonGroup>
#include <QCheckBox>
#include <QFileInfo>
#include <QGridLayout>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QImageReader>
#include <QLabel>
#include <QPainter>
#include <QPainterPath>
#include <QPushButton>
#include <QScrollArea>
#include <QSpinBox>
#include <QStackedWidget>
#include <QVBoxLayout>
#include <QtConcurrent/QtConcurrentRun>

#include <QCoroFuture>

#include <algorithm>

namespace {

constexpr int gridColumns = 4;
constexpr int cellSpacing = 12;

// The ring's pen grows with it; it sits one pen inside its square.
QWidget *spinner(int size) {
    const qreal pen = std::max(2.0, size / 10.0);
    return ScreenParts::turningRing(size, pen, pen);
}

QLabel *tinted(QLabel *label, const QColor &color) {
    QPalette p = label->palette();
    p.setColor(QPalette::WindowText, color);
    label->setPalette(p);
    return label;
}

// A row of exclusive checkable buttons that reads like one control.
QButtonGroup *segmented(const QStringList &labels, int checked, QHBoxLayout *row, const QString &help = {}) {
    auto *group = new QButtonGroup(row);
    group->setExclusive(true);
    const QString style = QStringLiteral(
        "QPushButton { border: 1px solid #3A332D; padding: 4px 10px; color: #CFC7BE; background: transparent; }"
        "QPushButton:checked { background: #FF4A1F; border-color: #FF4A1F; color: #FAF8F5; }"
        "QPushButton:disabled { color: #5E5750; }");
    for (int i = 0; i < labels.size(); ++i) {
        auto *button = new QPushButton(labels[i]);
        button->setCheckable(true);
        button->setAutoDefault(false);
        button->setChecked(i == checked);
        button->setFont(Brand::systemFont(12));
        button->setStyleSheet(style);
        button->setCursor(Qt::PointingHandCursor);
        if (!help.isEmpty())
            button->setToolTip(help);
        group->addButton(button, i);
        row->addWidget(button);
    }
    row->setSpacing(0);
    return group;
}

// The thumbnail cropped to fill the cell, decoded and scaled off the user-interface thread.
QImage cellImage(const QString &path, QSize size) {
    QImageReader reader(path);
    QImage image = reader.read();
    if (image.isNull())
        return {};
    image = image.scaled(size, Qt::KeepAspectRatioByExpanding, Qt::SmoothTransformation);
    return image.copy((image.width() - size.width()) / 2, (image.height() - size.height()) / 2, size.width(),
                      size.height());
}

QCoro::Task<> loadThumbnail(QPointer<MomentsView> view, QUuid id, QString path, QSize pixels, qreal ratio) {
    QFuture<QImage> decoding = QtConcurrent::run(&cellImage, path, pixels);
    const QImage image = co_await decoding;
    if (!view || image.isNull())
        co_return;
    QPixmap pixmap = QPixmap::fromImage(image);
    pixmap.setDevicePixelRatio(ratio);
    view->setThumbnail(id, pixmap);
}

QCoro::Task<> runAnalysis(QPointer<MomentsView> view, MomentsView::Engines engines, QString file,
                          Tools::CancellationPtr cancellation) {
    QList<Moment> moments;
    try {
        // The engine calls back from its own task on this thread; the sheet may be gone by then.
        MomentsEngine::ThumbnailCallback onThumbnail = [view, cancellation](const Moment &moment) {
            if (view && !cancellation->isCancelled())
                view->addMoment(moment);
        };
        moments = co_await engines.analyze(file, std::move(onThumbnail), cancellation);
    } catch (const std::exception &) {
        // An analysis that breaks finds nothing; the sheet says so.
    }
    if (view && !cancellation->isCancelled())
        view->finishAnalysis(moments);
}

QCoro::Task<> runBeatGrid(QPointer<MomentsView> view, MomentsView::Engines engines, QUrl file,
                          Tools::CancellationPtr cancellation) {
    std::optional<PracticeMode::BeatGrid> grid;
    try {
        grid = co_await engines.beatGrid(file, cancellation);
    } catch (const std::exception &) {
    }
    if (view)
        view->finishBeat(grid);
}

} // namespace

// One moment in the grid: the thumbnail, its time, the selection mark and, for a hard cut, a bolt.
class MomentCell : public QAbstractButton {
public:
    MomentCell(const Moment &moment, QWidget *parent = nullptr) : QAbstractButton(parent), m_moment(moment) {
        setCheckable(true);
        setText(moment.timeLabel());
        setAccessibleName(moment.timeLabel());
        setCursor(Qt::PointingHandCursor);
        setFocusPolicy(Qt::StrongFocus);
        setFixedSize(MomentsView::thumbnailSize.width(), MomentsView::thumbnailSize.height() + 24);
        if (moment.score > MomentsView::strongScore) {
            m_badge = new QLabel(this);
            m_badge->setObjectName(QStringLiteral("strongBadge"));
            m_badge->setToolTip(QStringLiteral("Strong scene change"));
            m_badge->setAccessibleName(QStringLiteral("Strong scene change"));
            m_badge->setPixmap(boltBadge());
            m_badge->move(6, 6);
            setAccessibleDescription(QStringLiteral("Strong scene change"));
        }
    }

    const Moment &moment() const { return m_moment; }
    bool hasBadge() const { return m_badge != nullptr; }
    void setThumbnail(const QPixmap &pixmap) {
        m_thumbnail = pixmap;
        update();
    }

protected:
    void paintEvent(QPaintEvent *) override {
        QPainter p(this);
        p.setRenderHint(QPainter::Antialiasing);
        const QRectF frame(0.5, 0.5, MomentsView::thumbnailSize.width() - 1, MomentsView::thumbnailSize.height() - 1);
        QPainterPath clip;
        clip.addRoundedRect(frame, 6, 6);
        p.save();
        p.setClipPath(clip);
        if (m_thumbnail.isNull())
            p.fillRect(frame, Brand::surface());
        else
            p.drawPixmap(QPointF(0, 0), m_thumbnail);
        if (!isChecked())
            p.fillRect(frame, QColor(14, 12, 10, 140)); // a left-out moment recedes
        p.restore();
        p.setPen(QPen(isChecked() ? Brand::ember() : Brand::hairline(), isChecked() ? 2 : 1));
        p.setBrush(Qt::NoBrush);
        p.drawRoundedRect(frame.adjusted(0.5, 0.5, -0.5, -0.5), 6, 6);
        if (hasFocus()) {
            p.setPen(QPen(Brand::emberLight(), 1, Qt::DotLine));
            p.drawRoundedRect(frame.adjusted(3, 3, -3, -3), 4, 4);
        }
        if (isChecked()) {
            const int mark = 18;
            p.drawPixmap(int(frame.right()) - mark - 5, 5,
                         Symbols::pixmap(QStringLiteral("checkmark.circle.fill"), Brand::ember(), mark));
        }
        p.setFont(Brand::monoFont(11));
        p.setPen(isChecked() ? Brand::bone() : Brand::stone());
        p.drawText(QRectF(0, MomentsView::thumbnailSize.height() + 4, width(), 18), Qt::AlignLeft | Qt::AlignVCenter,
                   text());
    }

private:
    static QPixmap boltBadge() {
        const qreal ratio = qGuiApp ? qGuiApp->devicePixelRatio() : 1.0;
        QPixmap badge(QSize(20, 20) * ratio);
        badge.setDevicePixelRatio(ratio);
        badge.fill(Qt::transparent);
        QPainter p(&badge);
        p.setRenderHint(QPainter::Antialiasing);
        p.setPen(Qt::NoPen);
        p.setBrush(QColor(14, 12, 10, 200));
        p.drawEllipse(QRectF(0, 0, 20, 20));
        QPainterPath bolt;
        bolt.moveTo(11.5, 3.5);
        bolt.lineTo(5.5, 11.2);
        bolt.lineTo(9.6, 11.2);
        bolt.lineTo(8.5, 16.5);
        bolt.lineTo(14.5, 8.8);
        bolt.lineTo(10.4, 8.8);
        bolt.closeSubpath();
        p.setBrush(QColor(0xFF, 0xC8, 0x3D));
        p.drawPath(bolt);
        return badge;
    }

    Moment m_moment;
    QPixmap m_thumbnail;
    QLabel *m_badge = nullptr;
};

MomentsView::Engines MomentsView::Engines::real() {
    Engines engines;
    engines.analyze = [](QString file, MomentsEngine::ThumbnailCallback onThumbnail,
                         Tools::CancellationPtr cancellation) {
        return MomentsEngine::analyze(std::move(file), std::move(onThumbnail), Tools::ffmpegURL(),
                                      AppSettings::appSupportDir(), std::move(cancellation));
    };
    engines.beatGrid = [](QUrl file, Tools::CancellationPtr cancellation) {
        return PracticeMode::beatGrid(std::move(file), std::move(cancellation));
    };
    engines.openFolder = &Desktop::openFolder;
    return engines;
}

MomentsView::MomentsView(DownloadItemPtr item, DownloadQueue &queue, AppSettings &settings, Engines engines,
                         QWidget *parent)
    : QDialog(parent), m_item(std::move(item)), m_queue(queue), m_settings(settings), m_engines(std::move(engines)),
      m_statusText(QStringLiteral("Scanning for visually unique moments\u2026")) {
    setObjectName(QStringLiteral("momentsView"));
    setWindowTitle(QStringLiteral("Smart Moments"));
    setModal(true);
    const int gridWidth = gridColumns * thumbnailSize.width() + (gridColumns - 1) * cellSpacing;
    setMinimumSize(gridWidth + 2 * 24 + 20, 600);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(22, 20, 22, 18);
    layout->setSpacing(12);
    layout->addWidget(buildHeader());
    layout->addWidget(buildContent(), 1);
    layout->addWidget(buildFooter());
    refreshState();
}

MomentsView::~MomentsView() { m_cancellation->cancel(); }

QWidget *MomentsView::buildHeader() {
    auto *header = new QWidget;
    auto *row = SheetParts::titleRow(QStringLiteral("Smart Moments"), QStringLiteral("sparkles"));
    header->setLayout(row);
    row->setContentsMargins(0, 0, 0, 0);

    m_stepperBox = new QWidget;
    auto *stepper = new QHBoxLayout(m_stepperBox);
    stepper->setContentsMargins(0, 0, 0, 0);
    stepper->setSpacing(8);
    m_stepperLabel = tinted(new QLabel, Brand::bone());
    m_stepperLabel->setObjectName(QStringLiteral("momentsCountLabel"));
    m_stepperLabel->setFont(Brand::monoFont(12));
    m_stepper = new QSpinBox;
    m_stepper->setObjectName(QStringLiteral("momentsCount"));
    m_stepper->setRange(fewestShown, mostShown);
    m_stepper->setSingleStep(1);
    m_stepper->setValue(momentsCount());
    m_stepper->setFixedWidth(64);
    connect(m_stepper, &QSpinBox::valueChanged, this, &MomentsView::setMomentsCount);
    stepper->addWidget(m_stepperLabel);
    stepper->addWidget(m_stepper);
    row->addWidget(m_stepperBox);
    row->addSpacing(10);

    auto *all = new QPushButton(QStringLiteral("All"));
    all->setObjectName(QStringLiteral("selectAll"));
    connect(all, &QPushButton::clicked, this, &MomentsView::selectAllDisplayed);
    auto *none = new QPushButton(QStringLiteral("None"));
    none->setObjectName(QStringLiteral("selectNone"));
    connect(none, &QPushButton::clicked, this, &MomentsView::selectNone);
    for (QPushButton *button : {all, none}) {
        button->setAutoDefault(false);
        row->addWidget(button);
    }
    return header;
}

QWidget *MomentsView::buildContent() {
    m_content = new QStackedWidget;

    auto *scanning = new QWidget;
    auto *scan = new QVBoxLayout(scanning);
    scan->setSpacing(12);
    scan->addStretch(1);
    m_scanSpinner = spinner(28);
    scan->addWidget(m_scanSpinner, 0, Qt::AlignHCenter);
    m_scanStatus = tinted(new QLabel, Brand::bone());
    m_scanStatus->setObjectName(QStringLiteral("scanStatus"));
    m_scanStatus->setFont(Brand::systemFont(13, QFont::Medium));
    m_scanStatus->setAlignment(Qt::AlignCenter);
    scan->addWidget(m_scanStatus, 0, Qt::AlignHCenter);
    m_scanNote = SheetParts::note(QStringLiteral("Scene changes are detected, then near-duplicate shots are filtered "
                                                 "out \u2014 every moment you see is visually distinct."));
    m_scanNote->setAlignment(Qt::AlignCenter);
    m_scanNote->setMaximumWidth(380);
    scan->addWidget(m_scanNote, 0, Qt::AlignHCenter);
    scan->addStretch(2);
    m_content->addWidget(scanning);

    auto *scroll = new QScrollArea;
    scroll->setObjectName(QStringLiteral("momentsGrid"));
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    m_gridHost = new QWidget;
    auto *host = new QVBoxLayout(m_gridHost);
    host->setContentsMargins(0, 0, 0, 0);
    host->setSpacing(14);
    m_grid = new QGridLayout;
    m_grid->setSpacing(cellSpacing);
    m_grid->setAlignment(Qt::AlignTop | Qt::AlignHCenter);
    host->addLayout(m_grid);
    m_findingMore = new QWidget;
    auto *more = new QHBoxLayout(m_findingMore);
    more->setContentsMargins(0, 0, 0, 0);
    more->addStretch(1);
    more->addWidget(spinner(14));
    auto *moreText = tinted(new QLabel(QStringLiteral("Finding more unique moments\u2026")), Brand::stone());
    moreText->setObjectName(QStringLiteral("findingMore"));
    moreText->setFont(Brand::systemFont(12));
    more->addWidget(moreText);
    more->addStretch(1);
    host->addWidget(m_findingMore);
    host->addStretch(1);
    scroll->setWidget(m_gridHost);
    m_content->addWidget(scroll);
    return m_content;
}

QWidget *MomentsView::buildFooter() {
    auto *footer = new QWidget;
    auto *layout = new QVBoxLayout(footer);
    layout->setContentsMargins(0, 4, 0, 0);
    layout->setSpacing(10);

    auto *choices = new QHBoxLayout;
    choices->setSpacing(8);
    choices->addWidget(SheetParts::capsLabel(QStringLiteral("Clip length")));
    auto *lengths = new QHBoxLayout;
    m_lengths = segmented({QStringLiteral("2 s"), QStringLiteral("2.5 s"), QStringLiteral("3 s")}, 1, lengths);
    choices->addLayout(lengths);
    connect(m_lengths, &QButtonGroup::idClicked, this, [this](int id) { m_clipLength = clipLengths[size_t(id)]; });
    choices->addSpacing(16);
    choices->addWidget(SheetParts::capsLabel(QStringLiteral("Format")));
    QStringList aspectNames;
    for (MomentsEngine::Aspect aspect : MomentsEngine::allAspects())
        aspectNames << MomentsEngine::rawValue(aspect);
    auto *aspects = new QHBoxLayout;
    m_aspects = segmented(aspectNames, 0, aspects,
                          QStringLiteral("Vertical 9:16 for Reels/Shorts, 1:1 for feed posts \u2014 center-cropped at "
                                         "full height"));
    choices->addLayout(aspects);
    connect(m_aspects, &QButtonGroup::idClicked, this,
            [this](int id) { m_aspect = MomentsEngine::allAspects().value(id, MomentsEngine::Aspect::original); });
    choices->addStretch(1);
    layout->addLayout(choices);

    auto *options = new QHBoxLayout;
    options->setSpacing(8);
    m_snap = new QCheckBox(QStringLiteral("Cut on the beat"));
    m_snap->setObjectName(QStringLiteral("snapToBeat"));
    m_snap->setToolTip(QStringLiteral("Snaps every clip's start and length to the music's beat grid"));
    connect(m_snap, &QCheckBox::toggled, this, [this](bool on) {
        m_snapToBeat = on;
        if (on)
            detectBeat();
        refreshBeat();
    });
    options->addWidget(m_snap);
    m_beatSpinner = spinner(14);
    m_beatSpinner->setObjectName(QStringLiteral("beatSpinner"));
    m_beatSpinner->setAccessibleName(QStringLiteral("Finding the beat grid"));
    options->addWidget(m_beatSpinner);
    m_beatChip = new StatusChip;
    m_beatChip->setObjectName(QStringLiteral("beatChip"));
    options->addWidget(m_beatChip);
    options->addSpacing(16);
    m_delete = new QCheckBox(QStringLiteral("Delete full video after"));
    m_delete->setObjectName(QStringLiteral("deleteOriginal"));
    connect(m_delete, &QCheckBox::toggled, this, [this](bool on) { m_deleteOriginal = on; });
    options->addWidget(m_delete);
    options->addStretch(1);
    layout->addLayout(options);

    auto *buttons = new QHBoxLayout;
    buttons->setSpacing(8);
    m_status = tinted(new QLabel, Brand::stone());
    m_status->setObjectName(QStringLiteral("momentsStatus"));
    m_status->setFont(Brand::monoFont(11));
    buttons->addWidget(m_status, 1);
    auto *cancel = new QPushButton(QStringLiteral("Cancel"));
    cancel->setObjectName(QStringLiteral("cancel"));
    cancel->setAutoDefault(false);
    connect(cancel, &QPushButton::clicked, this, &QDialog::reject);
    buttons->addWidget(cancel);
    m_gifs = new QPushButton;
    m_gifs->setObjectName(QStringLiteral("exportGifs"));
    connect(m_gifs, &QPushButton::clicked, this, [this] { exportSelected(false, false, true); });
    m_stills = new QPushButton;
    m_stills->setObjectName(QStringLiteral("exportStills"));
    connect(m_stills, &QPushButton::clicked, this, [this] { exportSelected(false, true, false); });
    m_clips = new QPushButton;
    m_clips->setObjectName(QStringLiteral("exportClips"));
    connect(m_clips, &QPushButton::clicked, this, [this] { exportSelected(true, false, false); });
    m_both = new QPushButton(QStringLiteral("Save Both"));
    m_both->setObjectName(QStringLiteral("exportBoth"));
    m_both->setIcon(Symbols::icon(QStringLiteral("sparkles"), Brand::bone()));
    m_both->setDefault(true);
    EmberButtonStyle::apply(m_both);
    // The style sizes for the label alone; the symbol in front needs its own room.
    m_both->setMinimumWidth(m_both->sizeHint().width() + m_both->iconSize().width() + 8);
    connect(m_both, &QPushButton::clicked, this, [this] { exportSelected(true, true, false); });
    for (QPushButton *button : {m_gifs, m_stills, m_clips}) {
        button->setAutoDefault(false);
        buttons->addWidget(button);
    }
    buttons->addWidget(m_both);
    layout->addLayout(buttons);
    return footer;
}

void MomentsView::showEvent(QShowEvent *event) {
    QDialog::showEvent(event);
    if (!m_started) {
        m_started = true;
        analyze();
    }
}

void MomentsView::analyze() {
    runAnalysis(QPointer<MomentsView>(this), m_engines, m_item->finalFileURL().toLocalFile(), m_cancellation);
}

int MomentsView::momentsCount() const { return std::clamp(m_settings.momentsCount(), fewestShown, mostShown); }

void MomentsView::setMomentsCount(int count) {
    count = std::clamp(count, fewestShown, mostShown);
    if (count != m_settings.momentsCount())
        m_settings.setMomentsCount(count);
    if (m_stepper->value() != count)
        m_stepper->setValue(count);
    selectAllDisplayed();
}

QList<Moment> MomentsView::displayed(const QList<Moment> &all, int count) {
    QList<Moment> best = all;
    std::stable_sort(best.begin(), best.end(), [](const Moment &a, const Moment &b) { return a.score > b.score; });
    best = best.mid(0, std::clamp(count, fewestShown, mostShown));
    std::stable_sort(best.begin(), best.end(), [](const Moment &a, const Moment &b) { return a.time < b.time; });
    return best;
}

QList<Moment> MomentsView::displayed() const { return displayed(m_allMoments, momentsCount()); }

void MomentsView::selectAllDisplayed() {
    m_selection.clear();
    for (const Moment &moment : displayed())
        m_selection.insert(moment.id);
    refreshGrid();
}

void MomentsView::selectNone() {
    m_selection.clear();
    refreshSelection();
}

void MomentsView::toggle(const QUuid &id) {
    if (!m_selection.remove(id))
        m_selection.insert(id);
    refreshSelection();
}

void MomentsView::addMoment(const Moment &moment) {
    if (m_closed)
        return;
    m_allMoments.append(moment);
    selectAllDisplayed();
}

void MomentsView::finishAnalysis(const QList<Moment> &moments) {
    if (m_closed)
        return;
    m_allMoments = moments;
    m_analyzing = false;
    if (moments.isEmpty())
        setStatusText(QStringLiteral("Couldn't analyze this video."));
    selectAllDisplayed();
    Q_EMIT analysisFinished();
}

void MomentsView::setThumbnail(const QUuid &id, const QPixmap &pixmap) {
    m_loading.remove(id);
    if (m_closed)
        return;
    m_thumbnails.insert(id, pixmap);
    for (MomentCell *cell : std::as_const(m_cells))
        if (cell->moment().id == id)
            cell->setThumbnail(pixmap);
    Q_EMIT thumbnailShown(id);
}

void MomentsView::detectBeat() {
    if (m_beatGrid || m_findingBeat)
        return;
    m_findingBeat = true;
    runBeatGrid(QPointer<MomentsView>(this), m_engines, m_item->finalFileURL(), m_cancellation);
}

void MomentsView::finishBeat(const std::optional<PracticeMode::BeatGrid> &grid) {
    m_findingBeat = false;
    m_beatGrid = grid;
    if (!grid)
        m_snap->setChecked(false); // nothing to cut on
    refreshBeat();
}

void MomentsView::exportSelected(bool clips, bool stills, bool gifs) {
    if (m_selection.isEmpty() || m_exporting)
        return;
    MomentsExport::Choices choices;
    choices.video = m_item->finalFileURL().toLocalFile();
    for (const Moment &moment : displayed())
        if (m_selection.contains(moment.id))
            choices.moments.append(moment);
    choices.clipLength = m_clipLength;
    choices.aspect = m_aspect;
    choices.deleteVideoAfter = m_deleteOriginal;
    if (m_snapToBeat && m_beatGrid)
        choices.beatGrid = m_beatGrid;
    m_exporting = true;
    m_export = new MomentsExport(std::move(choices), this);
    connect(m_export, &MomentsExport::statusTextChanged, this, [this](const QString &text) {
        if (!text.isEmpty())
            setStatusText(text);
    });
    connect(m_export, &MomentsExport::finished, this, &MomentsView::exportFinished);
    refreshState();
    m_export->start(clips, stills, gifs);
}

void MomentsView::exportFinished(const QString &message, const QString &folder) {
    m_exporting = false;
    m_queue.setLastMessage(message);
    if (m_engines.openFolder)
        m_engines.openFolder(folder);
    accept();
}

void MomentsView::done(int result) {
    if (!m_closed) {
        m_closed = true;
        m_cancellation->cancel();
        if (m_export)
            m_export->cancel();
    }
    QDialog::done(result);
}

void MomentsView::setStatusText(const QString &text) {
    m_statusText = text;
    refreshState();
}

void MomentsView::refreshGrid() {
    const QList<Moment> shown = displayed();
    const bool same = shown.size() == m_cells.size() &&
                      std::equal(shown.cbegin(), shown.cend(), m_cells.cbegin(),
                                 [](const Moment &m, const MomentCell *cell) { return cell->moment().id == m.id; });
    if (!same) {
        qDeleteAll(m_cells);
        m_cells.clear();
        const qreal ratio = devicePixelRatioF();
        for (int i = 0; i < shown.size(); ++i) {
            auto *cell = new MomentCell(shown[i], m_gridHost);
            const QUuid id = shown[i].id;
            connect(cell, &QAbstractButton::clicked, this, [this, id] { toggle(id); });
            m_grid->addWidget(cell, i / gridColumns, i % gridColumns);
            m_cells.append(cell);
            if (const QPixmap pixmap = m_thumbnails.value(id); !pixmap.isNull())
                cell->setThumbnail(pixmap);
            else if (shown[i].thumbnail && !m_loading.contains(id)) {
                m_loading.insert(id);
                loadThumbnail(QPointer<MomentsView>(this), id, *shown[i].thumbnail, thumbnailSize * ratio, ratio);
            }
        }
    }
    refreshSelection();
}

void MomentsView::refreshSelection() {
    for (MomentCell *cell : std::as_const(m_cells)) {
        const bool selected = m_selection.contains(cell->moment().id);
        cell->setChecked(selected);
        cell->setAccessibleDescription((selected ? QStringLiteral("Selected") : QStringLiteral("Not selected")) +
                                       (cell->hasBadge() ? QStringLiteral(" \u00B7 Strong scene change") : QString()));
    }
    const QString n = QString::number(m_selection.size());
    m_gifs->setText(n + QStringLiteral(" GIFs"));
    m_stills->setText(n + QStringLiteral(" Screenshots"));
    m_clips->setText(n + QStringLiteral(" Clips"));
    refreshState();
}

void MomentsView::refreshState() {
    const bool scanningPage = m_allMoments.isEmpty();
    m_content->setCurrentIndex(scanningPage ? 0 : 1);
    m_scanSpinner->setVisible(m_analyzing);
    m_scanNote->setVisible(m_analyzing);
    m_scanStatus->setText(m_statusText);
    m_findingMore->setVisible(m_analyzing);
    m_stepperBox->setVisible(!m_analyzing);
    const QString count = QString::number(displayed().size()) + QStringLiteral(" moments");
    m_stepperLabel->setText(count);
    m_stepper->setAccessibleName(count);
    m_status->setText(m_exporting ? m_statusText : QString());
    const bool canExport = !m_selection.isEmpty() && !m_exporting;
    for (QPushButton *button : {m_gifs, m_stills, m_clips, m_both})
        button->setEnabled(canExport);
    refreshBeat();
}

void MomentsView::refreshBeat() {
    m_beatSpinner->setVisible(m_findingBeat);
    const bool chip = !m_findingBeat && m_snapToBeat && m_beatGrid;
    if (chip)
        m_beatChip->set(QString::asprintf("%.0f BPM grid", m_beatGrid->bpm), QStringLiteral("metronome"),
                        Brand::ember());
    m_beatChip->setAccessibleName(chip ? m_beatChip->text() : QString());
    m_beatChip->setVisible(chip);
}
