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
#include <QHash>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>
#include <QtEndian>

#include <memory>

namespace {

QStringList temporaryWavs() { return TestEnv::filesContaining(QDir::tempPath(), QStringLiteral("vorlix-whisper-")); }

// A one-answer web server: every request gets the same scripted bytes, then the connection closes.
// It stands in for the model host's redirect and for a connection that drops mid-body.
class ScriptedServer : public QObject {
public:
    explicit ScriptedServer(QByteArray response) : m_response(std::move(response)) {
        m_server.listen(QHostAddress::LocalHost);
        connect(&m_server, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket *socket = m_server.nextPendingConnection()) {
                connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
                connect(socket, &QTcpSocket::readyRead, socket, [this, socket] {
                    QByteArray &request = m_pending[socket];
                    request += socket->readAll();
                    if (!request.contains("\r\n\r\n"))
                        return;
                    ++m_requests;
                    socket->write(m_response);
                    socket->disconnectFromHost();
                });
            }
        });
    }
    QString url(const QString &path) const {
        return QStringLiteral("http://127.0.0.1:%1%2").arg(m_server.serverPort()).arg(path);
    }
    int requests() const { return m_requests; }

private:
    QTcpServer m_server;
    QByteArray m_response;
    QHash<QTcpSocket *, QByteArray> m_pending;
    int m_requests = 0;
};

QByteArray redirectTo(const QString &location) {
    return QByteArrayLiteral("HTTP/1.1 302 Found\r\nLocation: ") + location.toUtf8() +
           QByteArrayLiteral("\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
}

} // namespace

class TranscriberTest : public QObject {
    Q_OBJECT

    std::unique_ptr<FixtureSite> m_site;
    QByteArray m_model;          // the tiny random-weights model the site serves as "ggml-tiny.bin"
    QString m_speech;            // a few seconds of synthetic speech (AAC in .m4a)
    QString m_stubLog;           // where the recording whisper-cli stub writes its arguments

    struct Fixture {
        std::unique_ptr<QTemporaryDir> dir;
        std::unique_ptr<AppSettings> settings;
        std::unique_ptr<Transcriber> transcriber;
        QString modelsDir() const { return dir->path() + QStringLiteral("/models"); }
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

    int modelRequests() const {
        return int(m_site->requests().filter(QStringLiteral("ggml-tiny.bin")).size());
    }

    // A whisper-cli stand-in that records its arguments and a copy of the WAV it was given, then
    // behaves as `tail` says.
    QString stubWhisper(const QString &tail) {
        return TestEnv::writeScript(TestEnv::root() + QStringLiteral("/stubs/whisper-cli"),
                                    QStringLiteral("#!/bin/sh\n"
                                                   "log='%1'\n"
                                                   ": > \"$log\"\n"
                                                   "for a in \"$@\"; do printf '%s\\n' \"$a\" >> \"$log\"; done\n"
                                                   "cp \"$4\" \"$log.wav\"\n"
                                                   "base=\"$8\"\n")
                                            .arg(m_stubLog) +
                                        tail);
    }

private Q_SLOTS:
    void initTestCase() {
        m_site = std::make_unique<FixtureSite>();
        QVERIFY(m_site->isRunning());
        const QString modelPath = m_site->put(QStringLiteral("hf/resolve/main/ggml-tiny.bin"), {});
        QString err;
        QVERIFY2(TestEnv::runTool(QStringLiteral("python3"), {QStringLiteral(VORLIX_FIXTURES_DIR "/analysis_make_ggml_model.py"), modelPath}, &err),
                 qPrintable(err));
        m_model = TestEnv::readFile(modelPath);
        QVERIFY(m_model.size() > 100000);
        const QString wav = TestEnv::root() + QStringLiteral("/speech.wav");
        m_speech = TestEnv::root() + QStringLiteral("/speech.m4a");
        QVERIFY(TestEnv::runTool(QStringLiteral("espeak-ng"), {QStringLiteral("-w"), wav, QStringLiteral("Welcome to the lesson. Today we practice the chorus slowly.")}));
        QVERIFY(TestEnv::runFfmpeg({QStringLiteral("-i"), wav, QStringLiteral("-c:a"), QStringLiteral("aac"), m_speech}));
        m_stubLog = TestEnv::root() + QStringLiteral("/stubs/whisper-args.txt");
    }

