#include "ui/SettingsView.h"

#include "analysis/Transcriber.h"
#include "core/AppSettings.h"
#include "core/DownloadMode.h"
#include "engine/CookieBrowser.h"
#include "engine/SelfHealer.h"
#include "queue/InboxWatcher.h"
#include "ui/Brand.h"
#include "ui/ElidedLabel.h"
#include "ui/EmberButtonStyle.h"
#include "ui/EmberProgressBar.h"
#include "ui/ScreenParts.h"
#include "ui/Symbols.h"

#include <QCheckBox>
#include <QComboBox>
#include <QCoroTask>
#include <QDesktopServices>
#include <QDir>
#include <QFileDialog>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QScrollArea>
#include <QSignalBlocker>
#include <QToolButton>
#include <QUrl>
#include <QVBoxLayout>

#include <algorithm>

namespace {
// A finished or failed update needs no handling here: the healer publishes its outcome.
QCoro::Task<> runUpdate(SelfHealer *healer) {
    try {
        co_await healer->updateEngine();
    } catch (...) {
    }
}

QLabel *caption(const QString &text) {
    QLabel *label = ScreenParts::label(text, Brand::systemFont(11), Brand::stone());
    label->setObjectName(QStringLiteral("caption"));
    label->setWordWrap(true);
    return label;
}

// One rounded group of rows under a small capital heading.
class Section {
public:
    Section(const QString &title, QVBoxLayout *form) {
        QFont font = Brand::monoFont(10.5, QFont::DemiBold);
        font.setCapitalization(QFont::AllUppercase);
        font.setLetterSpacing(QFont::AbsoluteSpacing, 1.2);
        QLabel *heading = ScreenParts::label(title, font, Brand::stone());
        heading->setObjectName(QStringLiteral("sectionTitle"));
        form->addSpacing(form->count() ? 14 : 0);
        form->addWidget(heading);

        frame = new QFrame;
        frame->setObjectName(QStringLiteral("section"));
        frame->setAccessibleName(title);
        frame->setStyleSheet(QStringLiteral("QFrame#section { background: %1; border: 1px solid %2; border-radius: 8px; }")
                                 .arg(Brand::surface().name(), Brand::hairline().name()));
        rows = new QVBoxLayout(frame);
        rows->setContentsMargins(14, 10, 14, 10);
        rows->setSpacing(8);
        form->addWidget(frame);
    }

    void add(QWidget *row) {
        if (rows->count())
            rows->addWidget(ScreenParts::divider());
        rows->addWidget(row);
    }
    // A control with its caption under it, as one row.
    void add(QWidget *control, const QString &captionText) {
        auto *box = new QWidget;
        auto *v = new QVBoxLayout(box);
        v->setContentsMargins(0, 0, 0, 0);
        v->setSpacing(2);
        v->addWidget(control);
        QLabel *c = caption(captionText);
        c->setContentsMargins(24, 0, 0, 0); // under the label, past the check box
        v->addWidget(c);
        add(box);
    }
    // Label on the left, the rest on the right.
    QWidget *labelled(const QString &label, const QList<QWidget *> &trailing, QLabel **labelOut = nullptr) {
        auto *row = new QWidget;
        auto *h = new QHBoxLayout(row);
        h->setContentsMargins(0, 0, 0, 0);
        auto *l = new QLabel(label);
        h->addWidget(l);
        // A screen reader announces a picker with the label beside it.
        if (!trailing.isEmpty())
            l->setBuddy(trailing.first());
        h->addStretch(1);
        for (QWidget *w : trailing)
            h->addWidget(w);
        if (labelOut)
            *labelOut = l;
        add(row);
        return row;
    }

    QFrame *frame;
    QVBoxLayout *rows;
};
} // namespace

SettingsView::SettingsView(QWidget *parent)
    : SettingsView(AppSettings::shared(), SelfHealer::shared(), Transcriber::shared(), parent) {}

SettingsView::SettingsView(AppSettings &settings, SelfHealer &healer, Transcriber &transcriber, QWidget *parent)
    : QWidget(parent), m_settings(settings), m_healer(healer), m_transcriber(transcriber),
      m_chooseFolder([](QWidget *owner, const QString &start) {
          return QFileDialog::getExistingDirectory(owner, QStringLiteral("Choose Download Folder"), start,
                                                   QFileDialog::ShowDirsOnly);
      }) {
    setWindowTitle(QStringLiteral("Vorlix Settings"));
    resize(formSize);
    build();
    connect(&m_settings, &AppSettings::changed, this, &SettingsView::refreshSettings);
    connect(&m_transcriber, &Transcriber::isDownloadingModelChanged, this, &SettingsView::refreshModelDownload);
    connect(&m_transcriber, &Transcriber::modelDownloadProgressChanged, this, &SettingsView::refreshModelDownload);
    connect(&m_healer, &SelfHealer::engineVersionChanged, this, &SettingsView::refreshEngine);
    connect(&m_healer, &SelfHealer::isUpdatingChanged, this, &SettingsView::refreshEngine);
    connect(&m_healer, &SelfHealer::lastUpdateResultChanged, this, &SettingsView::refreshEngine);
    refreshSettings();
    refreshEngine();
    m_modelProgress->resetValue(m_transcriber.modelDownloadProgress());
    refreshModelDownload();
}

