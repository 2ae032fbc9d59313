#include "ui/SearchView.h"

#include "core/SiteAddresses.h"
#include "core/TextTrim.h"
#include "engine/Tools.h"
#include "engine/YtDlp.h"
#include "queue/DownloadQueue.h"
#include "ui/Brand.h"
#include "ui/ElidedLabel.h"
#include "ui/EmberBusyBar.h"
#include "ui/EmberButtonStyle.h"
#include "ui/ScreenParts.h"
#include "ui/SegmentedPicker.h"
#include "ui/SheetParts.h"
#include "ui/Symbols.h"
#include "ui/ThumbnailLoader.h"

#include <QAbstractButton>
#include <QApplication>
#include <QClipboard>
#include <QContextMenuEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPointer>
#include <QPushButton>
#include <QScrollArea>
#include <QStackedWidget>
#include <QToolButton>
#include <QVBoxLayout>

using YtDlp::SearchMode;
using YtDlp::SearchResult;

namespace {

const QString rowName = QStringLiteral("resultRow");
const QString ccBadgeText = QStringLiteral("CC · free to reuse");

// One hit: thumbnail with its duration, title, channel and views, and the Download control.
class SearchRow : public QWidget {
public:
    SearchResult result;
    bool selected = false;
    std::function<void()> onClick;
    std::function<QMenu *(QWidget *)> menu;

    explicit SearchRow(SearchResult r) : result(std::move(r)) {
        setObjectName(rowName);
        setCursor(Qt::PointingHandCursor);
    }

protected:
    void mousePressEvent(QMouseEvent *event) override {
        if (onClick)
            onClick();
        QWidget::mousePressEvent(event);
    }
    void contextMenuEvent(QContextMenuEvent *event) override {
        QMenu *m = menu(this);
        m->setAttribute(Qt::WA_DeleteOnClose);
        m->popup(event->globalPos());
    }
    void paintEvent(QPaintEvent *) override {
        if (selected)
            ScreenParts::paintCard(this, Brand::ember());
    }
};

// The search's outcome: the failure's message, or nothing when it ended normally.
QCoro::Task<std::optional<QString>> searchFor(QString query, SearchMode mode, YtDlp::SearchResultFn onResult) {
    const QString fallback = QStringLiteral("Search failed");
    try {
        co_await YtDlp::searchStream(std::move(query), mode, SearchView::resultCount, std::move(onResult));
    } catch (const YtDlpError &e) {
        co_return e.message().isEmpty() ? fallback : e.message();
    } catch (const Tools::LaunchError &e) {
        co_return e.message().isEmpty() ? fallback : e.message();
    } catch (const std::exception &e) {
        const QString text = QString::fromUtf8(e.what());
        co_return text.isEmpty() ? fallback : text;
    }
    co_return std::nullopt;
}

} // namespace

SearchView::Setup SearchView::Setup::real() { return {SiteAddresses::youTubeThumbnailServer, nullptr}; }

SearchView::SearchView(DownloadQueue &queue, QWidget *parent) : SearchView(queue, Setup::real(), parent) {}

