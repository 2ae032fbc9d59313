#include "Await.h"
#include "FixtureSite.h"
#include "TestEnv.h"
#include "TestMain.h"

#include "analysis/Transcriber.h"
#include "core/AppSettings.h"
#include "engine/Tools.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>
#include <QtEndian>

#include <memory>

namespace {

// Answers every request with the same bytes and hangs up: the model host's redirect, a dropped connection.
class OneAnswer : public QTcpServer {
public:
    explicit OneAnswer(const QByteArray &answer) {
        listen(QHostAddress::LocalHost);
        connect(this, &QTcpServer::newConnection, this, [this, answer] {
            QTcpSocket *socket = nextPendingConnection();
            connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
            connect(socket, &QTcpSocket::readyRead, socket, [socket, answer, request = std::make_shared<QByteArray>()] {
                if ((*request += socket->readAll()).contains("\r\n\r\n") && socket->write(answer) > 0)
                    socket->disconnectFromHost();
            });
        });
    }
};

const QString modelFailure = QStringLiteral("Couldn't download the transcription model.");

} // namespace

class TranscriberTest : public QObject {
    Q_OBJECT

    std::unique_ptr<FixtureSite> m_site;
    QByteArray m_model; // the tiny random-weights model the site serves as "ggml-tiny.bin"
    QString m_speech;   // a few seconds of synthetic speech (AAC in .m4a)

    struct Fixture {
        std::unique_ptr<QTemporaryDir> dir;
        std::unique_ptr<AppSettings> settings;
        std::unique_ptr<Transcriber> transcriber;
        QString modelsDir() const { return dir->path() + QStringLiteral("/models"); }
        QString media(const QString &name, const QString &speech) const { return QFile::copy(speech, dir->filePath(name)) ? dir->filePath(name) : QString(); }
        // A model already on disk, so nothing is downloaded.
        bool haveModel() const { return TestEnv::writeFile(transcriber->modelURL(), "model"); }
    };

    // A transcriber of its own: fresh models folder, whisperModel "tiny", the given repository and tools.
    Fixture make(const QString &repository, const QString &whisper, const QString &ffmpeg = TestEnv::ffmpeg()) {
        Fixture f;
        f.dir = std::make_unique<QTemporaryDir>(TestEnv::root() + QStringLiteral("/transcriber-XXXXXX"));
        f.settings = std::make_unique<AppSettings>(f.dir->path() + QStringLiteral("/settings.ini"));
        f.settings->setWhisperModel(QStringLiteral("tiny"));
        Transcriber::Setup setup;
        setup.settings = f.settings.get();
        setup.modelsDir = f.modelsDir();
        setup.modelRepository = QUrl(repository);
        setup.whisperURL = [whisper] { return whisper; };
        setup.ffmpegURL = [ffmpeg] { return ffmpeg; };
        f.transcriber = std::make_unique<Transcriber>(setup);
        return f;
    }

    QString repository() const { return m_site->url(QStringLiteral("/hf/resolve/main/")); }
    int modelRequests() const { return int(m_site->requests().filter(QStringLiteral("ggml-tiny.bin")).size()); }

    // A recording whisper-cli stand-in that keeps a copy of the WAV it was given, then runs `tail`.
    static QString stubWhisper(const QString &tail) {
        return TestEnv::standIn(QStringLiteral("whisper-cli"), QStringLiteral("cp \"$4\" '%1/whisper.wav'\nbase=\"$8\"\n").arg(TestEnv::root()) + tail);
    }
    static QStringList whisperArgs() { return TestEnv::standInArgs(QStringLiteral("whisper-cli")); }

private Q_SLOTS:
    void initTestCase() {
        m_site = std::make_unique<FixtureSite>();
        QVERIFY(m_site->isRunning());
        const QString modelPath = m_site->put(QStringLiteral("hf/resolve/main/ggml-tiny.bin"), {});
        QVERIFY(TestEnv::runTool(QStringLiteral("python3"), {QStringLiteral(VORLIX_FIXTURES_DIR "/analysis_make_ggml_model.py"), modelPath}));
        m_model = TestEnv::readFile(modelPath);
        const QString wav = TestEnv::root() + QStringLiteral("/speech.wav");
        m_speech = TestEnv::root() + QStringLiteral("/speech.m4a");
        QVERIFY(TestEnv::runTool(QStringLiteral("espeak-ng"), {QStringLiteral("-w"), wav, QStringLiteral("Welcome to the lesson.")}));
        QVERIFY(TestEnv::runFfmpeg({QStringLiteral("-i"), wav, QStringLiteral("-c:a"), QStringLiteral("aac"), m_speech}));
    }

    void cleanup() { QCOMPARE(TestEnv::filesContaining(QDir::tempPath(), QStringLiteral("vorlix-whisper-")), QStringList()); } // every way out

