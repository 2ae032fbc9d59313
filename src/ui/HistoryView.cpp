#include "ui/HistoryView.h"

#include "queue/DownloadQueue.h"
#include "queue/HistoryStore.h"
#include "ui/Brand.h"
#include "ui/ScreenParts.h"
#include "ui/Spinner.h"
#include "ui/Desktop.h"
#include "ui/HistoryModel.h"
#include "ui/StatusChip.h"
#include "ui/Symbols.h"

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QContextMenuEvent>
#include <QFileInfo>
#include <QHash>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QMenu>
#include <QMessageBox>
#include <QPainter>
#include <QPainterPath>
#include <QPushButton>
#include <QScrollBar>
#include <QStackedWidget>
#include <QStyledItemDelegate>
#include <QTimer>
#include <QToolButton>
#include <QVBoxLayout>
#include <QVariantAnimation>

namespace {

// The row's parts, in viewport coordinates of the row's rectangle. The delegate paints with
// them and the list hit-tests and places the live buttons with them.
namespace Geometry {
constexpr int inset = 14;        // the inset list's margin left and right
constexpr int radius = 10;       // corners of the group
constexpr int padX = 12;         // inside the card
constexpr int symbolColumn = 26; // the leading symbol's column
constexpr int symbolSize = 20;   // title size
constexpr int gap = 10;          // between the symbol column and the text
constexpr int buttonSize = 28;
constexpr int buttonGap = 2;
constexpr int buttonCount = 3;

QRect card(const QRect &row) { return row.adjusted(inset, 0, -inset, 0); }
int textLeft(const QRect &row) { return card(row).left() + padX + symbolColumn + gap; }
QRect buttons(const QRect &row) {
    const QRect c = card(row);
    const int width = buttonCount * buttonSize + (buttonCount - 1) * buttonGap;
    return QRect(c.right() - padX - width + 1, c.top() + (c.height() - buttonSize) / 2, width, buttonSize);
}
QRect button(const QRect &row, int i) {
    const QRect b = buttons(row);
    return QRect(b.left() + i * (buttonSize + buttonGap), b.top(), buttonSize, buttonSize);
}
} // namespace Geometry

enum class RowButton { downloadAgain, archive, remove };

QString archiveSymbol(const HistoryEntry &e) {
    return e.archived() ? QStringLiteral("archivebox.fill") : QStringLiteral("archivebox");
}
QString archiveHelp(const HistoryEntry &e) {
    return e.archived() ? QStringLiteral("Unarchive") : QStringLiteral("Archive (kept when history is cleared)");
}
QString buttonSymbol(RowButton b, const HistoryEntry &e) {
    switch (b) {
    case RowButton::downloadAgain:
        return QStringLiteral("arrow.down.circle");
    case RowButton::archive:
        return archiveSymbol(e);
    case RowButton::remove:
        return QStringLiteral("trash");
    }
    return {};
}

const QString copiedText = QStringLiteral("Link copied \u2014 paste anywhere");

QFont titleFont() { return Brand::displayFont(14, QFont::DemiBold); }
QFont captionFont() { return Brand::systemFont(11); }

using ScreenParts::label;

// The three row buttons as real widgets, laid over the painted ones of the row under the mouse
// (or, without a mouse, the current row): one small widget serves the whole list, and gives
// the buttons hover, focus, help texts and accessible names.
class RowActions : public QWidget {
public:
    std::function<void(RowButton, const HistoryEntry &)> onClicked;

    explicit RowActions(QWidget *parent) : QWidget(parent) {
        setObjectName(QStringLiteral("rowActions"));
        auto *row = new QHBoxLayout(this);
        row->setContentsMargins(0, 0, 0, 0);
        row->setSpacing(Geometry::buttonGap);
        const std::pair<RowButton, const char *> buttons[] = {
            {RowButton::downloadAgain, "downloadAgain"}, {RowButton::archive, "archive"}, {RowButton::remove, "remove"}};
        for (const auto &[which, name] : buttons) {
            auto *b = new QToolButton;
            b->setObjectName(QLatin1String(name));
            b->setAutoRaise(true);
            b->setFixedSize(Geometry::buttonSize, Geometry::buttonSize);
            b->setIconSize(QSize(18, 18));
            b->setCursor(Qt::PointingHandCursor);
            b->setStyleSheet(QStringLiteral("QToolButton { border: none; border-radius: 6px; background: transparent; }"
                                            "QToolButton:hover, QToolButton:focus { background: #3A342C; }"));
            connect(b, &QToolButton::clicked, this, [this, which] {
                if (onClicked)
                    onClicked(which, m_entry);
            });
            row->addWidget(b);
            m_buttons[int(which)] = b;
        }
        m_buttons[int(RowButton::downloadAgain)]->setToolTip(QStringLiteral("Download again"));
        m_buttons[int(RowButton::remove)]->setToolTip(QStringLiteral("Remove from history"));
        setEntry(HistoryEntry());
    }

