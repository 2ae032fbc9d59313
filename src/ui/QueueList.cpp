#include "ui/QueueList.h"

#include "queue/DownloadQueue.h"
#include "ui/Brand.h"
#include "ui/Desktop.h"
#include "ui/ItemRow.h"

#include <QEvent>
#include <QPainter>
#include <QScrollBar>

QueueList::QueueList(DownloadQueue &queue, QWidget *parent) : QAbstractScrollArea(parent), m_queue(queue) {
    setObjectName(QStringLiteral("queueList"));
    setFrameShape(QFrame::NoFrame);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    verticalScrollBar()->setSingleStep(rowHeight / 3);
    QPalette p = viewport()->palette();
    p.setColor(QPalette::Window, Brand::ink());
    viewport()->setPalette(p);
    viewport()->setAutoFillBackground(true);
    connect(&m_queue, &DownloadQueue::itemsChanged, this, &QueueList::reload);
    m_items = m_queue.items();
    layoutRows();
}

QueueList::~QueueList() = default;

void QueueList::reload() {
    m_items = m_queue.items();
    // A pasted list adds hundreds of items in one go: lay the rows out once, after the burst.
    if (m_layoutPending)
        return;
    m_layoutPending = true;
    QMetaObject::invokeMethod(this, [this] { layoutRows(); }, Qt::QueuedConnection);
}

ItemRow *QueueList::rowFor(const DownloadItemPtr &item) const {
    for (ItemRow *row : m_rows)
        if (row->isVisible() && row->item() == item)
            return row;
    return nullptr;
}

ItemRow *QueueList::makeRow(const DownloadItemPtr &item) {
    auto *row = new ItemRow(item, viewport());
    // Every signal carries its item, so a recycled row needs no re-wiring.
    connect(row, &ItemRow::cancelRequested, &m_queue, &DownloadQueue::cancel);
    connect(row, &ItemRow::retryRequested, &m_queue, &DownloadQueue::retry);
    connect(row, &ItemRow::removeRequested, &m_queue, &DownloadQueue::remove);
    connect(row, &ItemRow::momentsRequested, &m_queue, &DownloadQueue::setMomentsRequest);
    connect(row, &ItemRow::practiceRequested, &m_queue, &DownloadQueue::renderPractice);
    connect(row, &ItemRow::pitchRequested, &m_queue, &DownloadQueue::renderPitch);
    connect(row, &ItemRow::transcribeRequested, &m_queue, &DownloadQueue::transcribe);
    connect(row, &ItemRow::detectTempoRequested, &m_queue, &DownloadQueue::detectTempoAndKey);
    connect(row, &ItemRow::revealRequested, this, [](const QUrl &file) { Desktop::reveal(file); });
    m_rows.append(row);
    return row;
}

void QueueList::layoutRows() {
    m_layoutPending = false;
    const int height = viewport()->height();
    const int total = int(m_items.size()) * rowHeight;
    QScrollBar *bar = verticalScrollBar();
    bar->setPageStep(height);
    bar->setRange(0, std::max(0, total - height));
    const int offset = bar->value();
    const int first = offset / rowHeight;
    const int needed = std::min(int(m_items.size()) - first, height / rowHeight + 2);
    for (int i = 0; i < std::max(needed, 0); ++i) {
        const DownloadItemPtr &item = m_items[first + i];
        ItemRow *row = i < m_rows.size() ? m_rows[i] : makeRow(item);
        row->setItem(item);
        // One hairline of the background shows between rows as a divider.
        row->setGeometry(0, (first + i) * rowHeight - offset, viewport()->width(), rowHeight - 1);
        row->show();
    }
    for (int i = std::max(needed, 0); i < m_rows.size(); ++i)
        m_rows[i]->hide();
}

void QueueList::resizeEvent(QResizeEvent *event) {
    QAbstractScrollArea::resizeEvent(event);
    layoutRows();
}

void QueueList::scrollContentsBy(int, int) { layoutRows(); }

void QueueList::paintEvent(QPaintEvent *) {
    QPainter p(viewport());
    p.fillRect(viewport()->rect(), Brand::ink());
    p.setPen(Brand::hairline());
    const int offset = verticalScrollBar()->value();
    for (int y = rowHeight - 1 - offset % rowHeight; y < viewport()->height(); y += rowHeight)
        p.drawLine(0, y, viewport()->width(), y);
}

bool QueueList::viewportEvent(QEvent *event) {
    // Rows are children of the viewport; its layout requests are ours to answer.
    if (event->type() == QEvent::LayoutRequest)
        layoutRows();
    return QAbstractScrollArea::viewportEvent(event);
}
