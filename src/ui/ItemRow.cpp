#include "ui/ItemRow.h"

#include "ui/Brand.h"
#include "ui/ElidedLabel.h"
#include "ui/EmberButtonStyle.h"
#include "ui/EmberProgressBar.h"
#include "ui/Spinner.h"
#include "ui/StatusChip.h"
#include "ui/Symbols.h"
#include "ui/ThumbnailLoader.h"

#include <QApplication>
#include <QClipboard>
#include <QContextMenuEvent>
#include <QDesktopServices>
#include <QHBoxLayout>
#include <QLabel>
#include <QMenu>
#include <QMimeData>
#include <QPainter>
#include <QPushButton>
#include <QToolButton>
#include <QVBoxLayout>

#include <algorithm>

namespace {
QPixmap placeholder(DownloadMode mode, QSize size) {
    QPixmap out = QPixmap::fromImage(ThumbnailLoader::fill(QImage(), size, 6));
    QPainter p(&out);
    const int glyph = 20;
    p.drawPixmap((size.width() - glyph) / 2, (size.height() - glyph) / 2,
                 Symbols::pixmap(DownloadModes::symbol(mode), Brand::stoneDark(), glyph));
    return out;
}

QLabel *secondary(const QString &text, const QColor &color, qreal points = 11.5) {
    auto *label = new QLabel(text);
    label->setFont(Brand::monoFont(points));
    // Inside the queue list the row inherits the viewport's Base background, and a label then
    // paints with Text instead of WindowText: tint both.
    QPalette p = label->palette();
    p.setColor(QPalette::WindowText, color);
    p.setColor(QPalette::Text, color);
    label->setPalette(p);
    return label;
}

quint64 refreshes = 0;

// A status text whose size never changes, so a new value repaints it without a relayout.
void fixWidth(QLabel *label, const QString &widest) {
    label->setFixedSize(label->fontMetrics().horizontalAdvance(widest) + 2, label->sizeHint().height());
}

void setTextIfChanged(QLabel *label, const QString &text) {
    const QString shown = label->fontMetrics().elidedText(text, Qt::ElideRight, label->width());
    if (label->text() != shown)
        label->setText(shown);
}

void clear(QHBoxLayout *layout) {
    while (QLayoutItem *entry = layout->takeAt(0)) {
        if (QWidget *w = entry->widget())
            delete w;
        delete entry;
    }
}
} // namespace

ItemRow::ItemRow(DownloadItemPtr item, QWidget *parent)
    : QWidget(parent), m_item(std::move(item)), m_shownKind(m_item->state().kind()) {
    setAttribute(Qt::WA_StyledBackground);
    auto *row = new QHBoxLayout(this);
    row->setContentsMargins(14, 10, 14, 10);
    row->setSpacing(12);

    m_thumbnail = new QLabel;
    m_thumbnail->setObjectName(QStringLiteral("thumbnail"));
    m_thumbnail->setFixedSize(thumbnailSize);
    row->addWidget(m_thumbnail, 0, Qt::AlignTop);

    auto *column = new QVBoxLayout;
    column->setSpacing(5);
    m_title = new ElidedLabel(nullptr, Qt::ElideRight);
    m_title->setObjectName(QStringLiteral("title"));
    m_title->setFont(Brand::displayFont(14, QFont::DemiBold));
    column->addWidget(m_title);
    m_chips = new QWidget;
    m_chipsLayout = new QHBoxLayout(m_chips);
    m_chipsLayout->setContentsMargins(0, 0, 0, 0);
    m_chipsLayout->setSpacing(5);
    m_chipsLayout->addStretch(1);
    column->addWidget(m_chips);
    m_status = new QWidget;
    m_status->setObjectName(QStringLiteral("status"));
    m_statusLayout = new QHBoxLayout(m_status);
    m_statusLayout->setContentsMargins(0, 0, 0, 0);
    m_statusLayout->setSpacing(8);
    column->addWidget(m_status);
    row->addLayout(column, 1);

    m_buttons = new QWidget;
    m_buttonsLayout = new QHBoxLayout(m_buttons);
    m_buttonsLayout->setContentsMargins(0, 0, 0, 0);
    m_buttonsLayout->setSpacing(4);
    row->addWidget(m_buttons, 0, Qt::AlignVCenter);

    m_refreshTimer.setSingleShot(true);
    connect(&m_refreshTimer, &QTimer::timeout, this, &ItemRow::refresh);
    m_itemConnection = connect(m_item.get(), &DownloadItem::changed, this, &ItemRow::itemChanged);
    refresh();
}

