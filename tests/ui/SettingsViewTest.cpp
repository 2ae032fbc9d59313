#include "Await.h"
#include "UiHarness.h"

#include "analysis/Transcriber.h"
#include "engine/SelfHealer.h"
#include "ui/Brand.h"
#include "ui/SettingsView.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDesktopServices>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QScopeGuard>

using namespace Qt::StringLiterals;

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
        return u"http://127.0.0.1:%1%2"_s.arg(m_server.serverPort()).arg(path);
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

    static QString firefoxProfile() { return QDir::homePath() + u"/.mozilla/firefox"_s; }
    // The control of type T whose text reads `text` ("&&" read as "&").
    template <typename T> T *withText(const QString &text) const {
        for (T *w : m_view->findChildren<T *>())
            if (QString(w->text()).replace(u"&&"_s, u"&"_s) == text)
                return w;
        return nullptr;
    }
    QComboBox *combo(int index) const { return m_view->findChildren<QComboBox *>().value(index); }
    QLabel *labelNamed(const char *name) const { return m_view->findChild<QLabel *>(QLatin1String(name)); }
    int engineRuns() const {
        QFile f(m_runLog);
        return f.open(QIODevice::ReadOnly) ? int(f.readAll().count("-U")) : 0;
    }

    QString release() const { return m_dir->path() + u"/release"_s; }
    // A downloader stand-in: answers its version and, on -U, waits for release() (when `hold`)
    // and prints `output`.
    void scriptEngine(const QString &output, bool hold = false) {
        TestEnv::writeScript(m_ytDlp, u"#!/bin/sh\necho \"$@\" >> '%1'\n"
                                      "if [ \"$1\" = --version ]; then echo 2025.01.01; exit 0; fi\n"
                                      "i=0; while %2 [ ! -f '%3' ] && [ $i -lt 200 ]; do sleep 0.05; i=$((i+1)); done\n"
                                      "echo '%4'\n"_s.arg(m_runLog, hold ? QString() : u"false &&"_s, release(), output));
    }