    const HistoryEntry &entry() const { return m_entry; }
    void setEntry(const HistoryEntry &entry) {
        if (m_set && entry == m_entry)
            return;
        m_set = true;
        m_entry = entry;
        m_buttons[int(RowButton::archive)]->setToolTip(archiveHelp(entry));
        for (int i = 0; i < Geometry::buttonCount; ++i) {
            QToolButton *b = m_buttons[i];
            b->setIcon(Symbols::icon(buttonSymbol(RowButton(i), entry), Brand::stone(), 18));
            b->setAccessibleName(b->toolTip());
            b->setAccessibleDescription(entry.title());
        }
    }

private:
    HistoryEntry m_entry;
    bool m_set = false;
    QToolButton *m_buttons[Geometry::buttonCount] = {};
};

} // namespace

// The list itself: a plain QListView over the model whose rows are painted by HistoryDelegate.
class HistoryList : public QListView {
public:
    std::function<void(int row)> onRowClicked;
    std::function<void(int row, RowButton)> onButtonClicked;
    std::function<void(int row, const QPoint &globalPos)> onContextMenu;

    explicit HistoryList(QWidget *parent = nullptr) : QListView(parent) {
        setObjectName(QStringLiteral("historyList"));
        setAccessibleName(QStringLiteral("Download history"));
        setFrameShape(QFrame::NoFrame);
        setUniformItemSizes(true);
        setSelectionMode(QAbstractItemView::NoSelection);
        setEditTriggers(QAbstractItemView::NoEditTriggers);
        setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
        setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
        setMouseTracking(true);
        viewport()->setAttribute(Qt::WA_Hover);
        setViewportMargins(0, 12, 0, 12);
        setAutoFillBackground(true);
        QPalette p = palette();
        p.setColor(QPalette::Base, Brand::ink());
        p.setColor(QPalette::Window, Brand::ink());
        setPalette(p);
        m_actions = new RowActions(viewport());
        m_actions->hide();
    }

    RowActions *actions() const { return m_actions; }
    // The row the live buttons sit on, or -1; the delegate leaves its buttons out there.
    int actionsRow() const { return m_actionsRow; }

    void setModel(QAbstractItemModel *model) override {
        QListView::setModel(model);
        const auto later = [this] { scheduleActions(); };
        connect(model, &QAbstractItemModel::modelReset, this, later);
        connect(model, &QAbstractItemModel::rowsInserted, this, later);
        connect(model, &QAbstractItemModel::rowsRemoved, this, later);
        connect(model, &QAbstractItemModel::dataChanged, this, later);
    }

    void placeActions() {
        m_actionsPending = false;
        const int count = model() ? model()->rowCount() : 0;
        int row = m_hoverRow >= 0 && m_hoverRow < count ? m_hoverRow : currentIndex().row();
        QRect rect = row >= 0 && row < count ? visualRect(model()->index(row, 0)) : QRect();
        if (!rect.isValid() || !viewport()->rect().intersects(rect))
            row = -1;
        if (row != m_actionsRow) {
            if (m_actionsRow >= 0 && m_actionsRow < count)
                viewport()->update(visualRect(model()->index(m_actionsRow, 0)));
            if (row >= 0)
                viewport()->update(rect);
            m_actionsRow = row;
        }
        if (row < 0) {
            m_actions->hide();
            return;
        }
        const auto *history = static_cast<const HistoryModel *>(model());
        m_actions->setEntry(history->entryAt(row));
        m_actions->setGeometry(Geometry::buttons(rect));
        m_actions->show();
    }

protected:
    void scheduleActions() {
        if (m_actionsPending)
            return;
        m_actionsPending = true;
        QMetaObject::invokeMethod(this, [this] { placeActions(); }, Qt::QueuedConnection);
    }

