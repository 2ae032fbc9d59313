#include "ui/ImagesView.h"

#include "core/AppSettings.h"
#include "core/TextTrim.h"
#include "discovery/Http.h"
#include "queue/DownloadQueue.h"
#include "queue/HistoryStore.h"
#include "ui/Brand.h"
#include "ui/Desktop.h"
#include "ui/ElidedLabel.h"
#include "ui/EmberBusyBar.h"
#include "ui/ScreenParts.h"
#include "ui/Symbols.h"
#include "ui/ThumbnailLoader.h"

#include <QContextMenuEvent>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPainter>
#include <QPainterPath>
#include <QPointer>
#include <QScrollArea>
#include <QStackedWidget>
#include <QToolButton>
#include <QUuid>
#include <QVBoxLayout>

#include <algorithm>

using ImageSearch::Result;

namespace {

const QString cellName = QStringLiteral("imageCell");

// The picture scaled to fill its frame and clipped, or the neutral tile while there is none.
// Painted at the cell's current width, so a reflow costs no new request.
class Thumbnail : public QWidget {
public:
    QPixmap picture;
    explicit Thumbnail() {
        setObjectName(QStringLiteral("thumbnail"));
        setFixedHeight(ImagesView::thumbnailHeight);
    }

protected:
    void paintEvent(QPaintEvent *) override {
        QPainter p(this);
        p.setRenderHint(QPainter::Antialiasing);
        p.setRenderHint(QPainter::SmoothPixmapTransform);
        QPainterPath clip;
        clip.addRoundedRect(QRectF(rect()), 6, 6);
        p.setClipPath(clip);
        if (picture.isNull()) {
            p.fillRect(rect(), Brand::hairline());
            const int glyph = 26;
            p.drawPixmap((width() - glyph) / 2, (height() - glyph) / 2,
                         Symbols::pixmap(QStringLiteral("photo"), Brand::stoneDark(), glyph));
            return;
        }
        const QSizeF source = picture.deviceIndependentSize();
        const QSizeF frame = QSizeF(size()).scaled(source, Qt::KeepAspectRatio);
        const QRectF crop((source.width() - frame.width()) / 2, (source.height() - frame.height()) / 2, frame.width(),
                          frame.height());
        const qreal ratio = picture.devicePixelRatio();
        p.drawPixmap(QRectF(rect()), picture,
                     QRectF(crop.topLeft() * ratio, crop.size() * ratio));
    }
};

class ImageCell : public QWidget {
public:
    Result result;
    std::function<QMenu *(QWidget *)> menu;
    explicit ImageCell(Result r) : result(std::move(r)) { setObjectName(cellName); }

protected:
    void contextMenuEvent(QContextMenuEvent *event) override {
        QMenu *m = menu(this);
        m->setAttribute(Qt::WA_DeleteOnClose);
        m->popup(event->globalPos());
    }
    void paintEvent(QPaintEvent *) override { ScreenParts::paintCard(this, Brand::hairline()); }
};

// Lays the cells out in as many columns as fit, reflowing when its width changes.
class Grid : public QWidget {
public:
    QList<QWidget *> cells;

    void relayout() {
        const int width = std::max(1, this->width());
        const int columns = ImagesView::columnsFor(width);
        const int cellWidth = ImagesView::cellWidthFor(width);
        int y = 0;
        for (int i = 0; i < cells.size(); i += columns) {
            int rowHeight = 0;
            for (int c = 0; c < columns && i + c < cells.size(); ++c)
                rowHeight = std::max(rowHeight, cells[i + c]->sizeHint().height());
            for (int c = 0; c < columns && i + c < cells.size(); ++c)
                cells[i + c]->setGeometry(c * (cellWidth + ImagesView::cellSpacing), y, cellWidth, rowHeight);
            y += rowHeight + ImagesView::cellSpacing;
        }
        setMinimumHeight(std::max(0, y));
    }

protected:
    void resizeEvent(QResizeEvent *) override { relayout(); }
};

QLabel *caption(const QString &text, const QColor &color, const QString &name) {
    QFont font = Brand::monoFont(8.5, QFont::Medium);
    font.setLetterSpacing(QFont::AbsoluteSpacing, 0.4);
    QLabel *label = ScreenParts::label(text, font, color);
    label->setObjectName(name);
    return label;
}

QString describe(const std::exception &e, const QString &fallback) {
    QString text;
    if (const auto *image = dynamic_cast<const ImageSearch::ImageError *>(&e))
        text = image->description();
    else if (const auto *network = dynamic_cast<const Http::NetworkError *>(&e))
        text = network->message();
    else
        text = QString::fromUtf8(e.what());
    return text.isEmpty() ? fallback : text;
}

using SearchOutcome = std::pair<QList<Result>, std::optional<QString>>;

QCoro::Task<SearchOutcome> searchFor(QString query, ImageSearch::Endpoint endpoint) {
    try {
        QList<Result> found = co_await ImageSearch::search(std::move(query), 1, ImagesView::pageSize, endpoint);
        co_return SearchOutcome{std::move(found), std::nullopt};
    } catch (const std::exception &e) {
        co_return SearchOutcome{{}, describe(e, QStringLiteral("Search failed"))};
    }
}

} // namespace