private Q_SLOTS:
    void initTestCase() {
        Brand::applyDarkAppearance(*qApp);
        QVERIFY(QDir().mkpath(firefoxProfile()));
    }
    void cleanupTestCase() { QDir(firefoxProfile()).removeRecursively(); }

    void init() {
        m_dir = std::make_unique<QTemporaryDir>(TestEnv::root() + u"/settings-XXXXXX"_s);
        m_settings = std::make_unique<AppSettings>(m_dir->path() + u"/Vorlix.conf"_s);
        m_ytDlp = m_dir->path() + u"/yt-dlp"_s;
        m_runLog = m_dir->path() + u"/runs.log"_s;
        scriptEngine(u"yt-dlp is up to date (2025.01.01)"_s);
        const QString tool = m_ytDlp;
        m_healer = std::make_unique<SelfHealer>(*m_settings, [tool] { return tool; }, [] { return 2e9; });
        Transcriber::Setup setup;
        setup.settings = m_settings.get();
        setup.modelsDir = m_dir->path() + u"/models"_s;
        setup.modelRepository = QUrl(u"http://127.0.0.1:9/"_s);
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
        for (QLabel *l : m_view->findChildren<QLabel *>(u"sectionTitle"_s))
            titles << l->text();
        QCOMPARE(titles, (QStringList{u"Downloads"_s, u"Capture"_s,
                                      u"Transcription"_s, u"Engine"_s}));
        QCOMPARE(AccessibleNames::unnamedControls(m_view.get()), QStringList());
    }

    void togglesWriteTheirKeyAtOnce_data() {
        QTest::addColumn<QString>("label");
        QTest::addColumn<QString>("key");
        QTest::newRow("prefer mp4") << u"Prefer MP4 (most compatible)"_s << u"preferMP4"_s;
        QTest::newRow("organize") << u"Organize library into folders"_s << u"organizeDownloads"_s;
        QTest::newRow("auto analyze") << u"Auto-detect BPM & key after audio downloads"_s
                                      << u"autoAnalyzeAudio"_s;
        QTest::newRow("smart mode") << u"Smart Mode — auto-download copied media links"_s
                                    << u"smartMode"_s;
        QTest::newRow("inbox") << u"Watch phone inbox"_s
                               << u"watchiCloudInbox"_s;
        QTest::newRow("cookies") << u"Use Firefox login for private content"_s
                                 << u"useBrowserCookies"_s;
    }
    void togglesWriteTheirKeyAtOnce() {
        QFETCH(QString, label);
        QFETCH(QString, key);
        QCheckBox *box = withText<QCheckBox>(label);
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
        QTest::newRow("audio only") << 0 << 2 << u"defaultMode"_s << u"audioOnly"_s;
        QTest::newRow("m4a") << 1 << 1 << u"audioFormat"_s << u"m4a"_s;
        QTest::newRow("small model") << 2 << 1 << u"whisperModel"_s << u"small"_s;
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
        QTest::newRow("firefox") << true << u"Use Firefox login for private content"_s
                                 << QStringLiteral("Needed for Instagram Stories and members-only videos. Firefox must be "
                                                   "installed and logged in.");
        QTest::newRow("no browser") << false << u"Use browser login for private content"_s
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
        auto *box = view.findChild<QCheckBox *>(u"cookies"_s);
        QCOMPARE(box->text(), label);
        QCOMPARE(box->isEnabled(), profile);
        QCOMPARE(box->isChecked(), profile);
        QCOMPARE(box->parentWidget()->findChild<QLabel *>(u"caption"_s)->text(), caption);
    }

    void outsideChangesRedrawTheForm() {
        m_settings->setSmartMode(false);
        m_settings->setDefaultModeRaw(u"audioOnly"_s);
        m_settings->setWhisperModel(u"small"_s);
        QVERIFY(!withText<QCheckBox>(u"Smart Mode — auto-download copied media links"_s)->isChecked());
        QCOMPARE(combo(0)->currentText(), u"Audio only"_s);
        QCOMPARE(combo(2)->currentData().toString(), u"small"_s);
        // An unknown stored mode reads as the default one.
        m_settings->setDefaultModeRaw(u"hologram"_s);
        QCOMPARE(combo(0)->currentText(), u"Video (best quality)"_s);
    }

    void stepperStaysWithinOneToSix() {
        QLabel *label = labelNamed("concurrentLabel");
        QCOMPARE(label->text(), u"Simultaneous downloads: 3"_s);
        for (int i = 0; i < 5; ++i)
            QTest::mouseClick(withText<QToolButton>(u"+"_s), Qt::LeftButton);
        QCOMPARE(m_settings->maxConcurrent(), 6);
        QCOMPARE(label->text(), u"Simultaneous downloads: 6"_s);
        QVERIFY(!withText<QToolButton>(u"+"_s)->isEnabled());
        for (int i = 0; i < 8; ++i)
            QTest::mouseClick(withText<QToolButton>(u"−"_s), Qt::LeftButton);
        QCOMPARE(m_settings->maxConcurrent(), 1);
        QCOMPARE(label->text(), u"Simultaneous downloads: 1"_s);
        QVERIFY(!withText<QToolButton>(u"−"_s)->isEnabled());
        QVERIFY(withText<QToolButton>(u"+"_s)->isEnabled());
    }

    void folderChooserSetsOrKeepsTheFolder() {
        const QString original = m_settings->downloadFolderPath();
        QString startedIn;
        QString answer;
        m_view->setFolderChooser([&](QWidget *, const QString &start) {
            startedIn = start;
            return answer;
        });
        QTest::mouseClick(withText<QPushButton>(u"Choose…"_s), Qt::LeftButton);
        QCOMPARE(startedIn, original);
        QCOMPARE(m_settings->downloadFolderPath(), original); // cancelled

        answer = m_dir->path() + u"/Elsewhere"_s;
        QTest::mouseClick(withText<QPushButton>(u"Choose…"_s), Qt::LeftButton);
        QCOMPARE(m_settings->downloadFolderPath(), answer);
        QCOMPARE(m_view->findChild<ElidedLabel *>(u"folderPath"_s)->fullText(), answer);
    }

    void longFolderIsShortenedInTheMiddle() {
        const QString head = u"/home/someone/"_s;
        const QString tail = u"/Final Folder"_s;
        const QString path = head + QString(300, u'x') + tail;
        m_settings->setDownloadFolderPath(path);
        QApplication::processEvents();
        auto *label = m_view->findChild<ElidedLabel *>(u"folderPath"_s);
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
        QDesktopServices::setUrlHandler(u"file"_s, &recorder, "open");
        QTest::mouseClick(withText<QPushButton>(u"Show Instructions"_s), Qt::LeftButton);
        QDesktopServices::unsetUrlHandler(u"file"_s);
        QCOMPARE(recorder.opened.size(), 1);
        QCOMPARE(recorder.opened.first().toLocalFile(),
                 AppSettings::appSupportDir() + u"/Phone Hand-off Setup.txt"_s);
    }

    // One update at a time: the button and the action refuse while one runs; afterwards the
    // last-check row tells what the engine answered.
    void updateEngine_data() {
        QTest::addColumn<QString>("output");
        QTest::addColumn<QString>("lastCheck");
        QTest::newRow("updated") << u"Updated yt-dlp to 2025.02.01"_s << u"Engine updated"_s;
        QTest::newRow("up to date") << u"yt-dlp is up to date (2025.01.01)"_s
                                    << u"Engine up to date"_s;
    }
    void updateEngine() {
        QFETCH(QString, output);
        QFETCH(QString, lastCheck);
        scriptEngine(output, true);
        QWidget *row = m_view->findChild<QWidget *>(u"lastCheckRow"_s);
        QVERIFY(!row->isVisible());
        QCOMPARE(labelNamed("engineVersion")->text(), u"…"_s);
        vtest::await(m_healer->refreshVersion());
        QCOMPARE(labelNamed("engineVersion")->text(), u"2025.01.01"_s);

        QPushButton *update = m_view->findChild<QPushButton *>(u"updateEngine"_s);
        QTest::mouseClick(update, Qt::LeftButton);
        QCOMPARE(update->text(), u"Updating…"_s);
        QVERIFY(!update->isEnabled());
        QTest::mouseClick(update, Qt::LeftButton);
        m_view->updateEngineNow(); // even the action itself refuses while one runs
        QVERIFY(TestEnv::writeFile(release(), {}));
        QTRY_COMPARE(update->text(), u"Update Engine Now"_s);
        QVERIFY(update->isEnabled());
        QCOMPARE(engineRuns(), 1);
        QVERIFY(row->isVisible());
        QCOMPARE(labelNamed("lastCheck")->text(), lastCheck);
    }

    void modelDownloadBarFollowsTheTranscriber() {
        TrickleServer server(40000);
        Transcriber::Setup setup;
        setup.settings = m_settings.get();
        setup.modelsDir = m_dir->path() + u"/models"_s;
        setup.modelRepository = QUrl(server.url(u"/resolve/main/"_s));
        setup.whisperURL = [] { return QString(); };
        setup.ffmpegURL = [] { return TestEnv::ffmpeg(); };
        Transcriber transcriber(setup);
        SettingsView view(*m_settings, *m_healer, transcriber);
        view.show();
        QWidget *row = view.findChild<QWidget *>(u"modelDownloadRow"_s);
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
