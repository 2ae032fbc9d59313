#include "ui/Spinner.h"

#include "ui/Brand.h"

#include <QElapsedTimer>
#include <QPainter>
#include <QSet>
#include <QTimer>

namespace {
// One clock and one timer for all spinners: they turn in step, and a hundred visible rows
// wake the event loop no more often than one.
class SpinnerDriver {
public:
    static SpinnerDriver &instance() {
        static SpinnerDriver driver;
        return driver;
    }
    void add(Spinner *spinner) {
        m_spinners.insert(spinner);
        if (!m_timer) {
            m_timer = new QTimer;
            m_timer->setInterval(Spinner::frameMs);
            QObject::connect(m_timer, &QTimer::timeout, [this] {
                for (Spinner *s : std::as_const(m_spinners))
                    s->update();
            });
        }
        if (!m_timer->isActive()) {
            m_clock.start();
            m_timer->start();
        }
    }
    void remove(Spinner *spinner) {
        m_spinners.remove(spinner);
        if (m_spinners.isEmpty() && m_timer)
            m_timer->stop();
    }
    bool isTicking() const { return m_timer && m_timer->isActive(); }
    // Degrees turned so far: one full turn per second.
    qreal angle() const { return m_clock.isValid() ? qreal(m_clock.elapsed() % 1000) * 0.36 : 0; }

private:
    QSet<Spinner *> m_spinners;
    QTimer *m_timer = nullptr; // lives as long as the process; never parented to a spinner
    QElapsedTimer m_clock;
};
} // namespace

Spinner::Spinner(QWidget *parent) : Spinner(defaultDiameter, Brand::ember(), parent) {}

Spinner::Spinner(int diameter, const QColor &colour, QWidget *parent)
    : QWidget(parent), m_diameter(diameter), m_colour(colour) {
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    setAccessibleName(QStringLiteral("Working"));
}

Spinner::~Spinner() { SpinnerDriver::instance().remove(this); }

void Spinner::setColour(const QColor &colour) {
    m_colour = colour;
    update();
}

QSize Spinner::sizeHint() const { return QSize(m_diameter, m_diameter); }

bool Spinner::isTicking() { return SpinnerDriver::instance().isTicking(); }

void Spinner::showEvent(QShowEvent *) { SpinnerDriver::instance().add(this); }
void Spinner::hideEvent(QHideEvent *) { SpinnerDriver::instance().remove(this); }

void Spinner::paintEvent(QPaintEvent *) {
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const qreal pen = std::max(1.5, m_diameter / 8.0);
    const QRectF box = QRectF(rect()).adjusted(pen / 2, pen / 2, -pen / 2, -pen / 2);
    QColor track = m_colour;
    track.setAlphaF(0.2f);
    p.setPen(QPen(track, pen));
    p.drawEllipse(box);
    p.setPen(QPen(m_colour, pen, Qt::SolidLine, Qt::RoundCap));
    // Qt's angles run counter-clockwise in 1/16 degree; turn clockwise.
    const int start = int(-SpinnerDriver::instance().angle() * 16) + 90 * 16;
    p.drawArc(box, start, -100 * 16);
}