SearchView::SearchView(DownloadQueue &queue, Setup setup, QWidget *parent)
    : QWidget(parent), m_queue(queue), m_setup(std::move(setup)) {
    setObjectName(QStringLiteral("searchView"));
    if (!m_setup.thumbnails)
        m_setup.thumbnails = &ThumbnailLoader::shared();

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(20, 16, 20, 0);
    layout->setSpacing(10);

    QStringList modeLabels;
    for (SearchMode mode : YtDlp::allSearchModes)
        modeLabels << YtDlp::rawValue(mode);
    m_modePicker = new SegmentedPicker(modeLabels, QStringLiteral("Search kind"));
    m_modePicker->setObjectName(QStringLiteral("modePicker"));
    m_modePicker->setToolTip(modeHelp());
    m_modePicker->setAccessibleDescription(modeHelp());
    for (int i = 0; i < m_modePicker->count(); ++i)
        m_modePicker->button(i)->setToolTip(modeHelp());
    connect(m_modePicker, &SegmentedPicker::chosen, this, [this](int index) { setMode(YtDlp::allSearchModes[index]); });
    const ScreenParts::SearchBar bar =
        ScreenParts::addSearchBar(layout, QStringLiteral("magnifyingglass"), {m_modePicker}, this, [this] { run(); });
    m_field = bar.field;
    m_busy = bar.busy;

    m_formatBar = new QWidget;
    m_formatBar->setObjectName(QStringLiteral("formatBar"));
    auto *formatRow = new QHBoxLayout(m_formatBar);
    formatRow->setContentsMargins(10, 2, 10, 2); // in line with the rows
    m_count = SheetParts::capsLabel(QString());
    m_count->setObjectName(QStringLiteral("count"));
    formatRow->addWidget(m_count);
    formatRow->addStretch(1);
    formatRow->addWidget(SheetParts::capsLabel(QStringLiteral("Download as")));
    m_formatPicker = new SegmentedPicker(
        {QStringLiteral("Video"), QStringLiteral("Audio"), QStringLiteral("Silent video")}, QStringLiteral("Download as"));
    m_formatPicker->setObjectName(QStringLiteral("formatPicker"));
    connect(m_formatPicker, &SegmentedPicker::chosen, this, [this](int index) {
        static constexpr DownloadMode formats[] = {DownloadMode::bestVideoAudio, DownloadMode::audioOnly,
                                                   DownloadMode::videoOnly};
        m_format = formats[index];
    });
    formatRow->addWidget(m_formatPicker);
    layout->addWidget(m_formatBar);

    m_content = new QStackedWidget;
    m_errorPage = ScreenParts::messagePage(QStringLiteral("exclamationmark.triangle.fill"), QString(), QStringLiteral("errorText"));
    m_error = m_errorPage->findChild<QLabel *>(QStringLiteral("errorText"));
    m_emptyPage = ScreenParts::messagePage(QStringLiteral("magnifyingglass"), QStringLiteral("No results"),
                                           QStringLiteral("noResults"));
    m_welcomePage = ScreenParts::welcomePage(
        QStringLiteral("sparkle.magnifyingglass"), QStringLiteral("Find anything, without leaving the app"),
        QStringLiteral("Results stream in as you search. Pick a format up top, then one-click Download on any result."));
    auto *scroll = new QScrollArea;
    scroll->setObjectName(QStringLiteral("results"));
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    auto *listBody = new QWidget;
    m_list = new QVBoxLayout(listBody);
    m_list->setContentsMargins(0, 0, 0, 12);
    m_list->setSpacing(2);
    m_list->addStretch(1);
    scroll->setWidget(listBody);
    m_listPage = scroll;
    for (QWidget *page : {m_errorPage, m_emptyPage, m_welcomePage, m_listPage})
        m_content->addWidget(page);
    layout->addWidget(m_content, 1);

    setMode(SearchMode::videos);
    refreshContent();
}

SearchView::~SearchView() = default;

QString SearchView::placeholder(SearchMode mode) {
    switch (mode) {
    case SearchMode::videos:
        return QStringLiteral("Search YouTube…");
    case SearchMode::music:
        return QStringLiteral("Search songs — artist, title…");
    case SearchMode::ccOnly:
        return QStringLiteral("Search Creative-Commons footage — free to reuse…");
    }
    return {};
}

QString SearchView::modeHelp() {
    return QStringLiteral("Music = YouTube Music songs (the catalogue Spotify uses). "
                          "CC only = Creative-Commons, free to reuse.");
}

void SearchView::setMode(SearchMode mode) {
    const bool changed = mode != m_mode;
    m_mode = mode;
    m_modePicker->setCurrent(int(std::find(YtDlp::allSearchModes.begin(), YtDlp::allSearchModes.end(), mode) -
                                 YtDlp::allSearchModes.begin()));
    m_field->setPlaceholderText(placeholder(mode));
    m_field->setAccessibleName(placeholder(mode));
    if (!changed)
        return;
    for (int i = 0; i < m_list->count(); ++i)
        if (QWidget *row = m_list->itemAt(i)->widget())
            refreshRow(row);
    if (m_searched)
        run();
}

void SearchView::run() {
    const QString q = trimSpacesAndTabs(m_field->text()).toString();
    if (q.isEmpty())
        return;
    const int g = ++m_generation;
    m_searching = true;
    m_errorText.reset();
    m_results.clear();
    m_queued.clear();
    m_selectedID.reset();
    while (m_list->count() > 1) {
        QLayoutItem *entry = m_list->takeAt(0);
        delete entry->widget();
        delete entry;
    }
    refreshContent();

    QPointer<SearchView> self(this);
    YtDlp::SearchResultFn onResult = [self, g](const SearchResult &result) {
        // Hop to the window's thread if the engine's reader ever delivers elsewhere.
        QMetaObject::invokeMethod(
            qApp,
            [self, g, result] {
                if (self && self->m_generation == g)
                    self->append(result);
            },
            Qt::AutoConnection);
    };
    QCoro::connect(searchFor(q, m_mode, std::move(onResult)), this,
                   [this, g](const std::optional<QString> &error) { searchEnded(g, error); });
}