ImagesView::Setup ImagesView::Setup::real() {
    return {ImageSearch::Endpoint::real(), &Desktop::reveal, &Desktop::open, nullptr};
}

ImagesView::ImagesView(DownloadQueue &queue, HistoryStore &history, AppSettings &settings, QWidget *parent)
    : ImagesView(queue, history, settings, Setup::real(), parent) {}

ImagesView::ImagesView(DownloadQueue &queue, HistoryStore &history, AppSettings &settings, Setup setup,
                       QWidget *parent)
    : QWidget(parent), m_queue(queue), m_history(history), m_settings(settings), m_setup(std::move(setup)) {
    setObjectName(QStringLiteral("imagesView"));
    if (!m_setup.thumbnails)
        m_setup.thumbnails = &ThumbnailLoader::shared();

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(20, 16, 20, 0);
    layout->setSpacing(10);
    const ScreenParts::SearchBar bar =
        ScreenParts::addSearchBar(layout, QStringLiteral("photo"), {}, this, [this] { run(); });
    m_field = bar.field;
    m_busy = bar.busy;
    m_field->setPlaceholderText(QStringLiteral("Search free, reuse-licensed images…"));
    m_field->setAccessibleName(m_field->placeholderText());

    m_content = new QStackedWidget;
    m_errorPage = ScreenParts::messagePage(QStringLiteral("wifi.exclamationmark"), QString(), QStringLiteral("errorText"));
    m_error = m_errorPage->findChild<QLabel *>(QStringLiteral("errorText"));
    m_emptyPage = ScreenParts::messagePage(QStringLiteral("photo.stack"), QStringLiteral("No images found"),
                                           QStringLiteral("noResults"));
    m_welcomePage = ScreenParts::welcomePage(
        QStringLiteral("photo"), QStringLiteral("Search free, openly-licensed images"),
        QStringLiteral("Openverse — Wikimedia Commons, Flickr Commons, museums and more. Every result is free to "
                       "reuse; attribution is saved automatically when needed."));
    m_gridPage = new QScrollArea;
    m_gridPage->setObjectName(QStringLiteral("grid"));
    m_gridPage->setWidgetResizable(true);
    m_gridPage->setFrameShape(QFrame::NoFrame);
    m_gridPage->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    for (QWidget *page : {m_errorPage, m_emptyPage, m_welcomePage, static_cast<QWidget *>(m_gridPage)})
        m_content->addWidget(page);
    layout->addWidget(m_content, 1);
    rebuildGrid();
    refreshContent();
}

ImagesView::~ImagesView() = default;

int ImagesView::columnsFor(int width) { return std::max(1, (width + cellSpacing) / (minCellWidth + cellSpacing)); }

int ImagesView::cellWidthFor(int width) {
    const int columns = columnsFor(width);
    return std::clamp((width - (columns - 1) * cellSpacing) / columns, minCellWidth, maxCellWidth);
}

