#include "console/frmSplash.h"

#include <QCoreApplication>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QPainterPath>
#include <QScreen>
#include <QGuiApplication>
#include <QVBoxLayout>

#include "core/Server.h"

namespace vq {
namespace {

// The emblem: a queue of four tasks, the first one running.
QPixmap Emblem(int side) {
    QPixmap pixmap(side, side);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    QPainterPath frame;
    frame.addRoundedRect(QRectF(0, 0, side, side), side / 6.0, side / 6.0);
    painter.fillPath(frame, QColor(0x1f, 0x4e, 0x79));
    const double margin = side * 0.18, gap = side * 0.06;
    const double barHeight = (side - 2 * margin - 3 * gap) / 4;
    for (int i = 0; i < 4; ++i) {
        const double y = margin + i * (barHeight + gap);
        const double width = (side - 2 * margin) * (i == 0 ? 1.0 : 0.85 - 0.12 * i);
        painter.setPen(Qt::NoPen);
        painter.setBrush(i == 0 ? QColor(0x7f, 0xd1, 0x7f) : QColor(0xdd, 0xe6, 0xf0));
        painter.drawRoundedRect(QRectF(margin, y, width, barHeight), barHeight / 3, barHeight / 3);
    }
    return pixmap;
}

QLabel* NewLabel(const QString& text, const char* name) {
    auto* label = new QLabel(text);
    label->setObjectName(QString::fromLatin1(name));
    return label;
}

}  // namespace

frmSplash::frmSplash(QWidget* parent)
    : QWidget(parent, Qt::SplashScreen | Qt::FramelessWindowHint) {
    setObjectName(QStringLiteral("frmSplash"));
    setWindowTitle(QString::fromStdString(kAppTitle));

    auto* frame = new QFrame;
    frame->setObjectName(QStringLiteral("Frame1"));
    frame->setFrameShape(QFrame::Box);
    QPalette white = frame->palette();
    white.setColor(QPalette::Window, Qt::white);
    white.setColor(QPalette::WindowText, QColor(0x1f, 0x4e, 0x79));
    frame->setPalette(white);
    frame->setAutoFillBackground(true);

    imgLogo = NewLabel(QString(), "imgLogo");
    imgLogo->setPixmap(Emblem(96));
    auto* title = NewLabel(QString::fromStdString(kAppTitle), "lblProductName");
    QFont big = title->font();
    big.setBold(true);
    big.setPointSizeF(big.pointSizeF() * 1.8);
    title->setFont(big);
    lblVersion = NewLabel(QString::fromStdString("Personal Server Version " + VersionNumberText()),
                          "lblVersion");
    lblCopyright = NewLabel(QStringLiteral("Copyright \u00a9 Halvenor. All rights reserved."),
                            "lblCopyright");
    LabStat = NewLabel(QStringLiteral("Loading Application..."), "LabStat");
    for (QLabel* label : {title, lblVersion, lblCopyright, LabStat}) {
        QPalette text = label->palette();
        text.setColor(QPalette::WindowText, label == title ? QColor(0x1f, 0x4e, 0x79) : Qt::black);
        label->setPalette(text);
    }

    auto* words = new QVBoxLayout;
    words->addWidget(title);
    words->addWidget(lblVersion);
    words->addStretch();
    words->addWidget(lblCopyright);
    auto* top = new QHBoxLayout;
    top->addWidget(imgLogo, 0, Qt::AlignTop);
    top->addSpacing(18);
    top->addLayout(words, 1);

    auto* inside = new QVBoxLayout(frame);
    inside->setContentsMargins(24, 24, 24, 16);
    inside->addLayout(top);
    inside->addSpacing(20);
    inside->addWidget(LabStat);
    auto* outer = new QVBoxLayout(this);
    outer->setContentsMargins(0, 0, 0, 0);
    outer->addWidget(frame);
    setFixedSize(sizeHint().expandedTo(QSize(460, 0)));
    if (const QScreen* screen = QGuiApplication::primaryScreen())
        move(screen->availableGeometry().center() - rect().center());
}

void frmSplash::SetStatus(const std::string& word) {
    LabStat->setText(QString::fromStdString(word));
    repaint();
    // The window system may not have drawn the window yet: let it, without taking input.
    QCoreApplication::processEvents(QEventLoop::ExcludeUserInputEvents);
}

std::function<void(const std::string&)> SplashStatus(frmSplash& splash) {
    return [&splash](const std::string& word) {
        if (!splash.isVisible()) splash.show();
        splash.SetStatus(word);
    };
}

}  // namespace vq