void SearchView::append(const SearchResult &result) {
    for (const SearchResult &known : std::as_const(m_results))
        if (known.id == result.id)
            return;
    m_results.append(result);
    m_list->insertWidget(m_list->count() - 1, buildRow(result));
    refreshContent();
}

void SearchView::searchEnded(int generation, const std::optional<QString> &error) {
    if (generation != m_generation)
        return;
    // A failure after some hits arrived leaves the hits and says nothing.
    if (error && m_results.isEmpty())
        m_errorText = *error;
    m_searching = false;
    m_searched = true;
    refreshContent();
}

void SearchView::refreshContent() {
    m_busy->setVisible(m_searching);
    m_formatBar->setVisible(!m_results.isEmpty());
    m_count->setText(QString::number(m_results.size()) + QStringLiteral(" RESULTS"));
    if (m_errorText) {
        m_error->setText(*m_errorText);
        m_content->setCurrentWidget(m_errorPage);
    } else if (m_results.isEmpty() && m_searched && !m_searching) {
        m_content->setCurrentWidget(m_emptyPage);
    } else if (m_results.isEmpty() && !m_searched) {
        m_content->setCurrentWidget(m_welcomePage);
    } else {
        m_content->setCurrentWidget(m_listPage);
    }
}

QWidget *SearchView::rowFor(const QString &id) const {
    for (int i = 0; i < m_list->count(); ++i)
        if (auto *row = static_cast<SearchRow *>(m_list->itemAt(i)->widget()); row && row->result.id == id)
            return row;
    return nullptr;
}

void SearchView::select(const QString &id) {
    const std::optional<QString> previous = m_selectedID;
    m_selectedID = id;
    if (previous)
        if (QWidget *row = rowFor(*previous))
            refreshRow(row);
    if (QWidget *row = rowFor(id))
        refreshRow(row);
}

QWidget *SearchView::buildRow(const SearchResult &result) {
    auto *row = new SearchRow(result);
    row->onClick = [this, id = result.id] { select(id); };
    row->menu = [this, result](QWidget *parent) { return buildMenu(result, parent); };
    auto *layout = new QHBoxLayout(row);
    layout->setContentsMargins(10, 8, 10, 8);
    layout->setSpacing(12);

    auto *thumbnail = new QLabel;
    thumbnail->setObjectName(QStringLiteral("thumbnail"));
    thumbnail->setFixedSize(thumbnailSize);
    thumbnail->setPixmap(QPixmap::fromImage(ThumbnailLoader::fill(QImage(), thumbnailSize, 6)));
    const QUrl thumbURL(m_setup.thumbnailServer + QStringLiteral("/vi/") +
                        QString::fromLatin1(QUrl::toPercentEncoding(result.id)) + QStringLiteral("/mqdefault.jpg"));
    m_setup.thumbnails->request(thumbnail, thumbURL, thumbnailSize, 6, [thumbnail](const QPixmap &picture) {
        if (!picture.isNull())
            thumbnail->setPixmap(picture);
    });
    if (!result.durationText.isEmpty()) {
        QLabel *duration = ScreenParts::label(result.durationText, Brand::monoFont(10, QFont::Medium), Brand::bone());
        duration->setObjectName(QStringLiteral("duration"));
        duration->setParent(thumbnail);
        duration->setStyleSheet(QStringLiteral("background: rgba(22, 19, 15, 200); border-radius: 3px; padding: 1px 4px;"));
        duration->adjustSize();
        duration->move(thumbnailSize.width() - duration->width() - 5, thumbnailSize.height() - duration->height() - 5);
    }
    layout->addWidget(thumbnail, 0, Qt::AlignVCenter);

    auto *column = new QVBoxLayout;
    column->setSpacing(4);
    column->addStretch(1);
    ElidedLabel *title = ScreenParts::elidedLabel(result.title, Brand::displayFont(14, QFont::DemiBold), Brand::bone());
    title->setObjectName(QStringLiteral("title"));
    column->addWidget(title);
    auto *meta = new QHBoxLayout;
    meta->setSpacing(10);
    if (!result.channel.isEmpty()) {
        QLabel *channel = ScreenParts::label(result.channel, Brand::monoFont(10, QFont::Medium), Brand::stone());
        channel->setObjectName(QStringLiteral("channel"));
        meta->addWidget(channel);
    }
    if (!result.viewsText.isEmpty()) {
        QLabel *views = ScreenParts::label(result.viewsText, Brand::monoFont(10, QFont::Medium), Brand::stoneDark());
        views->setObjectName(QStringLiteral("views"));
        meta->addWidget(views);
    }
    meta->addStretch(1);
    column->addLayout(meta);
    QLabel *badge = ScreenParts::label(ccBadgeText, Brand::monoFont(10, QFont::Medium), Brand::ember());
    badge->setObjectName(QStringLiteral("ccBadge"));
    column->addWidget(badge);
    column->addStretch(1);
    layout->addLayout(column, 1);

    auto *download = new QPushButton(Symbols::icon(QStringLiteral("arrow.down.circle"), Brand::bone(), 14),
                                     QStringLiteral("Download"));
    download->setObjectName(QStringLiteral("download"));
    EmberButtonStyle::apply(download, true);
    download->setMinimumWidth(download->sizeHint().width() + 12); // room for the gap after the arrow
    connect(download, &QPushButton::clicked, this, [this, result] { queue(result, m_format); });
    layout->addWidget(download, 0, Qt::AlignVCenter);
    auto *queued = new QWidget;
    queued->setObjectName(QStringLiteral("queued"));
    auto *queuedRow = new QHBoxLayout(queued);
    queuedRow->setContentsMargins(0, 0, 0, 0);
    queuedRow->setSpacing(5);
    auto *check = new QLabel;
    check->setPixmap(Symbols::pixmap(QStringLiteral("checkmark.circle.fill"), Brand::success(), 16));
    queuedRow->addWidget(check);
    queuedRow->addWidget(ScreenParts::label(QStringLiteral("Queued"), Brand::systemFont(12, QFont::Medium), Brand::success()));
    queued->setAccessibleName(QStringLiteral("Queued"));
    layout->addWidget(queued, 0, Qt::AlignVCenter);

    auto *more = new QToolButton;
    more->setObjectName(QStringLiteral("more"));
    more->setText(QStringLiteral("…"));
    more->setToolTip(QStringLiteral("More download options"));
    more->setAccessibleName(QStringLiteral("More download options"));
    more->setAutoRaise(true);
    more->setCursor(Qt::PointingHandCursor);
    connect(more, &QToolButton::clicked, this, [this, more, result] {
        QMenu *menu = buildMenu(result, more);
        menu->setAttribute(Qt::WA_DeleteOnClose);
        menu->popup(more->mapToGlobal(QPoint(0, more->height())));
    });
    layout->addWidget(more, 0, Qt::AlignVCenter);

    refreshRow(row);
    return row;
}

