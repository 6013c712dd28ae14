#pragma once
// The main window: the menus, the toolbar, the tree of task groups, the task and step lists,
// the status bar, the splitter, the window's placement and its closing path. What the lists
// show and which commands are enabled is decided by the task views; this shows it.
#include <QHash>
#include <QMainWindow>
#include <QRect>
#include <array>
#include <functional>
#include <memory>
#include <string>

#include "console/TaskViews.h"
#include "core/Screen.h"

class QAction;
class QFrame;
class QLabel;
class QMenu;
class QToolBar;
class QTreeView;
class QTreeWidget;
class QTreeWidgetItem;

namespace vq {

struct Server;
class ViewTableModel;

// Where SizeControls puts the panes, in twips of the client area below the toolbar.
struct PaneLayout {
    QRect tree, taskView, stepView, splitter;
};
// The panes for a client area and a splitter position `x` (raised to 1440, lowered to the
// client width less 1500).
PaneLayout SizeControlsLayout(int clientWidth, int clientHeight, int x);
// The splitter bar while it is dragged: at least 500 from the left edge, at most 500 from
// the right.
int LimitSplitterBar(int x, int clientWidth);

class Form1 : public QMainWindow, public Screen, private ViewListener {
    Q_OBJECT
public:
    explicit Form1(Server& server, QWidget* parent = nullptr);
    ~Form1() override;

    TaskViews& Views() { return *views_; }

    // The loading of the window at start-up: columns, the tree with Jobs selected, the panes,
    // the task list of Jobs and the queue commands as the queue stands.
    void LoadAtStart();
    // Placement from StartSet, with the minimum size, and the window shown in its state.
    void ShowAtStart();
    // A close by the session or a signal: the question answers itself after 3000 ms.
    void CloseBySystem();

    // Screen.
    void LoadTree() override;
    void SaveColumnWidths() override;
    void QueueSwitched(bool started) override;

    // Commands, as the menus and the toolbar run them.
    void mnuFileStartQ_Click();
    void mnuFileStopQ_Click();
    void mnuFileFolder_Click();
    void mnuControlsReady_Click();
    void mnuControlsHold_Click();
    void mnuControlsCancel_Click();
    void mnuViewStepWin_Click();
    void mnuViewRefresh_Click();
    void mnuViewProp_Click();
    void mnuHelpContents_Click();
    void Toolbar1_ButtonClick(const QString& key);
    void SizeControls(int x);

    // The windows that open from this one, set by the application; one that isn't set opens
    // nothing, and the commands' states don't depend on it.
    std::function<void(const std::string& taskKey)> OpenPropertiesWindow;
    std::function<void()> ShowQueueFolderDialog;
    std::function<void()> ShowServerLog;
    std::function<void()> ShowOptionsDialog;
    std::function<void()> ShowSupportPage;
    std::function<void()> ShowAboutBox;
    // When the queue folder chosen again can't be used, the program ends at once.
    std::function<void()> EndProgram;

protected:
    void closeEvent(QCloseEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void changeEvent(QEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    // ViewListener.
    void NodeAdded(const TreeNode& node) override;
    void NodeSelected(const std::string& key) override;
    void BeforeInsert(ViewList list, size_t position) override;
    void AfterInsert(ViewList list) override;
    void BeforeRemove(ViewList list, size_t position) override;
    void AfterRemove(ViewList list) override;
    void BeforeReset(ViewList list) override;
    void AfterReset(ViewList list) override;
    void CellChanged(ViewList list, size_t position, int column) override;
    void SelectionChanged(ViewList list) override;
    void CommandsChanged() override;
    void StatusChanged() override;

    void BuildMenus();
    void BuildToolbar();
    void BuildPanes();
    void BuildStatusBar();
    QAction* AddMenuItem(QMenu* menu, const char* name, const char* caption, QKeySequence key,
                         void (Form1::*handler)());
    void AddSeparator(QMenu* menu, const char* name);
    ViewTableModel& ModelOf(ViewList list);
    QTreeView* ViewOf(ViewList list);
    void ApplyColumnWidths(ViewList list);
    void OnTaskRowActivated(const QModelIndex& index);
    void OnTaskContextMenu(const QPoint& at);
    void OnStepCurrentChanged(const QModelIndex& index);
    void OnTreeItemChanged(QTreeWidgetItem* item);
    void ShowClock();
    void SavePlacement();
    int Twips(int pixels) const;
    int Pixels(int twips) const;

    Server& server_;
    std::unique_ptr<TaskViews> views_;
    std::unique_ptr<ViewTableModel> taskModel_;
    std::unique_ptr<ViewTableModel> stepModel_;
    QTreeWidget* tree_ = nullptr;
    QHash<QString, QTreeWidgetItem*> nodeItems_;
    QTreeView* taskView_ = nullptr;
    QTreeView* stepView_ = nullptr;
    QToolBar* toolbar_ = nullptr;
    QWidget* client_ = nullptr;
    QWidget* imgSplitter_ = nullptr;
    QWidget* picSplitter_ = nullptr;
    std::array<QFrame*, 3> lines_{};
    std::array<QLabel*, 6> panels_{};
    QMenu* controlsMenu_ = nullptr;
    // Where the operator put the splitter, in twips (a narrow window moves it only while it
    // is narrow), and the flag that it is being dragged.
    int splitterX_ = 2880;
    bool splitterMoving_ = false;
    // Set while the task views change the lists, so that the widgets' own signals of those
    // changes aren't taken for the operator's clicks.
    int syncing_ = 0;
    bool closeBySystem_ = false;
    bool closing_ = false;
    bool ending_ = false;
    std::string helpFile_;
};

}  // namespace vq
