#include "console/SmallAids.h"

#include <QPlainTextEdit>

#include <QEvent>
#include <QFile>
#include <QFileDialog>
#include <QFrame>
#include <QHeaderView>
#include <QPainter>

namespace vq {
namespace {

QFrame* EtchedLine(const char* name, QFrame::Shape shape, QWidget* parent) {
    auto* line = new QFrame(parent);
    line->setObjectName(QString::fromLatin1(name));
    line->setFrameShape(shape);
    line->setFrameShadow(QFrame::Sunken);
    return line;
}

}  // namespace

QFrame* ucLN(const char* name, QWidget* parent) { return EtchedLine(name, QFrame::HLine, parent); }
QFrame* ucLNV(const char* name, QWidget* parent) { return EtchedLine(name, QFrame::VLine, parent); }

// Draws the two lines after the surface has painted its background, at every repaint.
class VqLine::Painter : public QObject {
  public:
    Painter(QPoint at, Qt::Orientation direction, int length)
        : at_(at), direction_(direction), length_(length) {}
    bool eventFilter(QObject* watched, QEvent* event) override {
        if (event->type() != QEvent::Paint) return false;
        auto* surface = static_cast<QWidget*>(watched);
        QPainter painter(surface);
        const QPoint step = direction_ == Qt::Horizontal ? QPoint(length_, 0) : QPoint(0, length_);
        const QPoint beside = direction_ == Qt::Horizontal ? QPoint(0, 1) : QPoint(1, 0);
        painter.setPen(surface->palette().color(QPalette::Dark));
        painter.drawLine(at_, at_ + step);
        painter.setPen(surface->palette().color(QPalette::Light));
        painter.drawLine(at_ + beside, at_ + beside + step);
        return false;
    }

  private:
    QPoint at_;
    Qt::Orientation direction_;
    int length_;
};

VqLine::~VqLine() { Clear(); }

void VqLine::InitVqLine(QPoint at, QWidget* surface, Qt::Orientation direction, int length) {
    Clear();
    surface_ = surface;
    painter_ = new Painter(at, direction, length);
    surface->installEventFilter(painter_);
    Refresh();
}

void VqLine::Refresh() {
    if (surface_) surface_->update();
}

void VqLine::Clear() {
    if (surface_) surface_->removeEventFilter(painter_);
    Refresh();
    delete painter_;
    painter_ = nullptr;
    surface_.clear();
}

void FixResize(QWidget& window, QSize minimum) { window.setMinimumSize(minimum); }

QSize TrueWindowSize(const QWidget& window) {
    return window.frameGeometry().size() - window.geometry().size();
}

std::string ComDial(QWidget* parent, const QString& filter, const QString& startFolder,
                    const QString& title, bool existingFile) {
    QFileDialog chooser(parent, title, startFolder, filter);
    chooser.setObjectName(QStringLiteral("ComDial"));
    chooser.setFileMode(existingFile ? QFileDialog::ExistingFile : QFileDialog::AnyFile);
    chooser.setOption(QFileDialog::ReadOnly, false);
    if (chooser.exec() != QDialog::Accepted || chooser.selectedFiles().isEmpty()) return {};
    return QFile::encodeName(chooser.selectedFiles().front()).toStdString();
}

QPlainTextEdit* NewFileTextBox(const QFont& font) {
    auto* box = new QPlainTextEdit;
    box->setObjectName(QStringLiteral("RichTextBox1"));
    box->setReadOnly(true);
    box->setLineWrapMode(QPlainTextEdit::NoWrap);
    box->setFont(font);
    return box;
}

QString FileTextForTheBox(const std::string& bytes) {
    QString text = QString::fromLocal8Bit(bytes.data(), static_cast<qsizetype>(bytes.size()));
    text.remove(QLatin1Char('\r'));
    return text;
}

void FlatHead(QHeaderView* header) {
    // Without clickable sections the header draws its captions flat, not as buttons.
    header->setSectionsClickable(false);
    header->setHighlightSections(false);
}

}  // namespace vq
