#pragma once
// Small aids of the windows: etched lines as controls and on a surface, the minimum size of a
// window, the height of a window's frame, the file chooser and the flat list header.
#include <QPoint>
#include <QPointer>
#include <QSize>
#include <QString>
#include <string>

class QFont;
class QPlainTextEdit;

class QFrame;
class QHeaderView;
class QWidget;

namespace vq {

// A horizontal (ucLN) and a vertical (ucLNV) etched line: a dark and a light line side by side
// that run the control's full length whatever its size.
QFrame* ucLN(const char* name, QWidget* parent = nullptr);
QFrame* ucLNV(const char* name, QWidget* parent = nullptr);

// An etched line drawn on a surface that keeps it through every repaint until Clear.
class VqLine {
  public:
    VqLine() = default;
    ~VqLine();
    VqLine(const VqLine&) = delete;
    VqLine& operator=(const VqLine&) = delete;

    // Stores the place, the surface, the direction and the length, and draws.
    void InitVqLine(QPoint at, QWidget* surface, Qt::Orientation direction, int length);
    void Refresh();
    void Clear();

  private:
    class Painter;
    QPointer<QWidget> surface_;
    Painter* painter_ = nullptr;
};

// The smallest size the operator can give `window`; a size of 0 by 0 takes the limit off.
void FixResize(QWidget& window, QSize minimum);
// What the frame of a window adds to its client area.
QSize TrueWindowSize(const QWidget& window);
// The file chooser: the chosen full name, or the empty text. With `existingFile` only a file
// that exists can be chosen.
std::string ComDial(QWidget* parent, const QString& filter, const QString& startFolder,
                    const QString& title, bool existingFile);
// The read-only box that shows a text file (a log, a report) as it stands: `RichTextBox1`, no
// wrapping, in `font`.
QPlainTextEdit* NewFileTextBox(const QFont& font);
// A file's bytes for that box: the file keeps CR LF, the box wants plain line feeds.
QString FileTextForTheBox(const std::string& bytes);
// Gives a list's column header the flat look: captions, not buttons.
void FlatHead(QHeaderView* header);

}  // namespace vq