ItemRow::~ItemRow() = default;

quint64 ItemRow::refreshCount() { return refreshes; }

void ItemRow::itemChanged() {
    // A new state reshapes the row at once; the stream of progress, speed and ETA changes
    // within a state is gathered into one refresh per interval.
    if (m_item->state().kind() != m_shownKind) {
        refresh();
        return;
    }
    if (!m_refreshTimer.isActive())
        m_refreshTimer.start(int(std::max<qint64>(0, minRefreshMs - m_sinceRefresh.elapsed())));
}

void ItemRow::setItem(DownloadItemPtr item) {
    if (!item || item == m_item)
        return;
    disconnect(m_itemConnection);
    m_item = std::move(item);
    m_itemConnection = connect(m_item.get(), &DownloadItem::changed, this, &ItemRow::itemChanged);
    m_statusBuilt = false;
    m_thumbnailShown = QUrl();
    m_thumbnail->clear();
    refresh();
}

QString ItemRow::semitoneLabel(int semitones) {
    return (semitones > 0 ? QStringLiteral("+") : QString()) + QString::number(semitones) +
           QStringLiteral(" semitone") + (std::abs(semitones) == 1 ? QString() : QStringLiteral("s"));
}

QString ItemRow::clipText(const ClipRange &clip) {
    return (clip.start.isEmpty() ? QStringLiteral("start") : clip.start) + u'\u2013' +
           (clip.end.isEmpty() ? QStringLiteral("end") : clip.end);
}

void ItemRow::refresh() {
    m_refreshTimer.stop();
    m_sinceRefresh.start();
    ++refreshes;
    const QString title = m_item->title().isEmpty() ? m_item->url() : m_item->title();
    if (m_title->fullText() != title)
        m_title->setFullText(title);
    refreshThumbnail();
    rebuildChips();
    rebuildStatus();
}

void ItemRow::refreshThumbnail() {
    const QUrl url = m_item->thumbnailURL();
    if (m_thumbnail->pixmap().isNull() || url != m_thumbnailShown) {
        m_thumbnailShown = url;
        m_thumbnail->setPixmap(placeholder(m_item->mode(), thumbnailSize));
        // A failed or undecodable answer keeps the placeholder.
        ThumbnailLoader::shared().request(this, url, thumbnailSize, 6, [this](const QPixmap &picture) {
            if (!picture.isNull())
                m_thumbnail->setPixmap(picture);
        });
    }
}

void ItemRow::rebuildChips() {
    struct Chip {
        QString text, symbol;
        QColor tint;
        QString help;
    };
    QList<Chip> wanted;
    const DownloadItem &it = *m_item;
    wanted.append({DownloadModes::label(it.mode()), DownloadModes::symbol(it.mode()), Brand::stone(), {}});
    if (it.category())
        wanted.append({*it.category(), QString(), Brand::ember(), {}});
    if (it.clip() && it.clip()->isValid())
        wanted.append({clipText(*it.clip()), QStringLiteral("scissors"), Brand::stone(), {}});
    if (it.detectedBPM())
        wanted.append({QString::asprintf("%.0f BPM", *it.detectedBPM()), QStringLiteral("metronome"), Brand::stone(), {}});
    if (it.detectedKey())
        wanted.append({*it.detectedKey(), QStringLiteral("pianokeys"), Brand::stone(), {}});
    if (it.didSelfHeal())
        wanted.append({QStringLiteral("self-healed"), QStringLiteral("bandage"), Brand::ember(),
                       QStringLiteral("The engine auto-updated itself to complete this download")});
    // The chips are made once and re-labelled; a progress tick leaves them untouched.
    for (qsizetype i = 0; i < wanted.size(); ++i) {
        if (i == m_chipWidgets.size()) {
            auto *chip = new StatusChip;
            m_chipsLayout->insertWidget(int(i), chip);
            m_chipWidgets.append(chip);
        }
        StatusChip *chip = m_chipWidgets[i];
        chip->set(wanted[i].text, wanted[i].symbol, wanted[i].tint);
        if (chip->toolTip() != wanted[i].help)
            chip->setToolTip(wanted[i].help);
        if (chip->isHidden())
            chip->show();
    }
    for (qsizetype i = wanted.size(); i < m_chipWidgets.size(); ++i)
        if (!m_chipWidgets[i]->isHidden())
            m_chipWidgets[i]->hide();
}

