// SPDX-License-Identifier: GPL-2.0-or-later
// Where the dock is in the host's main window, kept in the global config. UI thread.
#pragma once

class QDockWidget;
class QMainWindow;

namespace corvane {

// Puts the dock where the user left it. Without anything written by the user it floats, visible.
void restore_dock_placement(QMainWindow &window, QDockWidget &dock);

// Writes where the dock is; the file is saved later.
void record_dock_placement(QMainWindow &window, QDockWidget &dock);

} // namespace corvane
