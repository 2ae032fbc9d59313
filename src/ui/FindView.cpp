#include "ui/FindView.h"

#include "core/AppSettings.h"
#include "core/TextTrim.h"
#include "queue/DownloadQueue.h"
#include "ui/Brand.h"
#include "ui/ScreenParts.h"
#include "ui/Desktop.h"
#include "ui/ElidedLabel.h"
#include "ui/EmberButtonStyle.h"
#include "ui/Symbols.h"

#include <QFileInfo>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPainter>
#include <QPointer>
#include <QPushButton>
#include <QScrollArea>
#include <QStackedWidget>
#include <QVBoxLayout>
#include <QtConcurrent/QtConcurrentRun>

#include <QCoroFuture>

using TranscriptSearch::Hit;

namespace {

using ScreenParts::label;

// The small ring of the bar and of a row's export.
QWidget *busyIndicator(const QString &name) {
    QWidget *ring = ScreenParts::turningRing(18, 2.2, 2.5);
    ring->setAccessibleName(name);
    return ring;
}

// One hit: video name, clock and time, the cue's text, and its trailing control.
class HitRow : public QFrame {
public:
    HitRow(const Hit &hit, std::function<void()> onExport) {
        setObjectName(QStringLiteral("hitRow"));
        setFrameShape(QFrame::NoFrame);
        setAccessibleName(hit.videoName + QStringLiteral(", ") + hit.timeLabel() + QStringLiteral(", ") + hit.text);

        auto *row = new QHBoxLayout(this);
        row->setContentsMargins(14, 10, 12, 10);
        row->setSpacing(12);
        auto *column = new QVBoxLayout;
        column->setSpacing(3);
        ElidedLabel *name =
            ScreenParts::elidedLabel(hit.videoName, Brand::displayFont(14, QFont::DemiBold), Brand::bone());
        name->setObjectName(QStringLiteral("videoName"));
        name->setAccessibleName(hit.videoName);
        column->addWidget(name);

        auto *timeLine = new QHBoxLayout;
        timeLine->setSpacing(5);
        auto *clock = new QLabel;
        clock->setPixmap(Symbols::pixmap(QStringLiteral("clock"), Brand::ember(), 12));
        clock->setAccessibleName(QStringLiteral("Time"));
        timeLine->addWidget(clock);
        QLabel *time = label(hit.timeLabel(), Brand::monoFont(11, QFont::Medium), Brand::ember());
        time->setObjectName(QStringLiteral("timeLabel"));
        timeLine->addWidget(time);
        timeLine->addStretch(1);
        column->addLayout(timeLine);

        QLabel *text = label(hit.text, Brand::systemFont(13), Brand::bone());
        text->setObjectName(QStringLiteral("cueText"));
        text->setWordWrap(true);
        text->setTextFormat(Qt::PlainText);
        text->setTextInteractionFlags(Qt::TextSelectableByMouse);
        column->addWidget(text);
        row->addLayout(column, 1);

        m_trailing = new QStackedWidget;
        m_trailing->setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
        if (hit.videoFile) {
            m_export = new QPushButton(Symbols::icon(QStringLiteral("scissors"), Brand::bone()), QStringLiteral("Export Clip"));
            m_export->setObjectName(QStringLiteral("exportClip"));
            m_export->setAccessibleName(QStringLiteral("Export Clip"));
            m_export->setAccessibleDescription(hit.videoName + QStringLiteral(" at ") + hit.timeLabel());
            EmberButtonStyle::apply(m_export, true);
            m_export->setMinimumWidth(QFontMetrics(m_export->font()).horizontalAdvance(m_export->text()) + 52);
            QObject::connect(m_export, &QPushButton::clicked, m_export, [onExport = std::move(onExport)] { onExport(); });
            m_trailing->addWidget(m_export);
        } else {
            QLabel *moved = label(QStringLiteral("media file moved"), Brand::monoFont(10), Brand::stone());
            moved->setObjectName(QStringLiteral("mediaMoved"));
            moved->setAlignment(Qt::AlignCenter);
            m_trailing->addWidget(moved);
        }
        m_busy = busyIndicator(QStringLiteral("Exporting clip"));
        m_busy->setObjectName(QStringLiteral("exportProgress"));
        auto *busyBox = new QWidget;
        auto *busyLayout = new QHBoxLayout(busyBox);
        busyLayout->setContentsMargins(0, 0, 0, 0);
        busyLayout->addWidget(m_busy, 0, Qt::AlignCenter);
        m_trailing->addWidget(busyBox);
        row->addWidget(m_trailing, 0, Qt::AlignVCenter);
    }

