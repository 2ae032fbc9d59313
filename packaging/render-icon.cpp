// Renders the scalable icon to the fixed-size PNGs that launchers and docks without SVG
// support look for. Runs at build time: render-icon <in.svg> <out.png> <size>.
#include <QGuiApplication>
#include <QImage>
#include <QPainter>
#include <QSvgRenderer>

#include <cstdio>

int main(int argc, char **argv) {
    if (argc != 4) {
        std::fprintf(stderr, "usage: %s <in.svg> <out.png> <size>\n", argv[0]);
        return 2;
    }
    // No display at build time; the offscreen platform is enough for painting into an image.
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    const QStringList args = app.arguments();
    bool ok = false;
    const int size = args[3].toInt(&ok);
    QSvgRenderer svg(args[1]);
    if (!ok || size <= 0 || !svg.isValid()) {
        std::fprintf(stderr, "render-icon: cannot render %s at %s\n", argv[1], argv[3]);
        return 1;
    }
    QImage image(size, size, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    svg.render(&painter);
    painter.end();
    return image.save(args[2], "PNG") ? 0 : 1;
}
