#pragma once
// The window's images by their keys: the toolbar's run, hold, stop, prev, next, prop, ref,
// runq, stopq and the tree's Jobs, Running, Ready, Waiting, Complete, Domain, User. Drawn
// here, so that the window needs no image files.
#include <QIcon>
#include <QString>

namespace vq {

// An empty icon for a key that names no image.
QIcon ImageIcon(const QString& key);

}  // namespace vq
