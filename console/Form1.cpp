#include "console/Form1.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QDesktopServices>
#include <QFrame>
#include <QHeaderView>
#include <QLabel>
#include <QLocale>
#include <QMenu>
#include <QMenuBar>
#include <QMouseEvent>
#include <QStatusBar>
#include <QTime>
#include <QTimer>
#include <QToolBar>
#include <QTreeView>
#include <QTreeWidget>
#include <QUrl>
#include <QVBoxLayout>
#include <algorithm>

#include "access/QueueFolders.h"
#include "console/Icons.h"
#include "console/SmallAids.h"
#include "console/ViewTableModel.h"
#include "core/QueueCycle.h"
#include "core/Server.h"
#include "core/Startup.h"
#include "core/TaskControl.h"
#include "core/TaskHold.h"
#include "core/tables/WorkingTables.h"
#include "storage/QueueDatabase.h"
#include "storage/Settings.h"

namespace vq {
namespace {

constexpr const char* kPlacementSection = "StartSet";
constexpr int kMinimumWidth = 9500, kMinimumHeight = 7000;

QString Q(const char* text) { return QString::fromUtf8(text); }

struct ToolButton {
    const char* key;
    const char* caption;
    const char* toolTip;
    const char* image;
    bool separatorAfter;
};

constexpr ToolButton kToolButtons[] = {
    {"Run", "Resume", "Resume Task", "run", false},
    {"Pause", "Hold", "Hold Task", "hold", false},
    {"Stop", "Cancel", "Cancel Task", "stop", true},
    {"Previous", "Previous", "Previous Task", "prev", false},
    {"Next", "Next", "Next Task", "next", true},
    {"Prop", "Prop", "Task's Properties", "prop", false},
    {"Refresh", "Refresh", "Refresh View", "ref", true},
    {"StartQ", "Start", "Start Queue", "runq", false},
    {"StopQ", "Stop", "Stop Queue", "stopq", false},
};

}  // namespace

PaneLayout SizeControlsLayout(int clientWidth, int clientHeight, int x) {
    x = std::max(x, 1440);
    x = std::min(x, clientWidth - 1500);
    constexpr int top = 150;
    const int treeHeight = std::max(clientHeight - 30 - top, 0);
    const int listLeft = x + 40;
    const int listWidth = std::max(clientWidth - listLeft - 180, 0);
    const int taskHeight = std::max(treeHeight * 2 / 3 - 100, 0);
    PaneLayout layout;
    layout.tree = QRect(0, top, std::max(x, 0), treeHeight);
    layout.taskView = QRect(listLeft, top, listWidth, taskHeight);
    layout.stepView = QRect(listLeft, top + taskHeight + 40, listWidth, treeHeight / 3 + 60);
    layout.splitter = QRect(x, top, 40, treeHeight);
    return layout;
}

int LimitSplitterBar(int x, int clientWidth) {
    return std::max(500, std::min(x, clientWidth - 500));
}

Form1::Form1(Server& server, QWidget* parent) : QMainWindow(parent), server_(server) {
    setObjectName(Q("Form1"));
    setWindowTitle(QString::fromStdString(MainWindowTitle()));
    setWindowIcon(ImageIcon(Q("Jobs")));
    views_ = std::make_unique<TaskViews>(server_, static_cast<ViewListener&>(*this));
    taskModel_ = std::make_unique<ViewTableModel>(server_.tables.TaskView, ImageIcon(Q("Jobs")));
    stepModel_ = std::make_unique<ViewTableModel>(server_.tables.StepView, ImageIcon(Q("Jobs")));
    EndProgram = [] { QCoreApplication::exit(1); };
    BuildMenus();
    BuildToolbar();
    BuildPanes();
    BuildStatusBar();
    setMinimumSize(Pixels(kMinimumWidth), Pixels(kMinimumHeight));
    CommandsChanged();
}

Form1::~Form1() {
    // The lists outlive the window: nobody may hear of them any more.
    taskView_->setModel(nullptr);
    stepView_->setModel(nullptr);
}

int Form1::Twips(int pixels) const { return PixelsToTwips(pixels, logicalDpiX()); }
int Form1::Pixels(int twips) const { return TwipsToPixels(twips, logicalDpiX()); }

QAction* Form1::AddMenuItem(QMenu* menu, const char* name, const char* caption, QKeySequence key,
                            void (Form1::*handler)()) {
    QAction* action = menu->addAction(Q(caption));
    action->setObjectName(Q(name));
    action->setShortcut(key);
    if (handler) connect(action, &QAction::triggered, this, [this, handler] { (this->*handler)(); });
    return action;
}

void Form1::AddSeparator(QMenu* menu, const char* name) {
    menu->addSeparator()->setObjectName(Q(name));
}

void Form1::BuildMenus() {
    // A thin line under the menu bar separates it from the toolbar.
    auto* top = new QWidget(this);
    auto* topLayout = new QVBoxLayout(top);
    topLayout->setContentsMargins(0, 0, 0, 0);
    topLayout->setSpacing(0);
    auto* bar = new QMenuBar(top);
    topLayout->addWidget(bar);
    lines_[2] = new QFrame(top);
    lines_[2]->setObjectName(Q("ucLN3"));
    lines_[2]->setFrameShape(QFrame::HLine);
    lines_[2]->setFrameShadow(QFrame::Sunken);
    topLayout->addWidget(lines_[2]);
    setMenuWidget(top);

    QMenu* file = bar->addMenu(Q("&Server"));
    file->setObjectName(Q("mnuFile"));
    AddMenuItem(file, "mnuFileStartQ", "&Start Queue", QKeySequence(Q("Ctrl+S")),
                &Form1::mnuFileStartQ_Click);
    AddMenuItem(file, "mnuFileStopQ", "Sto&p Queue", QKeySequence(Q("Ctrl+T")),
                &Form1::mnuFileStopQ_Click);
    AddSeparator(file, "mnuFileBar1");
    AddMenuItem(file, "mnuFileFolder", "Set &Queue Folder", {}, &Form1::mnuFileFolder_Click);
    AddSeparator(file, "mnuFileBar2");
    QAction* exit = AddMenuItem(file, "mnuFileExit", "E&xit", {}, nullptr);
    connect(exit, &QAction::triggered, this, &QWidget::close);

    controlsMenu_ = bar->addMenu(Q("&Task"));
    controlsMenu_->setObjectName(Q("mnuControls"));
    AddMenuItem(controlsMenu_, "mnuControlsReady", "&Resume", QKeySequence(Q("Ctrl+R")),
                &Form1::mnuControlsReady_Click);
    AddMenuItem(controlsMenu_, "mnuControlsHold", "&Hold", QKeySequence(Q("Ctrl+H")),
                &Form1::mnuControlsHold_Click);
    AddMenuItem(controlsMenu_, "mnuControlsCancel", "&Cancel", {}, &Form1::mnuControlsCancel_Click);
    AddSeparator(controlsMenu_, "mnuControlsBarDown");
    AddMenuItem(controlsMenu_, "mnuViewStepWin", "&Properties", QKeySequence(Q("Ctrl+P")),
                &Form1::mnuViewStepWin_Click);

    QMenu* view = bar->addMenu(Q("&View"));
    view->setObjectName(Q("mnuView"));
    QAction* log = AddMenuItem(view, "mnuViewLog", "Server &Log", QKeySequence(Q("Ctrl+L")), nullptr);
    connect(log, &QAction::triggered, this, [this] {
        if (ShowServerLog) ShowServerLog();
    });
    AddSeparator(view, "mnuViewBar3");
    AddMenuItem(view, "mnuViewRefresh", "&Refresh", QKeySequence(Qt::Key_F5),
                &Form1::mnuViewRefresh_Click);
    AddSeparator(view, "mnuViewBar1");
    const std::pair<const char*, const char*> nodes[] = {
        {"mnuViewAll", "Jobs"}, {"mnuViewRun", "Running"}, {"mnuViewReady", "Ready"},
        {"mnuViewWait", "Waiting"}, {"mnuViewCom", "Complete"}};
    const char* captions[] = {"&All Tasks", "R&unning Tasks", "R&eady Tasks", "&Waiting Tasks",
                              "&Complete Tasks"};
    for (size_t i = 0; i < std::size(nodes); ++i) {
        QAction* action = AddMenuItem(view, nodes[i].first, captions[i],
                                      i == 0 ? QKeySequence(Q("Ctrl+A")) : QKeySequence(), nullptr);
        const std::string node = nodes[i].second;
        connect(action, &QAction::triggered, this, [this, node] { views_->SelectNode(node); });
    }
    AddSeparator(view, "mnuViewBar4");
    AddMenuItem(view, "mnuViewProp", "&Options", QKeySequence(Q("Ctrl+O")),
                &Form1::mnuViewProp_Click);

    QMenu* help = bar->addMenu(Q("&Help"));
    help->setObjectName(Q("mnuHelp"));
    AddMenuItem(help, "mnuHelpContents", "&Contents", QKeySequence(Qt::Key_F1),
                &Form1::mnuHelpContents_Click);
    QAction* support = AddMenuItem(help, "mnuHelpSupport", "Orvantis Support", {}, nullptr);
    connect(support, &QAction::triggered, this, [this] {
        if (ShowSupportPage) ShowSupportPage();
    });
    AddSeparator(help, "mnuHelpBar1");
    QAction* about = AddMenuItem(help, "mnuHelpAbout", "&About Orvantis Server", {}, nullptr);
    connect(about, &QAction::triggered, this, [this] {
        if (ShowAboutBox) ShowAboutBox();
    });
}

void Form1::BuildToolbar() {
    toolbar_ = addToolBar(Q("Toolbar1"));
    toolbar_->setObjectName(Q("Toolbar1"));
    toolbar_->setMovable(false);
    toolbar_->setFloatable(false);
    toolbar_->setToolButtonStyle(Qt::ToolButtonTextUnderIcon);
    toolbar_->setIconSize(QSize(24, 24));
    toolbar_->setContextMenuPolicy(Qt::PreventContextMenu);
    for (const ToolButton& button : kToolButtons) {
        QAction* action = toolbar_->addAction(ImageIcon(Q(button.image)), Q(button.caption));
        action->setObjectName(Q(button.key));
        action->setToolTip(Q(button.toolTip));
        const QString key = Q(button.key);
        connect(action, &QAction::triggered, this, [this, key] { Toolbar1_ButtonClick(key); });
        if (button.separatorAfter) toolbar_->addSeparator();
    }
}

void Form1::BuildPanes() {
    client_ = new QWidget(this);
    client_->setObjectName(Q("Client"));
    setCentralWidget(client_);
    client_->installEventFilter(this);
    for (int i = 0; i < 2; ++i) {
        lines_[i] = new QFrame(client_);
        lines_[i]->setObjectName(Q(i == 0 ? "ucLN1" : "ucLN2"));
        lines_[i]->setFrameShape(QFrame::HLine);
        lines_[i]->setFrameShadow(QFrame::Sunken);
    }

    tree_ = new QTreeWidget(client_);
    tree_->setObjectName(Q("TreeView1"));
    tree_->setHeaderHidden(true);
    tree_->setIconSize(QSize(16, 16));
    connect(tree_, &QTreeWidget::currentItemChanged, this,
            [this](QTreeWidgetItem* item) { OnTreeItemChanged(item); });
    connect(tree_, &QTreeWidget::itemClicked, this,
            [this](QTreeWidgetItem* item) { OnTreeItemChanged(item); });

    auto makeList = [this](const char* name, ViewTableModel& model) {
        auto* view = new QTreeView(client_);
        view->setObjectName(Q(name));
        view->setRootIsDecorated(false);
        view->setUniformRowHeights(true);
        view->setAlternatingRowColors(true);
        view->setSelectionBehavior(QAbstractItemView::SelectRows);
        view->setSelectionMode(QAbstractItemView::SingleSelection);
        view->setAllColumnsShowFocus(true);
        view->setEditTriggers(QAbstractItemView::NoEditTriggers);
        view->setItemsExpandable(false);
        view->header()->setStretchLastSection(false);
        view->header()->setTextElideMode(Qt::ElideRight);
        view->header()->setSectionsMovable(false);
        view->setModel(&model);
        return view;
    };
    taskView_ = makeList("TaskView", *taskModel_);
    taskView_->header()->setSectionsClickable(true);
    taskView_->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(taskView_->header(), &QHeaderView::sectionClicked, this,
            [this](int section) { views_->SortOnColumn(section); });
    connect(taskView_, &QTreeView::clicked, this, &Form1::OnTaskRowActivated);
    connect(taskView_->selectionModel(), &QItemSelectionModel::currentRowChanged, this,
            [this](const QModelIndex& current) {
                if (!syncing_ && current.isValid() &&
                    taskModel_->KeyAt(current.row()).toStdString() != views_->SelectedTask())
                    OnTaskRowActivated(current);
            });
    connect(taskView_, &QTreeView::doubleClicked, this, [this] { mnuViewStepWin_Click(); });
    connect(taskView_, &QWidget::customContextMenuRequested, this, &Form1::OnTaskContextMenu);

    stepView_ = makeList("StepView", *stepModel_);
    FlatHead(stepView_->header());
    connect(stepView_->selectionModel(), &QItemSelectionModel::currentRowChanged, this,
            [this](const QModelIndex& current) { OnStepCurrentChanged(current); });

    imgSplitter_ = new QWidget(client_);
    imgSplitter_->setObjectName(Q("imgSplitter"));
    imgSplitter_->setCursor(Qt::SplitHCursor);
    imgSplitter_->installEventFilter(this);
    picSplitter_ = new QWidget(client_);
    picSplitter_->setObjectName(Q("picSplitter"));
    picSplitter_->setAutoFillBackground(true);
    QPalette dark = picSplitter_->palette();
    dark.setColor(QPalette::Window, palette().color(QPalette::Dark));
    picSplitter_->setPalette(dark);
    picSplitter_->hide();
}

void Form1::BuildStatusBar() {
    QStatusBar* bar = statusBar();
    bar->setObjectName(Q("StatusBar1"));
    bar->setSizeGripEnabled(true);
    for (size_t i = 0; i < panels_.size(); ++i) {
        panels_[i] = new QLabel(bar);
        panels_[i]->setObjectName(QStringLiteral("Panel%1").arg(i + 1));
        panels_[i]->setFrameStyle(QFrame::Panel | QFrame::Sunken);
        panels_[i]->setContentsMargins(4, 0, 4, 0);
        // The counts share what the time and the date leave of a narrow window.
        if (i < 4) panels_[i]->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
        panels_[i]->setMinimumWidth(i < 4 ? 60 : 0);
        bar->addPermanentWidget(panels_[i], i < 4 ? 1 : 0);
    }
    auto* clock = new QTimer(this);
    connect(clock, &QTimer::timeout, this, &Form1::ShowClock);
    clock->start(1000);
    ShowClock();
}

void Form1::ShowClock() {
    const QLocale locale;
    panels_[4]->setText(locale.toString(QTime::currentTime(), QLocale::ShortFormat));
    panels_[5]->setText(locale.toString(QDate::currentDate(), QLocale::ShortFormat));
}

void Form1::LoadAtStart() {
    const std::string help = server_.ProgramFolder + "VQSERVER.HLP";
    helpFile_ = FileExists(help).empty() ? std::string() : help;
    views_->BuildTaskColumns();
    views_->BuildStepColumns();
    views_->LoadTree();
    views_->SelectNode("Jobs", false);
    SizeControls(splitterX_);
    views_->LoadListFromTree("Jobs", true);
    views_->QueueSwitched(server_.QueueStarted);
}

void Form1::ShowAtStart() {
    Registry& reg = server_.registry;
    auto setting = [&reg](const char* name) {
        return static_cast<int>(GetSettingNumber(reg, kPlacementSection, name));
    };
    move(Pixels(setting("MainLeft")), Pixels(setting("MainTop")));
    resize(std::max(Pixels(setting("MainWidth")), minimumWidth()),
           std::max(Pixels(setting("MainHeight")), minimumHeight()));
    switch (setting("WinState")) {
        case 1:
            showMinimized();
            break;
        case 2:
            showMaximized();
            break;
        default:
            show();
    }
}

void Form1::CloseBySystem() {
    closeBySystem_ = true;
    if (!close()) closeBySystem_ = false;
}

void Form1::closeEvent(QCloseEvent* event) {
    if (ending_) return event->accept();
    // A second close while the question is open waits for the answer to the first.
    if (closing_) return event->ignore();
    const bool bySystem = std::exchange(closeBySystem_, false);
    closing_ = true;
    const bool mayClose = CloseServer(server_, bySystem);
    closing_ = false;
    if (!mayClose) return event->ignore();
    SavePlacement();
    event->accept();
}

// Only a window in its normal state tells its place and size; the state is always kept.
void Form1::SavePlacement() {
    Registry& reg = server_.registry;
    const int state = isMinimized() ? 1 : isMaximized() ? 2 : 0;
    if (state == 0) {
        const std::pair<const char*, int> values[] = {{"MainLeft", Twips(x())},
                                                      {"MainTop", Twips(y())},
                                                      {"MainWidth", Twips(width())},
                                                      {"MainHeight", Twips(height())}};
        for (const auto& [name, twips] : values)
            SaveRegSetting(reg, kPlacementSection, name, std::to_string(twips));
    }
    SaveRegSetting(reg, kPlacementSection, "WinState", std::to_string(state));
}

void Form1::resizeEvent(QResizeEvent* event) {
    QMainWindow::resizeEvent(event);
    SizeControls(splitterX_);
}

void Form1::changeEvent(QEvent* event) {
    QMainWindow::changeEvent(event);
    if (event->type() == QEvent::ActivationChange || event->type() == QEvent::WindowStateChange)
        SizeControls(splitterX_);
}

void Form1::SizeControls(int x) {
    if (isMinimized() || !client_) return;
    const int width = client_->width(), height = client_->height();
    const PaneLayout layout = SizeControlsLayout(Twips(width), Twips(height), x);
    auto place = [this](QWidget* widget, const QRect& twips) {
        widget->setGeometry(Pixels(twips.x()), Pixels(twips.y()), Pixels(twips.width()),
                            Pixels(twips.height()));
    };
    lines_[0]->setGeometry(0, 0, width, 2);
    lines_[1]->setGeometry(0, height - 2, width, 2);
    place(tree_, layout.tree);
    place(taskView_, layout.taskView);
    place(stepView_, layout.stepView);
    place(imgSplitter_, layout.splitter);
}

bool Form1::eventFilter(QObject* watched, QEvent* event) {
    if (watched == client_ && event->type() == QEvent::Resize) SizeControls(splitterX_);
    if (watched != imgSplitter_) return QMainWindow::eventFilter(watched, event);
    auto* mouse = static_cast<QMouseEvent*>(event);
    switch (event->type()) {
        case QEvent::MouseButtonPress:
            picSplitter_->setGeometry(imgSplitter_->geometry());
            picSplitter_->show();
            picSplitter_->raise();
            splitterMoving_ = true;
            return true;
        case QEvent::MouseMove:
            if (splitterMoving_) {
                const int bar =
                    LimitSplitterBar(Twips(imgSplitter_->x() + mouse->position().toPoint().x()),
                                     Twips(client_->width()));
                picSplitter_->move(Pixels(bar), picSplitter_->y());
            }
            return true;
        case QEvent::MouseButtonRelease:
            if (splitterMoving_) {
                splitterX_ = Twips(picSplitter_->x());
                SizeControls(splitterX_);
                picSplitter_->hide();
                splitterMoving_ = false;
            }
            return true;
        default:
            return QMainWindow::eventFilter(watched, event);
    }
}

// The task views' changes, passed on to the widgets.

ViewTableModel& Form1::ModelOf(ViewList list) {
    return list == ViewList::Tasks ? *taskModel_ : *stepModel_;
}

QTreeView* Form1::ViewOf(ViewList list) { return list == ViewList::Tasks ? taskView_ : stepView_; }

void Form1::NodeAdded(const TreeNode& node) {
    QTreeWidgetItem* parent = nodeItems_.value(QString::fromStdString(node.parent));
    auto* item = parent ? new QTreeWidgetItem(parent) : new QTreeWidgetItem(tree_);
    item->setText(0, QString::fromStdString(node.text));
    item->setIcon(0, ImageIcon(QString::fromStdString(node.image)));
    item->setData(0, Qt::UserRole, QString::fromStdString(node.key));
    item->setExpanded(node.expanded);
    nodeItems_.insert(QString::fromStdString(node.key), item);
}

void Form1::NodeSelected(const std::string& key) {
    ++syncing_;
    if (QTreeWidgetItem* item = nodeItems_.value(QString::fromStdString(key)))
        tree_->setCurrentItem(item);
    --syncing_;
}

void Form1::OnTreeItemChanged(QTreeWidgetItem* item) {
    if (syncing_ || !item) return;
    views_->SelectNode(item->data(0, Qt::UserRole).toString().toStdString());
}

void Form1::BeforeInsert(ViewList list, size_t position) {
    ++syncing_;
    ModelOf(list).BeforeInsert(position);
}

void Form1::AfterInsert(ViewList list) {
    ModelOf(list).AfterInsert();
    --syncing_;
}

void Form1::BeforeRemove(ViewList list, size_t position) {
    ++syncing_;
    ModelOf(list).BeforeRemove(position);
}

void Form1::AfterRemove(ViewList list) {
    ModelOf(list).AfterRemove();
    --syncing_;
}

void Form1::BeforeReset(ViewList list) {
    ++syncing_;
    ModelOf(list).BeforeReset();
}

void Form1::AfterReset(ViewList list) {
    ModelOf(list).AfterReset();
    ApplyColumnWidths(list);
    --syncing_;
}

void Form1::CellChanged(ViewList list, size_t position, int column) {
    ModelOf(list).CellChanged(position, column);
}

void Form1::SelectionChanged(ViewList list) {
    ++syncing_;
    QTreeView* view = ViewOf(list);
    const std::string& key = list == ViewList::Tasks ? views_->SelectedTask() : views_->SelectedStep();
    const int row = ModelOf(list).RowOf(key);
    if (row < 0) {
        view->selectionModel()->clear();
    } else {
        const QModelIndex index = ModelOf(list).index(row, 0);
        view->selectionModel()->setCurrentIndex(
            index, QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
        view->scrollTo(index, QAbstractItemView::EnsureVisible);
    }
    --syncing_;
}

void Form1::ApplyColumnWidths(ViewList list) {
    const VqTable& table = list == ViewList::Tasks ? views_->Tasks() : views_->Steps();
    QHeaderView* header = ViewOf(list)->header();
    // A width too narrow for its caption (a font wider than the one the defaults were made
    // for) takes the caption's width, so that no header is cut.
    for (size_t i = 0; i < table.Columns().size(); ++i) {
        const int section = static_cast<int>(i);
        const int pixels = Pixels(views_->ColumnWidthSetting(table.Columns()[i].key));
        header->resizeSection(section, std::max(pixels, header->sectionSizeHint(section)));
    }
}

void Form1::CommandsChanged() {
    const CommandStates& c = views_->Commands();
    const std::pair<const char*, bool> states[] = {
        {"mnuControlsReady", c.ready}, {"Run", c.ready},
        {"mnuControlsHold", c.hold},   {"Pause", c.hold},
        {"mnuControlsCancel", c.cancel}, {"Stop", c.cancel},
        {"mnuViewStepWin", c.stepWin}, {"Prop", c.stepWin},
        {"mnuViewRefresh", c.refresh}, {"Refresh", c.refresh},
        {"Previous", c.previous},      {"Next", c.next},
        {"mnuFileStartQ", c.startQ},   {"StartQ", c.startQ},
        {"mnuFileStopQ", c.stopQ},     {"StopQ", c.stopQ}};
    for (const auto& [name, enabled] : states)
        if (auto* action = findChild<QAction*>(Q(name))) action->setEnabled(enabled);
}

void Form1::StatusChanged() {
    const auto& texts = views_->StatusPanels();
    for (size_t i = 0; i < texts.size(); ++i) panels_[i]->setText(QString::fromStdString(texts[i]));
}

// The operator's clicks.

void Form1::OnTaskRowActivated(const QModelIndex& index) {
    if (index.isValid()) views_->TaskRowClicked(taskModel_->KeyAt(index.row()).toStdString());
}

void Form1::OnTaskContextMenu(const QPoint& at) {
    const QModelIndex index = taskView_->indexAt(at);
    if (!index.isValid()) return;
    views_->SelectTaskRow(taskModel_->KeyAt(index.row()).toStdString());
    controlsMenu_->popup(taskView_->viewport()->mapToGlobal(at));
}

void Form1::OnStepCurrentChanged(const QModelIndex& index) {
    if (!syncing_ && index.isValid())
        views_->StepRowClicked(stepModel_->KeyAt(index.row()).toStdString());
}

// Screen.

void Form1::LoadTree() { views_->LoadTree(); }

void Form1::SaveColumnWidths() {
    auto widths = [this](ViewList list) {
        std::vector<int> twips;
        const QHeaderView* header = ViewOf(list)->header();
        for (int i = 0; i < header->count(); ++i) twips.push_back(Twips(header->sectionSize(i)));
        return twips;
    };
    views_->SaveColumnWidths(widths(ViewList::Tasks), widths(ViewList::Steps));
}

void Form1::QueueSwitched(bool started) { views_->QueueSwitched(started); }

// Commands.

void Form1::mnuFileStartQ_Click() { QSS(server_, true); }

void Form1::mnuFileStopQ_Click() { QSS(server_, false); }

void Form1::mnuFileFolder_Click() {
    if (ShowQueueFolderDialog) ShowQueueFolderDialog();
    if (!ReadServerPath(server_) || !CheckQueueFolders(server_, server_.ServerPath)) {
        ending_ = true;
        EndProgram();
        return;
    }
    server_.InQueuePath = server_.ServerPath + "$InQ/";
    server_.DataPath = server_.ServerPath + "$Data/";
    SaveQueueDatabase(server_);
}

void Form1::mnuControlsReady_Click() {
    if (!views_->SelectedTask().empty()) ReleaseTaskRow(server_, views_->SelectedTask());
}

void Form1::mnuControlsHold_Click() {
    if (!views_->SelectedTask().empty()) HoldTaskRow(server_, views_->SelectedTask());
}

void Form1::mnuControlsCancel_Click() {
    const std::string key = views_->SelectedTask();
    if (key.empty()) return;
    if (!server_.op.AskYesNo("Are you sure you want to cancel \"" + key + "\" task?", kAppTitle))
        return;
    // The task may have gone while the question was open.
    std::string text;
    if (!GetRowText(server_.tables, kTaskTable, key, text)) return;
    SetCell(server_.tables, kTaskTable, key, "RepCancel", "0");
    RequestCancel(server_, key);
}

void Form1::mnuViewStepWin_Click() {
    const std::string key = views_->SelectedTask();
    if (key.empty()) {
        server_.op.Message("No Task Selected!", MessageIcon::Information, kAppTitle);
        return;
    }
    if (OpenPropertiesWindow) OpenPropertiesWindow(key);
}

void Form1::mnuViewRefresh_Click() { views_->mnuViewRefresh_Click(); }

void Form1::mnuViewProp_Click() {
    SaveColumnWidths();
    if (ShowOptionsDialog) ShowOptionsDialog();
}

void Form1::mnuHelpContents_Click() {
    if (helpFile_.empty()) {
        server_.op.Message(
            "Unable to display Help Contents. There is no Help associated with this project.",
            MessageIcon::Information, kAppTitle);
        return;
    }
    if (!QDesktopServices::openUrl(QUrl::fromLocalFile(QString::fromStdString(helpFile_))))
        server_.op.Message("No viewer could open the help file " + helpFile_ + ".",
                           MessageIcon::Exclamation, kAppTitle);
}

// Without a selected row only the refresh and the queue buttons act; every click that acts
// ends with the screen refresh.
void Form1::Toolbar1_ButtonClick(const QString& key) {
    const bool queueOrRefresh =
        key == Q("Refresh") || key == Q("StartQ") || key == Q("StopQ");
    if (!queueOrRefresh && (views_->Tasks().RowCount() == 0 || views_->SelectedTask().empty()))
        return;
    if (key == Q("Run")) mnuControlsReady_Click();
    else if (key == Q("Pause")) mnuControlsHold_Click();
    else if (key == Q("Stop")) mnuControlsCancel_Click();
    else if (key == Q("Previous")) views_->SelectNeighbour(-1);
    else if (key == Q("Next")) views_->SelectNeighbour(1);
    else if (key == Q("Prop")) mnuViewStepWin_Click();
    else if (key == Q("StartQ")) mnuFileStartQ_Click();
    else if (key == Q("StopQ")) mnuFileStopQ_Click();
    views_->mnuViewRefresh_Click();
}

}  // namespace vq