    void init() { QFile::remove(m_stubLog); }

    void cleanup() {
        // Every way out of a transcription deletes its temporary WAV.
        QCOMPARE(temporaryWavs(), QStringList());
    }

    void modelLocationFollowsTheSetting() {
        Fixture f = make(QStringLiteral("https://models.example/owner/repo/resolve/main/"), QString());
        QCOMPARE(f.transcriber->modelURL(), f.modelsDir() + QStringLiteral("/ggml-tiny.bin"));
        f.settings->setWhisperModel(QStringLiteral("small"));
        QCOMPARE(f.transcriber->modelURL(), f.modelsDir() + QStringLiteral("/ggml-small.bin"));
        QCOMPARE(f.transcriber->modelDownloadURL(QStringLiteral("small")),
                 QUrl(QStringLiteral("https://models.example/owner/repo/resolve/main/ggml-small.bin")));

        // The shared instance: the application-support models folder and the public repository over HTTPS.
        Transcriber &shared = Transcriber::shared();
        QCOMPARE(shared.modelURL(), AppSettings::appSupportDir() + QStringLiteral("/models/ggml-") +
                                        AppSettings::shared().whisperModel() + QStringLiteral(".bin"));
        const QUrl source = shared.modelDownloadURL(QStringLiteral("base"));
        QCOMPARE(source.scheme(), QStringLiteral("https"));
        QVERIFY2(source.path().endsWith(QStringLiteral("/resolve/main/ggml-base.bin")), qPrintable(source.toString()));
    }

    // A killed model download of an earlier run is swept; a current one and the user's files stay.
    void staleModelPartialsAreSwept() {
        QTemporaryDir dir(TestEnv::root() + QStringLiteral("/models-XXXXXX"));
        const QStringList names{QStringLiteral(".vorlix-OLD"), QStringLiteral(".vorlix-NOW"), QStringLiteral("ggml-tiny.bin"),
                                QStringLiteral("notes.vorlix-OLD")};
        for (const QString &name : names)
            QVERIFY(TestEnv::writeFile(dir.filePath(name), "bytes"));
        for (const QString &name : {names.at(0), names.at(2), names.at(3)}) {
            QFile file(dir.filePath(name));
            QVERIFY(file.open(QIODevice::ReadWrite));
            QVERIFY(file.setFileTime(QDateTime::currentDateTimeUtc().addDays(-2), QFileDevice::FileModificationTime));
        }
        Transcriber::Setup setup;
        setup.modelsDir = dir.path();
        Transcriber transcriber(setup);
        QCOMPARE(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden, QDir::Name), names.mid(1));
    }

    void ensureModel_data() {
        QTest::addColumn<QString>("repositoryPath"); // on the fixture site; empty: the scripted server
        QTest::addColumn<QByteArray>("scripted");    // "%SITE%" stands for the fixture site's address
        QTest::addColumn<bool>("lands");

        QTest::newRow("200") << QStringLiteral("/hf/resolve/main/") << QByteArray() << true;
        QTest::newRow("404") << QStringLiteral("/nothing/resolve/main/") << QByteArray() << false;
        QTest::newRow("redirect to the file")
            << QString() << redirectTo(QStringLiteral("%SITE%/hf/resolve/main/ggml-tiny.bin")) << true;
        QTest::newRow("redirect to a server error")
            << QString() << redirectTo(QStringLiteral("%SITE%/hf/resolve/main/ggml-tiny.bin?status=500")) << false;
        QTest::newRow("connection drops mid-body")
            << QString()
            << QByteArrayLiteral("HTTP/1.1 200 OK\r\nContent-Length: 100000\r\nConnection: close\r\n\r\n") +
                   QByteArray(5000, 'g')
            << false;
        QTest::newRow("success status other than 200")
            << QString()
            << QByteArrayLiteral("HTTP/1.1 206 Partial Content\r\nContent-Length: 4\r\nContent-Range: bytes 0-3/9000\r\n"
                                 "Connection: close\r\n\r\nggml")
            << false;
    }

