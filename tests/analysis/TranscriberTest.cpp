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

// A one-answer web server: every request gets the same scripted bytes, then the connection closes.
// It stands in for the model host's redirect and for a connection that drops mid-body.
class ScriptedServer : public QTcpServer {
public:
    explicit ScriptedServer(const QByteArray &response) {
        listen(QHostAddress::LocalHost);
        connect(this, &QTcpServer::newConnection, this, [this, response] {
            while (QTcpSocket *socket = nextPendingConnection()) {
                connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
                connect(socket, &QTcpSocket::readyRead, socket, [this, socket, response] {
                    socket->setProperty("request", QByteArray(socket->property("request").toByteArray() + socket->readAll()));
                    if (socket->property("request").toByteArray().contains("\r\n\r\n") && socket->write(response) > 0)
                        socket->disconnectFromHost();
                });
            }
        });
    }
    QString url(const QString &path) const { return QStringLiteral("http://127.0.0.1:%1%2").arg(serverPort()).arg(path); }
};

QByteArray redirectTo(const QString &location) {
    return "HTTP/1.1 302 Found\r\nLocation: " + location.toUtf8() + "\r\nContent-Length: 0\r\nConnection: close\r\n\r\n";
}

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
            QVERIFY(file.open(QIODevice::WriteOnly) && file.write("bytes") == 5 && file.flush());
            if (name != names[1])
                QVERIFY(file.setFileTime(QDateTime::currentDateTimeUtc().addDays(-2), QFileDevice::FileModificationTime));
        }
        Transcriber::Setup setup;
        setup.modelsDir = dir.path();
        Transcriber sweeping(setup);
        QCOMPARE(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden, QDir::Name), names.mid(1));
    }

    void ensureModel_data() {
        QTest::addColumn<QString>("repositoryPath"); // on the fixture site; empty: the scripted server
        QTest::addColumn<QByteArray>("scripted");    // "%SITE%" stands for the fixture site's address
        QTest::addColumn<bool>("lands");
        QTest::newRow("200") << QStringLiteral("/hf/resolve/main/") << QByteArray() << true;
        QTest::newRow("404") << QStringLiteral("/nothing/resolve/main/") << QByteArray() << false;
        QTest::newRow("redirect to the file") << QString() << redirectTo(QStringLiteral("%SITE%/hf/resolve/main/ggml-tiny.bin")) << true;
        QTest::newRow("connection drops mid-body")
            << QString() << QByteArray("HTTP/1.1 200 OK\r\nContent-Length: 100000\r\nConnection: close\r\n\r\n") + QByteArray(5000, 'g') << false;
        QTest::newRow("success status other than 200")
            << QString() << QByteArray("HTTP/1.1 206 Partial Content\r\nContent-Length: 4\r\nContent-Range: bytes 0-3/9000\r\nConnection: close\r\n\r\nggml") << false;
    }

    void ensureModel() {
        QFETCH(QString, repositoryPath);
        QFETCH(QByteArray, scripted);
        QFETCH(bool, lands);
        std::unique_ptr<ScriptedServer> server;
        if (repositoryPath.isEmpty())
            server = std::make_unique<ScriptedServer>(scripted.replace("%SITE%", m_site->url(QString()).toUtf8()));
        Fixture f = make(server ? server->url(QStringLiteral("/owner/repo/resolve/main/")) : m_site->url(repositoryPath), QStringLiteral("/bin/true"));
        QSignalSpy downloading(f.transcriber.get(), &Transcriber::isDownloadingModelChanged);

        QCOMPARE(vtest::failure(f.transcriber->ensureModel()), lands ? QString() : modelFailure);
        QCOMPARE(downloading.size(), 2); // on, then off
        QCOMPARE(f.transcriber->isDownloadingModel(), false);
        // Nothing half-written is left beside the model, whatever happened.
        QCOMPARE(QDir(f.modelsDir()).entryList(QDir::Files | QDir::Hidden), lands ? QStringList{QStringLiteral("ggml-tiny.bin")} : QStringList());
        QCOMPARE(f.transcriber->modelDownloadProgress(), lands ? 1.0 : 0.0);
        QVERIFY(!lands || TestEnv::readFile(f.transcriber->modelURL()) == m_model);
    }

    void concurrentDownloadsShareTheFlag() {
        ScriptedServer cdn(redirectTo(m_site->url(QStringLiteral("/hf/resolve/main/ggml-tiny.bin?rate=4000000"))));
        Fixture f = make(cdn.url(QStringLiteral("/resolve/main/")), QStringLiteral("/bin/true"));
        QSignalSpy downloading(f.transcriber.get(), &Transcriber::isDownloadingModelChanged);
        QCoro::Task<> first = f.transcriber->ensureModel();
        QCoro::Task<> second = f.transcriber->ensureModel();
        QCOMPARE(f.transcriber->isDownloadingModel(), true);
        QCOMPARE(vtest::failure(std::move(first)) + vtest::failure(std::move(second)), QString());
        QCOMPARE(downloading.size(), 2);
        QVERIFY(TestEnv::readFile(f.transcriber->modelURL()) == m_model);
        QCOMPARE(QDir(f.modelsDir()).entryList(QDir::Files | QDir::Hidden), QStringList{QStringLiteral("ggml-tiny.bin")});

        // A model on disk means no network; an empty file is no model and is fetched again.
        QSignalSpy again(f.transcriber.get(), &Transcriber::isDownloadingModelChanged);
        QCOMPARE(vtest::failure(f.transcriber->ensureModel()), QString());
        QVERIFY(again.isEmpty());
        QVERIFY(TestEnv::writeFile(f.transcriber->modelURL(), QByteArray()));
        QCOMPARE(vtest::failure(f.transcriber->ensureModel()), QString());
        QCOMPARE(again.size(), 2);
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
            const QRegularExpression wavName(u'^' + QRegularExpression::escape(QDir::tempPath()) +
                                             QStringLiteral("/vorlix-whisper-[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}\\.wav$"));
            QVERIFY2(wavName.match(args.value(3)).hasMatch(), qPrintable(args.value(3)));
            QCOMPARE(args, (QStringList{QStringLiteral("-m"), f.transcriber->modelURL(), QStringLiteral("-f"), args.value(3), QStringLiteral("-osrt"),
                                        QStringLiteral("-otxt"), QStringLiteral("-of"), f.dir->filePath(base)}));
        }
        // The recognizer was handed 16 kHz mono PCM.
        const QByteArray wav = TestEnv::readFile(TestEnv::root() + QStringLiteral("/whisper.wav"));
        QVERIFY(wav.size() > 44 && wav.startsWith("RIFF") && wav.mid(8, 8) == "WAVEfmt ");
        QCOMPARE(qFromLittleEndian<quint16>(wav.constData() + 22), quint16(1));
        QCOMPARE(qFromLittleEndian<quint32>(wav.constData() + 24), quint32(16000));
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

    // Failures before the recognizer runs: it never sees a call.
    void stopsBeforeRecognizing() {
        const auto fails = [&](const Fixture &f, const QString &media, const QString &expected) {
            QCOMPARE(vtest::failure(f.transcriber->transcribe(media)), expected);
            QVERIFY(whisperArgs().isEmpty());
        };
        const QString conversion = QStringLiteral("Couldn't convert audio for transcription.");
        Fixture noFfmpeg = make(repository(), stubWhisper({}), QString());
        QVERIFY(noFfmpeg.haveModel());
        fails(noFfmpeg, noFfmpeg.media(QStringLiteral("Talk.m4a"), m_speech), conversion);
        Fixture notMedia = make(repository(), stubWhisper({}));
        QVERIFY(notMedia.haveModel() && TestEnv::writeFile(notMedia.dir->filePath(QStringLiteral("Talk.mp4")), "not a video"));
        fails(notMedia, notMedia.dir->filePath(QStringLiteral("Talk.mp4")), conversion);
        // A model that cannot be fetched stops the call before any conversion starts.
        fails(make(m_site->url(QStringLiteral("/nothing/resolve/main/")), stubWhisper({})), m_speech, modelFailure);

        // No recognizer at all fails before any download; one that cannot start says why.
        const int before = modelRequests();
        fails(make(repository(), QString()), m_speech, QStringLiteral("whisper-cli not found (brew install whisper-cpp)."));
        QCOMPARE(modelRequests(), before);
        const QString notExecutable = TestEnv::root() + QStringLiteral("/stubs/not-executable");
        QVERIFY(TestEnv::writeFile(notExecutable, "#!/bin/sh\nexit 0\n"));
        Fixture denied = make(repository(), notExecutable);
        QVERIFY(denied.haveModel());
        fails(denied, m_speech, QStringLiteral("Permission denied"));
    }
};

VORLIX_TEST_SUITE(TranscriberTest)
#include "TranscriberTest.moc"
