#include "ui/OptionsSheet.h"

#include "core/TextTrim.h"
#include "ui/Brand.h"
#include "ui/EmberButtonStyle.h"
#include "ui/SheetParts.h"
#include "ui/Symbols.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QVBoxLayout>

OptionsSheet::OptionsSheet(const QString &initialURL, DownloadMode initialMode, OnAdd onAdd, QWidget *parent)
    : QDialog(parent), m_onAdd(std::move(onAdd)) {
    setObjectName(QStringLiteral("optionsSheet"));
    setWindowTitle(QStringLiteral("Download with Options"));
    setModal(true);
    setMinimumWidth(500);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(22, 20, 22, 18);
    layout->setSpacing(12);
    layout->addLayout(SheetParts::titleRow(QStringLiteral("Download with Options"), QString()));

    layout->addWidget(SheetParts::capsLabel(QStringLiteral("Link")));
    m_url = new QLineEdit(initialURL);
    m_url->setObjectName(QStringLiteral("link"));
    m_url->setPlaceholderText(QStringLiteral("https://"));
    m_url->setFont(Brand::monoFont(12));
    m_url->setAccessibleName(QStringLiteral("Link"));
    layout->addWidget(m_url);

    layout->addWidget(SheetParts::capsLabel(QStringLiteral("Mode")));
    m_modes = new QButtonGroup(this);
    auto *modeRow = new QHBoxLayout;
    for (DownloadMode mode : DownloadModes::all) {
        auto *radio = new QRadioButton(DownloadModes::label(mode));
        radio->setIcon(Symbols::icon(DownloadModes::symbol(mode), Brand::bone()));
        m_modes->addButton(radio, int(mode));
        modeRow->addWidget(radio);
    }
    modeRow->addStretch(1);
    layout->addLayout(modeRow);

    auto *clipGroup = new QGroupBox(QStringLiteral("Clip a section (optional)"));
    auto *clipRow = new QHBoxLayout(clipGroup);
    m_clipStart = new QLineEdit;
    m_clipStart->setObjectName(QStringLiteral("clipStart"));
    m_clipStart->setPlaceholderText(QStringLiteral("From (e.g. 1:20)"));
    m_clipEnd = new QLineEdit;
    m_clipEnd->setObjectName(QStringLiteral("clipEnd"));
    m_clipEnd->setPlaceholderText(QStringLiteral("To (e.g. 2:45)"));
    // Only a placeholder labels the clip fields; a screen reader needs it as their name.
    for (QLineEdit *field : {m_clipStart, m_clipEnd}) {
        field->setAccessibleName(field->placeholderText());
        field->setFont(Brand::monoFont(12));
        clipRow->addWidget(field);
    }
    layout->addWidget(clipGroup);

    m_momentsBox = new QWidget;
    auto *moments = new QVBoxLayout(m_momentsBox);
    moments->setContentsMargins(0, 0, 0, 0);
    m_wantsMoments = new QCheckBox(QStringLiteral("Smart Moments after download"));
    m_wantsMoments->setIcon(Symbols::icon(QStringLiteral("sparkles"), Brand::ember()));
    moments->addWidget(m_wantsMoments);
    moments->addWidget(SheetParts::note(QStringLiteral(
        "Auto-detects visually unique instants; you approve which to save as 2–3 s clips or screenshots.")));
    layout->addWidget(m_momentsBox);

    m_timeWarning = new QLabel(QStringLiteral("Times should look like 90, 1:30, or 1:02:15"));
    m_timeWarning->setObjectName(QStringLiteral("timeWarning"));
    QPalette warn = m_timeWarning->palette();
    warn.setColor(QPalette::WindowText, Brand::danger());
    m_timeWarning->setPalette(warn);
    layout->addWidget(m_timeWarning);
    layout->addStretch(1);

    m_download = SheetParts::addButtons(this, layout);
    connect(m_download, &QPushButton::clicked, this, &OptionsSheet::submit);

    setMode(initialMode);
    connect(m_modes, &QButtonGroup::idToggled, this, [this](int, bool on) {
        if (on)
            refresh();
    });
    for (QLineEdit *field : {m_url, m_clipStart, m_clipEnd})
        connect(field, &QLineEdit::textChanged, this, &OptionsSheet::refresh);
    refresh();
}

DownloadMode OptionsSheet::mode() const { return DownloadMode(m_modes->checkedId()); }

void OptionsSheet::setMode(DownloadMode mode) { m_modes->button(int(mode))->setChecked(true); }

bool OptionsSheet::timesValid() const {
    const auto readable = [](const QString &text) { return text.isEmpty() || ClipRange::seconds(text).has_value(); };
    return readable(m_clipStart->text()) && readable(m_clipEnd->text());
}

std::optional<ClipRange> OptionsSheet::clip() const {
    ClipRange range{m_clipStart->text(), m_clipEnd->text()};
    if (!range.isValid())
        return std::nullopt;
    return range;
}

void OptionsSheet::refresh() {
    // Hidden for audio, but a ticked box is passed on as it is: the queue drops it for audio.
    m_momentsBox->setVisible(mode() != DownloadMode::audioOnly);
    m_timeWarning->setVisible(!timesValid());
    m_download->setEnabled(!trimSpacesAndTabs(m_url->text()).isEmpty() && timesValid());
    adjustSize();
}

void OptionsSheet::submit() {
    if (!m_download->isEnabled())
        return;
    if (m_onAdd)
        m_onAdd(m_url->text(), mode(), clip(), m_wantsMoments->isChecked());
    accept();
}
