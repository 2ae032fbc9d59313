#include "AccessibleNames.h"
#include "Await.h"
#include "TestEnv.h"
#include "TestMain.h"

#include "analysis/Transcriber.h"
#include "core/AppSettings.h"
#include "engine/SelfHealer.h"
#include "ui/Brand.h"
#include "ui/ElidedLabel.h"
#include "ui/SettingsView.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDesktopServices>
#include <QFile>
#include <QLabel>
#include <QPushButton>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QDir>
#include <QScopeGuard>
#include <QTest>
#include <QTimer>
#include <QToolButton>

#include <memory>

namespace {
// Serves one body slowly, so a model download stays visible for a while.
class TrickleServer : public QObject {
public:
    explicit TrickleServer(int bytes) : m_bytes(bytes) {
        m_server.listen(QHostAddress::LocalHost);
        connect(&m_server, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket *socket = m_server.nextPendingConnection())
                serve(socket);
        });
    }
    QString url(const QString &path) const {
        return QStringLiteral("http://127.0.0.1:%1%2").arg(m_server.serverPort()).arg(path);
    }

private:
    void serve(QTcpSocket *socket) {
        connect(socket, &QTcpSocket::readyRead, socket, [this, socket] {
            if (!socket->readAll().contains("\r\n\r\n") || socket->property("started").toBool())
                return;
            socket->setProperty("started", true);
            socket->write("HTTP/1.1 200 OK\r\nContent-Type: application/octet-stream\r\nContent-Length: " +
                          QByteArray::number(m_bytes) + "\r\nConnection: close\r\n\r\n");
            auto *timer = new QTimer(socket);
            auto *left = new int(m_bytes);
            connect(timer, &QTimer::timeout, socket, [socket, timer, left] {
                const int chunk = std::min(*left, 2000);
                socket->write(QByteArray(chunk, 'x'));
                *left -= chunk;
                if (*left == 0) {
                    timer->stop();
                    delete left;
                    socket->disconnectFromHost();
                }
            });
            timer->start(40);
        });
    }
    QTcpServer m_server;
    int m_bytes;
};

// Records the URLs the view asks the desktop to open.
class OpenRecorder : public QObject {
    Q_OBJECT
public:
    QList<QUrl> opened;
public Q_SLOTS:
    void open(const QUrl &url) { opened << url; }
};
} // namespace

class SettingsViewTest : public QObject {
    Q_OBJECT

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<AppSettings> m_settings;
    std::unique_ptr<SelfHealer> m_healer;
    std::unique_ptr<Transcriber> m_transcriber;
    std::unique_ptr<SettingsView> m_view;
    QString m_ytDlp;
    QString m_runLog;

    static QString firefoxProfile() { return QDir::homePath() + QStringLiteral("/.mozilla/firefox"); }
    QCheckBox *checkBox(const QString &text) const {
        for (QCheckBox *box : m_view->findChildren<QCheckBox *>())
            if (QString(box->text()).replace(QStringLiteral("&&"), QStringLiteral("&")) == text)
                return box;
        return nullptr;
    }
    QPushButton *button(const QString &text) const {
        for (QPushButton *b : m_view->findChildren<QPushButton *>())
            if (b->text() == text)
                return b;
        return nullptr;
    }
    QComboBox *combo(int index) const { return m_view->findChildren<QComboBox *>().value(index); }
    QToolButton *stepper(const QString &symbol) const {
        for (QToolButton *b : m_view->findChildren<QToolButton *>())
            if (b->text() == symbol)
                return b;
        return nullptr;
    }
    QLabel *labelNamed(const char *name) const { return m_view->findChild<QLabel *>(QLatin1String(name)); }
    int engineRuns() const {
        QFile f(m_runLog);
        return f.open(QIODevice::ReadOnly) ? int(f.readAll().count("-U")) : 0;
    }

    QString release() const { return m_dir->path() + QStringLiteral("/release"); }
    // A downloader stand-in: answers its version and, on -U, waits for release() (when `hold`)
    // and prints `output`.
    void scriptEngine(const QString &output, bool hold = false) {
        TestEnv::writeScript(m_ytDlp, QStringLiteral("#!/bin/sh\n"
                                                     "echo \"$@\" >> '%1'\n"
                                                     "if [ \"$1\" = --version ]; then echo 2025.01.01; exit 0; fi\n"
                                                     "i=0; while %2 [ ! -f '%3' ] && [ $i -lt 200 ]; do sleep 0.05; i=$((i+1)); done\n"
                                                     "echo '%4'\n")
                                          .arg(m_runLog, hold ? QString() : QStringLiteral("false &&"), release(), output));
    }

private Q_SLOTS:
    void initTestCase() {
        Brand::applyDarkAppearance(*qApp);
        QVERIFY(QDir().mkpath(firefoxProfile()));
    }
    void cleanupTestCase() { QDir(firefoxProfile()).removeRecursively(); }

