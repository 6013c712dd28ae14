#pragma once
// The splash screen of the start-up: the emblem, the version, a legal notice and the status
// word of the loading.
#include <QWidget>
#include <functional>
#include <string>

class QLabel;

namespace vq {

class frmSplash : public QWidget {
    Q_OBJECT
public:
    explicit frmSplash(QWidget* parent = nullptr);

    // Shows `word` in LabStat and paints the window at once: the loading holds the thread.
    void SetStatus(const std::string& word);

private:
    QLabel* imgLogo;
    QLabel* lblVersion;
    QLabel* lblCopyright;
    QLabel* LabStat;
};

// The status words of start-up on this splash (StartRequest::showStatus). The first word
// shows the splash: a start that ends before the loading (a second server, a LOGON start
// without StartServ) shows none.
std::function<void(const std::string&)> SplashStatus(frmSplash& splash);

}  // namespace vq