    void setExporting(bool exporting) { m_trailing->setCurrentIndex(exporting ? 1 : 0); }

protected:
    void paintEvent(QPaintEvent *) override {
        QPainter p(this);
        p.setRenderHint(QPainter::Antialiasing);
        p.setPen(Qt::NoPen);
        p.setBrush(Brand::surface());
        p.drawRoundedRect(QRectF(rect()), 10, 10);
    }

private:
    QStackedWidget *m_trailing = nullptr;
    QPushButton *m_export = nullptr;
    QWidget *m_busy = nullptr;
};

} // namespace

FindView::FindView(QWidget *parent) : FindView(AppSettings::shared(), DownloadQueue::shared(), parent) {}

FindView::FindView(AppSettings &settings, DownloadQueue &queue, QWidget *parent)
    : QWidget(parent), m_settings(settings), m_queue(queue), m_reveal([](const QUrl &file) { Desktop::reveal(file); }) {
    setObjectName(QStringLiteral("findView"));
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(buildSearchBar());
    layout->addWidget(ScreenParts::divider());

    m_content = new QStackedWidget;
    m_content->addWidget(buildWelcome());
    m_content->addWidget(buildNoMatches());
    auto *scroll = new QScrollArea;
    scroll->setObjectName(QStringLiteral("findResults"));
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setWidgetResizable(true);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_results = new QWidget;
    m_resultsLayout = new QVBoxLayout(m_results);
    m_resultsLayout->setContentsMargins(14, 12, 14, 12);
    m_resultsLayout->setSpacing(8);
    m_resultsLayout->addStretch(1);
    scroll->setWidget(m_results);
    m_content->addWidget(scroll);
    layout->addWidget(m_content, 1);

    refreshFindButton();
    showState();
}

FindView::~FindView() = default;

QWidget *FindView::buildSearchBar() {
    QHBoxLayout *row = ScreenParts::barRow(QStringLiteral("findBar"), 10);
    m_query = ScreenParts::listField(QStringLiteral("waveform.and.magnifyingglass"), 13, 16, 34);
    m_query->setObjectName(QStringLiteral("findQuery"));
    m_query->setPlaceholderText(
        QStringLiteral("Search everything said in your library\u2026  e.g. \u201Cchord voicing\u201D"));
    m_query->setAccessibleName(QStringLiteral("Search everything said in your library"));
    connect(m_query, &QLineEdit::textChanged, this, &FindView::refreshFindButton);
    connect(m_query, &QLineEdit::returnPressed, this, &FindView::runSearch);
    row->addWidget(m_query, 1);

    m_find = new QPushButton(QStringLiteral("Find"));
    m_find->setObjectName(QStringLiteral("find"));
    m_find->setAccessibleName(QStringLiteral("Find"));
    EmberButtonStyle::apply(m_find);
    connect(m_find, &QPushButton::clicked, this, &FindView::runSearch);
    row->addWidget(m_find);

    m_spinner = busyIndicator(QStringLiteral("Searching"));
    m_spinner->setObjectName(QStringLiteral("searchProgress"));
    m_spinner->hide();
    row->addWidget(m_spinner);
    return row->parentWidget();
}

QWidget *FindView::buildWelcome() {
    QLabel *symbol =
        ScreenParts::picture(Symbols::pixmap(QStringLiteral("text.magnifyingglass"), Brand::stoneDark(), 40));
    QLabel *title = label(QStringLiteral("Search by spoken word"), Brand::displayFont(20, QFont::Bold), Brand::bone());
    title->setObjectName(QStringLiteral("welcomeTitle"));
    title->setAlignment(Qt::AlignCenter);
    QLabel *line = label(
        QStringLiteral("Every transcribed video is searchable. Type a phrase, get the exact clip where it's said."),
        Brand::systemFont(13), Brand::stone());
    line->setObjectName(QStringLiteral("welcomeLine"));
    line->setAlignment(Qt::AlignCenter);
    line->setWordWrap(true);
    // A narrow column reads better; a centred label is otherwise laid out at its one-line height.
    line->setFixedWidth(360);
    line->setMinimumHeight(line->heightForWidth(360));
    m_welcome = ScreenParts::centredPage(QStringLiteral("findWelcome"), 10, {symbol, title, {line, Qt::AlignHCenter}});
    return m_welcome;
}