    void modelLocations() {
        // The shared instance: the application-support models folder and the public repository over HTTPS.
        Transcriber &shared = Transcriber::shared();
        QCOMPARE(shared.modelURL(), AppSettings::appSupportDir() + QStringLiteral("/models/ggml-") + AppSettings::shared().whisperModel() + QStringLiteral(".bin"));
        const QUrl source = shared.modelDownloadURL(QStringLiteral("base"));
        QVERIFY2(source.scheme() == QStringLiteral("https") && source.path().endsWith(QStringLiteral("/resolve/main/ggml-base.bin")),
                 qPrintable(source.toString()));

        // A killed model download of an earlier run is swept; a current one and the user's files stay.
        QTemporaryDir dir(TestEnv::root() + QStringLiteral("/models-XXXXXX"));
        const QStringList names{QStringLiteral(".vorlix-OLD"), QStringLiteral(".vorlix-NOW"), QStringLiteral("ggml-tiny.bin"), QStringLiteral("notes.vorlix-OLD")};
        for (const QString &name : names) {
            QFile file(dir.filePath(name));
            QVERIFY(file.open(QIODevice::WriteOnly) && (name == names[1] || file.setFileTime(QDateTime::currentDateTimeUtc().addDays(-2), QFileDevice::FileModificationTime)));
        }
        Transcriber::Setup setup;
        setup.modelsDir = dir.path();
        Transcriber sweeping(setup);
        QCOMPARE(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden, QDir::Name), names.mid(1));
    }

    void ensureModel_data() {
        QTest::addColumn<QString>("repository"); // a path on the fixture site, or the one answer of a server of its own
        QTest::addColumn<bool>("lands");
        QTest::newRow("200") << QStringLiteral("/hf/resolve/main/") << true;
        QTest::newRow("404") << QStringLiteral("/nothing/resolve/main/") << false;
        QTest::newRow("success status other than 200") << QStringLiteral("/status-206/resolve/main/") << false;
        QTest::newRow("redirect to the file") << QStringLiteral("HTTP/1.1 302 Found\r\nLocation: %SITE%/hf/resolve/main/ggml-tiny.bin\r\nContent-Length: 0\r\n\r\n") << true;
        QTest::newRow("connection drops mid-body") << QStringLiteral("HTTP/1.1 200 OK\r\nContent-Length: 100000\r\n\r\n") + QString(5000, u'g') << false;
    }

    void ensureModel() {
        QFETCH(QString, repository);
        QFETCH(bool, lands);
        std::unique_ptr<OneAnswer> server;
        if (repository.startsWith(QStringLiteral("HTTP"))) {
            server = std::make_unique<OneAnswer>(repository.replace(QStringLiteral("%SITE%"), m_site->url(QString())).toUtf8());
            repository = QStringLiteral("/owner/repo/resolve/main/");
        }
        Fixture f = make(server ? QStringLiteral("http://127.0.0.1:%1%2").arg(server->serverPort()).arg(repository) : m_site->url(repository), QStringLiteral("/bin/true"));
        QSignalSpy downloading(f.transcriber.get(), &Transcriber::isDownloadingModelChanged);
        // Two downloads at once share the flag.
        QCoro::Task<> first = f.transcriber->ensureModel();
        QCoro::Task<> second = f.transcriber->ensureModel();
        QCOMPARE(f.transcriber->isDownloadingModel(), true);
        QCOMPARE(vtest::failure(std::move(first)) + vtest::failure(std::move(second)), lands ? QString() : modelFailure + modelFailure);
        QCOMPARE(downloading.size(), 2); // on, then off
        // Nothing half-written is left beside the model, whatever happened.
        QCOMPARE(QDir(f.modelsDir()).entryList(QDir::Files | QDir::Hidden), lands ? QStringList{QStringLiteral("ggml-tiny.bin")} : QStringList());
        QCOMPARE(f.transcriber->modelDownloadProgress(), lands ? 1.0 : 0.0);
        if (!lands)
            return;
        QVERIFY(TestEnv::readFile(f.transcriber->modelURL()) == m_model);
        // A model on disk means no network; an empty file is no model and is fetched again.
        QCOMPARE(vtest::failure(f.transcriber->ensureModel()), QString());
        QCOMPARE(downloading.size(), 2);
        QVERIFY(TestEnv::writeFile(f.transcriber->modelURL(), QByteArray()));
        QCOMPARE(vtest::failure(f.transcriber->ensureModel()), QString());
        QCOMPARE(downloading.size(), 4);
    }

    void realRecognizerWritesSubtitlesAndText() {
        const QString whisper = Tools::whisperURL();
        QVERIFY2(!whisper.isEmpty(), "the packaged whisper-cli is missing");
        Fixture f = make(repository(), whisper);
        const QString media = f.media(QStringLiteral("Talk.m4a"), m_speech);
        QVERIFY(TestEnv::writeFile(f.dir->filePath(QStringLiteral("Talk.srt")), "stale subtitles"));
        const int before = modelRequests();
        QCOMPARE(vtest::await(f.transcriber->transcribe(media)), f.dir->filePath(QStringLiteral("Talk.srt")));
        QCOMPARE(modelRequests(), before + 1);
        // A random-weights model recognizes nothing useful; the files and their shape are what count.
        QVERIFY(TestEnv::readFile(f.dir->filePath(QStringLiteral("Talk.srt"))).contains(" --> "));
        QVERIFY(QFileInfo::exists(f.dir->filePath(QStringLiteral("Talk.txt"))));
    }

    void recognizerCommandLine() {
        Fixture f = make(repository(), TestEnv::toolDir() + QStringLiteral("/whisper-cli"));
        QVERIFY(f.haveModel());
        for (const auto &[name, base] : {std::pair{QStringLiteral("Live 1.5 Talk.final.mkv"), QStringLiteral("Live 1.5 Talk.final")},
                                         {QStringLiteral("Talk"), QStringLiteral("Talk")}}) {
            const QString media = f.media(name, m_speech);
            stubWhisper(QStringLiteral("echo 1 > \"$base.srt\"; echo text > \"$base.txt\""));
            QCOMPARE(vtest::await(f.transcriber->transcribe(media)), f.dir->filePath(base + QStringLiteral(".srt")));
            const QStringList args = whisperArgs();
            QVERIFY2(QRegularExpression(u'^' + QRegularExpression::escape(QDir::tempPath()) + QStringLiteral("/vorlix-whisper-[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}\\.wav$"))
                         .match(args.value(3)).hasMatch(), qPrintable(args.value(3)));
            QCOMPARE(args, (QStringList{QStringLiteral("-m"), f.transcriber->modelURL(), QStringLiteral("-f"), args.value(3), QStringLiteral("-osrt"),
                                        QStringLiteral("-otxt"), QStringLiteral("-of"), f.dir->filePath(base)}));
        }
        // The recognizer was handed 16 kHz mono PCM.
        const QByteArray wav = TestEnv::readFile(TestEnv::root() + QStringLiteral("/whisper.wav"));
        QVERIFY(wav.size() > 44 && wav.startsWith("RIFF") && wav.mid(8, 8) == "WAVEfmt " && qFromLittleEndian<quint16>(wav.constData() + 22) == 1 &&
                qFromLittleEndian<quint32>(wav.constData() + 24) == 16000);
    }

    // What the recognizer said last is the message: at most 200 characters, never half a character.
    void recognizerFailures() {
        const QString digits = QStringLiteral("0123456789").repeated(20);
        const std::pair<QString, QString> rows[] = {
            {QStringLiteral("printf 'HEAD%1%2' >&2; exit 3").arg(QString(96, u'x'), digits), digits},
            {QStringLiteral("echo text > \"$base.txt\"; printf 'no srt' >&2"), QStringLiteral("no srt")}, // exit 0 without subtitles
            {QStringLiteral("printf 'bye' >&2; kill -9 $$"), QStringLiteral("bye")},
            {QStringLiteral("printf '%1' >&2; exit 1").arg(QStringLiteral("\U0001F3B5").repeated(250)), QStringLiteral("\U0001F3B5").repeated(200)}};
        for (const auto &[behaviour, expected] : rows) {
            Fixture f = make(repository(), stubWhisper(behaviour));
            QVERIFY(f.haveModel());
            QCOMPARE(vtest::failure(f.transcriber->transcribe(f.media(QStringLiteral("Talk.m4a"), m_speech))), QStringLiteral("Transcription failed: ") + expected);
        }
    }

    // Failures before the recognizer runs: it never sees a call, and no recognizer at all downloads nothing.
    void stopsBeforeRecognizing() {
        const QString conversion = QStringLiteral("Couldn't convert audio for transcription.");
        const QString notExecutable = TestEnv::root() + QStringLiteral("/stubs/not-executable");
        QVERIFY(TestEnv::writeFile(notExecutable, "#!/bin/sh\nexit 0\n") && TestEnv::writeFile(TestEnv::root() + QStringLiteral("/Talk.mp4"), "not a video"));
        const QString whisper = stubWhisper({}), site = repository(), nothing = m_site->url(QStringLiteral("/nothing/resolve/main/"));
        // repository, recognizer, ffmpeg, a model on disk, media, message
        const std::tuple<QString, QString, QString, bool, QString, QString> rows[] = {
            {site, whisper, QString(), true, m_speech, conversion},
            {site, whisper, TestEnv::ffmpeg(), true, TestEnv::root() + QStringLiteral("/Talk.mp4"), conversion},
            {nothing, whisper, TestEnv::ffmpeg(), false, m_speech, modelFailure}, // before any conversion starts
            {site, QString(), TestEnv::ffmpeg(), false, m_speech, QStringLiteral("whisper-cli not found (brew install whisper-cpp).")},
            {site, notExecutable, TestEnv::ffmpeg(), true, m_speech, QStringLiteral("Permission denied")}};
        for (const auto &[repo, recognizer, ffmpeg, model, media, expected] : rows) {
            Fixture f = make(repo, recognizer, ffmpeg);
            QVERIFY(!model || f.haveModel());
            const int before = modelRequests();
            QCOMPARE(vtest::failure(f.transcriber->transcribe(media)), expected);
            QVERIFY(whisperArgs().isEmpty());
            QCOMPARE(modelRequests(), before + int(repo == nothing));
        }
    }
};

VORLIX_TEST_SUITE(TranscriberTest)
#include "TranscriberTest.moc"
