#pragma once
// The log viewer: the server log as plain text, loaded again or cleared by the operator.
#include <QDialog>
#include <string>

class QPlainTextEdit;
class QPushButton;

namespace vq {

struct Server;

inline const char* const kNoErrorsInLog = "There Are No Errors In Log";

class frmLog : public QDialog {
    Q_OBJECT
public:
    frmLog(Server& server, QWidget* parent = nullptr);

    // Loads SrvLog.txt again; a missing, unreadable or empty log shows the no-errors text.
    void LoadLog();
    // Puts the one line "LOG CLEARED AT: " and the date in the box and saves it over the log.
    void ClearLog();

protected:
    void showEvent(QShowEvent* event) override;

private:
    std::string LogPath() const;

    Server& server_;
    QPlainTextEdit* RichTextBox1;
    QPushButton* Command2;  // "&Reload Log"
    QPushButton* Command1;  // "Clear &Log"
    QPushButton* OKButton;  // "&Close"
};

// Opens the log viewer modally over `parent`.
void ShowServerLog(QWidget* parent, Server& server);

}  // namespace vq