    void init() {
        m_dir = std::make_unique<QTemporaryDir>(TestEnv::root() + QStringLiteral("/settings-XXXXXX"));
        m_settings = std::make_unique<AppSettings>(m_dir->path() + QStringLiteral("/Vorlix.conf"));
        m_ytDlp = m_dir->path() + QStringLiteral("/yt-dlp");
        m_runLog = m_dir->path() + QStringLiteral("/runs.log");
        scriptEngine(QStringLiteral("yt-dlp is up to date (2025.01.01)"));
        const QString tool = m_ytDlp;
        m_healer = std::make_unique<SelfHealer>(*m_settings, [tool] { return tool; }, [] { return 2e9; });
        Transcriber::Setup setup;
        setup.settings = m_settings.get();
        setup.modelsDir = m_dir->path() + QStringLiteral("/models");
        setup.modelRepository = QUrl(QStringLiteral("http://127.0.0.1:9/"));
        setup.whisperURL = [] { return QString(); };
        setup.ffmpegURL = [] { return TestEnv::ffmpeg(); };
        m_transcriber = std::make_unique<Transcriber>(setup);
        m_view = std::make_unique<SettingsView>(*m_settings, *m_healer, *m_transcriber);
        m_view->show();
        QVERIFY(QTest::qWaitForWindowExposed(m_view.get()));
    }

    void cleanup() {
        m_view.reset();
        m_transcriber.reset();
        m_healer.reset();
        m_settings.reset();
        m_dir.reset();
    }

    void formHasTheFourSectionsInOrder() {
        QStringList titles;
        for (QLabel *l : m_view->findChildren<QLabel *>(QStringLiteral("sectionTitle")))
            titles << l->text();
        QCOMPARE(titles, (QStringList{QStringLiteral("Downloads"), QStringLiteral("Capture"),
                                      QStringLiteral("Transcription"), QStringLiteral("Engine")}));
        QCOMPARE(AccessibleNames::unnamedControls(m_view.get()), QStringList());
    }

    void togglesWriteTheirKeyAtOnce_data() {
        QTest::addColumn<QString>("label");
        QTest::addColumn<QString>("key");
        QTest::newRow("prefer mp4") << QStringLiteral("Prefer MP4 (most compatible)") << QStringLiteral("preferMP4");
        QTest::newRow("organize") << QStringLiteral("Organize library into folders") << QStringLiteral("organizeDownloads");
        QTest::newRow("auto analyze") << QStringLiteral("Auto-detect BPM & key after audio downloads")
                                      << QStringLiteral("autoAnalyzeAudio");
        QTest::newRow("smart mode") << QStringLiteral("Smart Mode — auto-download copied media links")
                                    << QStringLiteral("smartMode");
        QTest::newRow("inbox") << QStringLiteral("Watch phone inbox")
                               << QStringLiteral("watchiCloudInbox");
        QTest::newRow("cookies") << QStringLiteral("Use Firefox login for private content")
                                 << QStringLiteral("useBrowserCookies");
    }
    void togglesWriteTheirKeyAtOnce() {
        QFETCH(QString, label);
        QFETCH(QString, key);
        QCheckBox *box = checkBox(label);
        QVERIFY(box);
        const bool before = box->isChecked();
        QTest::mouseClick(box, Qt::LeftButton, {}, QPoint(8, box->height() / 2));
        // A second reader of the same file sees the change: it was written, not buffered.
        QSettings disk(m_settings->fileName(), QSettings::IniFormat);
        QCOMPARE(disk.value(key).toBool(), !before);
        QCOMPARE(box->isChecked(), !before);
    }

    void pickersWriteRawValues_data() {
        QTest::addColumn<int>("comboIndex");
        QTest::addColumn<int>("option");
        QTest::addColumn<QString>("key");
        QTest::addColumn<QString>("raw");
        QTest::newRow("audio only") << 0 << 2 << QStringLiteral("defaultMode") << QStringLiteral("audioOnly");
        QTest::newRow("m4a") << 1 << 1 << QStringLiteral("audioFormat") << QStringLiteral("m4a");
        QTest::newRow("small model") << 2 << 1 << QStringLiteral("whisperModel") << QStringLiteral("small");
    }
    void pickersWriteRawValues() {
        QFETCH(int, comboIndex);
        QFETCH(int, option);
        QFETCH(QString, key);
        QFETCH(QString, raw);
        QComboBox *box = combo(comboIndex);
        QVERIFY(box);
        box->setFocus();
        for (int i = 0; i < option; ++i)
            QTest::keyClick(box, Qt::Key_Down);
        QSettings disk(m_settings->fileName(), QSettings::IniFormat);
        QCOMPARE(disk.value(key).toString(), raw);
    }