void ItemRow::rebuildStatus() {
    const ItemState &state = m_item->state();
    const bool sameShape = m_statusBuilt && state.kind() == m_shownKind && state.kind() == ItemState::Kind::downloading;
    if (sameShape) {
        m_progress->setValue(m_item->progress());
        setTextIfChanged(m_percent, QString::number(int(m_item->progress() * 100)) + u'%');
        const bool hasSpeed = !m_item->speedText().isEmpty();
        if (m_speed->isHidden() == hasSpeed)
            m_speed->setVisible(hasSpeed);
        setTextIfChanged(m_speed, m_item->speedText() + QStringLiteral(" · ETA ") + m_item->etaText());
        return;
    }
    m_statusBuilt = true;
    m_shownKind = state.kind();
    clear(m_statusLayout);
    m_progress = nullptr;
    m_percent = m_speed = nullptr;
    auto chip = [this](const QString &text, const QString &symbol, const QColor &tint) {
        m_statusLayout->addWidget(new StatusChip(text, symbol, tint));
    };
    auto spinner = [this](const QString &text) {
        auto *busy = new Spinner;
        busy->setObjectName(QStringLiteral("spinner"));
        m_statusLayout->addWidget(busy);
        QLabel *label = secondary(text, Brand::stone());
        label->setObjectName(QStringLiteral("statusText"));
        m_statusLayout->addWidget(label);
    };
    switch (state.kind()) {
    case ItemState::Kind::queued:
        chip(QStringLiteral("Queued"), QStringLiteral("clock"), Brand::stone());
        break;
    case ItemState::Kind::probing:
        spinner(QStringLiteral("Fetching info…"));
        break;
    case ItemState::Kind::downloading: {
        m_progress = new EmberProgressBar;
        m_progress->setMaximumWidth(progressMaxWidth);
        m_progress->resetValue(m_item->progress());
        m_statusLayout->addWidget(m_progress, 1);
        m_progress->setMinimumWidth(120);
        m_percent = secondary(QString::number(int(m_item->progress() * 100)) + u'%', Brand::ember());
        m_percent->setObjectName(QStringLiteral("percent"));
        fixWidth(m_percent, QStringLiteral("100%"));
        m_statusLayout->addWidget(m_percent);
        m_speed = secondary(m_item->speedText() + QStringLiteral(" · ETA ") + m_item->etaText(), Brand::stone());
        m_speed->setObjectName(QStringLiteral("speed"));
        fixWidth(m_speed, QStringLiteral("1023.99KiB/s · ETA 00:00:00"));
        setTextIfChanged(m_speed, m_speed->text());
        m_speed->setVisible(!m_item->speedText().isEmpty());
        m_statusLayout->addWidget(m_speed);
        break;
    }
    case ItemState::Kind::processing:
        spinner(state.text());
        break;
    case ItemState::Kind::done:
        chip(QStringLiteral("Done"), QStringLiteral("checkmark.circle.fill"), Brand::success());
        if (!m_item->transcriptURL().isEmpty())
            chip(QStringLiteral("Transcript"), QStringLiteral("text.quote"), Brand::stone());
        if (!m_item->summaryURL().isEmpty())
            chip(QStringLiteral("Summary"), QStringLiteral("list.bullet.rectangle"), Brand::stone());
        break;
    case ItemState::Kind::failed: {
        chip(QStringLiteral("Failed"), QStringLiteral("exclamationmark.triangle.fill"), Brand::danger());
        auto *message = secondary(state.text(), Brand::danger(), 11);
        message->setObjectName(QStringLiteral("failure"));
        message->setFont(Brand::systemFont(11));
        message->setWordWrap(true);
        message->setMaximumHeight(message->fontMetrics().lineSpacing() * 2 + 2); // at most two lines
        m_statusLayout->addWidget(message, 1);
        break;
    }
    case ItemState::Kind::cancelled:
        chip(QStringLiteral("Cancelled"), QStringLiteral("xmark.circle"), Brand::stone());
        break;
    }
    if (state.kind() != ItemState::Kind::failed)
        m_statusLayout->addStretch(state.kind() == ItemState::Kind::downloading ? 0 : 1);
    rebuildButtons();
}

QWidget *ItemRow::iconButton(const QString &symbol, const QString &help, const QColor &tint) {
    auto *button = new QToolButton;
    button->setIcon(Symbols::icon(symbol, tint, 18));
    button->setIconSize(QSize(18, 18));
    button->setToolTip(help);
    button->setAccessibleName(help);
    button->setAutoRaise(true);
    button->setCursor(Qt::PointingHandCursor);
    m_buttonsLayout->addWidget(button);
    return button;
}