void SearchView::refreshRow(QWidget *widget) {
    auto *row = static_cast<SearchRow *>(widget);
    const SearchResult &r = row->result;
    const bool isQueued = m_queued.contains(r.id);
    row->findChild<QWidget *>(QStringLiteral("download"))->setVisible(!isQueued);
    row->findChild<QWidget *>(QStringLiteral("queued"))->setVisible(isQueued);
    const bool cc = m_mode == SearchMode::ccOnly;
    row->findChild<QWidget *>(QStringLiteral("ccBadge"))->setVisible(cc);
    row->selected = m_selectedID == r.id;
    row->update();
    QStringList details;
    for (const QString &part : {r.channel, r.viewsText, r.durationText})
        if (!part.isEmpty())
            details << part;
    if (cc)
        details << ccBadgeText;
    if (isQueued)
        details << QStringLiteral("Queued");
    row->setAccessibleName(r.title);
    row->setAccessibleDescription(details.join(QStringLiteral(", ")));
}

QMenu *SearchView::buildMenu(const SearchResult &result, QWidget *parent) {
    auto *menu = new QMenu(parent);
    const std::pair<const char *, DownloadMode> entries[] = {{"Download Video", DownloadMode::bestVideoAudio},
                                                             {"Download Audio", DownloadMode::audioOnly},
                                                             {"Download Silent Video", DownloadMode::videoOnly}};
    for (const auto &[text, mode] : entries)
        menu->addAction(QString::fromLatin1(text), this, [this, result, mode = mode] { queue(result, mode); });
    menu->addSeparator();
    menu->addAction(QStringLiteral("Copy Link"), this, [url = result.url] {
        QClipboard *clipboard = QApplication::clipboard();
        clipboard->clear();
        clipboard->setText(url);
    });
    return menu;
}

void SearchView::queue(const SearchResult &result, DownloadMode mode) {
    m_queue.add(result.url, mode, std::nullopt, false);
    m_queued.insert(result.id);
    m_queue.setLastMessage(QStringLiteral("Queued: ") + result.title);
    if (QWidget *row = rowFor(result.id))
        refreshRow(row);
}