    void updateGeometries() override {
        QListView::updateGeometries();
        scheduleActions();
    }
    void scrollContentsBy(int dx, int dy) override {
        QListView::scrollContentsBy(dx, dy);
        placeActions();
    }
    void resizeEvent(QResizeEvent *event) override {
        QListView::resizeEvent(event);
        scheduleActions();
    }
    void currentChanged(const QModelIndex &current, const QModelIndex &previous) override {
        QListView::currentChanged(current, previous);
        scheduleActions();
    }
    bool viewportEvent(QEvent *event) override {
        switch (event->type()) {
        case QEvent::MouseMove:
        case QEvent::HoverMove:
        case QEvent::HoverEnter: {
            const QPoint pos = event->type() == QEvent::MouseMove ? static_cast<QMouseEvent *>(event)->position().toPoint()
                                                                   : static_cast<QHoverEvent *>(event)->position().toPoint();
            const int row = indexAt(pos).row();
            if (row != m_hoverRow) {
                m_hoverRow = row;
                placeActions();
            }
            break;
        }
        case QEvent::HoverLeave:
        case QEvent::Leave:
            // Moving onto the live buttons does not leave the viewport; leaving the list does.
            if (!viewport()->rect().contains(viewport()->mapFromGlobal(QCursor::pos()))) {
                m_hoverRow = -1;
                placeActions();
            }
            break;
        default:
            break;
        }
        return QListView::viewportEvent(event);
    }
    void mousePressEvent(QMouseEvent *event) override {
        m_pressedRow = indexAt(event->position().toPoint()).row();
        QListView::mousePressEvent(event);
    }
    void mouseReleaseEvent(QMouseEvent *event) override {
        const QPoint pos = event->position().toPoint();
        const int row = indexAt(pos).row();
        const bool click = event->button() == Qt::LeftButton && row >= 0 && row == m_pressedRow;
        m_pressedRow = -1;
        QListView::mouseReleaseEvent(event);
        if (!click)
            return;
        const QRect rect = visualRect(model()->index(row, 0));
        for (int i = 0; i < Geometry::buttonCount; ++i)
            if (Geometry::button(rect, i).contains(pos)) {
                if (onButtonClicked)
                    onButtonClicked(row, RowButton(i));
                return;
            }
        if (onRowClicked)
            onRowClicked(row);
    }
    void keyPressEvent(QKeyEvent *event) override {
        const int row = currentIndex().row();
        if (row >= 0 && (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter || event->key() == Qt::Key_Space)) {
            if (onRowClicked)
                onRowClicked(row);
            return;
        }
        QListView::keyPressEvent(event);
    }
    void contextMenuEvent(QContextMenuEvent *event) override {
        int row = -1;
        QPoint global = event->globalPos();
        if (event->reason() == QContextMenuEvent::Mouse) {
            row = indexAt(event->pos()).row();
        } else if ((row = currentIndex().row()) >= 0) {
            const QRect rect = visualRect(currentIndex());
            global = viewport()->mapToGlobal(QPoint(Geometry::textLeft(rect), rect.bottom()));
        }
        if (row >= 0 && onContextMenu)
            onContextMenu(row, global);
    }

private:
    RowActions *m_actions;
    int m_actionsRow = -1;
    int m_hoverRow = -1;
    int m_pressedRow = -1;
    bool m_actionsPending = false;
};

// Paints one history row: leading symbol, title, source and category chips, relative date, the
// "Link copied" chip, and the three row buttons (except on the row that has the live ones).
class HistoryDelegate : public QStyledItemDelegate {
public:
    explicit HistoryDelegate(HistoryList *list) : QStyledItemDelegate(list), m_list(list) {
        const QFontMetrics title(titleFont());
        const int chipHeight = StatusChip::sizeFor(QStringLiteral("Ag"), QString()).height();
        m_titleHeight = title.height();
        m_rowHeight = 11 + m_titleHeight + 5 + chipHeight + 11;
    }

    // The chip of the copied row, and how far it has faded in.
    std::optional<QUuid> chipID;
    qreal chipOpacity = 1;

    QSize sizeHint(const QStyleOptionViewItem &, const QModelIndex &) const override { return QSize(400, m_rowHeight); }