void ImagesView::run() {
    const QString q = trimSpacesAndTabs(m_field->text()).toString();
    if (q.isEmpty())
        return;
    const int g = ++m_generation;
    m_searching = true;
    m_errorText.reset();
    m_results.clear();
    rebuildGrid();
    refreshContent();
    QCoro::connect(searchFor(q, m_setup.endpoint), this, [this, g](const SearchOutcome &outcome) {
        searchEnded(g, outcome.first, outcome.second);
    });
}

void ImagesView::searchEnded(int generation, const QList<Result> &results, const std::optional<QString> &error) {
    // A newer search owns the screen; this answer is stale.
    if (generation != m_generation)
        return;
    m_results = results;
    m_errorText = error;
    m_searching = false;
    m_searched = true;
    rebuildGrid();
    refreshContent();
}

void ImagesView::refreshContent() {
    m_busy->setVisible(m_searching);
    if (m_errorText) {
        m_error->setText(*m_errorText);
        m_content->setCurrentWidget(m_errorPage);
    } else if (m_results.isEmpty() && m_searched) {
        m_content->setCurrentWidget(m_emptyPage);
    } else if (m_results.isEmpty()) {
        m_content->setCurrentWidget(m_welcomePage);
    } else {
        m_content->setCurrentWidget(m_gridPage);
    }
}

void ImagesView::rebuildGrid() {
    auto *grid = new Grid;
    for (const Result &result : std::as_const(m_results)) {
        QWidget *cell = buildCell(result);
        cell->setParent(grid);
        grid->cells.append(cell);
    }
    // Replacing the page's widget deletes the old cells, which abandons their thumbnails.
    m_gridPage->setWidget(grid);
    m_grid = grid;
    refreshCells();
    grid->relayout();
}

QWidget *ImagesView::buildCell(const Result &result) {
    auto *cell = new ImageCell(result);
    cell->menu = [this, result](QWidget *parent) { return buildMenu(result, parent); };
    auto *column = new QVBoxLayout(cell);
    column->setContentsMargins(8, 8, 8, 10);
    column->setSpacing(6);
    auto *thumbnail = new Thumbnail;
    // Kept in its own shape: the cell crops it to whatever width the grid gives it.
    m_setup.thumbnails->request(thumbnail, result.thumbURL, QSize(0, thumbnailHeight), 0,
                                [thumbnail](const QPixmap &picture) {
                                    thumbnail->picture = picture;
                                    thumbnail->update();
                                });
    column->addWidget(thumbnail);

    auto *lines = new QHBoxLayout;
    lines->setSpacing(6);
    auto *texts = new QVBoxLayout;
    texts->setSpacing(3);
    ElidedLabel *title = ScreenParts::elidedLabel(result.title, Brand::displayFont(12, QFont::DemiBold), Brand::bone());
    title->setObjectName(QStringLiteral("title"));
    texts->addWidget(title);
    auto *licence = new QHBoxLayout;
    licence->setSpacing(8);
    QLabel *licenceText = caption(result.license.toUpper(), Brand::ember(), QStringLiteral("license"));
    licenceText->setMinimumWidth(licenceText->sizeHint().width()); // the licence wins over the dimensions
    licence->addWidget(licenceText);
    if (!result.dimensions.isEmpty()) {
        ElidedLabel *dimensions = ScreenParts::elidedLabel(result.dimensions, licenceText->font(), Brand::stoneDark());
        dimensions->setObjectName(QStringLiteral("dimensions"));
        licence->addWidget(dimensions, 1);
    } else {
        licence->addStretch(1);
    }
    texts->addLayout(licence);
    lines->addLayout(texts, 1);

    auto *save = new QToolButton;
    save->setObjectName(QStringLiteral("save"));
    save->setIcon(Symbols::icon(QStringLiteral("arrow.down.circle"), Brand::ember(), 20));
    save->setIconSize(QSize(20, 20));
    save->setAutoRaise(true);
    save->setCursor(Qt::PointingHandCursor);
    save->setToolTip(QStringLiteral("Download Full Resolution"));
    save->setAccessibleName(QStringLiteral("Download Full Resolution"));
    connect(save, &QToolButton::clicked, this, [this, result] { download(result); });
    lines->addWidget(save, 0, Qt::AlignVCenter);
    // Turns while the picture is being saved.
    QWidget *saving = ScreenParts::turningRing(22, 2.4, 3);
    saving->setObjectName(QStringLiteral("saving"));
    saving->setAccessibleName(QStringLiteral("Saving…"));
    lines->addWidget(saving, 0, Qt::AlignVCenter);
    auto *saved = new QLabel;
    saved->setObjectName(QStringLiteral("saved"));
    saved->setPixmap(Symbols::pixmap(QStringLiteral("checkmark.circle.fill"), Brand::success(), 20));
    saved->setAccessibleName(QStringLiteral("Saved"));
    saved->setToolTip(QStringLiteral("Saved"));
    lines->addWidget(saved, 0, Qt::AlignVCenter);
    column->addLayout(lines);
    return cell;
}