SettingsView::~SettingsView() = default;

void SettingsView::build() {
    auto *outer = new QVBoxLayout(this);
    outer->setContentsMargins(0, 0, 0, 0);
    auto *scroll = new QScrollArea;
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setWidgetResizable(true);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    outer->addWidget(scroll);

    auto *content = new QWidget;
    auto *form = new QVBoxLayout(content);
    form->setContentsMargins(20, 18, 20, 20);
    form->setSpacing(6);
    scroll->setWidget(content);

    Section downloads(QStringLiteral("Downloads"), form);
    {
        m_folderPath = new ElidedLabel;
        m_folderPath->setObjectName(QStringLiteral("folderPath"));
        QPalette p = m_folderPath->palette();
        p.setColor(QPalette::WindowText, Brand::stone());
        m_folderPath->setPalette(p);
        m_folderPath->setAccessibleName(QStringLiteral("Save to"));
        auto *choose = new QPushButton(QStringLiteral("Choose…"));
        connect(choose, &QPushButton::clicked, this, &SettingsView::chooseFolder);
        auto *row = new QWidget;
        auto *h = new QHBoxLayout(row);
        h->setContentsMargins(0, 0, 0, 0);
        h->addWidget(new QLabel(QStringLiteral("Save to")));
        h->addSpacing(8);
        h->addWidget(m_folderPath, 1);
        h->addWidget(choose);
        downloads.add(row);

        m_defaultMode = new QComboBox;
        for (DownloadMode mode : DownloadModes::all)
            m_defaultMode->addItem(Symbols::icon(DownloadModes::symbol(mode), Brand::bone()), DownloadModes::label(mode),
                                   DownloadModes::rawValue(mode));
        connect(m_defaultMode, &QComboBox::activated, this,
                [this](int i) { m_settings.setDefaultModeRaw(m_defaultMode->itemData(i).toString()); });
        downloads.labelled(QStringLiteral("Default mode"), {m_defaultMode});

        m_audioFormat = new QComboBox;
        for (AudioFormat format : AudioFormats::all)
            m_audioFormat->addItem(AudioFormats::label(format), AudioFormats::rawValue(format));
        connect(m_audioFormat, &QComboBox::activated, this,
                [this](int i) { m_settings.setAudioFormatRaw(m_audioFormat->itemData(i).toString()); });
        downloads.labelled(QStringLiteral("Audio format"), {m_audioFormat});

        m_preferMP4 = new QCheckBox(QStringLiteral("Prefer MP4 (most compatible)"));
        connect(m_preferMP4, &QCheckBox::toggled, &m_settings, &AppSettings::setPreferMP4);
        downloads.add(m_preferMP4);

        m_organize = new QCheckBox(QStringLiteral("Organize library into folders"));
        connect(m_organize, &QCheckBox::toggled, &m_settings, &AppSettings::setOrganizeDownloads);
        downloads.add(m_organize,
                      QStringLiteral("Files into Source ▸ Genre, e.g. YouTube ▸ Tutorials, Instagram ▸ Reels, Spotify"));

        // "&&" is one literal ampersand in a button label.
        m_autoAnalyze = new QCheckBox(QStringLiteral("Auto-detect BPM && key after audio downloads"));
        connect(m_autoAnalyze, &QCheckBox::toggled, &m_settings, &AppSettings::setAutoAnalyzeAudio);
        downloads.add(m_autoAnalyze, QStringLiteral("Off by default — keeps downloads fast. Use Practice Versions on a "
                                                    "finished file when you need it."));

        m_concurrentDown = new QToolButton;
        m_concurrentDown->setText(QStringLiteral("−"));
        m_concurrentDown->setAccessibleName(QStringLiteral("Fewer simultaneous downloads"));
        m_concurrentUp = new QToolButton;
        m_concurrentUp->setText(QStringLiteral("+"));
        m_concurrentUp->setAccessibleName(QStringLiteral("More simultaneous downloads"));
        for (QToolButton *b : {m_concurrentDown, m_concurrentUp})
            b->setFixedSize(26, 22);
        connect(m_concurrentDown, &QToolButton::clicked, this, [this] { stepConcurrent(-1); });
        connect(m_concurrentUp, &QToolButton::clicked, this, [this] { stepConcurrent(+1); });
        auto *stepperRow = new QWidget;
        auto *sh = new QHBoxLayout(stepperRow);
        sh->setContentsMargins(0, 0, 0, 0);
        m_concurrentLabel = new QLabel;
        m_concurrentLabel->setObjectName(QStringLiteral("concurrentLabel"));
        sh->addWidget(m_concurrentLabel);
        sh->addStretch(1);
        sh->addWidget(m_concurrentDown);
        sh->addSpacing(2);
        sh->addWidget(m_concurrentUp);
        auto *stepperBox = new QWidget;
        auto *sv = new QVBoxLayout(stepperBox);
        sv->setContentsMargins(0, 0, 0, 0);
        sv->setSpacing(2);
        sv->addWidget(stepperRow);
        sv->addWidget(caption(QStringLiteral("Default is 3 — higher is faster on good internet; lower if sites throttle you.")));
        downloads.add(stepperBox);
    }

    Section capture(QStringLiteral("Capture"), form);
    {
        m_smartMode = new QCheckBox(QStringLiteral("Smart Mode — auto-download copied media links"));
        connect(m_smartMode, &QCheckBox::toggled, &m_settings, &AppSettings::setSmartMode);
        capture.add(m_smartMode);

        m_watchInbox = new QCheckBox(QStringLiteral("Watch phone inbox"));
        connect(m_watchInbox, &QCheckBox::toggled, &m_settings, &AppSettings::setWatchiCloudInbox);
        const QString inbox = InboxWatcher::defaultInboxPath();
        capture.add(m_watchInbox, QStringLiteral("Downloads every link your phone adds to ") +
                                      QDir::toNativeSeparators(inbox) + QStringLiteral(" (synced by ") +
                                      InboxWatcher::syncServiceName(inbox) + QStringLiteral(")."));

        // Named after the browser whose login is actually read; without one the option stays off.
        const auto browser = CookieBrowser::detect();
        m_cookieBrowserFound = browser.has_value();
        const QString name = browser ? browser->label : QStringLiteral("browser");
        m_cookies = new QCheckBox(QStringLiteral("Use ") + name + QStringLiteral(" login for private content"));
        m_cookies->setObjectName(QStringLiteral("cookies"));
        m_cookies->setEnabled(m_cookieBrowserFound);
        connect(m_cookies, &QCheckBox::toggled, &m_settings, &AppSettings::setUseBrowserCookies);
        capture.add(m_cookies, browser ? QStringLiteral("Needed for Instagram Stories and members-only videos. ") + name +
                                             QStringLiteral(" must be installed and logged in.")
                                       : QStringLiteral("Off: no browser profile found on this computer. Sign in to ") +
                                             CookieBrowser::supportedLabels() +
                                             QStringLiteral(" to download private content."));

        auto *show = new QPushButton(QStringLiteral("Show Instructions"));
        connect(show, &QPushButton::clicked, this, &SettingsView::showInstructions);
        capture.labelled(QStringLiteral("Phone setup"), {show});
    }

    Section transcription(QStringLiteral("Transcription"), form);
    {
        m_whisperModel = new QComboBox;
        m_whisperModel->addItem(QStringLiteral("base — fast (142 MB)"), QStringLiteral("base"));
        m_whisperModel->addItem(QStringLiteral("small — accurate (466 MB)"), QStringLiteral("small"));
        connect(m_whisperModel, &QComboBox::activated, this,
                [this](int i) { m_settings.setWhisperModel(m_whisperModel->itemData(i).toString()); });
        transcription.labelled(QStringLiteral("Speech model"), {m_whisperModel});

        m_modelDownloadRow = new QWidget;
        m_modelDownloadRow->setObjectName(QStringLiteral("modelDownloadRow"));
        auto *v = new QVBoxLayout(m_modelDownloadRow);
        v->setContentsMargins(0, 4, 0, 4);
        v->setSpacing(6);
        auto *label = new QLabel(QStringLiteral("Downloading model…"));
        label->setFont(Brand::systemFont(11));
        v->addWidget(label);
        m_modelProgress = new EmberProgressBar;
        v->addWidget(m_modelProgress);
        transcription.rows->addWidget(m_modelDownloadRow);
    }

    Section engine(QStringLiteral("Engine"), form);
    {
        m_engineVersion = new QLabel;
        m_engineVersion->setObjectName(QStringLiteral("engineVersion"));
        m_engineVersion->setFont(Brand::monoFont(12));
        m_engineVersion->setTextInteractionFlags(Qt::TextSelectableByMouse);
        engine.labelled(QStringLiteral("yt-dlp version"), {m_engineVersion});

        m_lastCheck = new QLabel;
        m_lastCheck->setObjectName(QStringLiteral("lastCheck"));
        m_lastCheckRow = engine.labelled(QStringLiteral("Last check"), {m_lastCheck});
        // Keep the row and its separator together when it hides.
        m_lastCheckRow->setObjectName(QStringLiteral("lastCheckRow"));

        m_updateButton = new QPushButton(QStringLiteral("Update Engine Now"));
        m_updateButton->setObjectName(QStringLiteral("updateEngine"));
        EmberButtonStyle::apply(m_updateButton, true);
        connect(m_updateButton, &QPushButton::clicked, this, &SettingsView::updateEngineNow);
        auto *box = new QWidget;
        auto *v = new QVBoxLayout(box);
        v->setContentsMargins(0, 0, 0, 0);
        v->setSpacing(6);
        auto *h = new QHBoxLayout;
        h->addWidget(m_updateButton);
        h->addStretch(1);
        v->addLayout(h);
        v->addWidget(caption(QStringLiteral("The engine keeps itself current automatically — daily, and whenever a "
                                            "download fails. That's what keeps Vorlix working when sites change.")));
        engine.add(box);
    }
    form->addStretch(1);
}

