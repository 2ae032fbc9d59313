#include "ui/ContentView.h"

#include "app/SystemClipboard.h"
#include "core/AppSettings.h"
#include "core/TextTrim.h"
#include "engine/SelfHealer.h"
#include "queue/BatchText.h"
#include "queue/ClipboardWatcher.h"
#include "queue/DownloadQueue.h"
#include "queue/HistoryStore.h"
#include "ui/BatchSheet.h"
#include "ui/BreathingDot.h"
#include "ui/Brand.h"
#include "ui/Desktop.h"
#include "ui/ElidedLabel.h"
#include "ui/MomentsView.h"
#include "ui/EmberButtonStyle.h"
#include "ui/FindView.h"
#include "ui/HistoryView.h"
#include "ui/ImagesView.h"
#include "ui/OptionsSheet.h"
#include "ui/PinchMark.h"
#include "ui/QueueList.h"
#include "ui/SearchView.h"
#include "ui/ScreenParts.h"
#include "ui/SheetParts.h"
#include "ui/Symbols.h"

#include <QActionGroup>
#include <QCheckBox>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMimeData>
#include <QPainter>
#include <QPushButton>
#include <QSet>
#include <QShortcut>
#include <QStackedWidget>
#include <QToolButton>
#include <QVBoxLayout>

namespace {

using ScreenParts::label;

QWidget *filled(QWidget *widget, const QColor &color) {
    widget->setAutoFillBackground(true);
    QPalette p = widget->palette();
    p.setColor(QPalette::Window, color);
    widget->setPalette(p);
    return widget;
}

QToolButton *symbolButton(const QString &symbol, const QString &help) {
    auto *button = new QToolButton;
    button->setIcon(Symbols::icon(symbol, Brand::bone(), 18));
    button->setIconSize(QSize(18, 18));
    button->setToolTip(help);
    button->setAccessibleName(help);
    button->setCursor(Qt::PointingHandCursor);
    button->setMinimumSize(34, 34);
    return button;
}

constexpr QSize modeIconSize{24, 18};

const QString tabStyle = QStringLiteral(
    "QPushButton { border: none; border-bottom: 2px solid transparent; padding: 7px 12px; color: #8A8178; }"
    "QPushButton:hover { color: #FAF8F5; }"
    "QPushButton:checked { color: #FAF8F5; border-bottom: 2px solid #FF4A1F; }");

} // namespace

ContentView::ContentView(QWidget *parent)
    : ContentView(DownloadQueue::shared(), AppSettings::shared(), SelfHealer::shared(), ClipboardWatcher::shared(),
                  SystemClipboard::shared(), parent) {}

ContentView::ContentView(DownloadQueue &queue, AppSettings &settings, SelfHealer &healer, ClipboardWatcher &watcher,
                         ClipboardSource &clipboard, QWidget *parent)
    : QWidget(parent), m_queue(queue), m_settings(settings), m_healer(healer), m_watcher(watcher),
      m_clipboard(clipboard) {
    setObjectName(QStringLiteral("contentView"));
    setMinimumSize(minimumWindowSize);
    setAcceptDrops(true);
    filled(this, Brand::ink());

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(buildHeader());
    layout->addWidget(buildTabBar());

    m_pages = new QStackedWidget;
    m_queuePage = new QStackedWidget;
    m_queuePage->addWidget(buildEmptyState());
    m_queueList = new QueueList(m_queue);
    m_queuePage->addWidget(m_queueList);
    m_pages->addWidget(m_queuePage);
    // Pages follow the order of allTabs.
    m_pages->addWidget(new SearchView(m_queue));
    m_pages->addWidget(new ImagesView(m_queue, m_queue.history(), m_settings));
    m_pages->addWidget(new FindView(m_settings, m_queue));
    m_pages->addWidget(new HistoryView(m_queue.history(), m_queue));
    layout->addWidget(m_pages, 1);
    layout->addWidget(buildStatusBar());

    connect(&m_queue, &DownloadQueue::itemsChanged, this, [this] {
        // Coalesced: a pasted list changes the queue hundreds of times in one go.
        if (m_queueChangePending)
            return;
        m_queueChangePending = true;
        QMetaObject::invokeMethod(this, &ContentView::queueChanged, Qt::QueuedConnection);
    });
    connect(&m_queue, &DownloadQueue::lastMessageChanged, this, &ContentView::refreshLastMessage);
    connect(&m_queue, &DownloadQueue::momentsRequestChanged, this, &ContentView::showMomentsRequest);
    connect(&m_settings, &AppSettings::changed, this, &ContentView::settingsChanged);
    connect(&m_healer, &SelfHealer::engineVersionChanged, this, &ContentView::refreshEngine);
    connect(&m_healer, &SelfHealer::isUpdatingChanged, this, &ContentView::refreshEngine);

    auto *batchShortcut = new QShortcut(QKeySequence(Qt::CTRL | Qt::Key_B), this);
    connect(batchShortcut, &QShortcut::activated, this, &ContentView::showBatch);

    setTab(Tab::queue);
    queueChanged();
    refreshEngine();
    refreshLastMessage();
    refreshModeMenu();
    refreshLinkBar();
    m_linkBar->setFocus();
}