QWidget *FindView::buildNoMatches() {
    QLabel *text = label(QStringLiteral("No matches \u2014 transcribe more videos to widen the net"),
                             Brand::systemFont(13), Brand::stone());
    text->setObjectName(QStringLiteral("noMatchesText"));
    text->setAlignment(Qt::AlignCenter);
    text->setWordWrap(true);
    m_noMatches = ScreenParts::centredPage(QStringLiteral("findNoMatches"), -1, {text});
    return m_noMatches;
}

void FindView::refreshFindButton() {
    m_find->setEnabled(trimSpacesAndTabs(m_query->text()).size() >= minimumQueryLength);
}

void FindView::showState() {
    if (!m_hits.isEmpty())
        m_content->setCurrentIndex(2);
    else
        m_content->setCurrentWidget(m_searched ? m_noMatches : m_welcome);
}

void FindView::runSearch() {
    const QString query = trimSpacesAndTabs(m_query->text()).toString();
    if (query.size() < minimumQueryLength)
        return;
    m_searching = true;
    m_spinner->show();
    search(query, m_settings.downloadFolder(), ++m_generation);
}

QCoro::Task<> FindView::search(QString query, QString folder, quint64 generation) {
    QPointer<FindView> self(this);
    // The scan reads every subtitle file in the library: a worker thread does it while this
    // thread goes on painting.
    // (The future is named, not awaited as a temporary: GCC 12 destroys temporaries of a
    // co_await full-expression twice.)
    QFuture<QList<Hit>> job = QtConcurrent::run([query, folder] { return TranscriptSearch::search(query, folder); });
    QList<Hit> hits;
    try {
        hits = co_await job;
    } catch (const std::exception &) {
        // Out of memory on a huge library, say: the search simply finds nothing.
    }
    // Nothing cancels a search; an answer overtaken by a newer search is dropped.
    if (!self || generation != self->m_generation)
        co_return;
    self->m_hits = std::move(hits);
    self->m_searching = false;
    self->m_searched = true;
    self->m_spinner->hide();
    self->rebuildRows();
    self->showState();
    Q_EMIT self->searchFinished();
}

void FindView::rebuildRows() {
    for (QWidget *row : std::as_const(m_rows))
        delete row;
    m_rows.clear();
    int position = 0;
    for (const Hit &hit : std::as_const(m_hits)) {
        const QUuid id = hit.id;
        auto *row = new HitRow(hit, [this, id] { exportClip(id); });
        m_resultsLayout->insertWidget(position++, row);
        m_rows.insert(id, row);
        if (m_exporting.contains(id))
            row->setExporting(true);
    }
}

void FindView::refreshRow(const QUuid &hitID) {
    if (auto *row = static_cast<HitRow *>(m_rows.value(hitID)))
        row->setExporting(m_exporting.contains(hitID));
}

void FindView::exportClip(const QUuid &hitID) {
    const auto hit = std::find_if(m_hits.cbegin(), m_hits.cend(), [&hitID](const Hit &h) { return h.id == hitID; });
    if (hit == m_hits.cend() || !hit->videoFile || m_exporting.contains(hitID))
        return;
    m_exporting.insert(hitID);
    refreshRow(hitID);
    exportHit(*hit);
}

QCoro::Task<> FindView::exportHit(Hit hit) {
    QPointer<FindView> self(this);
    QPointer<DownloadQueue> queue(&m_queue);
    std::optional<QString> clip;
    try {
        QCoro::Task<std::optional<QString>> job = TranscriptSearch::exportClip(hit);
        clip = co_await job;
    } catch (const std::exception &) {
        // Reported like any other failed cut.
    }
    // The status line belongs to the queue, which outlives this screen.
    if (queue)
        queue->setLastMessage(clip ? QStringLiteral("Saved ") + QFileInfo(*clip).fileName()
                                   : QStringLiteral("Clip export failed"));
    if (!self)
        co_return;
    self->m_exporting.remove(hit.id);
    self->refreshRow(hit.id);
    if (clip && self->m_reveal)
        self->m_reveal(QUrl::fromLocalFile(*clip));
    Q_EMIT self->exportFinished(hit.id, clip.value_or(QString()));
}