    // The cookie row names the browser whose login is read; with none it stays off and says why.
    void cookieRowNamesTheBrowser_data() {
        QTest::addColumn<bool>("profile");
        QTest::addColumn<QString>("label");
        QTest::addColumn<QString>("caption");
        QTest::newRow("firefox") << true << QStringLiteral("Use Firefox login for private content")
                                 << QStringLiteral("Needed for Instagram Stories and members-only videos. Firefox must be "
                                                   "installed and logged in.");
        QTest::newRow("no browser") << false << QStringLiteral("Use browser login for private content")
                                    << QStringLiteral("Off: no browser profile found on this computer. Sign in to Firefox, "
                                                      "Chromium, Chrome, Brave, Vivaldi, Opera or Edge to download "
                                                      "private content.");
    }
    void cookieRowNamesTheBrowser() {
        QFETCH(bool, profile);
        QFETCH(QString, label);
        QFETCH(QString, caption);
        if (!profile)
            QDir(firefoxProfile()).removeRecursively();
        const auto restore = qScopeGuard([] { QDir().mkpath(firefoxProfile()); });
        m_settings->setUseBrowserCookies(true);
        SettingsView view(*m_settings, *m_healer, *m_transcriber);
        auto *box = view.findChild<QCheckBox *>(QStringLiteral("cookies"));
        QCOMPARE(box->text(), label);
        QCOMPARE(box->isEnabled(), profile);
        QCOMPARE(box->isChecked(), profile);
        QCOMPARE(box->parentWidget()->findChild<QLabel *>(QStringLiteral("caption"))->text(), caption);
    }

    void outsideChangesRedrawTheForm() {
        m_settings->setSmartMode(false);
        m_settings->setDefaultModeRaw(QStringLiteral("audioOnly"));
        m_settings->setWhisperModel(QStringLiteral("small"));
        QVERIFY(!checkBox(QStringLiteral("Smart Mode — auto-download copied media links"))->isChecked());
        QCOMPARE(combo(0)->currentText(), QStringLiteral("Audio only"));
        QCOMPARE(combo(2)->currentData().toString(), QStringLiteral("small"));
        // An unknown stored mode reads as the default one.
        m_settings->setDefaultModeRaw(QStringLiteral("hologram"));
        QCOMPARE(combo(0)->currentText(), QStringLiteral("Video (best quality)"));
    }

    void stepperStaysWithinOneToSix() {
        QLabel *label = labelNamed("concurrentLabel");
        QCOMPARE(label->text(), QStringLiteral("Simultaneous downloads: 3"));
        for (int i = 0; i < 5; ++i)
            QTest::mouseClick(stepper(QStringLiteral("+")), Qt::LeftButton);
        QCOMPARE(m_settings->maxConcurrent(), 6);
        QCOMPARE(label->text(), QStringLiteral("Simultaneous downloads: 6"));
        QVERIFY(!stepper(QStringLiteral("+"))->isEnabled());
        for (int i = 0; i < 8; ++i)
            QTest::mouseClick(stepper(QStringLiteral("−")), Qt::LeftButton);
        QCOMPARE(m_settings->maxConcurrent(), 1);
        QCOMPARE(label->text(), QStringLiteral("Simultaneous downloads: 1"));
        QVERIFY(!stepper(QStringLiteral("−"))->isEnabled());
        QVERIFY(stepper(QStringLiteral("+"))->isEnabled());
    }

    void folderChooserSetsOrKeepsTheFolder() {
        const QString original = m_settings->downloadFolderPath();
        QString startedIn;
        QString answer;
        m_view->setFolderChooser([&](QWidget *, const QString &start) {
            startedIn = start;
            return answer;
        });
        QTest::mouseClick(button(QStringLiteral("Choose…")), Qt::LeftButton);
        QCOMPARE(startedIn, original);
        QCOMPARE(m_settings->downloadFolderPath(), original); // cancelled

        answer = m_dir->path() + QStringLiteral("/Elsewhere");
        QTest::mouseClick(button(QStringLiteral("Choose…")), Qt::LeftButton);
        QCOMPARE(m_settings->downloadFolderPath(), answer);
        QCOMPARE(m_view->findChild<ElidedLabel *>(QStringLiteral("folderPath"))->fullText(), answer);
    }