void SettingsView::refreshSettings() {
    const QSignalBlocker b1(m_defaultMode), b2(m_audioFormat), b3(m_preferMP4), b4(m_organize), b5(m_autoAnalyze),
        b6(m_smartMode), b7(m_watchInbox), b8(m_cookies), b9(m_whisperModel);
    m_folderPath->setFullText(m_settings.downloadFolderPath());
    const QString mode = DownloadModes::rawValue(DownloadModes::fromRawOrDefault(m_settings.defaultModeRaw()));
    m_defaultMode->setCurrentIndex(m_defaultMode->findData(mode));
    m_audioFormat->setCurrentIndex(std::max(0, m_audioFormat->findData(m_settings.audioFormatRaw())));
    m_preferMP4->setChecked(m_settings.preferMP4());
    m_organize->setChecked(m_settings.organizeDownloads());
    m_autoAnalyze->setChecked(m_settings.autoAnalyzeAudio());
    m_smartMode->setChecked(m_settings.smartMode());
    m_watchInbox->setChecked(m_settings.watchiCloudInbox());
    m_cookies->setChecked(m_cookieBrowserFound && m_settings.useBrowserCookies());
    m_whisperModel->setCurrentIndex(std::max(0, m_whisperModel->findData(m_settings.whisperModel())));

    const int concurrent = m_settings.maxConcurrent();
    m_concurrentLabel->setText(QStringLiteral("Simultaneous downloads: ") + QString::number(concurrent));
    m_concurrentDown->setEnabled(concurrent > minConcurrent);
    m_concurrentUp->setEnabled(concurrent < maxConcurrent);
}