    void paint(QPainter *p, const QStyleOptionViewItem &option, const QModelIndex &index) const override {
        const auto *model = static_cast<const HistoryModel *>(index.model());
        const HistoryEntry e = model->entryAt(index.row());
        const QRect row = option.rect;
        const QRect card = Geometry::card(row);
        const bool first = index.row() == 0;
        const bool last = index.row() == model->rowCount() - 1;
        p->save();
        p->setRenderHint(QPainter::Antialiasing);

        // The group's background: one rounded card over all rows, with hairlines between them.
        QPainterPath shape;
        const qreal r = Geometry::radius;
        const QRectF c(card);
        shape.moveTo(c.left(), c.top() + (first ? r : 0));
        if (first)
            shape.quadTo(c.left(), c.top(), c.left() + r, c.top());
        shape.lineTo(c.right() + 1 - (first ? r : 0), c.top());
        if (first)
            shape.quadTo(c.right() + 1, c.top(), c.right() + 1, c.top() + r);
        shape.lineTo(c.right() + 1, c.bottom() + 1 - (last ? r : 0));
        if (last)
            shape.quadTo(c.right() + 1, c.bottom() + 1, c.right() + 1 - r, c.bottom() + 1);
        shape.lineTo(c.left() + (last ? r : 0), c.bottom() + 1);
        if (last)
            shape.quadTo(c.left(), c.bottom() + 1, c.left(), c.bottom() + 1 - r);
        shape.closeSubpath();
        const bool hovered = option.state & QStyle::State_MouseOver;
        p->fillPath(shape, hovered ? Brand::hairline() : Brand::surface());
        if (!last) {
            p->setPen(QPen(Brand::hairline(), 1));
            p->drawLine(QPointF(Geometry::textLeft(row), c.bottom() + 0.5), QPointF(c.right() - Geometry::padX, c.bottom() + 0.5));
        }
        if ((option.state & QStyle::State_HasFocus) && m_list->hasFocus()) {
            QColor ring = Brand::ember();
            ring.setAlphaF(0.6f);
            p->setPen(QPen(ring, 1.5));
            p->drawRoundedRect(c.adjusted(1.5, 1.5, -1.5, -1.5), 6, 6);
        }

        // Leading symbol.
        const QString symbol = e.archived() ? QStringLiteral("archivebox.fill") : QStringLiteral("clock.arrow.circlepath");
        const QColor symbolTint = e.archived() ? Brand::ember() : Brand::stone();
        const int sx = card.left() + Geometry::padX + (Geometry::symbolColumn - Geometry::symbolSize) / 2;
        p->drawPixmap(sx, card.top() + (card.height() - Geometry::symbolSize) / 2,
                      glyph(symbol, symbolTint, Geometry::symbolSize));

        // Title.
        const int left = Geometry::textLeft(row);
        const int right = Geometry::buttons(row).left() - 12;
        const int width = std::max(0, right - left);
        const QFont title = titleFont();
        p->setFont(title);
        p->setPen(Brand::bone());
        const QRect titleRect(left, card.top() + 11, width, m_titleHeight);
        p->drawText(titleRect, Qt::AlignLeft | Qt::AlignVCenter | Qt::TextSingleLine,
                    QFontMetrics(title).elidedText(e.title(), Qt::ElideRight, width));

        // Source, category, date and the copied chip, cut off at the buttons.
        p->setClipRect(QRect(left, card.top(), width, card.height()));
        int x = left;
        const int y = titleRect.bottom() + 1 + 5;
        const auto chip = [&](const QString &text, const QString &sym, const QColor &tint) {
            const QSize size = StatusChip::sizeFor(text, sym);
            StatusChip::paint(*p, QRect(QPoint(x, y), size), text, sym, tint);
            x += size.width() + 6;
            return size.height();
        };
        const int chipHeight = chip(e.source(), QString(), Brand::ember());
        chip(e.category(), QString(), teal());
        const QFont caption = captionFont();
        const QString date = model->data(index, HistoryModel::RelativeDateRole).toString();
        p->setFont(caption);
        p->setPen(Brand::stone());
        const int dateWidth = QFontMetrics(caption).horizontalAdvance(date);
        p->drawText(QRect(x, y, dateWidth + 2, chipHeight), Qt::AlignLeft | Qt::AlignVCenter, date);
        x += dateWidth + 10;
        if (chipID && *chipID == e.id() && chipOpacity > 0) {
            p->setOpacity(chipOpacity);
            chip(copiedText, QStringLiteral("checkmark"), Brand::success());
            p->setOpacity(1);
        }
        p->setClipping(false);

        // Row buttons, unless the live ones lie over them.
        if (index.row() != m_list->actionsRow()) {
            for (int i = 0; i < Geometry::buttonCount; ++i) {
                const QRect b = Geometry::button(row, i);
                p->drawPixmap(b.left() + (b.width() - 18) / 2, b.top() + (b.height() - 18) / 2,
                              glyph(buttonSymbol(RowButton(i), e), Brand::stone(), 18));
            }
        }
        p->restore();
    }

