// The floor for bench/startup.sh: a bare Qt window of the same size, nothing else.
#include <QApplication>
#include <QMainWindow>

int main(int argc, char **argv) {
    QApplication app(argc, argv);
    QMainWindow window;
    window.setWindowTitle(QStringLiteral("Baseline"));
    window.resize(860, 560);
    window.show();
    return app.exec();
}