void SettingsView::stepConcurrent(int delta) {
    const int next = std::clamp(m_settings.maxConcurrent() + delta, minConcurrent, maxConcurrent);
    if (next != m_settings.maxConcurrent())
        m_settings.setMaxConcurrent(next);
}

void SettingsView::refreshModelDownload() {
    const bool downloading = m_transcriber.isDownloadingModel();
    m_modelDownloadRow->setVisible(downloading);
    if (downloading)
        m_modelProgress->setValue(m_transcriber.modelDownloadProgress());
    else
        m_modelProgress->resetValue(0);
}

void SettingsView::refreshEngine() {
    m_engineVersion->setText(m_healer.engineVersion());
    const auto last = m_healer.lastUpdateResult();
    m_lastCheck->setText(last.value_or(QString()));
    m_lastCheckRow->setVisible(last.has_value());
    // The separator above the row belongs to it.
    if (QWidget *parent = m_lastCheckRow->parentWidget()) {
        auto *rows = qobject_cast<QVBoxLayout *>(parent->layout());
        const int index = rows ? rows->indexOf(m_lastCheckRow) : -1;
        if (index > 0)
            if (QWidget *line = rows->itemAt(index - 1)->widget())
                line->setVisible(last.has_value());
    }
    const bool updating = m_healer.isUpdating();
    m_updateButton->setText(updating ? QStringLiteral("Updating…") : QStringLiteral("Update Engine Now"));
    m_updateButton->setEnabled(!updating);
}

void SettingsView::chooseFolder() {
    const QString chosen = m_chooseFolder(this, m_settings.downloadFolder());
    if (!chosen.isEmpty())
        m_settings.setDownloadFolderPath(chosen);
}

void SettingsView::showInstructions() {
    QDesktopServices::openUrl(QUrl::fromLocalFile(AppSettings::appSupportDir() + u'/' + shortcutHelpFileName));
}

void SettingsView::updateEngineNow() {
    if (m_healer.isUpdating())
        return;
    QCoro::connect(runUpdate(&m_healer), this, [] {});
}