    void ensureModel() {
        QFETCH(QString, repositoryPath);
        QFETCH(QByteArray, scripted);
        QFETCH(bool, lands);

        std::unique_ptr<ScriptedServer> server;
        QString repo;
        if (repositoryPath.isEmpty()) {
            scripted.replace("%SITE%", m_site->url(QString()).toUtf8());
            server = std::make_unique<ScriptedServer>(scripted);
            repo = server->url(QStringLiteral("/owner/repo/resolve/main/"));
        } else {
            repo = m_site->url(repositoryPath);
        }
        Fixture f = make(repo, QStringLiteral("/bin/true"));
        QSignalSpy downloading(f.transcriber.get(), &Transcriber::isDownloadingModelChanged);

        const QString failure = vtest::failure(f.transcriber->ensureModel());
        QCOMPARE(downloading.size(), 2); // on, then off
        QCOMPARE(f.transcriber->isDownloadingModel(), false);
        // Nothing half-written is left beside the model, whatever happened.
        QCOMPARE(QDir(f.modelsDir()).entryList(QDir::Files | QDir::Hidden),
                 lands ? QStringList{QStringLiteral("ggml-tiny.bin")} : QStringList());
        QCOMPARE(failure, lands ? QString() : QStringLiteral("Couldn't download the transcription model."));
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
        QCOMPARE(vtest::failure(std::move(first)), QString());
        QCOMPARE(vtest::failure(std::move(second)), QString());

        QVERIFY(cdn.requests() >= 2); // Qt may resend a request on a connection the server closed
        QCOMPARE(downloading.size(), 2);
        QCOMPARE(f.transcriber->isDownloadingModel(), false);
        QVERIFY(TestEnv::readFile(f.transcriber->modelURL()) == m_model);
        QCOMPARE(QDir(f.modelsDir()).entryList(QDir::Files | QDir::Hidden), QStringList{QStringLiteral("ggml-tiny.bin")});
    }

    void presentModelMeansNoNetwork() {
        Fixture f = make(repository(), QStringLiteral("/bin/true"));
        QVERIFY(TestEnv::writeFile(f.transcriber->modelURL(), QByteArrayLiteral("a model already on disk")));
        QSignalSpy downloading(f.transcriber.get(), &Transcriber::isDownloadingModelChanged);
        const int before = modelRequests();

        QCOMPARE(vtest::failure(f.transcriber->ensureModel()), QString());
        QCOMPARE(modelRequests(), before);
        QCOMPARE(downloading.size(), 0);
        QCOMPARE(TestEnv::readFile(f.transcriber->modelURL()), QByteArrayLiteral("a model already on disk"));

        // An empty file is no model: it is fetched again.
        QVERIFY(TestEnv::writeFile(f.transcriber->modelURL(), QByteArray()));
        QCOMPARE(vtest::failure(f.transcriber->ensureModel()), QString());
        QCOMPARE(modelRequests(), before + 1);
        QVERIFY(TestEnv::readFile(f.transcriber->modelURL()) == m_model);
    }

    void missingWhisperFailsBeforeAnyDownload() {
        Fixture f = make(repository(), QString());
        QSignalSpy downloading(f.transcriber.get(), &Transcriber::isDownloadingModelChanged);
        const int before = modelRequests();

        QCOMPARE(vtest::failure(f.transcriber->transcribe(m_speech)),
                 QStringLiteral("whisper-cli not found (brew install whisper-cpp)."));
        QCOMPARE(modelRequests(), before);
        QCOMPARE(downloading.size(), 0);
        QVERIFY(!QFileInfo::exists(f.transcriber->modelURL()));
    }

    void realRecognizerWritesSubtitlesAndText() {
        const QString whisper = Tools::whisperURL();
        QVERIFY2(!whisper.isEmpty(), "the packaged whisper-cli is missing");
        Fixture f = make(repository(), whisper);
        const QString folder = f.dir->path() + QStringLiteral("/My Media");
        const QString media = folder + QStringLiteral("/Talk.m4a");
        QVERIFY(QDir().mkpath(folder));
        QVERIFY(QFile::copy(m_speech, media));
        QVERIFY(TestEnv::writeFile(folder + QStringLiteral("/Talk.srt"), QByteArrayLiteral("stale subtitles")));
        const int before = modelRequests();

        const QString srt = vtest::await(f.transcriber->transcribe(media));
        QCOMPARE(srt, folder + QStringLiteral("/Talk.srt"));
        QCOMPARE(modelRequests(), before + 1);
        QVERIFY(TestEnv::readFile(f.transcriber->modelURL()) == m_model);
        // A random-weights model recognizes nothing useful; the files and their shape are what count.
        const QByteArray subtitles = TestEnv::readFile(srt);
        QVERIFY2(subtitles.contains(" --> "), subtitles.constData());
        QVERIFY(QFileInfo::exists(folder + QStringLiteral("/Talk.txt")));
        QCOMPARE(QDir(folder).entryList(QDir::Files),
                 (QStringList{QStringLiteral("Talk.m4a"), QStringLiteral("Talk.srt"), QStringLiteral("Talk.txt")}));
    }

