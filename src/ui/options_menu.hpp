// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <QMenu>

#include <functional>

namespace corvane {

// The submenu "Corvane Vertical Options" of the Tools menu: checkable entries for the options of
// the current profile. UI thread only.
class OptionsMenu : public QMenu {
    Q_OBJECT

public:
    explicit OptionsMenu(QWidget *parent);

private:
    void add(
        const char *text, const char *tool_tip, bool (*read)(), std::function<void(bool)> change);
    void change_reconnects(bool enabled);
};

} // namespace corvane
