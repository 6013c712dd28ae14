#pragma once
// The queue folder dialog: the operator chooses the queue root, the dialog makes the folder
// and stores it as ServPath.
#include <QDialog>
#include <functional>
#include <string>

class QCheckBox;
class QLabel;
class QLineEdit;
class QPushButton;

namespace vq {

struct Server;

// Makes the folders of `path` from the top down, at most 21 of them: each one that is missing
// is made, one that can't be made is passed over. The last folder of the path, the queue root,
// is private (0700). A path that doesn't start at "/" makes nothing.
void AddDirs(const std::string& path);

class ShrForm : public QDialog {
    Q_OBJECT
public:
    ShrForm(Server& server, QWidget* parent = nullptr);

    // OK: makes the folder; when it can be listed, stores it as ServPath and closes,
    // otherwise says so and stays open.
    void Command2_Click();

private:
    void Command1_Click();  // Browse

    Server& server_;
    QLabel* Label2;
    QLabel* Label1;
    QLabel* Label3;
    QLineEdit* Text1;
    QPushButton* Command1;  // "Browse"
    QCheckBox* Check1;
    QLabel* Label5;
    QLabel* Label4;
    QPushButton* Command2;  // "OK"
    QPushButton* Command3;  // "Cancel"
};

// "Set Queue Folder": shows the dialog modally over `parent`; true when a folder was stored.
bool ShowQueueFolderDialog(QWidget* parent, Server& server);
// The chooser that start-up asks when no queue root counts (StartRequest::chooseQueueFolder);
// the dialog stands over `parent`, the splash, so that the splash can't hide it.
std::function<void()> QueueFolderChooser(Server& server, QWidget* parent);

}  // namespace vq
