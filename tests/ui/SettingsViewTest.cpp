#include "Await.h"
#include "UiHarness.h"

#include "analysis/Transcriber.h"
#include "engine/SelfHealer.h"
#include "ui/SettingsView.h"

using namespace Qt::StringLiterals;

class SettingsViewTest : public QObject {
    Q_OBJECT

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<AppSettings> m_settings;
    std::unique_ptr<SelfHealer> m_healer;
    std::unique_ptr<Transcriber> m_transcriber;
    std::unique_ptr<SettingsView> m_view;
    QString m_ytDlp;
    QString m_runLog;

    // A browser profile makes the settings offer the cookies box, so the naming walk covers it.
    static QString firefoxProfile() { return QDir::homePath() + u"/.mozilla/firefox"_s; }
    // The control of type T whose text reads `text` ("&&" read as "&").
    template <typename T> T *withText(const QString &text) const {
        for (T *w : m_view->findChildren<T *>())
            if (QString(w->text()).replace(u"&&"_s, u"&"_s) == text)
                return w;
        return nullptr;
    }
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

    void stepperStaysWithinOneToSix() {
        ui_test::verifyNamedControls(m_view.get()); // the one walk of this screen
        QToolButton *plus = withText<QToolButton>(u"+"_s), *minus = withText<QToolButton>(u"−"_s);
        for (int i = 0; i < 5; ++i) // one click more than there is room for, both ways
            QTest::mouseClick(plus, Qt::LeftButton);
        QVERIFY(m_settings->maxConcurrent() == 6 && !plus->isEnabled());
        for (int i = 0; i < 8; ++i)
            QTest::mouseClick(minus, Qt::LeftButton);
        QVERIFY(m_settings->maxConcurrent() == 1 && !minus->isEnabled() && plus->isEnabled());
    }

    void folderChooserSetsOrKeepsTheFolder() {
        const QString original = m_settings->downloadFolderPath();
        QString startedIn, answer; // empty: cancelled
        m_view->setFolderChooser([&](QWidget *, const QString &start) {
            startedIn = start;
            return answer;
        });
        QTest::mouseClick(withText<QPushButton>(u"Choose…"_s), Qt::LeftButton);
        QCOMPARE(startedIn, original);
        QCOMPARE(m_settings->downloadFolderPath(), original);

        answer = m_dir->path() + u"/Elsewhere"_s;
        QTest::mouseClick(withText<QPushButton>(u"Choose…"_s), Qt::LeftButton);
        QCOMPARE(m_view->findChild<ElidedLabel *>(u"folderPath"_s)->fullText(), m_settings->downloadFolderPath());
        QCOMPARE(m_settings->downloadFolderPath(), answer);
    }

    // One update at a time: the button and the action refuse while one runs; afterwards the
    // last-check row tells what the engine answered.
    void updateEngine_data() {
        QTest::addColumn<QString>("output");
        QTest::addColumn<QString>("lastCheck");
        QTest::newRow("updated") << u"Updated yt-dlp to 2025.02.01"_s << u"Engine updated"_s;
        QTest::newRow("up to date") << u"yt-dlp is up to date (2025.01.01)"_s << u"Engine up to date"_s;
    }
    void updateEngine() {
        QFETCH(QString, output);
        QFETCH(QString, lastCheck);
        scriptEngine(output, true);
        QWidget *row = m_view->findChild<QWidget *>(u"lastCheckRow"_s);
        QVERIFY(!row->isVisible());
        vtest::await(m_healer->refreshVersion());

        QPushButton *update = m_view->findChild<QPushButton *>(u"updateEngine"_s);
        QTest::mouseClick(update, Qt::LeftButton);
        QVERIFY(update->text() == u"Updating…"_s && !update->isEnabled());
        QTest::mouseClick(update, Qt::LeftButton);
        m_view->updateEngineNow(); // even the action itself refuses while one runs
        QVERIFY(TestEnv::writeFile(release(), {}));
        QTRY_COMPARE(update->text(), u"Update Engine Now"_s);
        QVERIFY(update->isEnabled() && row->isVisible());
        QCOMPARE(engineRuns(), 1);
        QCOMPARE(m_view->findChild<QLabel *>(u"lastCheck"_s)->text(), lastCheck);
    }
};

VORLIX_TEST_SUITE(SettingsViewTest)
#include "SettingsViewTest.moc"