void ItemRow::rebuildButtons() {
    clear(m_buttonsLayout);
    const ItemState &state = m_item->state();
    if (state.isActive()) {
        auto *cancel = static_cast<QToolButton *>(iconButton(QStringLiteral("xmark.circle.fill"), QStringLiteral("Cancel"), Brand::stone()));
        connect(cancel, &QToolButton::clicked, this, [this] { Q_EMIT cancelRequested(m_item); });
    } else if (state.is(ItemState::Kind::failed)) {
        auto *retry = new QPushButton(QStringLiteral("Retry"));
        EmberButtonStyle::apply(retry, true);
        connect(retry, &QPushButton::clicked, this, [this] { Q_EMIT retryRequested(m_item); });
        m_buttonsLayout->addWidget(retry);
    } else if (state.is(ItemState::Kind::done) && !m_item->finalFileURL().isEmpty()) {
        if (m_item->mode() != DownloadMode::audioOnly) {
            auto *moments = static_cast<QToolButton *>(iconButton(
                QStringLiteral("sparkles"), QStringLiteral("Smart Moments: unique clips & screenshots, you approve first"),
                Brand::ember()));
            connect(moments, &QToolButton::clicked, this, [this] { Q_EMIT momentsRequested(m_item); });
        }
        auto *reveal = static_cast<QToolButton *>(
            iconButton(QStringLiteral("magnifyingglass.circle"), QStringLiteral("Show in Folder"), Brand::stone()));
        connect(reveal, &QToolButton::clicked, this, [this] { Q_EMIT revealRequested(m_item->finalFileURL()); });
    } else if (state.is(ItemState::Kind::cancelled)) {
        auto *remove = static_cast<QToolButton *>(iconButton(QStringLiteral("trash"), QStringLiteral("Remove"), Brand::stone()));
        connect(remove, &QToolButton::clicked, this, [this] { Q_EMIT removeRequested(m_item); });
    }
}

QMenu *ItemRow::buildContextMenu(QWidget *parent) {
    auto *menu = new QMenu(parent);
    const DownloadItemPtr item = m_item;
    if (!item->finalFileURL().isEmpty()) {
        const QUrl file = item->finalFileURL();
        menu->addAction(QStringLiteral("Show in Folder"), this, [this, file] { Q_EMIT revealRequested(file); });
        menu->addAction(QStringLiteral("Open"), this, [file] { QDesktopServices::openUrl(file); });
        menu->addSeparator();
        if (item->mode() != DownloadMode::audioOnly)
            menu->addAction(QStringLiteral("Smart Moments…"), this, [this, item] { Q_EMIT momentsRequested(item); });
        QMenu *practice = menu->addMenu(QStringLiteral("Practice Versions"));
        practice->addAction(QStringLiteral("Detect BPM && Key"), this, [this, item] { Q_EMIT detectTempoRequested(item); });
        practice->addSeparator();
        for (double rate : {0.5, 0.75, 0.9})
            practice->addAction(QString::number(int(rate * 100)) + QStringLiteral("% speed"), this,
                                [this, item, rate] { Q_EMIT practiceRequested(item, rate); });
        practice->addSeparator();
        for (int semitones : {-2, -1, 1, 2})
            practice->addAction(semitoneLabel(semitones), this,
                                [this, item, semitones] { Q_EMIT pitchRequested(item, semitones); });
        if (!item->transcriptURL().isEmpty()) {
            const QUrl transcript = item->transcriptURL();
            menu->addAction(QStringLiteral("Open Transcript"), this, [transcript] { QDesktopServices::openUrl(transcript); });
            if (!item->summaryURL().isEmpty()) {
                const QUrl summary = item->summaryURL();
                menu->addAction(QStringLiteral("Open Summary"), this, [summary] { QDesktopServices::openUrl(summary); });
            }
        } else {
            menu->addAction(QStringLiteral("Transcribe + Summarize"), this, [this, item] { Q_EMIT transcribeRequested(item); });
        }
        menu->addSeparator();
    }
    menu->addAction(QStringLiteral("Copy Link"), this, [item] {
        QClipboard *clipboard = QApplication::clipboard();
        clipboard->clear();
        clipboard->setText(item->url());
    });
    menu->addAction(QStringLiteral("Remove from List"), this, [this, item] { Q_EMIT removeRequested(item); });
    return menu;
}

void ItemRow::contextMenuEvent(QContextMenuEvent *event) {
    QMenu *menu = buildContextMenu(this);
    menu->setAttribute(Qt::WA_DeleteOnClose);
    menu->popup(event->globalPos());
}