ContentView::~ContentView() = default;

QString ContentView::tabLabel(Tab tab) {
    switch (tab) {
    case Tab::queue:
        return QStringLiteral("Queue");
    case Tab::search:
        return QStringLiteral("Search");
    case Tab::images:
        return QStringLiteral("Images");
    case Tab::find:
        return QStringLiteral("Find");
    case Tab::history:
        return QStringLiteral("History");
    }
    return {};
}

QWidget *ContentView::buildHeader() {
    auto *header = filled(new QWidget, Brand::surface());
    header->setObjectName(QStringLiteral("header"));
    auto *column = new QVBoxLayout(header);
    column->setContentsMargins(20, 14, 20, 12);
    column->setSpacing(8);

    auto *titleRow = new QHBoxLayout;
    titleRow->setSpacing(8);
    titleRow->addWidget(new PinchMark(22, Brand::bone(), true));
    titleRow->addWidget(label(QStringLiteral("Vorlix"), Brand::displayFont(20, QFont::Bold), Brand::bone()));
    titleRow->addStretch(1);
    column->addLayout(titleRow);

    auto *barRow = new QHBoxLayout;
    barRow->setSpacing(8);
    m_linkBar = new QLineEdit;
    m_linkBar->setObjectName(QStringLiteral("linkBar"));
    m_linkBar->setPlaceholderText(QStringLiteral("https://"));
    m_linkBar->setFont(Brand::monoFont(13));
    m_linkBar->setMinimumHeight(34);
    m_linkBar->setClearButtonEnabled(true);
    // The field shows only "https://": name it, and its clear button, for screen readers.
    m_linkBar->setAccessibleName(QStringLiteral("Link"));
    ScreenParts::nameFieldButtons(m_linkBar, QString());
    // Drops belong to the whole window, which queues them at once.
    m_linkBar->setAcceptDrops(false);
    connect(m_linkBar, &QLineEdit::returnPressed, this, &ContentView::addFromField);
    connect(m_linkBar, &QLineEdit::textChanged, this, &ContentView::refreshLinkBar);
    barRow->addWidget(m_linkBar, 1);

    // A push button pads its icon and gives its menu arrow room of its own.
    m_modeMenu = new QPushButton;
    m_modeMenu->setObjectName(QStringLiteral("modeMenu"));
    m_modeMenu->setMinimumHeight(34);
    m_modeMenu->setIconSize(modeIconSize);
    auto *modes = new QMenu(m_modeMenu);
    auto *group = new QActionGroup(modes);
    for (DownloadMode mode : DownloadModes::all) {
        QAction *action = modes->addAction(Symbols::icon(DownloadModes::symbol(mode), Brand::bone()),
                                           DownloadModes::label(mode));
        action->setCheckable(true);
        action->setData(DownloadModes::rawValue(mode));
        group->addAction(action);
        connect(action, &QAction::triggered, this,
                [this, mode] { m_settings.setDefaultModeRaw(DownloadModes::rawValue(mode)); });
    }
    m_modeMenu->setMenu(modes);
    barRow->addWidget(m_modeMenu);

    m_download = new QPushButton(Symbols::icon(QStringLiteral("arrow.down.to.line"), Brand::bone()),
                                 QStringLiteral("Download"));
    m_download->setObjectName(QStringLiteral("download"));
    EmberButtonStyle::apply(m_download);
    // Room for the icon beside the label, whatever the size hint made of them.
    m_download->setMinimumWidth(QFontMetrics(m_download->font()).horizontalAdvance(m_download->text()) + 68);
    connect(m_download, &QPushButton::clicked, this, &ContentView::addFromField);
    barRow->addWidget(m_download);

    QToolButton *batch = symbolButton(QStringLiteral("square.stack.3d.down.right"),
                                      QStringLiteral("Batch: paste a whole list of links (Ctrl+B)"));
    batch->setObjectName(QStringLiteral("batch"));
    connect(batch, &QToolButton::clicked, this, &ContentView::showBatch);
    barRow->addWidget(batch);
    QToolButton *options = symbolButton(QStringLiteral("slider.horizontal.3"),
                                        QStringLiteral("Options: clip a section, Smart Moments, mode override"));
    options->setObjectName(QStringLiteral("options"));
    connect(options, &QToolButton::clicked, this, &ContentView::showOptions);
    barRow->addWidget(options);
    column->addLayout(barRow);

    column->addWidget(label(QStringLiteral("paste link or drop a file anywhere"), Brand::monoFont(10), Brand::stoneDark()));
    return header;
}

