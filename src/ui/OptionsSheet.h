#pragma once

#include "core/ClipRange.h"
#include "core/DownloadMode.h"

#include <QDialog>

#include <functional>
#include <optional>

class QButtonGroup;
class QCheckBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QWidget;

// "Download with Options": one link with a mode override, an optional clip range and the
// Smart Moments flag.
class OptionsSheet : public QDialog {
    Q_OBJECT
public:
    using OnAdd = std::function<void(const QString &url, DownloadMode mode, std::optional<ClipRange> clip,
                                     bool wantsMoments)>;

    OptionsSheet(const QString &initialURL, DownloadMode initialMode, OnAdd onAdd, QWidget *parent = nullptr);

    DownloadMode mode() const;
    void setMode(DownloadMode mode);
    // Both times empty or readable as 90, 1:30 or 1:02:15.
    bool timesValid() const;
    // The typed range, when at least one field holds text.
    std::optional<ClipRange> clip() const;

    // The Download button's action.
    void submit();

private:
    void refresh();

    OnAdd m_onAdd;
    QLineEdit *m_url;
    QButtonGroup *m_modes;
    QLineEdit *m_clipStart;
    QLineEdit *m_clipEnd;
    QWidget *m_momentsBox;
    QCheckBox *m_wantsMoments;
    QLabel *m_timeWarning;
    QPushButton *m_download;
};