    // Symbols are looked up in the icon theme and tinted: done once per symbol, not per row and frame.
    const QPixmap &glyph(const QString &symbol, const QColor &tint, int size) const {
        const QString key = symbol + u'|' + tint.name() + u'|' + QString::number(size);
        auto it = m_glyphs.constFind(key);
        if (it == m_glyphs.cend())
            it = m_glyphs.insert(key, Symbols::pixmap(symbol, tint, size));
        return *it;
    }

    static const QColor &teal() {
        static const QColor c(0x2F, 0xB8, 0xAC);
        return c;
    }

private:
    HistoryList *m_list;
    mutable QHash<QString, QPixmap> m_glyphs;
    int m_titleHeight = 18;
    int m_rowHeight = 60;
};

HistoryView::HistoryView(QWidget *parent) : HistoryView(HistoryStore::shared(), DownloadQueue::shared(), parent) {}

HistoryView::HistoryView(HistoryStore &store, DownloadQueue &queue, QWidget *parent)
    : QWidget(parent), m_store(store), m_queue(queue), m_model(new HistoryModel(store, this)),
      m_reveal([](const QUrl &file) { Desktop::reveal(file); }) {
    setObjectName(QStringLiteral("historyView"));
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(buildControls());
    layout->addWidget(ScreenParts::divider());

    m_list = new HistoryList;
    m_delegate = new HistoryDelegate(m_list);
    m_list->setItemDelegate(m_delegate);
    m_list->setModel(m_model);
    m_list->onRowClicked = [this](int row) { copy(m_model->entryAt(row)); };
    // The painted buttons and the live ones over them do the same.
    const auto onButton = [this](RowButton which, const HistoryEntry &entry) {
        switch (which) {
        case RowButton::downloadAgain:
            downloadAgain(entry);
            break;
        case RowButton::archive:
            toggleArchive(entry);
            break;
        case RowButton::remove:
            remove(entry);
            break;
        }
    };
    m_list->onButtonClicked = [this, onButton](int row, RowButton which) { onButton(which, m_model->entryAt(row)); };
    m_list->actions()->onClicked = onButton;
    m_list->onContextMenu = [this](int row, const QPoint &global) {
        QMenu *menu = buildContextMenu(m_model->entryAt(row), this);
        menu->setAttribute(Qt::WA_DeleteOnClose);
        menu->popup(global);
    };

    m_body = new QStackedWidget;
    m_body->addWidget(m_list);
    m_body->addWidget(buildEmptyState());
    m_body->addWidget(buildLoadingState());
    layout->addWidget(m_body, 1);

    m_chipFade = new QVariantAnimation(this);
    m_chipFade->setDuration(160);
    m_chipFade->setEasingCurve(QEasingCurve::OutCubic);
    connect(m_chipFade, &QVariantAnimation::valueChanged, this, [this](const QVariant &value) {
        m_delegate->chipOpacity = value.toReal();
        m_list->viewport()->update();
    });
    connect(m_chipFade, &QVariantAnimation::finished, this, [this] {
        if (m_delegate->chipOpacity <= 0)
            m_delegate->chipID.reset();
    });

    // Relative dates move on by themselves.
    auto *tick = new QTimer(this);
    tick->setInterval(30000);
    connect(tick, &QTimer::timeout, this, [this] {
        if (isVisible())
            m_list->viewport()->update();
    });
    tick->start();

    connect(m_model, &HistoryModel::countsChanged, this, &HistoryView::refreshCounts);
    connect(&m_store, &HistoryStore::loaded, this, &HistoryView::refreshCounts);
    refreshCounts();
}

HistoryView::~HistoryView() = default;

QListView *HistoryView::list() const { return m_list; }

bool HistoryView::isShowingEmptyState() const { return m_body->currentWidget() == m_emptyState; }

bool HistoryView::isShowingLoadingState() const { return m_body->currentWidget() == m_loadingState; }

const std::optional<QUuid> &HistoryView::copiedID() const { return m_model->copiedID(); }

