#include "console/DialogOperator.h"

#include <QPushButton>
#include <QApplication>
#include <QMessageBox>
#include <QTimer>

namespace vq {
namespace {

QMessageBox::Icon BoxIcon(MessageIcon icon) {
    switch (icon) {
        case MessageIcon::Information:
            return QMessageBox::Information;
        case MessageIcon::Exclamation:
            return QMessageBox::Warning;
        case MessageIcon::Critical:
            return QMessageBox::Critical;
        case MessageIcon::Question:
            return QMessageBox::Question;
        case MessageIcon::None:
            break;
    }
    return QMessageBox::NoIcon;
}

}  // namespace

void DialogOperator::Message(const std::string& text, MessageIcon icon, const std::string& title) {
    QMessageBox box(BoxIcon(icon), QString::fromStdString(title), QString::fromStdString(text),
                    QMessageBox::Ok, parent_);
    box.exec();
}

bool DialogOperator::AskYesNo(const std::string& text, const std::string& title, int autoYesMs) {
    QMessageBox box(QMessageBox::Question, QString::fromStdString(title),
                    QString::fromStdString(text), QMessageBox::Yes | QMessageBox::No, parent_);
    box.setDefaultButton(QMessageBox::Yes);
    // The timer belongs to the box: an answer before it fires closes the box and ends it.
    if (autoYesMs > 0)
        QTimer::singleShot(autoYesMs, &box, [&box] {
            box.raise();
            box.activateWindow();
            box.defaultButton()->click();
        });
    return box.exec() == QMessageBox::Yes;
}

void DialogOperator::Beep() { QApplication::beep(); }

}  // namespace vq