    void realRecognizerRejectsABrokenModel() {
        const QString whisper = Tools::whisperURL();
        QVERIFY(!whisper.isEmpty());
        Fixture f = make(repository(), whisper);
        QByteArray garbage(4096, '\0');
        for (int i = 0; i < garbage.size(); ++i)
            garbage[i] = char((i * 7919 + 13) % 251);
        QVERIFY(TestEnv::writeFile(f.transcriber->modelURL(), garbage));
        const QString media = f.dir->path() + QStringLiteral("/Talk.m4a");
        QVERIFY(QFile::copy(m_speech, media));

        const QString failure = vtest::failure(f.transcriber->transcribe(media));
        const QString prefix = QStringLiteral("Transcription failed: ");
        QVERIFY2(failure.startsWith(prefix), qPrintable(failure));
        const QString tail = failure.mid(prefix.size());
        QVERIFY2(tail.size() <= 200 && tail.contains(QStringLiteral("failed to initialize whisper context")), qPrintable(tail));
        QVERIFY(!QFileInfo::exists(f.dir->path() + QStringLiteral("/Talk.srt")));
    }

    void recognizerCommandLine_data() {
        QTest::addColumn<QString>("mediaName");
        QTest::addColumn<QString>("base");
        QTest::newRow("dots in the name") << QStringLiteral("Live 1.5 Talk.final.mkv") << QStringLiteral("Live 1.5 Talk.final");
        QTest::newRow("no extension") << QStringLiteral("Talk") << QStringLiteral("Talk");
    }

    void recognizerCommandLine() {
        QFETCH(QString, mediaName);
        QFETCH(QString, base);
        const QString whisper = stubWhisper(QStringLiteral("echo '1' > \"$base.srt\"; echo text > \"$base.txt\"\n"));
        Fixture f = make(repository(), whisper);
        QVERIFY(TestEnv::writeFile(f.transcriber->modelURL(), QByteArrayLiteral("model")));
        const QString media = f.dir->path() + u'/' + mediaName;
        QVERIFY(QFile::copy(m_speech, media));

        QCOMPARE(vtest::await(f.transcriber->transcribe(media)), f.dir->path() + u'/' + base + QStringLiteral(".srt"));
        const QStringList args = QString::fromUtf8(TestEnv::readFile(m_stubLog)).split(u'\n', Qt::SkipEmptyParts);
        QCOMPARE(args.size(), 8);
        const QRegularExpression wavName(QStringLiteral("^") + QRegularExpression::escape(QDir::tempPath()) +
                                         QStringLiteral("/vorlix-whisper-[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}\\.wav$"));
        QVERIFY2(wavName.match(args.at(3)).hasMatch(), qPrintable(args.at(3)));
        QCOMPARE(args, (QStringList{QStringLiteral("-m"), f.transcriber->modelURL(), QStringLiteral("-f"), args.at(3),
                                    QStringLiteral("-osrt"), QStringLiteral("-otxt"), QStringLiteral("-of"),
                                    f.dir->path() + u'/' + base}));

        // The recognizer was handed 16 kHz mono PCM.
        const QByteArray wav = TestEnv::readFile(m_stubLog + QStringLiteral(".wav"));
        QVERIFY(wav.size() > 44 && wav.startsWith("RIFF") && wav.mid(8, 8) == "WAVEfmt ");
        QCOMPARE(qFromLittleEndian<quint16>(wav.constData() + 22), quint16(1));
        QCOMPARE(qFromLittleEndian<quint32>(wav.constData() + 24), quint32(16000));
    }

