#pragma once
// The About box: the title, the version line, a legal notice, OK and "System Info...", which
// runs the desktop's system information tool when one is installed.
#include <QDialog>
#include <string>

class QLabel;
class QPushButton;

namespace vq {

struct Server;

// The first system information tool of the desktop found in the folders of `searchPath` (a
// PATH text); the empty text when there is none.
std::string FindSystemInfoTool(const std::string& searchPath);

class frmAbout : public QDialog {
    Q_OBJECT
  public:
    explicit frmAbout(Server& server, QWidget* parent = nullptr);

    // "System Info...": the tool, started in a window of its own, or the message that it is
    // unavailable, with the path tried.
    void StartSysInfo();

  private:
    Server& server_;
    QLabel* lblTitle;
    QLabel* lblVersion;
    QLabel* lblDisclaimer;
    QPushButton* cmdOK;
    QPushButton* cmdSysInfo;
};

// "About Orvantis Server": the box, modal over `parent`.
void ShowAboutBox(QWidget* parent, Server& server);

}  // namespace vq
