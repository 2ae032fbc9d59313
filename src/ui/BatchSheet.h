#pragma once

#include "core/DownloadMode.h"

#include <QDialog>

class AppSettings;
class ClipboardSource;
class DownloadQueue;
class QComboBox;
class QLabel;
class QPlainTextEdit;
class QPushButton;

// The batch sheet: any text with links in it (a list, an email, lesson notes) becomes one
// download per link, all in the chosen mode.
class BatchSheet : public QDialog {
    Q_OBJECT
public:
    BatchSheet(DownloadQueue &queue, AppSettings &settings, ClipboardSource &clipboard, QWidget *parent = nullptr);

    QString text() const;
    DownloadMode mode() const;
    QStringList links() const { return m_links; }
    // "3 links found", "1 link found", "No links found yet".
    static QString countText(qsizetype links);

    // "Paste from Clipboard": appends the clipboard's text on a new line.
    void pasteFromClipboard();
    // "Download n": queues every link in text order and closes the sheet.
    void downloadAll();

private:
    void textChanged();

    DownloadQueue &m_queue;
    ClipboardSource &m_clipboard;
    QPlainTextEdit *m_editor;
    QLabel *m_count;
    QComboBox *m_mode;
    QPushButton *m_download;
    QStringList m_links;
};