QString HistoryView::countText(qsizetype shown, qsizetype total) {
    return QString::asprintf("%lld of %lld", static_cast<long long>(shown), static_cast<long long>(total));
}

QWidget *HistoryView::buildControls() {
    QHBoxLayout *row = ScreenParts::barRow(QStringLiteral("historyControls"), 12);
    m_search = ScreenParts::listField(QStringLiteral("magnifyingglass"), 12, 14, 30);
    m_search->setObjectName(QStringLiteral("historySearch"));
    m_search->setPlaceholderText(QStringLiteral("Search history\u2026"));
    m_search->setAccessibleName(QStringLiteral("Search history"));
    m_search->setMaximumWidth(420);
    connect(m_search, &QLineEdit::textChanged, m_model, &HistoryModel::setSearch);
    row->addWidget(m_search, 1);

    m_archived = new QCheckBox(QStringLiteral("Archived"));
    m_archived->setObjectName(QStringLiteral("archivedOnly"));
    m_archived->setIcon(Symbols::icon(QStringLiteral("archivebox"), Brand::bone(), 14));
    m_archived->setAccessibleName(QStringLiteral("Archived"));
    connect(m_archived, &QCheckBox::toggled, m_model, &HistoryModel::setArchivedOnly);
    row->addWidget(m_archived);
    row->addStretch(1);

    m_count = label(QString(), captionFont(), Brand::stone());
    m_count->setObjectName(QStringLiteral("historyCount"));
    row->addWidget(m_count);

    m_clear = new QPushButton(QStringLiteral("Clear\u2026"));
    m_clear->setObjectName(QStringLiteral("clearHistory"));
    m_clear->setAccessibleName(QStringLiteral("Clear\u2026"));
    m_clear->setCursor(Qt::PointingHandCursor);
    connect(m_clear, &QPushButton::clicked, this, [this] { confirmClear(); });
    row->addWidget(m_clear);
    return row->parentWidget();
}

QWidget *HistoryView::buildEmptyState() {
    QLabel *symbol =
        ScreenParts::picture(Symbols::pixmap(QStringLiteral("clock.arrow.circlepath"), Brand::stoneDark(), 40));
    m_emptyTitle = label(QString(), Brand::displayFont(15, QFont::Medium), Brand::stone());
    m_emptyTitle->setObjectName(QStringLiteral("emptyTitle"));
    m_emptyTitle->setAlignment(Qt::AlignCenter);
    auto *hint = label(QStringLiteral("Tap any entry to copy its link instantly."), captionFont(), Brand::stoneDark());
    hint->setObjectName(QStringLiteral("emptyHint"));
    hint->setAlignment(Qt::AlignCenter);
    m_emptyState = ScreenParts::centredPage(QStringLiteral("historyEmpty"), 10, {symbol, m_emptyTitle, hint});
    return m_emptyState;
}

QWidget *HistoryView::buildLoadingState() {
    auto *spinner = new Spinner(24, Brand::stone());
    auto *text = label(QStringLiteral("Loading history\u2026"), captionFont(), Brand::stone());
    text->setAlignment(Qt::AlignCenter);
    m_loadingState =
        ScreenParts::centredPage(QStringLiteral("historyLoading"), 10, {{spinner, Qt::AlignHCenter}, text});
    return m_loadingState;
}

void HistoryView::refreshCounts() {
    const bool loaded = m_store.isLoaded();
    for (QWidget *control : {static_cast<QWidget *>(m_search), static_cast<QWidget *>(m_archived)})
        control->setEnabled(loaded);
    if (!loaded) {
        m_count->clear();
        m_clear->setEnabled(false);
        m_body->setCurrentWidget(m_loadingState);
        return;
    }
    const int shown = m_model->rowCount();
    m_count->setText(countText(shown, m_model->totalCount()));
    m_clear->setEnabled(m_model->hasUnarchived());
    m_emptyTitle->setText(m_model->archivedOnly() ? QStringLiteral("Nothing archived yet")
                                                  : QStringLiteral("Your download history will appear here"));
    m_body->setCurrentWidget(shown == 0 ? m_emptyState : static_cast<QWidget *>(m_list));
    // Keep the search text ready for the next keystroke while the screen is up.
    if (isVisible())
        m_model->prepareSearch();
}

void HistoryView::showEvent(QShowEvent *event) {
    QWidget::showEvent(event);
    m_store.startLoading(); // when the window itself was never drawn (started hidden)
    m_model->prepareSearch();
    m_list->viewport()->update();
}