QWidget *ContentView::buildTabBar() {
    auto *bar = filled(new QWidget, Brand::surface());
    bar->setObjectName(QStringLiteral("tabBar"));
    bar->setStyleSheet(tabStyle);
    auto *row = new QHBoxLayout(bar);
    row->setContentsMargins(12, 0, 12, 0);
    row->setSpacing(2);
    for (Tab tab : allTabs) {
        auto *button = new QPushButton(tabLabel(tab));
        button->setObjectName(QStringLiteral("tab"));
        button->setCheckable(true);
        button->setAutoExclusive(true);
        button->setFont(Brand::monoFont(11, QFont::Medium));
        button->setCursor(Qt::PointingHandCursor);
        connect(button, &QPushButton::clicked, this, [this, tab] { setTab(tab); });
        row->addWidget(button);
        m_tabButtons[size_t(tab)] = button;
        if (tab == Tab::queue) {
            m_queueCount = label(QString(), Brand::monoFont(10, QFont::Bold), Brand::bone());
            m_queueCount->setObjectName(QStringLiteral("queueCount"));
            m_queueCount->setAlignment(Qt::AlignCenter);
            m_queueCount->setMinimumWidth(20);
            m_queueCount->setFixedHeight(17);
            m_queueCount->setStyleSheet(QStringLiteral("background: #FF4A1F; border-radius: 8px; padding: 1px 6px;"));
            row->addWidget(m_queueCount, 0, Qt::AlignVCenter);
        }
    }
    row->addStretch(1);
    return bar;
}

QWidget *ContentView::buildEmptyState() {
    auto *mark = new PinchMark(64, Brand::stoneDark(), true);
    auto *headline = label(QStringLiteral("Paste a link. Or just copy one, anywhere."), Brand::displayFont(22, QFont::Bold),
                           Brand::bone());
    headline->setAlignment(Qt::AlignCenter);
    auto *modes = label(QStringLiteral("BEST VIDEO · SILENT VIDEO · TAGGED AUDIO — YOUR CALL, EVERY TIME"),
                        Brand::monoFont(10, QFont::Medium), Brand::stone());
    modes->setAlignment(Qt::AlignCenter);

    m_smartIndicator = new QWidget;
    m_smartIndicator->setObjectName(QStringLiteral("smartIndicator"));
    auto *indicator = new QHBoxLayout(m_smartIndicator);
    indicator->setContentsMargins(0, 10, 0, 0);
    indicator->setSpacing(8);
    indicator->addStretch(1);
    auto *dot = new BreathingDot(Brand::ember());
    dot->setObjectName(QStringLiteral("smartDot"));
    indicator->addWidget(dot);
    indicator->addWidget(label(QStringLiteral("SMART MODE IS WATCHING YOUR CLIPBOARD"), Brand::monoFont(10, QFont::Medium),
                               Brand::ember()));
    indicator->addStretch(1);
    m_emptyState = ScreenParts::centredPage(QStringLiteral("emptyState"), 12,
                                            {{mark, Qt::AlignHCenter}, headline, modes, m_smartIndicator});
    return m_emptyState;
}