    void recognizerFailures_data() {
        QTest::addColumn<QString>("behaviour");
        QTest::addColumn<QString>("expected");

        const QString digits = QStringLiteral("0123456789").repeated(20);
        QTest::newRow("long error output keeps its last 200 characters")
            << QStringLiteral("printf 'HEAD%s' '%1' >&2; printf '%2' >&2; exit 3\n").arg(QString(96, u'x'), digits)
            << QStringLiteral("Transcription failed: ") + digits;
        QTest::newRow("exit 0 without subtitles")
            << QStringLiteral("echo text > \"$base.txt\"; printf 'no srt' >&2; exit 0\n")
            << QStringLiteral("Transcription failed: no srt");
        QTest::newRow("killed by a signal")
            << QStringLiteral("printf 'bye' >&2; kill -9 $$\n") << QStringLiteral("Transcription failed: bye");
        QTest::newRow("multi-byte characters are not cut in half")
            << QStringLiteral("printf '%1' >&2; exit 1\n").arg(QStringLiteral("\U0001F3B5").repeated(250))
            << QStringLiteral("Transcription failed: ") + QStringLiteral("\U0001F3B5").repeated(200);
    }

    void recognizerFailures() {
        QFETCH(QString, behaviour);
        QFETCH(QString, expected);
        Fixture f = make(repository(), stubWhisper(behaviour));
        QVERIFY(TestEnv::writeFile(f.transcriber->modelURL(), QByteArrayLiteral("model")));
        const QString media = f.dir->path() + QStringLiteral("/Talk.m4a");
        QVERIFY(QFile::copy(m_speech, media));

        QCOMPARE(vtest::failure(f.transcriber->transcribe(media)), expected);
        QVERIFY(QFileInfo::exists(m_stubLog)); // the recognizer did run
    }

    void conversionFailures_data() {
        QTest::addColumn<QString>("media");     // relative to the fixture folder
        QTest::addColumn<QByteArray>("content"); // written unless null
        QTest::addColumn<bool>("hasFfmpeg");

        QTest::newRow("missing file") << QStringLiteral("absent.mp4") << QByteArray() << true;
        QTest::newRow("not media") << QStringLiteral("Talk.mp4") << QByteArrayLiteral("this is not a video at all") << true;
        QTest::newRow("no ffmpeg") << QStringLiteral("Talk.m4a") << QByteArray("copy") << false;
    }

    void conversionFailures() {
        QFETCH(QString, media);
        QFETCH(QByteArray, content);
        QFETCH(bool, hasFfmpeg);
        Fixture f = make(repository(), stubWhisper(QStringLiteral("exit 0\n")), hasFfmpeg ? TestEnv::ffmpeg() : QString());
        QVERIFY(TestEnv::writeFile(f.transcriber->modelURL(), QByteArrayLiteral("model")));
        const QString path = f.dir->path() + u'/' + media;
        if (content == "copy")
            QVERIFY(QFile::copy(m_speech, path));
        else if (!content.isNull())
            QVERIFY(TestEnv::writeFile(path, content));

        QCOMPARE(vtest::failure(f.transcriber->transcribe(path)), QStringLiteral("Couldn't convert audio for transcription."));
        QVERIFY(!QFileInfo::exists(m_stubLog)); // the recognizer never ran
    }

    void unavailableModelStopsBeforeConversion() {
        // A model that cannot be fetched stops the call before any conversion starts.
        Fixture f = make(m_site->url(QStringLiteral("/nothing/resolve/main/")), stubWhisper(QStringLiteral("exit 0\n")));
        QCOMPARE(vtest::failure(f.transcriber->transcribe(m_speech)), QStringLiteral("Couldn't download the transcription model."));
        QVERIFY(!QFileInfo::exists(m_stubLog));
        QVERIFY(!QFileInfo::exists(f.transcriber->modelURL()));
    }

    void recognizerThatCannotStartPassesTheLaunchErrorOn() {
        const QString notExecutable = TestEnv::root() + QStringLiteral("/stubs/not-executable");
        QVERIFY(TestEnv::writeFile(notExecutable, QByteArrayLiteral("#!/bin/sh\nexit 0\n")));
        Fixture f = make(repository(), notExecutable);
        QVERIFY(TestEnv::writeFile(f.transcriber->modelURL(), QByteArrayLiteral("model")));

        QCOMPARE(vtest::failure(f.transcriber->transcribe(m_speech)), QStringLiteral("Permission denied"));
    }
};

VORLIX_TEST_SUITE(TranscriberTest)
#include "TranscriberTest.moc"