    void longFolderIsShortenedInTheMiddle() {
        const QString head = QStringLiteral("/home/someone/");
        const QString tail = QStringLiteral("/Final Folder");
        const QString path = head + QString(300, u'x') + tail;
        m_settings->setDownloadFolderPath(path);
        QApplication::processEvents();
        auto *label = m_view->findChild<ElidedLabel *>(QStringLiteral("folderPath"));
        const QString shown = label->text();
        QVERIFY(shown.contains(u'…'));
        QVERIFY(shown.startsWith(head));
        QVERIFY(shown.endsWith(tail));
        QVERIFY(label->fontMetrics().horizontalAdvance(shown) <= label->width());
        QVERIFY(label->width() < m_view->width());
        QCOMPARE(label->toolTip(), path);
    }

    void instructionsOpenTheHelpFile() {
        OpenRecorder recorder;
        QDesktopServices::setUrlHandler(QStringLiteral("file"), &recorder, "open");
        QTest::mouseClick(button(QStringLiteral("Show Instructions")), Qt::LeftButton);
        QDesktopServices::unsetUrlHandler(QStringLiteral("file"));
        QCOMPARE(recorder.opened.size(), 1);
        QCOMPARE(recorder.opened.first().toLocalFile(),
                 AppSettings::appSupportDir() + QStringLiteral("/Phone Hand-off Setup.txt"));
    }

    // One update at a time: the button and the action refuse while one runs; afterwards the
    // last-check row tells what the engine answered.
    void updateEngine_data() {
        QTest::addColumn<QString>("output");
        QTest::addColumn<QString>("lastCheck");
        QTest::newRow("updated") << QStringLiteral("Updated yt-dlp to 2025.02.01") << QStringLiteral("Engine updated");
        QTest::newRow("up to date") << QStringLiteral("yt-dlp is up to date (2025.01.01)")
                                    << QStringLiteral("Engine up to date");
    }
    void updateEngine() {
        QFETCH(QString, output);
        QFETCH(QString, lastCheck);
        scriptEngine(output, true);
        QWidget *row = m_view->findChild<QWidget *>(QStringLiteral("lastCheckRow"));
        QVERIFY(!row->isVisible());
        QCOMPARE(labelNamed("engineVersion")->text(), QStringLiteral("…"));
        vtest::await(m_healer->refreshVersion());
        QCOMPARE(labelNamed("engineVersion")->text(), QStringLiteral("2025.01.01"));

        QPushButton *update = m_view->findChild<QPushButton *>(QStringLiteral("updateEngine"));
        QTest::mouseClick(update, Qt::LeftButton);
        QCOMPARE(update->text(), QStringLiteral("Updating…"));
        QVERIFY(!update->isEnabled());
        QTest::mouseClick(update, Qt::LeftButton);
        m_view->updateEngineNow(); // even the action itself refuses while one runs
        QVERIFY(TestEnv::writeFile(release(), {}));
        QTRY_COMPARE(update->text(), QStringLiteral("Update Engine Now"));
        QVERIFY(update->isEnabled());
        QCOMPARE(engineRuns(), 1);
        QVERIFY(row->isVisible());
        QCOMPARE(labelNamed("lastCheck")->text(), lastCheck);
    }

    void modelDownloadBarFollowsTheTranscriber() {
        TrickleServer server(40000);
        Transcriber::Setup setup;
        setup.settings = m_settings.get();
        setup.modelsDir = m_dir->path() + QStringLiteral("/models");
        setup.modelRepository = QUrl(server.url(QStringLiteral("/resolve/main/")));
        setup.whisperURL = [] { return QString(); };
        setup.ffmpegURL = [] { return TestEnv::ffmpeg(); };
        Transcriber transcriber(setup);
        SettingsView view(*m_settings, *m_healer, transcriber);
        view.show();
        QWidget *row = view.findChild<QWidget *>(QStringLiteral("modelDownloadRow"));
        QVERIFY(row && !row->isVisible());

        bool finished = false;
        QCoro::connect(transcriber.ensureModel(), &view, [&] { finished = true; });
        QTRY_VERIFY(row->isVisible());
        QTRY_VERIFY(transcriber.modelDownloadProgress() > 0.2);
        QVERIFY(row->isVisible());
        QTRY_VERIFY_WITH_TIMEOUT(finished, 10000);
        QVERIFY(!row->isVisible());
    }
};

VORLIX_TEST_SUITE(SettingsViewTest)
#include "SettingsViewTest.moc"
