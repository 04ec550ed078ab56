#ifndef PATHS_H
#define PATHS_H

#include <QString>

// The program's own files stay beside the executable while that folder can be
// written (a build folder, a portable copy). An installed program (one with
// its menu entry in ../share/applications) or one that cannot write there
// keeps them in the user's folders instead: the settings in the config
// location (~/.config/vendscope), the rest in the data location
// (~/.local/share/vendscope).
enum class Place {
    Settings, // settings.ini
    Firmware, // the firmware the box is flashed with
    Captures, // the live captures
    Logs,     // where the Save and Log dialogs start
};

// The path for place; a per-user folder it lies in is created first.
QString userPath(Place place);

#endif // PATHS_H