QWidget *ContentView::buildStatusBar() {
    auto *bar = filled(new QWidget, Brand::surface());
    bar->setObjectName(QStringLiteral("statusBar"));
    auto *row = new QHBoxLayout(bar);
    row->setContentsMargins(16, 6, 12, 6);
    row->setSpacing(14);

    m_smartMode = new QCheckBox(QStringLiteral("SMART MODE"));
    m_smartMode->setObjectName(QStringLiteral("smartMode"));
    m_smartMode->setFont(Brand::monoFont(10, QFont::Medium));
    connect(m_smartMode, &QCheckBox::toggled, this, [this](bool on) {
        if (on != m_settings.smartMode())
            m_settings.setSmartMode(on);
    });
    row->addWidget(m_smartMode);

    m_engine = label(QString(), Brand::monoFont(10), Brand::stone());
    m_engine->setObjectName(QStringLiteral("engine"));
    m_engine->setToolTip(QStringLiteral(
        "Self-healing: the downloader core updates itself daily and retries failed downloads after updating"));
    row->addWidget(m_engine);

    m_lastMessage = ScreenParts::elidedLabel(QString(), Brand::monoFont(10), Brand::bone());
    m_lastMessage->setObjectName(QStringLiteral("lastMessage"));
    row->addWidget(m_lastMessage, 1);

    m_clearFinished = new QPushButton(QStringLiteral("Clear Finished"));
    m_clearFinished->setObjectName(QStringLiteral("clearFinished"));
    m_clearFinished->setFlat(true);
    m_clearFinished->setFont(Brand::monoFont(10));
    connect(m_clearFinished, &QPushButton::clicked, &m_queue, &DownloadQueue::clearFinished);
    row->addWidget(m_clearFinished);

    auto *folder = new QPushButton(Symbols::icon(QStringLiteral("folder"), Brand::bone()), QStringLiteral("OPEN FOLDER"));
    folder->setObjectName(QStringLiteral("openFolder"));
    folder->setFlat(true);
    folder->setFont(Brand::monoFont(10, QFont::Medium));
    connect(folder, &QPushButton::clicked, this, [this] { Desktop::openFolder(m_settings.downloadFolder()); });
    row->addWidget(folder);

    m_smartMode->setChecked(m_settings.smartMode());
    m_smartIndicator->setVisible(m_settings.smartMode());
    return bar;
}

void ContentView::setTab(Tab tab) {
    m_tab = tab;
    m_tabButtons[size_t(tab)]->setChecked(true);
    m_pages->setCurrentIndex(int(tab));
}

int ContentView::activeCount() const {
    int n = 0;
    for (const DownloadItemPtr &item : m_queue.items())
        n += item->state().isActive() && !item->state().is(ItemState::Kind::queued);
    return n;
}

int ContentView::queuedCount() const {
    int n = 0;
    for (const DownloadItemPtr &item : m_queue.items())
        n += item->state().is(ItemState::Kind::queued);
    return n;
}

void ContentView::queueChanged() {
    m_queueChangePending = false;
    const QList<DownloadItemPtr> &items = m_queue.items();
    m_queuePage->setCurrentWidget(items.isEmpty() ? m_emptyState : static_cast<QWidget *>(m_queueList));
    // Items change state without the list changing: watch each one for the counts.
    // An item that left the list keeps its connection until it is destroyed; recounting
    // for it is harmless.
    QSet<QUuid> listed;
    for (const DownloadItemPtr &item : items) {
        listed.insert(item->id());
        if (!m_watched.contains(item->id()))
            connect(item.get(), &DownloadItem::changed, this, &ContentView::refreshCounts);
    }
    m_watched = std::move(listed);
    refreshCounts();
}

void ContentView::refreshCounts() {
    const QList<DownloadItemPtr> &items = m_queue.items();
    const int waiting = activeCount() + queuedCount();
    m_queueCount->setText(QString::number(waiting));
    m_queueCount->setVisible(waiting >= 1);
    bool anyFinished = false;
    for (const DownloadItemPtr &item : items)
        anyFinished = anyFinished || item->state().isTerminal();
    m_clearFinished->setEnabled(anyFinished);
}

void ContentView::settingsChanged(const QString &key) {
    if (key == QLatin1String("smartMode")) {
        const bool on = m_settings.smartMode();
        m_smartMode->setChecked(on);
        m_smartIndicator->setVisible(on);
        if (!on)
            m_watcher.stop();
        else if (!m_watcher.isRunning())
            m_watcher.start();
    } else if (key == QLatin1String("defaultMode")) {
        refreshModeMenu();
    }
}