void HistoryView::changeEvent(QEvent *event) {
    QWidget::changeEvent(event);
    if (event->type() == QEvent::PaletteChange || event->type() == QEvent::FontChange)
        m_list->viewport()->update();
}

void HistoryView::copy(const HistoryEntry &entry) {
    QClipboard *clipboard = QApplication::clipboard();
    clipboard->clear();
    clipboard->setText(entry.url());
    const QUuid id = entry.id();
    m_model->setCopiedID(id);
    m_delegate->chipID = id;
    m_chipFade->stop();
    m_chipFade->setStartValue(0.0);
    m_chipFade->setEndValue(1.0);
    m_chipFade->start();
    // Each copy clears only its own chip: a later copy moves the chip and this one then does
    // nothing, and copying the same entry again does not extend the first copy's time.
    QTimer::singleShot(m_copiedChipMs, this, [this, id] {
        if (m_model->copiedID() != id)
            return;
        m_model->setCopiedID(std::nullopt);
        m_chipFade->stop();
        m_chipFade->setStartValue(m_delegate->chipOpacity);
        m_chipFade->setEndValue(0.0);
        m_chipFade->start();
    });
}

void HistoryView::downloadAgain(const HistoryEntry &entry) { m_queue.add(entry.url()); }

void HistoryView::toggleArchive(const HistoryEntry &entry) { m_store.toggleArchive(entry); }

void HistoryView::remove(const HistoryEntry &entry) { m_store.deleteEntry(entry); }

void HistoryView::revealFile(const HistoryEntry &entry) {
    if (entry.filePath() && m_reveal)
        m_reveal(QUrl::fromLocalFile(*entry.filePath()));
}

QMessageBox *HistoryView::confirmClear() {
    m_confirmClear = true;
    auto *box = new QMessageBox(this);
    box->setObjectName(QStringLiteral("confirmClear"));
    box->setWindowTitle(QStringLiteral("Clear download history?"));
    box->setText(QStringLiteral("Clear download history?"));
    box->setInformativeText(QStringLiteral("Archived links are always kept. Downloaded files are never touched."));
    box->setIconPixmap(Symbols::pixmap(QStringLiteral("clock.arrow.circlepath"), Brand::ember(), 36));
    QPushButton *clear = box->addButton(QStringLiteral("Clear (keeps archived links)"), QMessageBox::DestructiveRole);
    clear->setObjectName(QStringLiteral("confirmClearButton"));
    clear->setStyleSheet(QStringLiteral("color: #F24B4B;"));
    box->addButton(QMessageBox::Cancel);
    box->setDefaultButton(QMessageBox::Cancel);
    box->setEscapeButton(QMessageBox::Cancel);
    box->setWindowModality(Qt::WindowModal);
    box->setAttribute(Qt::WA_DeleteOnClose);
    connect(box, &QMessageBox::finished, this, [this, box, clear] {
        m_confirmClear = false;
        if (box->clickedButton() == clear)
            m_store.clearUnarchived();
    });
    box->open();
    return box;
}

QMenu *HistoryView::buildContextMenu(const HistoryEntry &entry, QWidget *parent) {
    auto *menu = new QMenu(parent);
    menu->addAction(Symbols::icon(QStringLiteral("doc.on.clipboard"), Brand::bone()), QStringLiteral("Copy Link"), this,
                    [this, entry] { copy(entry); });
    menu->addAction(Symbols::icon(QStringLiteral("arrow.down.circle"), Brand::bone()), QStringLiteral("Download Again"),
                    this, [this, entry] { downloadAgain(entry); });
    // Only for a file that is there now: a moved or deleted file has nothing to show.
    if (entry.filePath() && QFileInfo(*entry.filePath()).isFile())
        menu->addAction(Symbols::icon(QStringLiteral("folder"), Brand::bone()), QStringLiteral("Show in Folder"), this,
                        [this, entry] { revealFile(entry); });
    menu->addSeparator();
    menu->addAction(Symbols::icon(archiveSymbol(entry), Brand::bone()),
                    entry.archived() ? QStringLiteral("Unarchive") : QStringLiteral("Archive"), this,
                    [this, entry] { toggleArchive(entry); });
    menu->addAction(Symbols::icon(QStringLiteral("trash"), Brand::bone()), QStringLiteral("Delete from History"), this,
                    [this, entry] { remove(entry); });
    return menu;
}
