#include "ui/BatchSheet.h"

#include "core/AppSettings.h"
#include "queue/BatchText.h"
#include "queue/ClipboardSource.h"
#include "queue/DownloadQueue.h"
#include "ui/Brand.h"
#include "ui/EmberButtonStyle.h"
#include "ui/SheetParts.h"
#include "ui/Symbols.h"

#include <QComboBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QVBoxLayout>

BatchSheet::BatchSheet(DownloadQueue &queue, AppSettings &settings, ClipboardSource &clipboard, QWidget *parent)
    : QDialog(parent), m_queue(queue), m_clipboard(clipboard) {
    setObjectName(QStringLiteral("batchSheet"));
    setWindowTitle(QStringLiteral("Batch Download"));
    setModal(true);
    resize(560, 460);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(22, 20, 22, 18);
    layout->setSpacing(12);

    layout->addLayout(SheetParts::titleRow(QStringLiteral("Batch Download"), QStringLiteral("square.stack.3d.down.right")));
    layout->addWidget(SheetParts::note(QStringLiteral(
        "Drop in any text with links — a list, an email, lesson notes. Vorlix finds every link and downloads them all.")));

    auto *paste = new QPushButton(Symbols::icon(QStringLiteral("doc.on.clipboard"), Brand::stone()),
                                  QStringLiteral("Paste from Clipboard"));
    paste->setAutoDefault(false);
    connect(paste, &QPushButton::clicked, this, &BatchSheet::pasteFromClipboard);
    auto *pasteRow = new QHBoxLayout;
    pasteRow->addWidget(paste);
    pasteRow->addStretch(1);
    layout->addLayout(pasteRow);

    m_editor = new QPlainTextEdit;
    m_editor->setObjectName(QStringLiteral("batchText"));
    m_editor->setFont(Brand::monoFont(12));
    m_editor->setTabChangesFocus(true);
    m_editor->setAccessibleName(QStringLiteral("Links"));
    layout->addWidget(m_editor, 1);

    m_count = new QLabel;
    m_count->setObjectName(QStringLiteral("linkCount"));
    m_count->setFont(Brand::monoFont(11));
    layout->addWidget(m_count);

    auto *modeRow = new QHBoxLayout;
    modeRow->addWidget(SheetParts::capsLabel(QStringLiteral("Mode")));
    m_mode = SheetParts::modePicker(DownloadModes::fromRawOrDefault(settings.defaultModeRaw()));
    m_mode->setAccessibleName(QStringLiteral("Mode"));
    modeRow->addWidget(m_mode);
    modeRow->addStretch(1);
    layout->addLayout(modeRow);

    m_download = SheetParts::addButtons(this, layout);
    connect(m_download, &QPushButton::clicked, this, &BatchSheet::downloadAll);

    connect(m_editor, &QPlainTextEdit::textChanged, this, &BatchSheet::textChanged);
    textChanged();
    m_editor->setFocus();
}

QString BatchSheet::text() const { return m_editor->toPlainText(); }

DownloadMode BatchSheet::mode() const { return DownloadModes::fromRawOrDefault(m_mode->currentData().toString()); }

QString BatchSheet::countText(qsizetype links) {
    if (links == 0)
        return QStringLiteral("No links found yet");
    return QString::number(links) + QStringLiteral(" link") + (links == 1 ? QString() : QStringLiteral("s")) +
           QStringLiteral(" found");
}

void BatchSheet::textChanged() {
    m_links = BatchView::extractURLs(text());
    m_count->setText(countText(m_links.size()));
    m_download->setText(QStringLiteral("Download ") + QString::number(m_links.size()));
    m_download->setEnabled(!m_links.isEmpty());
}

void BatchSheet::pasteFromClipboard() {
    const std::optional<QString> pasted = m_clipboard.text();
    if (!pasted)
        return;
    m_editor->moveCursor(QTextCursor::End);
    m_editor->insertPlainText(text().isEmpty() ? *pasted : u'\n' + *pasted);
}

void BatchSheet::downloadAll() {
    if (m_links.isEmpty())
        return;
    const DownloadMode chosen = mode();
    for (const QString &link : std::as_const(m_links))
        m_queue.add(link, chosen);
    m_queue.setLastMessage(QStringLiteral("Queued ") + QString::number(m_links.size()) + QStringLiteral(" links"));
    accept();
}