void ContentView::refreshEngine() {
    m_engine->setText(QStringLiteral("ENGINE ") + m_healer.engineVersion().toUpper() +
                      (m_healer.isUpdating() ? QStringLiteral(" — UPDATING…") : QString()));
}

void ContentView::refreshLastMessage() { m_lastMessage->setFullText(m_queue.lastMessage().value_or(QString())); }

void ContentView::refreshModeMenu() {
    const DownloadMode mode = DownloadModes::fromRawOrDefault(m_settings.defaultModeRaw());
    m_modeMenu->setText(DownloadModes::label(mode));
    // A button with a menu draws its icon against the left edge: the icon brings its own margin.
    QPixmap padded(modeIconSize * m_modeMenu->devicePixelRatioF());
    padded.setDevicePixelRatio(m_modeMenu->devicePixelRatioF());
    padded.fill(Qt::transparent);
    {
        QPainter p(&padded);
        p.drawPixmap(modeIconSize.width() - 16, 1, Symbols::pixmap(DownloadModes::symbol(mode), Brand::bone(), 16));
    }
    m_modeMenu->setIcon(QIcon(padded));
    for (QAction *action : m_modeMenu->menu()->actions())
        action->setChecked(action->data().toString() == DownloadModes::rawValue(mode));
}

void ContentView::refreshLinkBar() { m_download->setEnabled(!trimSpacesAndTabs(m_linkBar->text()).isEmpty()); }

void ContentView::addFromField() {
    const QStringList links = BatchView::extractURLs(m_linkBar->text());
    if (links.isEmpty())
        return;
    for (const QString &link : links)
        m_queue.add(link);
    if (links.size() >= 2)
        m_queue.setLastMessage(QStringLiteral("Queued ") + QString::number(links.size()) + QStringLiteral(" links"));
    else
        m_queue.clearLastMessage();
    m_linkBar->clear();
}

void ContentView::showBatch() {
    auto *sheet = new BatchSheet(m_queue, m_settings, m_clipboard, this);
    sheet->setAttribute(Qt::WA_DeleteOnClose);
    sheet->open();
}

void ContentView::showOptions() {
    auto *sheet = new OptionsSheet(
        m_linkBar->text(), DownloadModes::fromRawOrDefault(m_settings.defaultModeRaw()),
        [this](const QString &url, DownloadMode mode, std::optional<ClipRange> clip, bool wantsMoments) {
            m_queue.add(url, mode, std::move(clip), wantsMoments);
            m_linkBar->clear();
        },
        this);
    sheet->setAttribute(Qt::WA_DeleteOnClose);
    sheet->open();
}

MomentsView *ContentView::momentsView() const { return m_momentsView; }

// One review at a time: a request that arrives while a sheet is open waits until it closes.
void ContentView::showMomentsRequest() {
    const DownloadItemPtr item = m_queue.momentsRequest();
    if (!item || m_momentsView)
        return;
    auto *sheet = new MomentsView(item, m_queue, m_settings, MomentsView::Engines::real(), this);
    sheet->setAttribute(Qt::WA_DeleteOnClose);
    m_momentsView = sheet;
    connect(sheet, &QDialog::finished, this, [this, item] {
        m_momentsView = nullptr;
        if (m_queue.momentsRequest() == item)
            m_queue.setMomentsRequest(nullptr);
        else
            QMetaObject::invokeMethod(this, &ContentView::showMomentsRequest, Qt::QueuedConnection);
    });
    sheet->open();
}

void ContentView::dragEnterEvent(QDragEnterEvent *event) {
    if (event->mimeData()->hasUrls() || event->mimeData()->hasText())
        event->acceptProposedAction();
}

void ContentView::dropEvent(QDropEvent *event) {
    const QMimeData *data = event->mimeData();
    // A web link dragged from a browser carries both a URL list and its text: take each once.
    QStringList texts;
    if (data->hasUrls()) {
        for (const QUrl &url : data->urls())
            texts << url.toString();
    } else if (data->hasText()) {
        texts << data->text();
    }
    for (const QString &text : std::as_const(texts))
        m_queue.add(text);
    event->acceptProposedAction();
}