void ImagesView::refreshCells() {
    if (!m_grid)
        return;
    for (QWidget *widget : static_cast<Grid *>(m_grid)->cells) {
        auto *cell = static_cast<ImageCell *>(widget);
        const QString &id = cell->result.id;
        const bool saving = m_downloadingID == id;
        const bool saved = !saving && m_savedIDs.contains(id);
        auto *save = cell->findChild<QWidget *>(QStringLiteral("save"));
        save->setVisible(!saving && !saved);
        save->setEnabled(!m_downloadingID); // one save at a time
        cell->findChild<QWidget *>(QStringLiteral("saving"))->setVisible(saving);
        cell->findChild<QWidget *>(QStringLiteral("saved"))->setVisible(saved);
        QStringList details{cell->result.license};
        if (!cell->result.dimensions.isEmpty())
            details << cell->result.dimensions;
        if (saving)
            details << QStringLiteral("Saving…");
        else if (saved)
            details << QStringLiteral("Saved");
        cell->setAccessibleName(cell->result.title);
        cell->setAccessibleDescription(details.join(QStringLiteral(", ")));
    }
}

QMenu *ImagesView::buildMenu(const Result &result, QWidget *parent) {
    auto *menu = new QMenu(parent);
    QAction *save = menu->addAction(QStringLiteral("Download Full Resolution"), this, [this, result] { download(result); });
    save->setEnabled(!m_downloadingID);
    QAction *open = menu->addAction(QStringLiteral("Open Source Page"), this, [this, page = result.landingURL] {
        if (m_setup.openPage)
            m_setup.openPage(QUrl(page));
    });
    open->setEnabled(!result.landingURL.isEmpty());
    return menu;
}

void ImagesView::download(const Result &result) {
    if (m_downloadingID)
        return;
    m_downloadingID = result.id;
    refreshCells();
    QCoro::connect(save(result, m_settings.downloadFolder(), m_setup.endpoint), this,
                   [this, result](const Outcome &outcome) { saveEnded(result, outcome); });
}

QCoro::Task<ImagesView::Outcome> ImagesView::save(Result result, QString folder, ImageSearch::Endpoint endpoint) {
    try {
        QString path = co_await ImageSearch::download(std::move(result), std::move(folder), endpoint);
        co_return Outcome{std::move(path), QString()};
    } catch (const std::exception &e) {
        co_return Outcome{QString(), describe(e, QStringLiteral("Image download failed"))};
    }
}

void ImagesView::saveEnded(const Result &result, const Outcome &outcome) {
    m_downloadingID.reset();
    if (outcome.path.isEmpty()) {
        m_queue.setLastMessage(outcome.error);
        refreshCells();
        return;
    }
    m_savedIDs.insert(result.id);
    HistoryEntry entry;
    entry.setId(QUuid::createUuid());
    entry.setUrl(!result.landingURL.isEmpty() ? result.landingURL : result.fullURL.toString());
    entry.setTitle(result.title);
    entry.setSource(ImageSearch::capitalizedWords(result.sourceName));
    entry.setCategory(QStringLiteral("Images"));
    entry.setMode(QStringLiteral("Image"));
    entry.setDate(QDateTime::currentDateTimeUtc());
    entry.setFilePath(outcome.path);
    entry.setArchived(false);
    m_history.add(entry);
    m_queue.setLastMessage(QStringLiteral("Saved ") + QFileInfo(outcome.path).fileName());
    refreshCells();
    if (m_setup.reveal)
        m_setup.reveal(QUrl::fromLocalFile(outcome.path));
}
